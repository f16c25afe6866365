#include "fuzz/target.h"

#include <unicode/unistr.h>
#include <unicode/ustring.h>
#include <unicode/utf8.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

namespace fuzz {

void fail(const char* property, const char* file, int line)
{
    std::fprintf(stderr, "%s:%d: doesn't hold: %s\n", file, line, property);
    std::abort();
}

std::vector<std::string_view> fields(std::string_view input, std::size_t count)
{
    constexpr char separator = '\x1F';
    std::vector<std::string_view> parts;
    for (std::size_t start = 0; start <= input.size();) {
        const std::size_t end = std::min(input.find(separator, start), input.size());
        parts.push_back(input.substr(start, end - start));
        start = end + 1;
    }
    parts.resize(std::max(count, parts.size()));
    return parts;
}

std::u16string anyUnits(std::string_view bytes)
{
    std::u16string text;
    for (std::size_t position = 0; position < bytes.size();) {
        const std::size_t start = position;
        UChar32 point = 0;
        U8_NEXT(bytes.data(), position, bytes.size(), point);
        if (point > 0xFFFF) {
            text.push_back(U16_LEAD(point));
            text.push_back(U16_TRAIL(point));
        } else if (point >= 0) {
            text.push_back(static_cast<char16_t>(point));
        } else {
            for (const char ill : bytes.substr(start, position - start)) {
                const auto byte = static_cast<std::uint8_t>(ill);
                text.push_back(static_cast<char16_t>((byte < 0xC0 ? 0xDC00 : 0xD800) + byte));
            }
        }
    }
    return text;
}

std::u16string referenceUtf16(std::string_view bytes)
{
    const auto text = icu::UnicodeString::fromUTF8({bytes.data(), static_cast<std::int32_t>(bytes.size())});
    return {text.getBuffer(), static_cast<std::size_t>(text.length())};
}

std::optional<std::string> referenceUtf8(std::u16string_view text)
{
    std::string bytes(text.size() * 3, '\0');
    std::int32_t length = 0;
    UErrorCode status = U_ZERO_ERROR;
    u_strToUTF8(bytes.data(), static_cast<std::int32_t>(bytes.size()), &length, text.data(),
                static_cast<std::int32_t>(text.size()), &status);
    if (U_FAILURE(status)) {
        return std::nullopt;
    }
    bytes.resize(static_cast<std::size_t>(length));
    return bytes;
}

} // namespace fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    fuzz::test({reinterpret_cast<const char*>(data), size});
    return 0;
}
