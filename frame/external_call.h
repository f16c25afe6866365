// The common shape of every function: clear the last error, check the count, read texts, act, set the result or
// report the failure. A function's own body holds only what is its own, in the order in which it happens:
//
//     fmx::errcode KORB_FileDelete(short, const fmx::ExprEnv&, const fmx::DataVect& arguments, fmx::Data& result)
//     {
//         return externalFunction(arguments, result, [](ExternalCall& call) { … });
//     }
#pragma once

#include "frame/error_model.h"
#include "frame/fmx_sdk.h"
#include "platform/calendar.h"
#include "platform/outcome.h"
#include "platform/path_text.h"

#include <optional>
#include <string>
#include <string_view>

namespace frame {

using platform::PathText;
using platform::PathView;

// Ends a function's body with an error. It never leaves externalFunction().
struct Failure {
    ErrorCode code;
    std::optional<std::string> extended; // UTF-8
};

[[noreturn]] void fail(ErrorCode code, std::optional<std::string> extended = std::nullopt);

// Fails with `code` and the system's description unless the outcome is a success.
void orFail(ErrorCode code, const platform::Outcome& outcome);

// One call's arguments and result. Arguments are counted from 0.
class ExternalCall {
public:
    ExternalCall(const fmx::DataVect& arguments, fmx::Data& result);

    fmx::uint32 count() const;

    // Fail with "Invalid Number of Parameters" otherwise.
    void requireCount(fmx::uint32 exactly) const;
    void requireAtLeast(fmx::uint32 minimum) const;

    // The argument's text exactly as typed, in UTF-16; empty past the last argument.
    PathText text(fmx::uint32 index) const;

    // The same; an empty text fails with `whenEmpty`.
    PathText requiredText(fmx::uint32 index, ErrorCode whenEmpty,
                          const std::optional<std::string>& extended = std::nullopt) const;

    // FileMaker's own value, for the SDK's text services; valid for as long as the call lasts.
    const fmx::Text& fmxText(fmx::uint32 index) const;

    // Each sets the result. Numbers travel as doubles; texts carry the result's locale.
    void returnNumber(double value);
    void returnText(PathView text);
    void returnUtf8(std::string_view text, fmx::Text::Encoding encoding = fmx::Text::kEncoding_UTF8);
    void returnTimestamp(const platform::LocalDateTime& time);

    // A text with the locale of an argument.
    void returnTextInLocaleOf(fmx::uint32 index, PathView text);

private:
    const fmx::DataVect& arguments_;
    fmx::Data& result_;
};

// Runs `body(call)` in the common shape and returns FileMaker's 0.
template <typename Body>
fmx::errcode externalFunction(const fmx::DataVect& arguments, fmx::Data& result, Body&& body)
{
    clearLastError();
    ExternalCall call(arguments, result);
    try {
        body(call);
    } catch (Failure& failure) {
        return setErrorResult(failure.code, result, std::move(failure.extended));
    }
    return 0;
}

} // namespace frame
