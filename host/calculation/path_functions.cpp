#include "host/base/unicode.h"
#include "host/calculation/built_ins.h"

#include <algorithm>
#include <charconv>
#include <string>
#include <string_view>

namespace fmxhost {
namespace {

constexpr std::string_view volumes = "/Volumes/";

// RFC 3986, of the UTF-8. What is kept stays as it is, besides letters, digits and -._~
std::string percentEncoded(const std::string& text, std::string_view kept)
{
    constexpr std::string_view unreserved = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~";
    constexpr std::string_view digits = "0123456789ABCDEF";
    std::string result;
    for (const char unit : text) {
        const auto byte = static_cast<unsigned char>(unit);
        const bool isPlain =
            unreserved.find(unit) != std::string_view::npos || kept.find(unit) != std::string_view::npos;
        result += isPlain ? std::string(1, unit) : std::string{'%', digits[byte / 16U], digits[byte % 16U]};
    }
    return result;
}

std::string percentDecoded(const std::string& text)
{
    std::string result;
    for (std::size_t at = 0; at < text.size(); ++at) {
        unsigned byte = 0;
        const char* const code = text.data() + at + 1;
        const bool isCode =
            text[at] == '%' && at + 2 < text.size() && std::from_chars(code, code + 2, byte, 16).ptr == code + 2;
        result += isCode ? static_cast<char>(byte) : text[at];
        at += isCode ? 2 : 0;
    }
    return result;
}

// FileMaker begins a path of macOS with the volume, one of Windows with "/C:/" or, on a share, "//server/".
bool isOfWindows(std::string_view path)
{
    return path.starts_with("//") || (path.starts_with('/') && path.substr(0, 3).ends_with(':'));
}

Value convertFromFileMakerPath(const Value& given, const Value& format)
{
    const std::u16string wanted = foldCase(format.text());
    std::string path = given.utf8();
    bool ofMac = !ownVolume.empty();
    const std::size_t colon = path.find(':'); // behind "file", "filemac", "imagelinux" and the like
    if (colon > 1 && colon < path.find('/')) {
        ofMac = path.substr(0, colon).ends_with("mac");
        path.erase(0, colon + 1);
    }
    if (wanted == u"winpath" && isOfWindows(path)) {
        std::replace(path.begin(), path.end(), '/', '\\');
        return {path.substr(path.starts_with("\\\\") ? 0 : 1)};
    }
    if (path == bootVolume || path.starts_with(std::string(bootVolume) + "/")) {
        path = path.size() == bootVolume.size() ? "/" : path.substr(bootVolume.size());
    } else if (ofMac && path.starts_with('/') && !isOfWindows(path) && !path.starts_with(volumes)) {
        path = std::string(volumes) + path.substr(1);
    }
    if (wanted == u"urlpath") {
        return {(path.starts_with("//") ? "file:" : "file://") + percentEncoded(path, "/:@!$&'()*+,;=")};
    }
    return wanted == u"posixpath" ? Value(path) : Value(u"?");
}

Value convertToFileMakerPath(const Value& given, const Value& format)
{
    const std::u16string from = foldCase(format.text());
    std::string path = given.utf8();
    if (from == u"winpath") {
        std::replace(path.begin(), path.end(), '\\', '/');
        path.insert(0, path.substr(1).starts_with(':') ? "/" : "");
    } else if (from == u"urlpath" && path.starts_with("file://")) {
        path = percentDecoded(path.substr(path.starts_with("file:///") ? 7 : 5));
    } else if (from != u"posixpath") {
        return {u"?"};
    }
    if (!ownVolume.empty() && path.starts_with(volumes)) {
        path.erase(0, volumes.size() - 1);
    } else if (path.starts_with('/') && !isOfWindows(path)) {
        path.insert(0, ownVolume);
    }
    return {"file:" + path};
}

} // namespace

std::vector<Function> pathFunctions()
{
    return {
        row(u"ConvertFromFileMakerPath ( fileMakerPath ; format )",
            u"A path as FileMaker writes it in the format PosixPath, WinPath or URLPath.", convertFromFileMakerPath),
        row(u"ConvertToFileMakerPath ( standardPath ; format )",
            u"A path in the format PosixPath, WinPath or URLPath as FileMaker writes it.", convertToFileMakerPath),
        row(u"GetAsURLEncoded ( text )", u"The text with its bytes as %XX where a web address needs it.",
            [](const Value& text) { return percentEncoded(text.utf8(), ""); }),
        row(u"PosixPath", u"A format of paths: /folder/file", u"PosixPath"),
        row(u"URLPath", u"A format of paths: file:///folder/file", u"URLPath"),
        row(u"WinPath", u"A format of paths: C:\\folder\\file", u"WinPath"),
    };
}

} // namespace fmxhost
