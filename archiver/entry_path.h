// Where an entry of a zip archive belongs: the text that its name stands for, as a path.
#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>

namespace archiver {

// The name in UTF-8. Bytes that are valid UTF-8 are kept as they are, never normalised, whether the entry is flagged as
// UTF-8 or not: most programs that don't set the flag write the system's encoding. Other bytes, those that are flagged
// included, are read as code page 437, the format's original encoding (APPNOTE.TXT, appendix D).
//
// `unicodePath`: the extra field 0x7075 (4.6.9), empty where there is none. It replaces a name that isn't flagged and
// is plain ASCII or no UTF-8 at all, if its checksum says that it is about that name: programs that can't write a name
// give it a stand-in, and the real one there.
std::string entryName(std::string_view bytes, bool isFlaggedUtf8, std::span<const std::byte> unicodePath);

// Appends the path that the name leads to from the destination: components joined by single slashes, "." left out; for
// a folder without a slash at the end, for the destination itself nothing. Returns what is wrong with a name that isn't
// safe or whose meaning depends on the system, nullptr for others; the path is then undefined.
const char* appendPath(std::string& path, std::string_view name);

} // namespace archiver
