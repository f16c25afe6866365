#include "archive/path_parts.h"

#include "frame/fmx_sdk.h"
#include "frame/fmx_text.h"
#include "platform/desktop.h"
#include "platform/unicode.h"

#include <algorithm>
#include <cstdint>

namespace archive {

PathText getPathOfFilepath(PathView path, DotRule dotRule)
{
    if (dotRule == DotRule::required && path.find(u'.') == PathView::npos) {
        return PathText(pathErrorMarker);
    }
    return PathText(path.substr(0, getLastSlashInPath(path)));
}

PathText getFileNameOfFilepath(PathView path, PathView folder)
{
    return PathText(path.substr(path.starts_with(folder) ? folder.size() : 0));
}

std::size_t getLastSlashInPath(PathView path)
{
    const auto isSlash = [](char16_t unit) { return static_cast<std::uint8_t>(unit) == '/'; };
    const auto last = std::find_if(path.rbegin(), path.rend(), isSlash);
    return static_cast<std::size_t>(path.rend() - last);
}

PathText transformIntoAbsolutePath(PathView path)
{
    const std::size_t firstSlash = path.find(u'/');
    return PathText(firstSlash == PathView::npos ? PathView() : path.substr(firstSlash));
}

bool holdsPathErrorMarker(PathView folder)
{
    const auto isEqual = [](char16_t unit, char16_t upper) {
        return unit == upper || (unit >= u'a' && unit <= u'z' && unit - u'a' + u'A' == upper);
    };
    return std::search(folder.begin(), folder.end(), pathErrorMarker.begin(), pathErrorMarker.end(), isEqual) !=
           folder.end();
}

std::optional<std::string> CopyCFStringToCharPtr(std::optional<std::u16string_view> text)
{
    return text ? platform::fileSystemRepresentation(*text) : std::nullopt;
}

bool DisplayMessage(const char* text)
{
    const fmx::TextUniquePtr message;
    message->Assign(text, fmx::Text::kEncoding_ASCII_Mac);
    return platform::showAlert("DEBUG MESSAGE", platform::utf8FromUtf16(frame::textUnits(*message)).value_or(""));
}

} // namespace archive
