#include "archiver/entry_path.h"

#include "archiver/zip_format.h"
#include "platform/unicode.h"

#include <zlib.h>

namespace archiver {

namespace {

std::string fromCodePage437(std::string_view bytes)
{
    static constexpr std::u16string_view upperHalf =
        u"ÇüéâäàåçêëèïîìÄÅÉæÆôöòûùÿÖÜ¢£¥₧ƒáíóúñÑªº¿⌐¬½¼¡«»░▒▓│┤╡╢╖╕╣║╗╝╜╛┐"
        u"└┴┬├─┼╞╟╚╔╩╦╠═╬╧╨╤╥╙╘╒╓╫╪┘┌█▄▌▐▀αßΓπΣσµτΦΘΩδ∞φε∩≡±≥≤⌠⌡÷≈°∙·√ⁿ²■\u00a0";
    static_assert(upperHalf.size() == 128);
    std::u16string text;
    for (const char byte : bytes) {
        const auto code = static_cast<unsigned char>(byte);
        text.push_back(code < 0x80 ? static_cast<char16_t>(code) : upperHalf[code - 0x80U]);
    }
    return platform::utf8FromUtf16(text).value_or("");
}

// Version, checksum of the name in the header, text.
std::string_view textOfUnicodePath(std::span<const std::byte> field, std::string_view name)
{
    constexpr std::size_t checksum = 1, start = 5;
    if (field.size() <= start || field[0] != std::byte{1} ||
        zip::get32(field, checksum) != crc32_z(0, reinterpret_cast<const Bytef*>(name.data()), name.size())) {
        return {};
    }
    const std::string_view text(reinterpret_cast<const char*>(field.data()) + start, field.size() - start);
    return platform::isUtf8(text) ? text : std::string_view();
}

} // namespace

std::string entryName(std::string_view bytes, bool isFlaggedUtf8, std::span<const std::byte> unicodePath)
{
    const bool isText = platform::isUtf8(bytes);
    if (!isFlaggedUtf8 && (!isText || platform::isAscii(bytes))) {
        if (const std::string_view text = textOfUnicodePath(unicodePath, bytes); !text.empty()) {
            return std::string(text);
        }
    }
    return isText ? std::string(bytes) : fromCodePage437(bytes);
}

const char* appendPath(std::string& path, std::string_view name)
{
    if (name.empty()) {
        return "has no name";
    }
    if (name.front() == '/') {
        return "has an absolute name";
    }
    if (name.find('\0') != std::string_view::npos || name.find('\\') != std::string_view::npos) {
        return "has a name with a backslash or a NUL";
    }
    const std::size_t start = path.size();
    for (std::size_t from = 0; from < name.size();) {
        const std::string_view component = name.substr(from, name.find('/', from) - from);
        from += component.size() + 1;
        if (component == "..") {
            return "has a name that leads out of the destination";
        }
        if (!component.empty() && component != ".") {
            path.append(path.size() == start ? "" : "/").append(component);
        }
    }
    const auto isLetter = [](char letter) { return (letter | 0x20) >= 'a' && (letter | 0x20) <= 'z'; };
    const bool hasDrive = path.size() >= start + 2 && isLetter(path[start]) && path[start + 1] == ':';
    return hasDrive ? "has a name with a drive letter" : nullptr;
}

} // namespace archiver
