// What the source of a move that has to copy must satisfy, from before it is read until it is removed: nobody has it
// open for writing, another change of it would show, and it is what was copied when it goes.
#pragma once

#include "platform/linux/source_file.h"
#include "platform/outcome.h"
#include "platform/posix/copy_record.h"
#include "platform/posix/failure.h"

#include <string_view>

namespace platform::linux_os {

// Readies a file for the copy: one that is open for writing is a failure, and a file that was changed just now gets a
// moment of rest and its status anew, for a second change with the same time couldn't be seen afterwards. One that
// finds no rest is a failure, too.
posix::Failure waitUntilTimestampSettles(OpenFile& file);

// Whether everything is still as it was copied; the failure names the first entry that isn't. `path`: the item's, in
// file-system bytes, for the message.
Outcome requireUnchanged(int folder, const char* name, std::string_view path, const posix::CopyRecord& copied);

// Removes the source. Every entry is compared with the record right before it goes, and the first that isn't as it was
// copied stops the removal. SIGIO must be kept from the thread, for files are removed under leases.
//
// A file loses its name before the comparison that counts, so that nobody can open it any more, and gets it back when
// it stays. On an overlay, where a new name would copy the file (Documentation/filesystems/overlayfs.rst), it doesn't.
Outcome removeCopied(int folder, const char* name, std::string_view path, const posix::CopyRecord& copied);

} // namespace platform::linux_os
