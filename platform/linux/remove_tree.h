// Removes what an entry of an open folder is: a file, a link, a folder with everything in it. Links are never followed,
// and what is mounted inside is never emptied: a mount's root answers "busy" before anything in it is touched.
//
// `path` is the entry's, in file-system bytes, for messages. All stop at the first entry that can't be removed.
#pragma once

#include "platform/copy_record.h"
#include "platform/outcome.h"

#include <sys/stat.h>

#include <string_view>

namespace platform::linux_os {

Outcome removeEntry(int folder, const char* name, std::string_view path);

// Removes the source of a copy. Every entry is compared with the record right before it goes, and the first that isn't
// as it was copied stops the removal. SIGIO must be kept from the thread (source_file.h).
//
// A file loses its name before the comparison that counts, so that nobody can open it any more, and gets it back when
// it stays. On an overlay, where a new name would copy the file (Documentation/filesystems/overlayfs.rst), it doesn't.
Outcome removeCopied(int folder, const char* name, std::string_view path, const CopyRecord& copied);

// The comparison alone: a failure that names the first entry that isn't as it was copied.
Outcome requireUnchanged(int folder, const char* name, std::string_view path, const CopyRecord& copied);

// Takes away what a call has made itself, folders without write permission included, where nobody listens for a
// failure. Keeps errno.
void discardEntry(int folder, const char* name) noexcept;

// Whether entries could be removed, asked before a move that has to copy spends its work on them: errno values, 0 when
// nothing is in the way. An answer is what holds now; the removal itself may still fail.

// Whether the folder's entries may change at all: no permission (EACCES), a read-only file system (EROFS), an immutable
// or append-only folder (EPERM).
int errorOfRemovingFrom(int folder);

// Whether one entry may go: immutable and append-only items (EPERM), roots of mounts (EBUSY), others' entries of a
// folder with the sticky bit (EPERM). `folderStatus`: of the folder.
int errorOfRemovingEntry(int folder, const struct stat& folderStatus, const char* name);

} // namespace platform::linux_os
