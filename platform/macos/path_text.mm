#import "platform/macos/cocoa_text.h"

namespace platform {

using namespace cocoa;

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
    return guarded(PathText(path), [&] {
        return unitsOf([stringFrom(path) stringByAppendingPathComponent:stringFrom(component)]);
    });
}

PathText standardized(PathView path)
{
    return guarded(PathText(path), [&] { return unitsOf([stringFrom(path) stringByStandardizingPath]); });
}

} // namespace platform
