// What the frameworks don't say of a tree that they copy: whether it changed meanwhile, and whether the copy is whole,
// for file systems may refuse what was written as late as when a file is closed. A move asks here before its source
// goes.
//
// Every step walks the tree by plain POSIX calls, relative to open folders: no link is followed, whoever exchanges
// what. A walk has a descriptor open for each level.
//
// Thread rule: a value belongs to one thread at a time.
#pragma once

#include "platform/macos/transfer.h"
#include "platform/outcome.h"
#include "platform/posix/copy_record.h"

#include <string>
#include <string_view>

namespace platform::macos {

class SourceTree {
public:
    // `action`: "copy" or "move"; a text that lives as long.
    SourceTree(std::string_view action, const Item& source) : action_(action), source_(source) {}

    // Takes note of every entry, before the copy. For a move, what couldn't be removed afterwards is a failure: locked
    // items, access control lists, folders that may not change, mounts.
    Outcome examine();

    // Whether what a copy made is whole: every entry that hasn't changed has its kind and size there. What has changed,
    // or is missing, is let pass in a copy and fails a move. `target`: the copy's path for messages.
    Outcome requireCopied(const std::string& copy, const std::string& target) const;

    // Removes the source of a move, each entry after another look at it. The first that isn't as it was copied, or
    // can't be removed, stops the removal and is named. A file loses its name before that look, so that nobody can open
    // it any more, and gets it back when it stays.
    Outcome remove() const;

private:
    bool isMove() const { return action_ == "move"; }

    std::string_view action_;
    const Item& source_;
    posix::CopyRecord record_;
};

// Takes away what a call has made itself, whatever restrictions it carries, as far as that goes.
void discard(const std::string& path);

} // namespace platform::macos
