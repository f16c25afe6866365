#include "encoding.h"

#include <FMXText.h>

#include <unicode/ucnv.h>
#include <unicode/ustring.h>
#include <unicode/utf8.h>

#include <algorithm>
#include <memory>
#include <new>
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

struct Close {
    void operator()(UConverter* converter) const { ucnv_close(converter); }
};
using Converter = std::unique_ptr<UConverter, Close>;

// For an encoding of one byte a character. Mac OS Roman is that of Mac OS 8.5 and later, with the euro sign.
Converter openConverter(fmx::int32 encoding)
{
    if (encoding != fmx::Text::kEncoding_ASCII_Mac && encoding != fmx::Text::kEncoding_ISO_8859_1) {
        throw std::invalid_argument("encoding");
    }
    UErrorCode status = U_ZERO_ERROR;
    Converter converter(
        ucnv_open(encoding == fmx::Text::kEncoding_ASCII_Mac ? "macos-0_2-10.2" : "ISO-8859-1", &status));
    ucnv_setSubstChars(converter.get(), "?", 1, &status);
    expectSuccess(status);
    return converter;
}

} // namespace

std::u16string decode(std::string_view bytes, fmx::int32 encoding)
{
    const int32_t size = sizeForIcu(bytes.size());
    if (isUtf8(encoding)) {
        return converted([&](UChar* target, int32_t capacity, int32_t* written, UErrorCode* status) {
            u_strFromUTF8WithSub(target, capacity, written, bytes.data(), size, replacementCharacter, nullptr, status);
        });
    }
    const auto converter = openConverter(encoding);
    return converted([&](UChar* target, int32_t capacity, int32_t* written, UErrorCode* status) {
        *written = ucnv_toUChars(converter.get(), target, capacity, bytes.data(), size, status);
    });
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
    const auto converter = isUtf8(encoding) ? Converter() : openConverter(encoding);
    units = units.substr(0, capacity); // a unit makes a byte at least: what follows can't fit
    const int32_t size = sizeForIcu(units.size());
    const auto encodeTo = [&](char* target, std::size_t room) {
        int32_t needed = 0;
        UErrorCode status = U_ZERO_ERROR;
        if (converter) {
            needed = ucnv_fromUChars(converter.get(), target, sizeForIcu(room), units.data(), size, &status);
        } else {
            u_strToUTF8WithSub(target, sizeForIcu(room), &needed, units.data(), size, replacementCharacter, nullptr,
                               &status);
        }
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
    while (!converter && count > 0 && U8_IS_TRAIL(all[count])) {
        --count;
    }
    std::copy_n(all.data(), count, buffer);
    return count;
}

} // namespace fmxkit
