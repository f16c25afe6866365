// What keeps even its owner from renaming or removing an item: of a folder the mode; on macOS also the lock and an
// access control list.
//
// Each system has its own way: linux/restrictions.cpp, macos/restrictions.cpp.
#pragma once

namespace platform::posix {

// Gives finished work its name, as renameExclusively(). What forbids the rename is taken off, for this moment for
// everybody else's rights too, and put back under the new name.
int publish(int fromFolder, const char* from, int toFolder, const char* to);

// Takes off an entry of an open folder what keeps its owner from removing it or what is in it, as far as that goes. Of
// a link itself, not of what it leads to. `type`: DT_DIR, DT_REG, …
void unlock(int folder, const char* name, unsigned char type);

} // namespace platform::posix
