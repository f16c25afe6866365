// What the source of a move that has to copy must satisfy, from before it is read until it is removed: nobody has it
// open for writing, another change of it would show, and it is what was copied when it goes.
#pragma once

#include "platform/outcome.h"
#include "platform/posix/copy_record.h"
#include "platform/posix/failure.h"
#include "platform/posix/source_file.h"

#include <sys/stat.h>

#include <string_view>

namespace platform::posix {

// Gives an open item that was changed just now a moment of rest, and takes its status anew, for a second change with
// the same time couldn't be seen afterwards. One that finds no rest is a failure.
Failure waitUntilTimestampSettles(int item, struct stat& status);

// The same for a file that is about to be copied; one that somebody has open for writing is a failure, too.
Failure requireRest(OpenFile& file);

// Whether everything is still as it was copied, rights included; the failure names the first entry that isn't. To be
// asked before anything of one's own has touched the source. `path`: the item's, in file-system bytes, for the message.
Outcome requireUnchanged(int folder, const char* name, std::string_view path, const CopyRecord& copied);

// Removes the source, which was as it was copied a moment ago. Every entry is compared with the record right before it
// goes, and the first that isn't as it was copied stops the removal. SIGIO must be kept from the thread, for files are
// removed under leases.
//
// A file loses its name before the comparison that counts, so that nobody can open it any more, and gets it back when
// it stays. On an overlay, where a new name would copy the file (Documentation/filesystems/overlayfs.rst), it doesn't.
Outcome removeCopied(int folder, const char* name, std::string_view path, const CopyRecord& copied);

// Removes a copy that was published, as far as its content is what the record says; what others have put into it stays.
void withdrawCopy(int folder, const char* name, const CopyRecord& copied) noexcept;

} // namespace platform::posix
