#include "encoding.h"

#include <FMXText.h>

#include <unicode/utf16.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <stdexcept>

namespace fmxkit {
namespace {

constexpr UChar32 replacementCharacter = 0xFFFD;

// How many leading bytes are ASCII, looked at in words.
std::size_t asciiPrefix(const char* bytes, std::size_t size)
{
    std::size_t i = 0;
    for (std::uint64_t word = 0; i + sizeof word <= size; i += sizeof word) {
        std::memcpy(&word, bytes + i, sizeof word);
        if ((word & 0x8080808080808080U) != 0) {
            break;
        }
    }
    while (i < size && static_cast<unsigned char>(bytes[i]) < 0x80) {
        ++i;
    }
    return i;
}

// Decodes one character that isn't ASCII. A broken one counts as far as it could have been the start of a valid one
// (Unicode 15, table 3-7: only the second byte's range depends on the first).
UChar32 nextUtf8(std::string_view bytes, std::size_t& i)
{
    const auto byteAt = [&](std::size_t index) { return static_cast<unsigned char>(bytes[index]); };
    const unsigned first = byteAt(i++);
    if (first < 0xC2 || first > 0xF4) {
        return replacementCharacter;
    }
    const int more = first < 0xE0 ? 1 : (first < 0xF0 ? 2 : 3);
    unsigned low = first == 0xE0 ? 0xA0 : (first == 0xF0 ? 0x90 : 0x80);
    unsigned high = first == 0xED ? 0x9F : (first == 0xF4 ? 0x8F : 0xBF);
    unsigned character = first & (0x3FU >> more);
    for (int n = 0; n < more; ++n) {
        if (i == bytes.size() || byteAt(i) < low || byteAt(i) > high) {
            return replacementCharacter;
        }
        character = character << 6 | (byteAt(i++) & 0x3FU);
        low = 0x80;
        high = 0xBF;
    }
    return static_cast<UChar32>(character);
}

// Calls `ascii(bytes, size)` for runs of ASCII and `other(codePoint)` for the rest.
template <typename Ascii, typename Other>
void forEachUtf8(std::string_view bytes, Ascii&& ascii, Other&& other)
{
    for (std::size_t i = 0; i < bytes.size();) {
        const std::size_t run = asciiPrefix(bytes.data() + i, bytes.size() - i);
        ascii(bytes.data() + i, run);
        i += run;
        if (i < bytes.size()) {
            other(nextUtf8(bytes, i));
        }
    }
}

// Counts first: a long text then costs its own size and nothing more.
std::u16string decodeUtf8(std::string_view bytes)
{
    std::size_t size = 0;
    forEachUtf8(
        bytes, [&](const char*, std::size_t run) { size += run; },
        [&](UChar32 character) { size += static_cast<std::size_t>(U16_LENGTH(character)); });
    std::u16string units(size, u'\0');
    char16_t* end = units.data();
    forEachUtf8(
        bytes,
        [&](const char* run, std::size_t count) {
            end = std::transform(run, run + count, end, [](char byte) { return static_cast<char16_t>(byte); });
        },
        [&](UChar32 character) {
            if (U_IS_BMP(character)) {
                *end++ = static_cast<char16_t>(character);
            } else {
                *end++ = U16_LEAD(character);
                *end++ = U16_TRAIL(character);
            }
        });
    return units;
}

// The upper half of a single-byte encoding whose lower half is ASCII.
using UpperHalf = std::array<char16_t, 128>;

const UpperHalf& latin1()
{
    static const UpperHalf table = [] {
        UpperHalf units{};
        for (std::size_t i = 0; i < units.size(); ++i) {
            units[i] = static_cast<char16_t>(0x80 + i);
        }
        return units;
    }();
    return table;
}

// Mac OS Roman as of Mac OS 8.5, with the euro sign (unicode.org, Public/MAPPINGS/VENDORS/APPLE/ROMAN.TXT).
// clang-format off
constexpr UpperHalf macRoman{
    0x00C4, 0x00C5, 0x00C7, 0x00C9, 0x00D1, 0x00D6, 0x00DC, 0x00E1, // 80
    0x00E0, 0x00E2, 0x00E4, 0x00E3, 0x00E5, 0x00E7, 0x00E9, 0x00E8, // 88
    0x00EA, 0x00EB, 0x00ED, 0x00EC, 0x00EE, 0x00EF, 0x00F1, 0x00F3, // 90
    0x00F2, 0x00F4, 0x00F6, 0x00F5, 0x00FA, 0x00F9, 0x00FB, 0x00FC, // 98
    0x2020, 0x00B0, 0x00A2, 0x00A3, 0x00A7, 0x2022, 0x00B6, 0x00DF, // A0
    0x00AE, 0x00A9, 0x2122, 0x00B4, 0x00A8, 0x2260, 0x00C6, 0x00D8, // A8
    0x221E, 0x00B1, 0x2264, 0x2265, 0x00A5, 0x00B5, 0x2202, 0x2211, // B0
    0x220F, 0x03C0, 0x222B, 0x00AA, 0x00BA, 0x03A9, 0x00E6, 0x00F8, // B8
    0x00BF, 0x00A1, 0x00AC, 0x221A, 0x0192, 0x2248, 0x2206, 0x00AB, // C0
    0x00BB, 0x2026, 0x00A0, 0x00C0, 0x00C3, 0x00D5, 0x0152, 0x0153, // C8
    0x2013, 0x2014, 0x201C, 0x201D, 0x2018, 0x2019, 0x00F7, 0x25CA, // D0
    0x00FF, 0x0178, 0x2044, 0x20AC, 0x2039, 0x203A, 0xFB01, 0xFB02, // D8
    0x2021, 0x00B7, 0x201A, 0x201E, 0x2030, 0x00C2, 0x00CA, 0x00C1, // E0
    0x00CB, 0x00C8, 0x00CD, 0x00CE, 0x00CF, 0x00CC, 0x00D3, 0x00D4, // E8
    0xF8FF, 0x00D2, 0x00DA, 0x00DB, 0x00D9, 0x0131, 0x02C6, 0x02DC, // F0
    0x00AF, 0x02D8, 0x02D9, 0x02DA, 0x00B8, 0x02DD, 0x02DB, 0x02C7, // F8
};
// clang-format on

// Null for UTF-8.
const UpperHalf* upperHalfOf(fmx::int32 encoding)
{
    switch (encoding) {
    case fmx::Text::kEncoding_Native:
    case fmx::Text::kEncoding_UTF8:
        return nullptr;
    case fmx::Text::kEncoding_ASCII_Mac:
        return &macRoman;
    case fmx::Text::kEncoding_ISO_8859_1:
        return &latin1();
    default:
        throw std::invalid_argument("encoding");
    }
}

UChar32 nextCharacter(std::u16string_view units, std::size_t& i)
{
    const char16_t unit = units[i++];
    if (!U16_IS_SURROGATE(unit)) {
        return unit;
    }
    if (!U16_IS_LEAD(unit) || i == units.size() || !U16_IS_TRAIL(units[i])) {
        return replacementCharacter;
    }
    return U16_GET_SUPPLEMENTARY(unit, units[i++]);
}

void writeUtf8(unsigned character, std::size_t size, char* target)
{
    constexpr unsigned marks[] = {0, 0, 0xC0, 0xE0, 0xF0};
    for (std::size_t i = size; i-- > 1; character >>= 6) {
        target[i] = static_cast<char>(0x80 | (character & 0x3F));
    }
    target[0] = static_cast<char>(marks[size] | character);
}

std::size_t encodeUtf8(std::u16string_view units, char* buffer, std::size_t capacity)
{
    std::size_t written = 0;
    for (std::size_t i = 0; i < units.size();) {
        if (units[i] < 0x80 && written < capacity) {
            buffer[written++] = static_cast<char>(units[i++]);
            continue;
        }
        const UChar32 character = nextCharacter(units, i);
        const std::size_t size = character < 0x80 ? 1U : (character < 0x800 ? 2U : (character < 0x10000 ? 3U : 4U));
        if (size > capacity - written) {
            break;
        }
        writeUtf8(static_cast<unsigned>(character), size, buffer + written);
        written += size;
    }
    return written;
}

} // namespace

std::u16string decode(std::string_view bytes, fmx::int32 encoding)
{
    const UpperHalf* const upper = upperHalfOf(encoding);
    if (upper == nullptr) {
        return decodeUtf8(bytes);
    }
    std::u16string units(bytes.size(), u'\0');
    std::transform(bytes.begin(), bytes.end(), units.begin(), [&](char byte) {
        const auto code = static_cast<unsigned char>(byte);
        return code < 0x80 ? static_cast<char16_t>(code) : (*upper)[code - 0x80U];
    });
    return units;
}

std::u16string decodeWide(std::wstring_view characters)
{
    static_assert(sizeof(wchar_t) == 4);
    std::u16string units;
    units.reserve(characters.size());
    for (const wchar_t wide : characters) {
        // NOLINTNEXTLINE(bugprone-signed-char-misuse): negative ones become too large, and that is meant
        const auto code = static_cast<std::uint32_t>(wide);
        const bool valid = code <= 0x10FFFF && !U_IS_SURROGATE(code);
        const UChar32 character = valid ? static_cast<UChar32>(code) : replacementCharacter;
        if (U_IS_BMP(character)) {
            units += static_cast<char16_t>(character);
        } else {
            units += U16_LEAD(character);
            units += U16_TRAIL(character);
        }
    }
    return units;
}

std::size_t encode(std::u16string_view units, fmx::int32 encoding, char* buffer, std::size_t capacity)
{
    const UpperHalf* const upper = upperHalfOf(encoding);
    if (upper == nullptr) {
        return encodeUtf8(units, buffer, capacity);
    }
    std::size_t written = 0;
    for (std::size_t i = 0; i < units.size() && written < capacity;) {
        const UChar32 character = nextCharacter(units, i);
        if (character < 0x80) {
            buffer[written++] = static_cast<char>(character);
            continue;
        }
        const auto* const place = std::find(upper->begin(), upper->end(), character);
        buffer[written++] = place == upper->end() ? '?' : static_cast<char>(0x80 + (place - upper->begin()));
    }
    return written;
}

} // namespace fmxkit
