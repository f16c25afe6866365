// The platform's conversions between UTF-8 and UTF-16 beside ICU's.
#include "fuzz/target.h"

#include "platform/unicode.h"

#include <cstring>

namespace {

constexpr char16_t replacement = 0xFFFD;

void fromUtf8(std::string_view bytes)
{
    const std::u16string expected = fuzz::referenceUtf16(bytes);
    const std::u16string text = platform::utf16FromUtf8(bytes);
    FUZZ_CHECK(text == expected);
    std::u16string appended = u"x";
    platform::appendUtf16FromUtf8(appended, bytes);
    FUZZ_CHECK(appended == u"x" + expected);
    const bool isValid = platform::utf8FromUtf16(text) == std::string(bytes);
    FUZZ_CHECK(isValid || text.find(replacement) != std::u16string::npos);
}

void fromUtf16(std::u16string_view text)
{
    const std::optional<std::string> expected = fuzz::referenceUtf8(text);
    const std::optional<std::string> bytes = platform::utf8FromUtf16(text);
    FUZZ_CHECK(bytes == expected);
    FUZZ_CHECK(!bytes || platform::utf16FromUtf8(*bytes) == text);
    const bool hasNul = text.find(u'\0') != std::u16string_view::npos;
    FUZZ_CHECK(platform::fileSystemRepresentation(text) == (hasNul ? std::nullopt : expected));
}

} // namespace

// The bytes as UTF-8, and in pairs as UTF-16.
void fuzz::test(std::string_view input)
{
    fromUtf8(input);
    fromUtf16(anyUnits(input));
    std::u16string units(input.size() / sizeof(char16_t), u'\0');
    std::memcpy(units.data(), input.data(), units.size() * sizeof(char16_t));
    fromUtf16(units);
}
