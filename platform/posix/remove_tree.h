// Removes what an entry of an open folder is: a file, a link, a folder with everything in it. Links are never followed,
// and what is mounted inside is never emptied: a mount's root is found busy before anything in it is touched.
#pragma once

#include "platform/outcome.h"
#include "platform/posix/tree_walk.h"

#include <cerrno>
#include <new>
#include <string_view>
#include <vector>

namespace platform::posix {

// Stops at the first entry that can't be removed. `path`: the entry's, in file-system bytes, for the message.
Outcome removeEntry(int folder, const char* name, std::string_view path);

// Takes away what a call has made itself, folders without write permission included, where nobody listens for a
// failure. Keeps errno.
void discardEntry(int folder, const char* name) noexcept;

// Makes an attempt that returns whether it was a success, and a second one for what passes, such as a moment without
// memory. Keeps errno.
template <typename Attempt>
void attemptTwice(Attempt&& attempt) noexcept
{
    const int saved = errno;
    bool isDone = false;
    for (int attempts = 0; attempts < 2 && !isDone; ++attempts) {
        try {
            isDone = attempt();
        } catch (const std::bad_alloc&) {
            continue;
        }
    }
    errno = saved;
}

// The removal, for whoever has conditions of his own.
class TreeRemoval : public TreeVisitor {
public:
    Failure visit(const TreeEntry& entry) override;
    Failure choose(const TreeEntry& folder, Choice& choice) override;
    Failure enter(const TreeEntry& folder, int opened) override;
    Failure leave(const TreeEntry& folder, int left, Next& next) override;
    Failure failed(const TreeEntry& entry, int error) override;

protected:
    // Removes an entry that isn't a folder, under the name that it has now. One that is gone already is no failure.
    Failure removeFile(const TreeEntry& entry, const char* nameNow);

    // Whether a folder that is chosen was walked before.
    bool isRepeated() const { return nextPass_ > 1; }

private:
    struct Pass {
        int number = 1;
        bool removedSomething = false;
    };

    Failure removed(const TreeEntry& entry, int result, int error);

    std::vector<Pass> passes_{{}}; // of the place around the root, and of every folder down to the innermost
    int nextPass_ = 1;
};

} // namespace platform::posix
