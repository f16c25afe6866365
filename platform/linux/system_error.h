// Failures of system calls in words for a person.
#pragma once

#include "platform/outcome.h"

#include <string_view>

namespace platform::linux_os {

// "could not copy /a/b: No space left on device": `action` is a verb with its object's place left to `path` (file
// system bytes); bytes that aren't UTF-8 are replaced, and of what is longer than PATH_MAX the middle is left out.
// `error`: an errno value, in the words of the process's locale.
Outcome systemFailure(std::string_view action, std::string_view path, int error);

// The same with a reason of our own.
Outcome failure(std::string_view action, std::string_view path, std::string_view reason);

// Why a step of a copy failed, and on which side: enough to name the right path once, where the paths are known.
struct [[nodiscard]] CopyFailure {
    enum class Side { source, target };

    Side side = Side::source;
    int error = 0;               // errno value
    const char* words = nullptr; // a reason of our own, in place of the system's; lives for ever

    static CopyFailure ofSource(int error) { return {Side::source, error, nullptr}; }
    static CopyFailure ofTarget(int error) { return {Side::target, error, nullptr}; }
    static CopyFailure because(const char* words) { return {Side::source, 0, words}; }

    explicit operator bool() const { return error != 0 || words != nullptr; }

    // `action`: "copy" or "move"; the paths in file-system bytes.
    Outcome outcome(std::string_view action, std::string_view source, std::string_view target) const
    {
        if (words != nullptr) {
            return failure(action, source, words);
        }
        return side == Side::source ? systemFailure(action, source, error) : systemFailure("write", target, error);
    }
};

} // namespace platform::linux_os
