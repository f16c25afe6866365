// How what was written gets to the disk, as far as the file system can tell.
//
// Each system has its own way: linux/flush.cpp, macos/flush.cpp. Integers that are returned are errno values, 0 for
// success, also where a file system has no such way.
#pragma once

namespace platform::posix {

// A file's content and metadata.
int flushFile(int file);

// A folder's entries. `folder`: open for reading.
int flushFolder(int folder);

// The same for a folder that is open as a place (descriptor.h). `inside`, any open item of its file system, serves
// where the folder can't be read. Without one (-1) and without permission to read the folder, all that the system holds
// is written (sync(2)), which tells of no errors.
int flushEntries(int folder, int inside);

// Everything on the file system of the open item.
int flushFileSystem(int item);

// Whether flushFileSystem() tells of errors on the item's file system, and so serves for a tree, which is quicker than
// flushing each of its items.
bool isFlushedAsAWhole(int item);

} // namespace platform::posix
