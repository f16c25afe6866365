#include "host/base/unicode.h"

#include <unicode/uchar.h>
#include <unicode/ustring.h>
#include <unicode/utf16.h>

#include <wchar.h> // NOLINT(modernize-deprecated-headers): wcwidth() is of POSIX

#include <algorithm>
#include <cstdint>
#include <limits>
#include <stdexcept>

namespace fmxhost {
namespace {

constexpr UChar32 replacementCharacter = 0xFFFD;

// The result of one of ICU's conversions, which makes `growth` units of one at most. ICU counts in signed 32 bits.
template <typename Result, typename Text, typename Conversion>
Result converted(Text text, std::size_t growth, const Conversion& conversion)
{
    const std::size_t most = text.size() * growth;
    if (most > static_cast<std::size_t>(std::numeric_limits<std::int32_t>::max())) {
        throw std::length_error("the text is too long to be converted");
    }
    Result result(most, {});
    std::int32_t length = 0;
    UErrorCode status = U_ZERO_ERROR;
    conversion(result.data(), static_cast<std::int32_t>(most), &length, static_cast<std::int32_t>(text.size()),
               &status);
    result.resize(static_cast<std::size_t>(length));
    return result;
}

} // namespace

std::string toUtf8(std::u16string_view text)
{
    return converted<std::string>(text, 3, [&](char* result, auto most, auto* length, auto size, auto* status) {
        u_strToUTF8WithSub(result, most, length, text.data(), size, replacementCharacter, nullptr, status);
    });
}

std::u16string toUtf16(std::string_view text)
{
    return converted<std::u16string>(text, 1, [&](char16_t* result, auto most, auto* length, auto size, auto* status) {
        u_strFromUTF8WithSub(result, most, length, text.data(), size, replacementCharacter, nullptr, status);
    });
}

bool isValidUtf8(std::string_view text)
{
    return toUtf8(toUtf16(text)) == text;
}

std::u16string foldCase(std::u16string_view text)
{
    // Full folding makes three units of one at most.
    return converted<std::u16string>(text, 3, [&](char16_t* result, auto most, auto* length, auto size, auto* status) {
        *length = u_strFoldCase(result, most, text.data(), size, U_FOLD_CASE_DEFAULT, status);
    });
}

std::u16string withoutControls(std::u16string_view text, char16_t replacement, std::u16string_view kept)
{
    std::u16string result(text);
    std::replace_if(
        result.begin(), result.end(),
        [kept](char16_t unit) { return u_isISOControl(unit) != 0 && kept.find(unit) == std::u16string_view::npos; },
        replacement);
    return result;
}

Character characterAt(std::u16string_view text, std::size_t position)
{
    const char16_t unit = text[position];
    const char16_t following = position + 1 < text.size() ? text[position + 1] : u'\0';
    const bool isPair = U16_IS_LEAD(unit) && U16_IS_TRAIL(following);
    const auto value = static_cast<std::uint32_t>(isPair ? U16_GET_SUPPLEMENTARY(unit, following) : unit);
    return {value, isPair ? 2U : 1U};
}

std::size_t displayWidth(std::u16string_view text)
{
    std::size_t columns = 0;
    for (std::size_t position = 0; position < text.size();) {
        const Character character = characterAt(text, position);
        const int width = ::wcwidth(static_cast<wchar_t>(character.value));
        columns += static_cast<std::size_t>(std::max(width, 0));
        position += character.length;
    }
    return columns;
}

} // namespace fmxhost
