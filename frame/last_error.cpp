#include "frame/error_model.h"
#include "frame/fmx_text.h"
#include "frame/functions.h"

#include <string>

namespace {

// What KORB_GetLastError lets through: parentheses, line ends, colons, commas, quotes and everything outside of ASCII
// are dropped.
std::string filtered(const std::string& text)
{
    static constexpr std::string_view kept = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ1234567890_.-/ ";
    std::string passed;
    for (const char byte : text) {
        if (kept.find(byte) != std::string_view::npos) {
            passed.push_back(byte);
        }
    }
    return passed;
}

} // namespace

// Reads the record, so it is one of the functions that don't clear it.
fmx::errcode KORB_GetLastError(short, const fmx::ExprEnv&, const fmx::DataVect& arguments, fmx::Data& result)
{
    const bool asNumber = arguments.Size() > 0 && frame::uppercased(arguments.AtAsText(0)) == u"NUMBER";
    const frame::korb_Errors& errors = frame::lastErrors();
    const std::string message = filtered(asNumber ? errors.getErrorNumber() : errors.getError());

    const fmx::TextUniquePtr text;
    text->Assign(message.c_str(), fmx::Text::kEncoding_UTF8);
    const fmx::LocaleUniquePtr locale(fmx::Locale::kType_System);
    result.SetAsText(*text, *locale);
    return 0;
}
