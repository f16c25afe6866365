// A folder of a test's own, gone with the test.
#pragma once

#include <sys/types.h>

#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace folidex::test {

// A unique, empty folder below `place`, else $TMPDIR, else /tmp, whose path has no links in it. The destructor removes
// it with all that is in it, whatever the modes; it follows no link out of it.
//
// Paths given to the members are taken relative to the folder; absolute ones are used as they are.
// Errors: std::filesystem::filesystem_error or std::system_error.
class ScratchFolder {
public:
    explicit ScratchFolder(const std::filesystem::path& place = std::filesystem::temp_directory_path());
    ~ScratchFolder();
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;

    const std::filesystem::path& path() const { return path_; }
    std::filesystem::path operator/(const std::filesystem::path& name) const { return path_ / name; }

    // The same as UTF-8 and UTF-16 texts, for a function's argument.
    std::string text(const std::filesystem::path& name = {}) const;
    std::u16string text16(const std::filesystem::path& name = {}) const;

    // Writes a file, making the folders above it, and returns its path.
    std::filesystem::path write(const std::filesystem::path& name, std::string_view content = {}) const;
    std::filesystem::path makeFolder(const std::filesystem::path& name) const; // with those above it
    std::filesystem::path symlink(const std::filesystem::path& target, const std::filesystem::path& name) const;
    std::filesystem::path hardLink(const std::filesystem::path& target, const std::filesystem::path& name) const;
    void setMode(const std::filesystem::path& name, mode_t mode) const;

    std::string read(const std::filesystem::path& name) const;
    bool exists(const std::filesystem::path& name) const; // a link counts, wherever it leads

    // The names in a folder, sorted by their bytes.
    std::vector<std::string> list(const std::filesystem::path& name = {}) const;

private:
    std::filesystem::path path_;
};

// Scratch folders on two file systems. `away` is null where there is only one. `home` is in memory, where building
// trees is quickest, unless no attribute can be kept there (tmpfs before Linux 6.6).
struct ScratchPair {
    std::unique_ptr<ScratchFolder> home = std::make_unique<ScratchFolder>();
    std::unique_ptr<ScratchFolder> away;

    ScratchPair();
};

} // namespace folidex::test
