// Runs a part of a test in a child process, where it may change what belongs to a whole process: user, limits, root
// folder, mounts.
#pragma once

#include <functional>
#include <map>
#include <string>

namespace folidex::test {

// What `body` returned in a child of this process (at most a pipe's worth and more: it is read while the child runs).
// An exception or a crash in there is told in its place, as "child: …".
std::string inChild(const std::function<std::string()>& body);

// Each changes the calling process; for use in a child. Errors: std::system_error.

// An ordinary user's rights from here on; nothing changes where there are no others.
void becomeOrdinaryUser();

#ifdef __linux__
// Mounts made from here on belong to this process alone. Takes root's rights.
void leaveMountNamespace();
#endif

// `folder` becomes "/", and the current folder too. Takes root's rights.
void enterRoot(const std::string& folder);

#ifdef __linux__
// What this process has open: descriptors below 1024 and, where there is a /proc, what they are of (proc(5)).
std::map<int, std::string> openDescriptors();
#endif

} // namespace folidex::test
