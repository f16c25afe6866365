// The platform's conversions between UTF-8 and UTF-16 beside ICU's, and how the kit cuts a text to a buffer.
#include "fuzz/target.h"

#include "platform/unicode.h"

#include <FMWrapper.h>

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

// What fits into a buffer is the text's beginning up to a whole character, and as much as fits.
void intoBuffer(const fmx::Text& text, const std::string& whole, std::size_t capacity)
{
    std::string buffer(capacity + 1, 'x');
    const std::size_t written = text.GetBytesEx(buffer.data(), static_cast<fmx::uint32>(capacity));
    FUZZ_CHECK(written <= capacity && whole.starts_with(std::string_view(buffer).substr(0, written)));
    FUZZ_CHECK(buffer[capacity] == 'x');
    FUZZ_CHECK(written == capacity || buffer[written] == '\0');
    const auto isTrail = [&whole](std::size_t at) { return at < whole.size() && (whole[at] & '\xC0') == '\x80'; };
    FUZZ_CHECK(!isTrail(written));
    std::size_t next = written + 1;
    while (isTrail(next)) {
        ++next;
    }
    FUZZ_CHECK(written == whole.size() || next > capacity);
}

void fromUtf16(std::u16string_view text, std::size_t capacity)
{
    const std::optional<std::string> expected = fuzz::referenceUtf8(text);
    const std::optional<std::string> bytes = platform::utf8FromUtf16(text);
    FUZZ_CHECK(bytes == expected);
    FUZZ_CHECK(!bytes || platform::utf16FromUtf8(*bytes) == text);
    const bool hasNul = text.find(u'\0') != std::u16string_view::npos;
    FUZZ_CHECK(platform::fileSystemRepresentation(text) == (hasNul ? std::nullopt : expected));

    std::u16string repaired(text);
    for (std::size_t i = 0; i < repaired.size(); ++i) {
        if (!fuzz::referenceUtf8(text.substr(i, 1))) {
            const bool pair = i + 1 < text.size() && fuzz::referenceUtf8(text.substr(i, 2)).has_value();
            repaired[i] = pair ? repaired[i] : replacement;
            i += pair ? 1 : 0;
        }
    }
    const std::string lenient = fuzz::referenceUtf8(repaired).value();
    const fmx::TextUniquePtr kitText;
    kitText->AssignUnicodeWithLength(reinterpret_cast<const fmx::uint16*>(text.data()),
                                     static_cast<fmx::uint32>(text.size()));
    intoBuffer(*kitText, lenient, lenient.size() + 1);
    intoBuffer(*kitText, lenient, capacity);
}

} // namespace

// The bytes as UTF-8, and in pairs as UTF-16.
void fuzz::test(std::string_view input)
{
    fromUtf8(input);
    const std::size_t capacity = input.empty() ? 0 : static_cast<unsigned char>(input.back());
    fromUtf16(anyUnits(input), capacity);
    std::u16string units(input.size() / sizeof(char16_t), u'\0');
    std::memcpy(units.data(), input.data(), units.size() * sizeof(char16_t));
    fromUtf16(units, capacity);
}
