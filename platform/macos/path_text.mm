#import "platform/macos/cocoa_text.h"

#include "platform/unicode.h"

#include <cstdlib>

namespace platform {

using namespace macos;

namespace {

// With a leading "~" replaced by $HOME, of which the frameworks remember what it was when the process began.
PathText fromHome(PathView path)
{
    const char* home = std::getenv("HOME");
    if (home == nullptr || home[0] != '/' || (path != u"~" && !path.starts_with(u"~/"))) {
        return PathText(path);
    }
    return utf16FromUtf8(home).append(path.substr(1));
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

PathText standardized(PathView path)
{
    return guarded(PathText(path), [&] { return unitsOf([stringFrom(fromHome(path)) stringByStandardizingPath]); });
}

} // namespace platform
