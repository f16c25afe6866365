// Removes what an entry of an open folder is: a file, a link, a folder with everything in it. Links are never followed,
// and what is mounted inside is never emptied: a mount's root is found busy before anything in it is touched.
#pragma once

#include "platform/outcome.h"
#include "platform/posix/tree_walk.h"

#include <string_view>
#include <vector>

namespace platform::linux_os {

// Stops at the first entry that can't be removed. `path`: the entry's, in file-system bytes, for the message.
Outcome removeEntry(int folder, const char* name, std::string_view path);

// Takes away what a call has made itself, folders without write permission included, where nobody listens for a
// failure. Keeps errno.
void discardEntry(int folder, const char* name) noexcept;

// The removal, for whoever has conditions of his own.
class TreeRemoval : public posix::TreeVisitor {
public:
    posix::Failure visit(const posix::TreeEntry& entry) override;
    posix::Failure choose(const posix::TreeEntry& folder, Choice& choice) override;
    posix::Failure enter(const posix::TreeEntry& folder, int opened) override;
    posix::Failure leave(const posix::TreeEntry& folder, int left, Next& next) override;
    posix::Failure failed(const posix::TreeEntry& entry, int error) override;

protected:
    // Removes an entry that isn't a folder, under the name that it has now. One that is gone already is no failure.
    posix::Failure removeFile(const posix::TreeEntry& entry, const char* nameNow);

private:
    struct Pass {
        int number = 1;
        bool removedSomething = false;
    };

    posix::Failure removed(const posix::TreeEntry& entry, int result, int error);

    std::vector<Pass> passes_{{}}; // of the place around the root, and of every folder down to the innermost
    int nextPass_ = 1;
};

} // namespace platform::linux_os
