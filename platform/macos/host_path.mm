#import "platform/macos/cocoa_text.h"

#include "platform/resources.h"

namespace platform {

std::string hostApplicationPath()
{
    @autoreleasepool {
        return cocoa::utf8Of([[NSBundle mainBundle] bundlePath]);
    }
}

} // namespace platform
