// What GNUstep has no Core Foundation and Core Graphics for. The resources are those of Linux, compiled in.

#include "platform/desktop.h"
#include "platform/macos/gui_session.h"

#include <cstdlib>

namespace platform {

bool macos::hasGuiSession()
{
    const char* display = std::getenv("DISPLAY");
    return display != nullptr && *display != 0;
}

bool showAlert(std::string_view, std::string_view)
{
    return false;
}

} // namespace platform
