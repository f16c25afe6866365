// Failures of system calls: as they travel up from where they happened, and in words for a person.
#pragma once

#include "platform/outcome.h"

#include <memory>
#include <string>
#include <string_view>
#include <utility>

namespace platform::posix {

// "could not copy /a/b: No space left on device": `action` is a verb with its object's place left to `path` (file
// system bytes); bytes that aren't UTF-8 are replaced, and of what is longer than PATH_MAX the middle is left out.
// `error`: an errno value, in the words of the process's locale.
Outcome systemFailure(std::string_view action, std::string_view path, int error);

// The same with a reason of our own.
Outcome failureBecause(std::string_view action, std::string_view path, std::string_view reason);

// Why a step failed, on which side of a copy, and where below the item that the call is about: enough to put it into
// words once, where the item's paths are known. Small, for a walk passes one on for every entry.
struct [[nodiscard]] Failure {
    enum class Side { source, target };

    int error = 0;                // errno value
    const char* reason = nullptr; // of our own, in place of the system's; lives for ever
    Side side = Side::source;
    std::unique_ptr<const std::string> path{}; // "" for the item itself, or "/a/b"; null where nobody has said yet

    static Failure ofSource(int error) { return {.error = error}; }
    static Failure ofTarget(int error) { return {.error = error, .side = Side::target}; }
    static Failure because(const char* reason) { return {.reason = reason}; }

    // The same failure, of something below the item.
    Failure at(std::string where) &&
    {
        path = std::make_unique<const std::string>(std::move(where));
        return std::move(*this);
    }

    explicit operator bool() const { return error != 0 || reason != nullptr; }

    // Success where there is no failure. `action`: of the source, such as "copy"; a target was to be written. The
    // paths, in file-system bytes, are the item's; the target's may be left out where there is none.
    Outcome outcome(std::string_view action, std::string_view source, std::string_view target = {}) const;
};

} // namespace platform::posix
