// The messages of the plug-in's errors, asked of the plug-in's own code rather than written down a second time.
#include "frame/error_model.h"
#include "frame/functions.h"
#include "host/base/plugin.h"
#include "host/reference/reference.h"

namespace fmxhost::reference {

namespace {

constexpr int lowestErrorCode = -9999;
constexpr std::string_view systemText = "…";

} // namespace

std::string lastErrorText(const ErrorCase& error)
{
    std::optional<std::string> extended;
    if (error.extension != ExtendedText::none) {
        extended = error.extended;
    }
    frame::lastErrors().setError(error.code, 0, extended);
    fmxkit::ExternalFunction getLastError;
    getLastError.handler = KORB_GetLastError;
    std::string text = Plugin::call(getLastError, {}).value.utf8();
    frame::clearLastError();
    if (error.extension == ExtendedText::system) {
        text += systemText;
    }
    return text;
}

std::vector<Message> allMessages()
{
    const std::string_view unknown = frame::messageOf(lowestErrorCode);
    std::vector<Message> messages;
    for (int code = -1; code > lowestErrorCode; --code) {
        const std::string_view message = frame::messageOf(code);
        if (message != unknown) {
            messages.push_back({code, lastErrorText({code, ExtendedText::none, {}, {}})});
        }
    }
    return messages;
}

} // namespace fmxhost::reference
