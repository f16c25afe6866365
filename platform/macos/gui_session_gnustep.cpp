#include "platform/linux/desktop_session.h"
#include "platform/macos/gui_session.h"

namespace platform::macos {

bool hasGuiSession()
{
    return linux_os::hasDisplay();
}

} // namespace platform::macos
