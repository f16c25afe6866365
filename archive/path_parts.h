// How the archive functions split paths, and what they hand to the shell.
//
// A path's folder part goes up to and including its last slash, its name part is the rest. A path that doesn't begin
// with "/" begins with a volume's name, which goes when the path is made absolute.
#pragma once

#include "platform/path_text.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace archive {

using platform::PathText;
using platform::PathView;

// What stands for the folder part of a path that failed its check.
inline constexpr std::u16string_view pathErrorMarker = u"!!ERROR!!";

enum class DotRule {
    required, // a path without any "." fails the check: it names no file
    waived
};

// The folder part, empty without a slash; the marker when the path fails the check.
PathText getPathOfFilepath(PathView path, DotRule dotRule);

// `path` without `folder`, where it begins with it.
PathText getFileNameOfFilepath(PathView path, PathView folder);

// The length of the folder part in UTF-16 units. Of each unit only the low 8 bits are compared, so that U+012F ends a
// folder part as "/" does.
std::size_t getLastSlashInPath(PathView path);

// A folder part that begins with "/" as it is; of any other what follows the volume's name, from its first slash on.
// Here only "/" is a slash.
PathText transformIntoAbsolutePath(PathView path);

// Whether a folder part stands for a failed check: it holds the marker, in any letter case.
bool holdsPathErrorMarker(PathView folder);

// UTF-8 of the text; nothing for no text, and for one that a zero-terminated string can't hold: one with a lone
// surrogate or a NUL.
std::optional<std::string> CopyCFStringToCharPtr(std::optional<std::u16string_view> text);

// Shows a plain alert "DEBUG MESSAGE" with a zero-terminated text in Mac Roman; false when it can't be shown. An aid
// for debugging: nothing calls it.
bool DisplayMessage(const char* text);

} // namespace archive
