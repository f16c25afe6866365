// The files that are measured, made at first use below $FOLIDEX_BENCH_FOLDER (else $TMPDIR, else /tmp) in a folder of
// this process's own, and kept until it ends.
//
// Thread rule: one thread. Errors: std::filesystem::filesystem_error or std::system_error.
#pragma once

#include <string>

namespace folidex::bench {

// A path in the process's folder, where nothing is unless somebody put it there.
std::string scratch(const std::string& name);

std::string flatFolder(); // 200,000 empty files
std::string wideTree();   // 200,000 files of 1 KiB in 2,000 folders
std::string smallFiles(); // 20,000 files of 1 to 4 KiB in 200 folders
std::string largeFile();  // 1 GiB without holes

// Makes one of them ("flat", "tree", "small", "large") at `path` instead, for measurements from outside.
// Errors also: std::invalid_argument for another kind.
void makeWorkload(const std::string& kind, const std::string& path);

} // namespace folidex::bench
