#import "platform/macos/cocoa_text.h"

namespace platform {

using namespace cocoa;

PathText lastComponent(PathView path)
{
    @autoreleasepool {
        return unitsOf([stringFrom(path) lastPathComponent]);
    }
}

PathText deletingLastComponent(PathView path)
{
    @autoreleasepool {
        return unitsOf([stringFrom(path) stringByDeletingLastPathComponent]);
    }
}

PathText appendingComponent(PathView path, PathView component)
{
    @autoreleasepool {
        return unitsOf([stringFrom(path) stringByAppendingPathComponent:stringFrom(component)]);
    }
}

PathText standardized(PathView path)
{
    @autoreleasepool {
        return unitsOf([stringFrom(path) stringByStandardizingPath]);
    }
}

} // namespace platform
