// What GNUstep has no Core Foundation and Core Graphics for. The resources are those of Linux, compiled in.

#include "platform/desktop.h"
#include "platform/macos/gui_session.h"

#include <cstdlib>

namespace platform {

bool macos::hasGuiSession()
{
    return std::getenv("DISPLAY") != nullptr;
}

bool showAlert(std::string_view, std::string_view)
{
    return false;
}

} // namespace platform
