// Each system has its own way: linux/unlock.cpp, macos/restrictions.cpp.
#pragma once

namespace platform::posix {

// Takes off an entry of an open folder what keeps its owner from removing it or what is in it, as far as that goes: of
// a folder the mode, on macOS also locks and access control lists. Of a link itself, not of what it leads to. `type`:
// DT_DIR, DT_REG, …
void unlock(int folder, const char* name, unsigned char type);

} // namespace platform::posix
