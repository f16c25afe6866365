// What KORB_GetLastError lets through of a record, beside the same filter on code points.
//
// Fields of an input: the record's code, its extended text, the function's argument; the last two may be missing.
#include "fuzz/target.h"

#include "frame/error_model.h"
#include "frame/fmx_text.h"
#include "frame/functions.h"

#include <algorithm>
#include <charconv>
#include <cstdint>

namespace {

std::u16string filtered(std::string_view text)
{
    const std::u16string_view signs = u"_.-/ ";
    std::u16string answer = fuzz::referenceUtf16(text);
    std::erase_if(answer, [signs](char16_t unit) {
        const bool isLetter = (unit >= u'a' && unit <= u'z') || (unit >= u'A' && unit <= u'Z');
        const bool isDigit = unit >= u'0' && unit <= u'9';
        return !isLetter && !isDigit && signs.find(unit) == std::u16string_view::npos;
    });
    return answer;
}

std::u16string lastError(const std::optional<std::u16string>& argument)
{
    const fmx::ExprEnvUniquePtr environment;
    const fmx::DataVectUniquePtr arguments;
    if (argument) {
        const fmx::DataUniquePtr value;
        value->SetAsText(*frame::makeText(*argument), *fmx::LocaleUniquePtr());
        arguments->PushBack(*value);
    }
    const fmx::DataUniquePtr result;
    FUZZ_CHECK(KORB_GetLastError(189, *environment, *arguments, *result) == 0);
    return frame::textUnits(result->GetAsText());
}

// No character outside of ASCII has one of these letters as its capital.
bool asksForNumber(std::u16string_view argument)
{
    const std::u16string_view word = u"number";
    return std::equal(argument.begin(), argument.end(), word.begin(), word.end(),
                      [](char16_t unit, char16_t letter) { return unit == letter || unit == letter - 0x20; });
}

} // namespace

void fuzz::test(std::string_view input)
{
    const auto parts = fields(input, 1);
    std::int32_t code = 0;
    std::from_chars(parts[0].data(), parts[0].data() + parts[0].size(), code);
    const auto extended = parts.size() > 1 ? std::optional<std::string>(parts[1]) : std::nullopt;
    const auto argument = parts.size() > 2 ? std::optional<std::u16string>(anyUnits(parts[2])) : std::nullopt;

    frame::lastErrors().setError(code, 0, extended);
    const std::string message = std::string(frame::messageOf(code)) + (extended ? " " + *extended : "");
    const std::string number = std::to_string(code);
    for (int turn = 0; turn < 2; ++turn) { // it doesn't clear the record
        FUZZ_CHECK(lastError(std::nullopt) == filtered(message));
        FUZZ_CHECK(lastError(argument) == filtered(argument && asksForNumber(*argument) ? number : message));
    }
    frame::lastErrors().clearError();
    FUZZ_CHECK(lastError(std::nullopt) == u"Success" && lastError(u"Number") == u"0");
}
