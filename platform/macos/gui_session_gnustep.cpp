#include "platform/linux/desktop_session.h"
#include "platform/macos/gui_session.h"

namespace platform::cocoa {

bool hasGuiSession()
{
    return linux_os::hasDisplay();
}

} // namespace platform::cocoa
