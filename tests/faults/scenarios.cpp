#include "faults/scenarios.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string_view>

namespace folidex::test {
namespace fs = std::filesystem;
namespace {

void write(const fs::path& path, std::string_view content, std::ios::openmode mode = std::ios::trunc)
{
    fs::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary | mode) << content;
}

void age(const fs::path& path, time_t seconds)
{
    const timespec times[] = {{seconds, 0}, {seconds, 250'000'000}};
    utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW);
}

std::string noise(std::size_t size)
{
    std::string bytes(size, '\0');
    unsigned state = 1;
    for (char& byte : bytes) {
        state = state * 1664525U + 1013904223U;
        byte = static_cast<char>(state >> 24U);
    }
    return bytes;
}

void makeHollow(const Places& places)
{
    write(places.home + "/src/hollow", "head");
    fs::resize_file(places.home + "/src/hollow", 1U << 20U);
    age(places.home + "/src/hollow", 1'000'000'000);
}

void giveAway(const Places& places)
{
    constexpr uid_t somebody = 12345;
    for (const auto& entry : fs::recursive_directory_iterator(places.home + "/src")) {
        if (lchown(entry.path().c_str(), somebody, somebody) != 0) {
            throw std::runtime_error("lchown");
        }
    }
}

void makeDeep(const Places& places)
{
    constexpr int levels = 36; // more than a walk keeps open
    std::string path = places.home + "/deep";
    for (int level = 0; level < levels; ++level) {
        path += "/d";
    }
    write(path + "/leaf", "bottom");
}

void linkSourceToTarget(const Places& places)
{
    fs::remove(places.home + "/dest/old.txt");
    fs::create_hard_link(places.home + "/src/report.txt", places.home + "/dest/old.txt");
}

void addTwins(const Places& places)
{
    for (const char* name : {"/src/twin", "/src/inner/twin"}) {
        fs::create_hard_link(places.home + "/src/report.txt", places.home + name);
    }
}

void setHome(const Places& places)
{
    setenv("HOME", places.home.c_str(), 1);
}

void loseDisplay(const Places&)
{
    unsetenv("DISPLAY");
    unsetenv("WAYLAND_DISPLAY");
}

void provideOpener(const Places& places)
{
    write(places.home + "/bin/gio", "#!/bin/sh\nexit 0\n");
    fs::permissions(places.home + "/bin/gio", fs::perms::owner_all);
    setenv("DISPLAY", ":99", 1);
    setenv("PATH", (places.home + "/bin:/usr/bin:/bin").c_str(), 1);
}

void addArchives(const Places& places)
{
    for (const char* name : {"plain.zip", "text.encrypted", "encrypted.zip"}) {
        fs::copy_file(fs::path(FOLIDEX_ARCHIVES) / name, places.home + "/src/" + name);
    }
}

const Lacks noExclusiveRename{{"renameat2", EINVAL}};
const Lacks plainest{{"unnamed", EOPNOTSUPP}, {"renameat2", EINVAL}, {"link", EPERM}};

const std::vector<Scenario> changes{
    {.call = {"FileCopy", "~/src/report.txt", "~/dest"}},
    {.call = {"FileCopy", "~/src/big", "~/dest"}},
    {.call = {"FileCopy", "~/src/sparse", "~/dest"}},
    {.call = {"FileCopy", "~/src/link", "~/dest"}},
    {.call = {"FileCopy", "~/src/hollow", "~/dest"}, .prepare = makeHollow},
    {.call = {"FileCopy", "~/src/report.txt", "~/dest"}, .where = "somebody's", .prepare = giveAway, .needsRoot = true},
    {.call = {"FileCopy", "~/src/link", "~/dest"}, .where = "somebody's", .prepare = giveAway, .needsRoot = true},
    {.call = {"FileCopy", "~/src/report.txt", "~/dest"}, .where = "plainest", .lacks = plainest},
    {.call = {"FileCopy", "~/src/link", "~/dest"}, .where = "plainest", .lacks = plainest},
    {.call = {"FileCopy", "~/src/link", "~/dest"}, .where = "no exclusive rename", .lacks = noExclusiveRename},
    {.call = {"FileCopy", "~/src/report.txt", "~/dest"}, .where = "none unnamed", .lacks = {{"unnamed", EOPNOTSUPP}}},
    {.call = {"FileCopy", "~/src/report.txt", "~/dest"}, .where = "unnamed stays so", .lacks = {{"link", EPERM}}},
    {.call = {"FileCopy", "~/src/big", "~/dest"}, .where = "no kernel copy", .lacks = {{"copy_file_range", EXDEV}}},
    {.call = {"FileCopy", "~/src/sparse", "~/dest"}, .where = "holes untold", .lacks = {{"lseek", EINVAL}}},
    {.call = {"FileCopy", "~/src/report.txt", "~/dest", "", "old.txt"}},
    {.call = {"FileCopy", "~/src/inner/leaf.txt", "~", "Y", "src"}},
    {.call = {"FileCopy", "~/src/report.txt", "~/dest", "y", "old.txt"}, .replaced = "~/dest/old.txt"},
    {.call = {"FileCopy", "~/src/report.txt", "~/dest", "y", "old.txt"},
     .where = "plainest",
     .lacks = plainest,
     .replaced = "~/dest/old.txt"},
    {.call = {"FileCopy", "~/src/report.txt", "~/dest", "y", "old.txt"},
     .where = "hard link to the source",
     .replaced = "~/dest/old.txt",
     .prepare = linkSourceToTarget},

    {.call = {"FileMove", "~/src/report.txt", "~/dest"}},
    {.call = {"FileMove", "~/src/report.txt", "~/dest"}, .where = "no exclusive rename", .lacks = noExclusiveRename},
    {.call = {"FileMove", "~/src/report.txt", "~/dest"}, .where = "plainest", .lacks = plainest},
    {.call = {"FileMove", "~/src/link", "~/dest"}, .where = "plainest", .lacks = plainest},
    {.call = {"FileMove", "~/src/report.txt", "@"}},
    {.call = {"FileMove", "~/src/report.txt", "@"}, .where = "no leases", .lacks = {{"lease", EINVAL}}},
    {.call = {"FileMove", "~/src/report.txt", "@"}, .where = "plainest", .lacks = plainest},
    {.call = {"FileMove", "~/src/link", "@"}},
    {.call = {"FileMove", "~/src/link", "@"}, .where = "plainest", .lacks = plainest},
    {.call = {"FileMove", "~/src/report.txt", "~/dest", "", "old.txt"}},
    {.call = {"FileMove", "~/src/inner/leaf.txt", "~", "Y", "src"}},
    {.call = {"FileMove", "~/src/report.txt", "~/dest", "y", "old.txt"}, .replaced = "~/dest/old.txt"},
    {.call = {"FileMove", "~/src/report.txt", "~/dest", "y", "old.txt"},
     .where = "plainest",
     .lacks = plainest,
     .replaced = "~/dest/old.txt"},
    {.call = {"FileMove", "~/src/report.txt", "~/dest", "y", "old.txt"},
     .where = "hard link to the source",
     .replaced = "~/dest/old.txt",
     .prepare = linkSourceToTarget},
    {.call = {"FileMove", "~/src/report.txt", "@", "y", "old.txt"}, .replaced = "@/old.txt"},
    {.call = {"FileRename", "~/src/report.txt", "new.txt"}},
    {.call = {"FileDelete", "~/src/report.txt"}},
    {.call = {"FileDelete", "~/src"}},
    {.call = {"FileDelete", "Disk/src"}, .needsRoot = true, .isOnVolume = true},

    {.call = {"FolderCreate", "~/one/two/three"}, .leavesPart = true},
    {.call = {"FolderCopy", "~/src", "~/dest"}},
    {.call = {"FolderCopy", "~/src", "~/dest"}, .where = "somebody's", .prepare = giveAway, .needsRoot = true},
    {.call = {"FolderCopy", "~/src", "~/dest"}, .where = "plainest", .lacks = plainest},
    {.call = {"FolderCopy", "~/src", "~/dest"}, .where = "hard links", .prepare = addTwins},
    {.call = {"FolderCopy", "~/deep", "~/dest"}, .prepare = makeDeep},
    {.call = {"FolderMove", "~/src", "~/dest"}},
    {.call = {"FolderMove", "~/src", "~/dest"}, .where = "plainest", .lacks = plainest},
    {.call = {"FolderMove", "~/src", "@"}, .leavesPart = true},
    {.call = {"FolderMove", "~/src", "@"}, .where = "hard links", .leavesPart = true, .prepare = addTwins},
    {.call = {"FolderMove", "~/src", "@"}, .where = "plainest", .lacks = plainest, .leavesPart = true},
    {.call = {"FolderMove", "~/src", "@"},
     .where = "flushed one by one",
     .lacks = {{"statfs", EINVAL}},
     .leavesPart = true,
     .flushes = 8},
    {.call = {"FolderRename", "~/src", "renamed"}},
    {.call = {"FolderDelete", "~/src"}, .leavesPart = true},
    {.call = {"FolderDelete", "~/deep"}, .leavesPart = true, .prepare = makeDeep},
};

const std::vector<Scenario> queries{
    // What can't be examined is listed as a file.
    {.call = {"GetFolders", "~/src"}, .otherAnswers = {{"stat", "*"}}},
    {.call = {"GetFiles", "~/src"}, .otherAnswers = {{"stat", "*"}}},
    {.call = {"GetNumSubfolders", "~/src"}, .otherAnswers = {{"stat", "*"}}},
    {.call = {"GetNumFiles", "~/src"}, .otherAnswers = {{"stat", "*"}}},
    {.call = {"GetFolderSize", "~/src"}, .otherAnswers = {{"statx", "*"}, {"stat", "*"}}},
    {.call = {"GetFolderSize", "~/deep"}, .prepare = makeDeep, .otherAnswers = {{"statx", "*"}, {"stat", "*"}}},
    {.call = {"GetFileSize", "~/src/big"}},
    {.call = {"GetFileCreationDate", "~/src/big"}},
    {.call = {"GetFileModificationDate", "~/src/big"}},
    {.call = {"GetFileAccessDate", "~/src/big"}, .otherAnswers = {{"statx", "1970-01-01T00:00:00"}}},
    {.call = {"GetFileExists", "~/src/big"}, .otherAnswers = {{"statx", "1"}}},
    {.call = {"GetFolderCreationDate", "~/src"}},
    {.call = {"GetFolderModificationDate", "~/src"}},
    {.call = {"GetFolderAccessDate", "~/src"}, .otherAnswers = {{"statx", "1970-01-01T00:00:00"}}},
    {.call = {"GetFolderExists", "~/src"}, .otherAnswers = {{"statx", "1"}}},
    {.call = {"GetDriveSize", "~/src"}},
    {.call = {"GetDriveSizeFree", "~/src"}, .otherAnswers = {{"*", "*"}}}, // others write meanwhile
    {.call = {"GetDriveSizeUsed", "~/src"}, .otherAnswers = {{"*", "*"}}},
    // Volumes that don't answer are left out, and one without a label is called after its folder.
    {.call = {"GetDrives"}, .otherAnswers = {{"*", "*"}}},
    {.call = {"GetFileMakerPath"}, .otherAnswers = {{"readlink", ""}}},
};

const std::vector<Scenario> others{
    {.call = {"LogSet", "1"}, .leavesPart = true, .prepare = setHome},
    {.call = {"LogClear"}, .leavesPart = true, .logs = true},
    {.call = {"GetFilePath", "~/src"}, .prepare = loseDisplay},
    {.call = {"GetFolderPath", "~/src"}, .prepare = loseDisplay},
    {.call = {"OpenFile", "~/src/report.txt"}, .prepare = provideOpener, .runsScript = true},
};

std::vector<Scenario> archives()
{
    const std::vector<std::string> compressing{"CompressFile", "~/src/report.txt", "~/dest/archive.zip"};
    const std::string password = "pass word|é";
    std::vector<Scenario> list{
        {.call = compressing},
        {.call = compressing, .logs = true},
        // Where there is no private folder for script and program.
        {.call = compressing, .where = "from memory", .lacks = {{"mkdir", EACCES}}},
        {.call = {"EncryptFile", "~/src/report.txt", "~/dest/secret.bin", password}},
        {.call = {"CompressAndEncrypt", "~/src/inner", "~/dest/archive.zip", password}},
        {.call = {"ExpandFile", "~/src/plain.zip", "~/dest/"}},
        {.call = {"DecryptFile", "~/src/text.encrypted", "~/dest/plain.txt", password}},
        {.call = {"DecryptAndExpand", "~/src/encrypted.zip", "~/dest/", password}},
        // What isn't of the program's making it refuses itself.
        {.call = {"ExpandFile", "~/src/report.txt", "~/dest/"}},
        {.call = {"DecryptFile", "~/src/report.txt", "~/dest/plain.txt", password}},
        {.call = {"DecryptAndExpand", "~/src/report.txt", "~/dest/", password}},
    };
    for (Scenario& scenario : list) {
        scenario.leavesPart = scenario.runsScript = true;
        scenario.prepare = addArchives;
    }
    return list;
}

} // namespace

