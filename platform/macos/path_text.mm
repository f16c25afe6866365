#import "platform/macos/cocoa_text.h"

#include "platform/unicode.h"

#include <cstdlib>

namespace platform {

using namespace macos;

namespace {

// With the leading "~" replaced by $HOME, of which the frameworks remember what it was when the process began.
std::string fromHome(std::string_view path)
{
    const char* home = std::getenv("HOME");
    return home == nullptr || home[0] != '/' ? std::string(path) : std::string(home).append(path.substr(1));
}

// UTF-8 whose doubled slashes and other superfluous parts the frameworks take out.
std::string tidied(const std::string& path)
{
    return guarded(path, [&] {
        return utf8FromUtf16(unitsOf([stringFrom(utf16FromUtf8(path)) stringByStandardizingPath])).value_or(path);
    });
}

} // namespace

PathText lastComponent(PathView path)
{
    return guarded(PathText(), [&] { return unitsOf([stringFrom(path) lastPathComponent]); });
}

PathText deletingLastComponent(PathView path)
{
    return guarded(PathText(), [&] { return unitsOf([stringFrom(path) stringByDeletingLastPathComponent]); });
}

PathText appendingComponent(PathView path, PathView component)
{
    return guarded(PathText(path),
                   [&] { return unitsOf([stringFrom(path) stringByAppendingPathComponent:stringFrom(component)]); });
}

std::string standardized(std::string_view path)
{
    const std::string whole = fromHome(path);
    const bool isUtf8 = utf8FromUtf16(utf16FromUtf8(whole)) == whole;
    return isUtf8 ? tidied(whole) : whole;
}

} // namespace platform
