// The user's desktop: choosing a file or a folder, and opening a file with its application.

#include "frame/external_call.h"
#include "frame/functions.h"
#include "platform/desktop.h"
#include "platform/file_manager.h"

using frame::ErrorCode;
using frame::ExternalCall;
using frame::externalFunction;

namespace {

// The panel's confirm button.
constexpr std::string_view chooserPrompt = "Select";

// The argument is never read: the panel opens where the system chooses. Cancelling isn't an error.
fmx::errcode choosePath(const fmx::DataVect& arguments, fmx::Data& result, platform::ChooserKind kind,
                        std::string_view failureText)
{
    return externalFunction(arguments, result, [&](ExternalCall& call) {
        call.requireCount(1);
        const platform::Choice choice = platform::chooseItem(kind, chooserPrompt);
        if (choice.answer == platform::Choice::Answer::failed) {
            frame::fail(ErrorCode::unableToComplete, std::string(failureText));
        }
        // The path's bytes are read in the encoding of the host's platform.
        call.returnUtf8(choice.path, fmx::Text::kEncoding_Native);
    });
}

} // namespace

fmx::errcode KORB_GetFilePath(short, const fmx::ExprEnv&, const fmx::DataVect& arguments, fmx::Data& result)
{
    return choosePath(arguments, result, platform::ChooserKind::file, "Unable to get file path");
}

fmx::errcode KORB_GetFolderPath(short, const fmx::ExprEnv&, const fmx::DataVect& arguments, fmx::Data& result)
{
    return choosePath(arguments, result, platform::ChooserKind::folder, "Unable to get folder path");
}

// Unlike any other function, it records no error for a wrong number of arguments.
fmx::errcode KORB_OpenFile(short, const fmx::ExprEnv&, const fmx::DataVect& arguments, fmx::Data& result)
{
    return externalFunction(arguments, result, [](ExternalCall& call) {
        if (call.count() != 1) {
            call.returnUtf8(frame::errorResultText);
            return;
        }
        const frame::PathText path = call.requiredText(0, ErrorCode::missingSource, "");
        if (!platform::existence(path).exists) {
            frame::fail(ErrorCode::sourceNotFound, "");
        }
        if (!platform::openWithDefaultApplication(path)) {
            frame::fail(ErrorCode::unableToComplete, "Could not open the file at that location.");
        }
        call.returnUtf8("0");
    });
}