std::string Places::path(std::string word) const
{
    if (word.starts_with('~') || word.starts_with('@')) {
        word.replace(0, 1, word[0] == '~' ? home : away);
    }
    return word;
}

std::string Scenario::name() const
{
    std::string text;
    for (const std::string& word : call) {
        text += (text.empty() ? "" : " ") + word;
    }
    text += (where.empty() ? "" : " " + where) + (logs ? " logged" : "");
    std::replace_if(
        text.begin(), text.end(), [](unsigned char byte) { return std::isalnum(byte) == 0; }, '_');
    return text;
}

bool Scenario::isAcross() const
{
    return std::any_of(call.begin(), call.end(), [](const std::string& word) { return word.starts_with('@'); });
}

const std::vector<Scenario>& scenarios()
{
    static const std::vector<Scenario> list = [] {
        std::vector<Scenario> all;
        for (const auto& some : {changes, queries, others, archives()}) {
            all.insert(all.end(), some.begin(), some.end());
        }
        return all;
    }();
    return list;
}

void build(const Scenario& scenario, const Places& places)
{
    static const std::string big = noise(std::size_t{600} * 1024);
    for (const std::string& folder : {places.home, places.away}) {
        if (!folder.empty()) {
            fs::remove_all(folder);
            fs::create_directories(folder);
        }
    }
    const fs::path source = places.home + "/src";
    fs::create_directories(source / "inner/hollow");
    write(places.home + "/dest/old.txt", "what stood there");
    write(source / "report.txt", std::string_view(big).substr(0, 5000));
    write(source / "big", big);
    write(source / "inner/leaf.txt", "leaf");
    write(source / "sparse", "head");
    fs::resize_file(source / "sparse", 1U << 20U);
    write(source / "sparse", std::string_view(big).substr(0, 8192), std::ios::app);
    fs::create_symlink("report.txt", source / "link");
    mkfifo((source / "fifo").c_str(), 0600);
    setxattr((source / "report.txt").c_str(), "user.note", "kept", 4, 0);
    chmod((source / "report.txt").c_str(), 0640);
    chmod((source / "inner").c_str(), 0750);
    if (!places.away.empty()) {
        write(places.away + "/old.txt", "what stood away");
    }
    if (scenario.prepare != nullptr) {
        scenario.prepare(places);
    }
    time_t date = 1'000'000'000;
    for (const char* name :
         {"report.txt", "big", "inner/leaf.txt", "sparse", "link", "fifo", "inner/hollow", "inner", "."}) {
        age(source / name, ++date);
    }
}

} // namespace folidex::test
