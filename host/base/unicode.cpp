#include "host/base/unicode.h"

#include <unicode/uchar.h>
#include <unicode/unistr.h>
#include <unicode/utf16.h>

#include <wchar.h> // NOLINT(modernize-deprecated-headers): wcwidth() is of POSIX

#include <algorithm>
#include <limits>
#include <stdexcept>

namespace fmxhost {
namespace {

// ICU counts in signed 32 bits.
template <typename Unit>
std::int32_t icuLength(std::basic_string_view<Unit> text)
{
    if (text.size() > static_cast<std::size_t>(std::numeric_limits<std::int32_t>::max() / 4)) {
        throw std::length_error("the text is too long to be converted");
    }
    return static_cast<std::int32_t>(text.size());
}

// Shares the text's units.
icu::UnicodeString icuText(std::u16string_view text)
{
    constexpr UBool isTerminated = 0;
    return {isTerminated, text.data(), icuLength(text)};
}

std::u16string unitsOf(const icu::UnicodeString& text)
{
    return {text.getBuffer(), static_cast<std::size_t>(text.length())};
}

} // namespace

std::string toUtf8(std::u16string_view text)
{
    std::string result;
    return icuText(text).toUTF8String(result);
}

std::u16string toUtf16(std::string_view text)
{
    return unitsOf(icu::UnicodeString::fromUTF8({text.data(), icuLength(text)}));
}

bool isValidUtf8(std::string_view text)
{
    return toUtf8(toUtf16(text)) == text;
}

std::u16string foldCase(std::u16string_view text)
{
    icu::UnicodeString result(text.data(), icuLength(text)); // of its own, which it changes
    return unitsOf(result.foldCase());
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
