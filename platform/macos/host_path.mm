#import "platform/macos/cocoa_text.h"

#include "platform/resources.h"

namespace platform {

std::string hostApplicationPath()
{
    return macos::guarded(std::string(), [] { return macos::utf8Of([[NSBundle mainBundle] bundlePath]); });
}

} // namespace platform
