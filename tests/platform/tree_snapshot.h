// Everything that an item and what is below it are, to compare copies with their sources.
#pragma once

#include <filesystem>
#include <map>
#include <string>

namespace folidex::test {

// By path below `root` ("" for itself): type, mode, owner, modification time to the nanosecond, extended attributes,
// and a link's text or a file's content in short. Links aren't followed.
std::map<std::string, std::string> snapshot(const std::filesystem::path& root);

} // namespace folidex::test
