// Access control lists, which give rights beyond an item's mode (acl(5); on macOS acl(3)).
//
// Each system has its own way: linux/access_lists.cpp, macos/access_lists.cpp.
#pragma once

namespace platform::posix {

// Whether an open file or folder has one; true where that can't be told.
bool hasAccessList(int item);

// Takes away those that a new file or folder has inherited from the folder it was made in, a folder's list for what is
// made in it too. Returns false when some may be left.
bool dropAccessLists(int item);

// Lets nobody but its owner into an open folder that was just made to work in, and its owner in any case. Inherited
// lists go on Linux; on macOS what is made in the folder is to inherit them, too. Returns an errno value.
int takeOver(int folder);

} // namespace platform::posix
