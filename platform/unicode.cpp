#include "platform/unicode.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace platform {

namespace {

constexpr char16_t replacementCharacter = 0xFFFD;

bool isHighSurrogate(char16_t unit)
{
    return unit >= 0xD800 && unit <= 0xDBFF;
}
bool isLowSurrogate(char16_t unit)
{
    return unit >= 0xDC00 && unit <= 0xDFFF;
}

void appendCodePoint(std::string& bytes, char32_t point)
{
    const auto trail = [&bytes](char32_t bits) { bytes.push_back(static_cast<char>(0x80 | (bits & 0x3F))); };
    if (point < 0x80) {
        bytes.push_back(static_cast<char>(point));
    } else if (point < 0x800) {
        bytes.push_back(static_cast<char>(0xC0 | (point >> 6)));
        trail(point);
    } else if (point < 0x10000) {
        bytes.push_back(static_cast<char>(0xE0 | (point >> 12)));
        trail(point >> 6);
        trail(point);
    } else {
        bytes.push_back(static_cast<char>(0xF0 | (point >> 18)));
        trail(point >> 12);
        trail(point >> 6);
        trail(point);
    }
}

// What the first byte of a sequence promises: how many bytes follow, and the range of the next one (table 3-7 of the
// Unicode Standard). No bytes follow a byte that can't start a sequence.
struct Lead {
    int trailCount = 0;
    std::uint8_t low = 0x80;
    std::uint8_t high = 0xBF;
    char32_t bits = 0;
};

Lead leadOf(std::uint8_t byte)
{
    if (byte >= 0xC2 && byte <= 0xDF) {
        return {1, 0x80, 0xBF, char32_t{byte} & 0x1F};
    }
    if (byte >= 0xE0 && byte <= 0xEF) {
        const std::uint8_t low = byte == 0xE0 ? 0xA0 : 0x80;
        const std::uint8_t high = byte == 0xED ? 0x9F : 0xBF;
        return {2, low, high, char32_t{byte} & 0x0F};
    }
    if (byte >= 0xF0 && byte <= 0xF4) {
        const std::uint8_t low = byte == 0xF0 ? 0x90 : 0x80;
        const std::uint8_t high = byte == 0xF4 ? 0x8F : 0xBF;
        return {3, low, high, char32_t{byte} & 0x07};
    }
    return {};
}

// Reads one sequence that starts with a byte from 0x80 up; leaves `position` behind what it used.
char32_t readSequence(std::string_view bytes, std::size_t& position)
{
    Lead lead = leadOf(static_cast<std::uint8_t>(bytes[position]));
    ++position;
    if (lead.trailCount == 0) {
        return replacementCharacter;
    }
    char32_t point = lead.bits;
    for (int i = 0; i < lead.trailCount; ++i) {
        const auto byte = position < bytes.size() ? static_cast<std::uint8_t>(bytes[position]) : std::uint8_t{0};
        if (byte < lead.low || byte > lead.high) {
            return replacementCharacter;
        }
        point = point << 6 | (byte & 0x3F);
        lead.low = 0x80;
        lead.high = 0xBF;
        ++position;
    }
    return point;
}

} // namespace

std::optional<std::string> utf8FromUtf16(std::u16string_view text)
{
    std::string bytes;
    bytes.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        char32_t point = text[i];
        if (isHighSurrogate(text[i]) && i + 1 < text.size() && isLowSurrogate(text[i + 1])) {
            point = 0x10000 + ((point - 0xD800) << 10) + (char32_t{text[i + 1]} - 0xDC00);
            ++i;
        } else if (isHighSurrogate(text[i]) || isLowSurrogate(text[i])) {
            return std::nullopt;
        }
        appendCodePoint(bytes, point);
    }
    return bytes;
}

void appendUtf16FromUtf8(std::u16string& text, std::string_view bytes)
{
    std::size_t position = 0;
    while (position < bytes.size()) {
        if (const auto byte = static_cast<std::uint8_t>(bytes[position]); byte < 0x80) {
            text.push_back(byte);
            ++position;
            continue;
        }
        const char32_t point = readSequence(bytes, position);
        if (point < 0x10000) {
            text.push_back(static_cast<char16_t>(point));
        } else {
            text.push_back(static_cast<char16_t>(0xD7C0 + (point >> 10)));
            text.push_back(static_cast<char16_t>(0xDC00 + (point & 0x3FF)));
        }
    }
}

std::u16string utf16FromUtf8(std::string_view bytes)
{
    std::u16string text;
    text.reserve(bytes.size());
    appendUtf16FromUtf8(text, bytes);
    return text;
}

bool isAscii(std::string_view bytes)
{
    return std::all_of(bytes.begin(), bytes.end(), [](char byte) { return static_cast<unsigned char>(byte) < 0x80; });
}

bool isUtf8(std::string_view bytes)
{
    return isAscii(bytes) || utf8FromUtf16(utf16FromUtf8(bytes)) == bytes;
}

std::optional<std::string> fileSystemRepresentation(std::u16string_view path)
{
    if (path.find(u'\0') != std::u16string_view::npos) {
        return std::nullopt;
    }
    return utf8FromUtf16(path);
}

} // namespace platform
