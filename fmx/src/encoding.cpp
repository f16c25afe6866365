#include "encoding.h"

#include <FMXText.h>

#include <unicode/ustring.h>
#include <unicode/utf16.h>
#include <unicode/utf8.h>

#include <algorithm>
#include <new>
#include <numeric>
#include <stdexcept>

namespace fmxkit {
namespace {

constexpr UChar32 replacementCharacter = 0xFFFD;

// Of a conversion, or of one that only counted.
void expectSuccess(UErrorCode status)
{
    if (status == U_MEMORY_ALLOCATION_ERROR) {
        throw std::bad_alloc();
    }
    if (U_FAILURE(status) && status != U_BUFFER_OVERFLOW_ERROR) {
        throw std::runtime_error(u_errorName(status));
    }
}

int32_t sizeForIcu(std::size_t size)
{
    if (size > 0x7FFFFFFF) {
        throw std::length_error("text"); // ICU counts in 32 bits, signed
    }
    return static_cast<int32_t>(size);
}

// Calls conversion(target, capacity, size, status) twice, to count and to convert: a long text then costs its own size
// and nothing more.
template <typename Conversion>
std::u16string converted(Conversion&& conversion)
{
    int32_t size = 0;
    UErrorCode status = U_ZERO_ERROR;
    conversion(nullptr, 0, &size, &status);
    expectSuccess(status);
    std::u16string units(static_cast<std::size_t>(size), u'\0');
    status = U_ZERO_ERROR;
    conversion(units.data(), size, &size, &status);
    expectSuccess(status);
    return units;
}

bool isUtf8(fmx::int32 encoding)
{
    return encoding == fmx::Text::kEncoding_Native || encoding == fmx::Text::kEncoding_UTF8;
}

// What the 256 bytes of an encoding of one byte a character stand for.
std::u16string unitsOfBytes(fmx::int32 encoding)
{
    // The upper half of Mac OS Roman as of Mac OS 8.5, with the euro sign (unicode.org,
    // Public/MAPPINGS/VENDORS/APPLE/ROMAN.TXT).
    constexpr std::u16string_view macRoman =
        u"ÄÅÇÉÑÖÜáàâäãåçéèêëíìîïñóòôöõúùûü†°¢£§•¶ß®©™´¨≠ÆØ∞±≤≥¥µ∂∑∏π∫ªº\u03A9æø"
        u"¿¡¬√ƒ≈∆«»…\u00A0ÀÃÕŒœ–—“”‘’÷◊ÿŸ⁄€‹›ﬁﬂ‡·‚„‰ÂÊÁËÈÍÎÏÌÓÔ\uF8FFÒÚÛÙıˆ˜¯˘˙˚¸˝˛ˇ";
    static_assert(macRoman.size() == 128);
    std::u16string units(256, u'\0');
    std::iota(units.begin(), units.end(), u'\0'); // as in ISO 8859-1
    if (encoding == fmx::Text::kEncoding_ASCII_Mac) {
        std::copy(macRoman.begin(), macRoman.end(), units.begin() + 128);
    } else if (encoding != fmx::Text::kEncoding_ISO_8859_1) {
        throw std::invalid_argument("encoding");
    }
    return units;
}

std::size_t encodeBytes(std::u16string_view units, std::u16string_view unitsOfBytes, char* buffer, std::size_t capacity)
{
    std::size_t count = 0;
    for (std::size_t i = 0; i < units.size() && count < capacity; ++i, ++count) {
        const std::size_t byte = unitsOfBytes.find(units[i]);
        buffer[count] = byte == std::u16string_view::npos ? '?' : static_cast<char>(byte);
        if (U16_IS_LEAD(units[i]) && i + 1 < units.size() && U16_IS_TRAIL(units[i + 1])) {
            ++i; // both units of a character are one "?"
        }
    }
    return count;
}

std::size_t encodeUtf8(std::u16string_view units, char* buffer, std::size_t capacity)
{
    units = units.substr(0, capacity); // a unit makes a byte at least: what follows can't fit
    const int32_t size = sizeForIcu(units.size());
    const auto encodeTo = [&](char* target, std::size_t room) {
        int32_t needed = 0;
        UErrorCode status = U_ZERO_ERROR;
        u_strToUTF8WithSub(target, sizeForIcu(room), &needed, units.data(), size, replacementCharacter, nullptr,
                           &status);
        expectSuccess(status);
        return static_cast<std::size_t>(needed);
    };
    const std::size_t needed = encodeTo(buffer, std::min<std::size_t>(capacity, 0x7FFFFFFF));
    if (needed <= capacity) {
        return needed;
    }
    std::string all(needed, '\0');
    encodeTo(all.data(), needed);
    std::size_t count = capacity;
    while (count > 0 && U8_IS_TRAIL(all[count])) {
        --count;
    }
    std::copy_n(all.data(), count, buffer);
    return count;
}

} // namespace

std::u16string decode(std::string_view bytes, fmx::int32 encoding)
{
    if (isUtf8(encoding)) {
        const int32_t size = sizeForIcu(bytes.size());
        return converted([&](UChar* target, int32_t capacity, int32_t* written, UErrorCode* status) {
            u_strFromUTF8WithSub(target, capacity, written, bytes.data(), size, replacementCharacter, nullptr, status);
        });
    }
    const std::u16string unitsOf = unitsOfBytes(encoding);
    std::u16string units(bytes.size(), u'\0');
    std::transform(bytes.begin(), bytes.end(), units.begin(),
                   [&unitsOf](char byte) { return unitsOf[static_cast<unsigned char>(byte)]; });
    return units;
}

std::u16string decodeWide(std::wstring_view characters)
{
    static_assert(sizeof(wchar_t) == sizeof(UChar32));
    const int32_t size = sizeForIcu(characters.size());
    return converted([&](UChar* target, int32_t capacity, int32_t* written, UErrorCode* status) {
        u_strFromUTF32WithSub(target, capacity, written, reinterpret_cast<const UChar32*>(characters.data()), size,
                              replacementCharacter, nullptr, status);
    });
}

std::size_t encode(std::u16string_view units, fmx::int32 encoding, char* buffer, std::size_t capacity)
{
    return isUtf8(encoding) ? encodeUtf8(units, buffer, capacity)
                            : encodeBytes(units, unitsOfBytes(encoding), buffer, capacity);
}

} // namespace fmxkit
