#include "platform/linux/desktop/uri.h"

#include "platform/unicode.h"

#include <algorithm>
#include <cstddef>

namespace platform::linux_os {

namespace {

// The character class functions of the C library depend on the process's locale.
bool isUnreserved(char byte)
{
    return (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') || (byte >= '0' && byte <= '9') ||
           std::string_view("-._/").find(byte) != std::string_view::npos;
}

char lowered(char byte)
{
    return byte >= 'A' && byte <= 'Z' ? static_cast<char>(byte - 'A' + 'a') : byte;
}

bool equalIgnoringCase(std::string_view text, std::string_view lowerCase)
{
    return std::equal(text.begin(), text.end(), lowerCase.begin(), lowerCase.end(),
                      [](char one, char other) { return lowered(one) == other; });
}

constexpr std::string_view hexDigits = "0123456789abcdef";

std::optional<std::string> percentDecoded(std::string_view text)
{
    std::string bytes;
    bytes.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '%') {
            bytes.push_back(text[i]);
            continue;
        }
        if (text.size() - i < 3) {
            return std::nullopt;
        }
        const std::size_t high = hexDigits.find(lowered(text[i + 1]));
        const std::size_t low = hexDigits.find(lowered(text[i + 2]));
        if (high == std::string_view::npos || low == std::string_view::npos) {
            return std::nullopt;
        }
        bytes.push_back(static_cast<char>(high * 16 + low));
        i += 2;
    }
    return bytes;
}

// Both forms of RFC 8089: "file:///path" and, with a host, "file://host/path"; "file:/path". Nothing for a host that
// isn't this machine.
std::optional<std::string_view> localPart(std::string_view uri)
{
    constexpr std::string_view scheme = "file:";
    if (!equalIgnoringCase(uri.substr(0, scheme.size()), scheme)) {
        return std::nullopt;
    }
    uri.remove_prefix(scheme.size());
    if (!uri.starts_with("//")) {
        return uri;
    }
    uri.remove_prefix(2);
    const std::string_view host = uri.substr(0, uri.find('/'));
    if (!host.empty() && !equalIgnoringCase(host, "localhost")) {
        return std::nullopt;
    }
    return uri.substr(host.size());
}

} // namespace

std::string percentEncoded(std::string_view bytes)
{
    constexpr std::string_view digits = "0123456789ABCDEF";
    std::string text;
    text.reserve(bytes.size());
    for (const char byte : bytes) {
        if (isUnreserved(byte)) {
            text.push_back(byte);
        } else {
            const auto value = static_cast<unsigned char>(byte);
            text.append({'%', digits[value >> 4U], digits[value & 15U]});
        }
    }
    return text;
}

std::optional<std::string> pathFromFileUri(std::string_view uri)
{
    const std::optional<std::string_view> encoded = localPart(uri);
    if (!encoded || !encoded->starts_with('/') || encoded->find_first_of("?#") != std::string_view::npos) {
        return std::nullopt;
    }
    std::optional<std::string> path = percentDecoded(*encoded);
    if (!path || path->find('\0') != std::string::npos || utf8FromUtf16(utf16FromUtf8(*path)) != path) {
        return std::nullopt;
    }
    while (path->size() > 1 && path->ends_with('/')) {
        path->pop_back();
    }
    return path;
}

} // namespace platform::linux_os
