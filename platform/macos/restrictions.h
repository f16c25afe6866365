// What keeps even its owner from renaming or removing an item on a Mac: the lock, an access control list, and of a
// folder its mode, for XNU asks for a rename whether the item may be deleted and, of a folder, whether it may be
// written to (vn_authorize_renamex_with_paths).
#pragma once

namespace platform::macos {

// Gives finished work its name; both are entries of the open folder. Nothing is ever replaced. What forbids the rename
// is taken off, for this moment for everybody else's rights too, and put back under the new name. Returns an errno
// value, EEXIST when the name is taken; then the item has its old name.
int publish(int folder, const char* temporaryName, const char* name);

} // namespace platform::macos
