// Paths as text: POSIX paths in UTF-16, as FileMaker hands them over, with the rules of Cocoa's string path methods
// (NSString, stringByDeletingLastPathComponent and its like).
// Nothing here touches the file system, but for what looks up the home folder.
#pragma once

#include <string>
#include <string_view>

namespace platform {

using PathText = std::u16string;
using PathView = std::u16string_view;

// The last component without its slashes: "/a/b" and "/a/b/" give "b", "/" gives "/", "" gives "".
PathText lastComponent(PathView path);

// The path without its last component: "/a/b" and "/a/b/" give "/a", "/a" and "/" give "/", "a" gives "".
// Runs of slashes count as one.
PathText deletingLastComponent(PathView path);

// `path`, one slash, `component`: doubled and trailing slashes go, so "/a/" and "/b/" give "/a/b". An empty component
// leaves `path` as it is.
PathText appendingComponent(PathView path, PathView component);

// `path`, which begins with "~/", below the user's home folder: $HOME where that is absolute, else the entry of the
// user database, passwd(5). Without a home folder the tilde stays. In the bytes of the file system, which needn't be
// UTF-8.
std::string standardized(std::string_view path);

// The home folder of this process's effective user in the user database, passwd(5), an absolute path; "" where it has
// none.
std::string homeInUserDatabase();

} // namespace platform
