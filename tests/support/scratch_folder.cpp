#include "support/scratch_folder.h"

#include "host/base/unicode.h"

#include <sys/stat.h>
#include <unistd.h>
#ifdef __linux__
#include <sys/xattr.h>
#endif

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <system_error>
#include <utility>

namespace folidex::test {
namespace fs = std::filesystem;
namespace {

// Lets the owner into every folder, so that remove_all can do its work.
void openFolders(const fs::path& folder)
{
    std::error_code ignored;
    fs::permissions(folder, fs::perms::owner_all, fs::perm_options::add, ignored);
    for (const auto& entry : fs::directory_iterator(folder, ignored)) {
        if (entry.is_directory(ignored) && !entry.is_symlink(ignored)) {
            openFolders(entry.path());
        }
    }
}

} // namespace

ScratchFolder::ScratchFolder(const fs::path& place)
{
    std::string pattern = fs::canonical(place) / "folidex-test-XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr) {
        throw std::system_error(errno, std::generic_category(), "mkdtemp " + pattern);
    }
    path_ = pattern;
}

ScratchFolder::~ScratchFolder()
{
    std::error_code error;
    fs::remove_all(path_, error);
    if (error) {
        openFolders(path_);
        fs::remove_all(path_, error);
    }
}

std::string ScratchFolder::text(const fs::path& name) const
{
    return name.empty() ? path_ : path_ / name;
}

std::u16string ScratchFolder::text16(const fs::path& name) const
{
    return fmxhost::toUtf16(text(name));
}

fs::path ScratchFolder::write(const fs::path& name, std::string_view content) const
{
    fs::path file = path_ / name;
    fs::create_directories(file.parent_path());
    std::ofstream stream(file, std::ios::binary | std::ios::trunc);
    stream.write(content.data(), static_cast<std::streamsize>(content.size()));
    stream.close();
    if (!stream) {
        throw std::system_error(errno, std::generic_category(), "write " + file.string());
    }
    return file;
}

fs::path ScratchFolder::makeFolder(const fs::path& name) const
{
    fs::create_directories(path_ / name);
    return path_ / name;
}

fs::path ScratchFolder::symlink(const fs::path& target, const fs::path& name) const
{
    fs::create_symlink(target, path_ / name);
    return path_ / name;
}

fs::path ScratchFolder::hardLink(const fs::path& target, const fs::path& name) const
{
    fs::create_hard_link(path_ / target, path_ / name);
    return path_ / name;
}

void ScratchFolder::setMode(const fs::path& name, mode_t mode) const
{
    if (::chmod((path_ / name).c_str(), mode) != 0) {
        throw std::system_error(errno, std::generic_category(), "chmod " + (path_ / name).string());
    }
}

std::string ScratchFolder::read(const fs::path& name) const
{
    std::ifstream stream(path_ / name, std::ios::binary);
    if (!stream) {
        throw std::system_error(errno, std::generic_category(), "open " + (path_ / name).string());
    }
    return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

bool ScratchFolder::exists(const fs::path& name) const
{
    return fs::exists(fs::symlink_status(path_ / name));
}

std::vector<std::string> ScratchFolder::list(const fs::path& name) const
{
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(path_ / name)) {
        names.push_back(entry.path().filename());
    }
    std::sort(names.begin(), names.end());
    return names;
}

ScratchPair::ScratchPair()
{
    const char* memory = "/dev/shm";
    struct stat first {};
    struct stat second {};
    if (stat(home->path().c_str(), &first) != 0 || stat(memory, &second) != 0 || first.st_dev == second.st_dev ||
        access(memory, W_OK) != 0) {
        return;
    }
    away = std::make_unique<ScratchFolder>(memory);
#ifdef __linux__
    if (setxattr(away->path().c_str(), "user.note", "", 0, 0) == 0) {
        std::swap(home, away);
    }
#endif
}

} // namespace folidex::test
