#include "host/base/unicode.h"

#include <unicode/uchar.h>
#include <unicode/ustring.h>
#include <unicode/utf16.h>

#include <limits>
#include <stdexcept>

namespace fmxhost {
namespace {

constexpr UChar32 replacementCharacter = 0xFFFD;

// ICU counts in signed 32 bits.
std::int32_t icuLength(std::size_t length)
{
    if (length > static_cast<std::size_t>(std::numeric_limits<std::int32_t>::max() / 4)) {
        throw std::length_error("the text is too long to be converted");
    }
    return static_cast<std::int32_t>(length);
}

std::size_t columnsOf(UChar32 character)
{
    switch (u_charType(character)) {
    case U_NON_SPACING_MARK:
    case U_ENCLOSING_MARK:
    case U_FORMAT_CHAR:
        return 0;
    default:
        break;
    }
    const auto width = static_cast<UEastAsianWidth>(u_getIntPropertyValue(character, UCHAR_EAST_ASIAN_WIDTH));
    return width == U_EA_WIDE || width == U_EA_FULLWIDTH ? 2 : 1;
}

} // namespace

std::string toUtf8(std::u16string_view text)
{
    std::string result(text.size() * 3, '\0'); // a UTF-16 unit needs 3 bytes at most
    std::int32_t length = 0;
    UErrorCode status = U_ZERO_ERROR;
    u_strToUTF8WithSub(result.data(), icuLength(result.size()), &length, text.data(), icuLength(text.size()),
                       replacementCharacter, nullptr, &status);
    result.resize(static_cast<std::size_t>(length));
    return result;
}

std::u16string toUtf16(std::string_view text)
{
    std::u16string result(text.size(), u'\0'); // no byte makes more than one unit
    std::int32_t length = 0;
    UErrorCode status = U_ZERO_ERROR;
    u_strFromUTF8WithSub(result.data(), icuLength(result.size()), &length, text.data(), icuLength(text.size()),
                         replacementCharacter, nullptr, &status);
    result.resize(static_cast<std::size_t>(length));
    return result;
}

bool isValidUtf8(std::string_view text)
{
    std::int32_t length = 0;
    UErrorCode status = U_ZERO_ERROR;
    u_strFromUTF8(nullptr, 0, &length, text.data(), icuLength(text.size()), &status);
    return status != U_INVALID_CHAR_FOUND;
}

std::u16string foldCase(std::u16string_view text)
{
    std::u16string result(text.size() * 3, u'\0'); // full folding makes three units of one at most
    UErrorCode status = U_ZERO_ERROR;
    const std::int32_t length = u_strFoldCase(result.data(), icuLength(result.size()), text.data(),
                                              icuLength(text.size()), U_FOLD_CASE_DEFAULT, &status);
    result.resize(static_cast<std::size_t>(length));
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
        columns += columnsOf(static_cast<UChar32>(character.value));
        position += character.length;
    }
    return columns;
}

} // namespace fmxhost
