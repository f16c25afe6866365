#include "frame/error_model.h"
#include "frame/external_call.h"
#include "frame/functions.h"
#include "log/current_logger.h"

#include <string_view>

namespace {

// Whether a text means "on": after optional blanks it begins with Y, T or a digit other than 0.
bool boolValue(std::u16string_view text)
{
    static constexpr std::u16string_view yes = u"YyTt123456789";
    const std::size_t first = text.find_first_not_of(u" \t");
    return first != std::u16string_view::npos && yes.find(text[first]) != std::u16string_view::npos;
}

} // namespace

// Neither function clears the last-error record or records anything in it: an error that came before them can still be
// read after them.

fmx::errcode KORB_LogSet(short, const fmx::ExprEnv&, const fmx::DataVect& arguments, fmx::Data& result)
{
    frame::ExternalCall call(arguments, result);
    if (call.count() == 0 || call.count() > 2) {
        call.returnUtf8(frame::errorResultText);
        return 0;
    }
    if (boolValue(call.text(0))) {
        logging::switchOn();
    } else {
        logging::switchOff();
    }
    call.returnUtf8("0");
    return 0;
}

fmx::errcode KORB_LogClear(short, const fmx::ExprEnv&, const fmx::DataVect& arguments, fmx::Data& result)
{
    if (const auto logger = logging::currentLogger()) {
        logger->ClearLog();
    }
    frame::ExternalCall(arguments, result).returnUtf8("0");
    return 0;
}
