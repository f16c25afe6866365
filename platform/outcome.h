// What a file service returns: success, or a failure in the operating system's own words.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace platform {

// A text for a failure's description: of what is longer than a path can be, and may have been typed by a caller, only
// the beginning and the end, by bytes.
inline std::string shortened(std::string_view text)
{
    constexpr std::size_t longest = 4096; // PATH_MAX of Linux; macOS has less
    if (text.size() <= longest) {
        return std::string(text);
    }
    return std::string(text.substr(0, longest / 2)).append(" ... ").append(text.substr(text.size() - longest / 2));
}

class [[nodiscard]] Outcome {
public:
    static Outcome success() { return {}; }

    // `description`: UTF-8, one sentence for a person, with the path that failed; what Cocoa calls the localized
    // description of an error.
    static Outcome failure(std::string description)
    {
        Outcome outcome;
        outcome.description_ = std::move(description);
        return outcome;
    }

    bool ok() const { return !description_.has_value(); }

    // Empty on success.
    std::string description() const { return description_.value_or(std::string()); }

private:
    std::optional<std::string> description_;
};

} // namespace platform
