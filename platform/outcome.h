// What a file service returns: success, or a failure in the operating system's own words.
#pragma once

#include <optional>
#include <string>
#include <utility>

namespace platform {

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
