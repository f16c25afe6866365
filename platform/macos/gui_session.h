// Whether there is a user at a screen.
#pragma once

namespace platform::macos {

// AppKit ends a process that reaches for the window server where there is none, as in a server's background session:
// asked before any of its classes is used.
bool hasGuiSession();

} // namespace platform::macos
