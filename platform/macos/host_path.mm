#import "platform/macos/cocoa_text.h"

#include "platform/resources.h"

namespace platform {

std::string hostApplicationPath()
{
    return cocoa::guarded(std::string(), [] { return cocoa::utf8Of([[NSBundle mainBundle] bundlePath]); });
}

} // namespace platform
