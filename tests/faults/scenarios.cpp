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
#include <map>
#include <stdexcept>
#include <string_view>

namespace folidex::test {
namespace fs = std::filesystem;
namespace {

constexpr int deepLevels = 36; // more than a walk keeps open

void write(const fs::path& path, std::string_view content)
{
    std::ofstream(path, std::ios::binary).write(content.data(), static_cast<std::streamsize>(content.size()));
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
    const fs::path path = fs::path(places.home) / "src" / "hollow";
    write(path, "head");
    fs::resize_file(path, 1U << 20U);
    age(path, 1'000'000'000);
}

// Everything in the source is somebody else's.
void giveAway(const Places& places)
{
    constexpr uid_t somebody = 12345;
    for (const auto& entry : fs::recursive_directory_iterator(fs::path(places.home) / "src")) {
        if (fchownat(AT_FDCWD, entry.path().c_str(), somebody, somebody, AT_SYMLINK_NOFOLLOW) != 0) {
            throw std::runtime_error("fchownat");
        }
    }
}

void makeDeep(const Places& places)
{
    fs::path folder = fs::path(places.home) / "deep";
    for (int level = 0; level < deepLevels; ++level) {
        folder /= "d";
    }
    fs::create_directories(folder);
    write(folder / "leaf", "bottom");
}

void linkSourceToTarget(const Places& places)
{
    fs::remove(places.home + "/dest/old.txt");
    fs::create_hard_link(places.home + "/src/report.txt", places.home + "/dest/old.txt");
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
    const fs::path program = places.home + "/bin/gio";
    fs::create_directories(program.parent_path());
    write(program, "#!/bin/sh\nexit 0\n");
    fs::permissions(program, fs::perms::owner_all);
    setenv("DISPLAY", ":99", 1);
    setenv("PATH", (places.home + "/bin:/usr/bin:/bin").c_str(), 1);
}

void addArchives(const Places& places)
{
    for (const char* name : {"plain.zip", "text.encrypted", "encrypted.zip"}) {
        fs::copy_file(fs::path(FOLIDEX_ARCHIVES) / name, places.home + "/src/" + name);
    }
}

bool isFewerBytes(const std::string& answer, const std::string& undisturbed)
{
    return std::stoull(answer) > 0 && std::stoull(answer) < std::stoull(undisturbed);
}

// The tree is younger each time it is built.
bool isLater(const std::string& answer, const std::string& undisturbed)
{
    return answer > undisturbed;
}

bool isLaterOrEpoch(const std::string& answer, const std::string& undisturbed)
{
    return isLater(answer, undisturbed) || answer == "1970-01-01T00:00:00";
}

bool isAbsent(const std::string& answer, const std::string&)
{
    return answer == "1";
}

bool isEmpty(const std::string& answer, const std::string&)
{
    return answer.empty();
}

bool isAnything(const std::string&, const std::string&)
{
    return true;
}

const std::vector<std::pair<Call, int>> noExclusiveRename{{Call::rename, EINVAL}};
const std::vector<std::pair<Call, int>> noUnnamedFiles{{Call::unnamed, EOPNOTSUPP}};
const std::vector<std::pair<Call, int>> plainest{
    {Call::unnamed, EOPNOTSUPP}, {Call::rename, EINVAL}, {Call::link, EPERM}};

// As a poor file system has them, too, changes of files and folders.
void addChanges(std::vector<Scenario>& list)
{
    const auto add = [&](std::vector<std::string> call, Scenario more = {}) {
        more.call = std::move(call);
        list.push_back(std::move(more));
    };
    for (const char* file : {"~/src/report.txt", "~/src/big", "~/src/sparse", "~/src/link"}) {
        add({"KORB_FileCopy", file, "~/dest"});
    }
    add({"KORB_FileCopy", "~/src/hollow", "~/dest"}, {.prepare = makeHollow});
    for (const char* item : {"~/src/report.txt", "~/src/link"}) {
        add({"KORB_FileCopy", item, "~/dest"}, {.where = "somebody's", .prepare = giveAway, .needsRoot = true});
        add({"KORB_FileCopy", item, "~/dest"}, {.where = "plainest", .lacks = plainest});
        add({"KORB_FileMove", item, "~/dest"}, {.where = "plainest", .lacks = plainest});
        add({"KORB_FileMove", item, "@"});
        add({"KORB_FileMove", item, "@"}, {.where = "plainest", .lacks = plainest});
    }
    add({"KORB_FileCopy", "~/src/report.txt", "~/dest"}, {.where = "no unnamed files", .lacks = noUnnamedFiles});
    add({"KORB_FileCopy", "~/src/report.txt", "~/dest"}, {.where = "unnamed stays so", .lacks = {{Call::link, EPERM}}});
    add({"KORB_FileCopy", "~/src/link", "~/dest"}, {.where = "no exclusive rename", .lacks = noExclusiveRename});
    add({"KORB_FileCopy", "~/src/big", "~/dest"}, {.where = "no kernel copies", .lacks = {{Call::copyRange, EXDEV}}});
    add({"KORB_FileMove", "~/src/report.txt", "~/dest"});
    add({"KORB_FileMove", "~/src/report.txt", "~/dest"}, {.where = "no exclusive rename", .lacks = noExclusiveRename});
    for (const std::string function : {"KORB_FileCopy", "KORB_FileMove"}) {
        const std::vector<std::string> over{function, "~/src/report.txt", "~/dest", "y", "old.txt"};
        const std::string old = "~/dest/old.txt";
        add(over, {.replaced = old});
        add(over, {.where = "plainest", .replaced = old, .lacks = plainest});
        add(over, {.where = "hard link to the source", .replaced = old, .prepare = linkSourceToTarget});
        add({function, "~/src/report.txt", "~/dest", "", "old.txt"});
        add({function, "~/src/inner/leaf.txt", "~", "Y", "src"});
    }
    add({"KORB_FileMove", "~/src/report.txt", "@", "y", "old.txt"}, {.replaced = "@/old.txt"});
    add({"KORB_FileRename", "~/src/report.txt", "new.txt"});
    add({"KORB_FileDelete", "~/src/report.txt"});
    add({"KORB_FileDelete", "~/src"});
    add({"KORB_FileDelete", "Disk/folder"}, {.ownRoot = true});

    add({"KORB_FolderCreate", "~/one/two/three"}, {.leavesPart = true});
    add({"KORB_FolderCopy", "~/src", "~/dest"});
    add({"KORB_FolderCopy", "~/src", "~/dest"}, {.where = "somebody's", .prepare = giveAway, .needsRoot = true});
    add({"KORB_FolderCopy", "~/src", "~/dest"}, {.where = "plainest", .lacks = plainest});
    add({"KORB_FolderCopy", "~/deep", "~/dest"}, {.prepare = makeDeep});
    add({"KORB_FolderMove", "~/src", "~/dest"});
    add({"KORB_FolderMove", "~/src", "@"}, {.leavesPart = true});
    add({"KORB_FolderMove", "~/src", "@"}, {.where = "plainest", .leavesPart = true, .lacks = plainest});
    add({"KORB_FolderRename", "~/src", "renamed"});
    add({"KORB_FolderDelete", "~/src"}, {.leavesPart = true});
    add({"KORB_FolderDelete", "~/deep"}, {.leavesPart = true, .prepare = makeDeep});
}

void addQueries(std::vector<Scenario>& list)
{
    const auto query = [&](const std::string& function, const std::string& item, OtherAnswer* other = nullptr,
                           std::vector<Call> otherTo = {}) {
        list.push_back({.call = {"KORB_" + function, "~" + item},
                        .prepare = item == "/deep" ? makeDeep : nullptr,
                        .isOtherAnswer = other,
                        .otherAnswerTo = std::move(otherTo)});
    };
    for (const char* function : {"GetFolders", "GetFiles", "GetNumSubfolders", "GetNumFiles"}) {
        query(function, "/src", isAnything, {Call::stat}); // what can't be examined is listed as a file
    }
    query("GetFolderSize", "/src", isFewerBytes, {Call::statx, Call::stat});
    query("GetFolderSize", "/deep", isFewerBytes, {Call::statx, Call::stat});
    query("GetFileSize", "/src/big");
    for (const std::string kind : {"File", "Folder"}) {
        const std::string item = kind == "File" ? "/src/big" : "/src";
        query("Get" + kind + "CreationDate", item, isLater);
        query("Get" + kind + "ModificationDate", item);
        query("Get" + kind + "AccessDate", item, isLaterOrEpoch);
        query("Get" + kind + "Exists", item, isAbsent);
    }
    query("GetDriveSize", "/src");
    query("GetDriveSizeFree", "/src", isAnything); // others write meanwhile
    query("GetDriveSizeUsed", "/src", isAnything);
    // Volumes that don't answer are left out, and one without a label is called after its folder.
    list.push_back({.call = {"KORB_GetDrives"}, .isOtherAnswer = isAnything});
    list.push_back({.call = {"KORB_GetFileMakerPath"}, .isOtherAnswer = isEmpty});
}

void addTheRest(std::vector<Scenario>& list)
{
    list.push_back({.call = {"KORB_LogSet", "1"}, .leavesPart = true, .prepare = setHome});
    list.push_back({.call = {"KORB_LogClear"}, .leavesPart = true, .logs = true});
    list.push_back({.call = {"KORB_GetFilePath", "~/src"}, .prepare = loseDisplay});
    list.push_back({.call = {"KORB_GetFolderPath", "~/src"}, .prepare = loseDisplay});
    list.push_back({.call = {"KORB_OpenFile", "~/src/report.txt"}, .prepare = provideOpener});

    const std::string password = "pass word|é";
    const auto archive = [&](std::vector<std::string> call, Scenario more = {}) {
        more.call = std::move(call);
        more.leavesPart = true;
        more.prepare = addArchives;
        list.push_back(std::move(more));
    };
    archive({"KORB_CompressFile", "~/src/report.txt", "~/dest/archive.zip"});
    archive({"KORB_CompressFile", "~/src/report.txt", "~/dest/archive.zip"}, {.logs = true});
    // Where children can't reach a memory file, and where there is none.
    archive({"KORB_CompressFile", "~/src/report.txt", "~/dest/archive.zip"},
            {.where = "script in tmp", .lacks = {{Call::access, EACCES}}});
    archive({"KORB_CompressFile", "~/src/report.txt", "~/dest/archive.zip"},
            {.where = "no memory files", .lacks = {{Call::memoryFile, EPERM}}});
    archive({"KORB_EncryptFile", "~/src/report.txt", "~/dest/secret.bin", password});
    archive({"KORB_CompressAndEncrypt", "~/src/inner", "~/dest/archive.zip", password});
    archive({"KORB_ExpandFile", "~/src/plain.zip", "~/dest/"});
    archive({"KORB_DecryptFile", "~/src/text.encrypted", "~/dest/plain.txt", password});
    archive({"KORB_DecryptAndExpand", "~/src/encrypted.zip", "~/dest/", password});
    // What no script of ours made is refused by the script itself.
    archive({"KORB_ExpandFile", "~/src/report.txt", "~/dest/"});
    archive({"KORB_DecryptFile", "~/src/report.txt", "~/dest/plain.txt", password});
    archive({"KORB_DecryptAndExpand", "~/src/report.txt", "~/dest/", password});
}

} // namespace

std::string Scenario::name() const
{
    std::string text;
    for (const std::string& word : call) {
        text += (text.empty() ? word.substr(5) : " " + word); // without "KORB_"
    }
    text += (where.empty() ? "" : " " + where) + (logs ? " logged" : "");
    std::replace_if(
        text.begin(), text.end(), [](unsigned char byte) { return std::isalnum(byte) == 0; }, '_');
    return text;
}

std::string Scenario::inPlaces(std::string word, const Places& places)
{
    const char first = word.empty() ? '\0' : word[0];
    if (first == '~' || first == '@') {
        word.replace(0, 1, first == '~' ? places.home : places.away);
    }
    return word;
}

std::vector<std::string> Scenario::arguments(const Places& places) const
{
    std::vector<std::string> list(call.begin() + 1, call.end());
    for (std::string& word : list) {
        word = inPlaces(word, places);
    }
    return list;
}

const std::vector<int>& Scenario::codes() const
{
    static const std::map<std::string, std::vector<int>> table{
        {"FileCopy", {-8002, -8003, -8008, -8010}},
        {"FileMove", {-8002, -8003, -8008, -8010}},
        {"FileRename", {-8002, -8011}},
        {"FileDelete", {-8002, -8004, -8013}},
        {"FolderCreate", {-8009, -8014}},
        {"FolderCopy", {-8002, -8003, -8010}},
        {"FolderMove", {-8002, -8011}},
        {"FolderRename", {-8002, -8012}},
        {"FolderDelete", {-8002, -8013}},
        {"GetDrives", {-8014}},
        {"GetDriveSize", {-8016, -8014}},
        {"GetDriveSizeFree", {-8016, -8014}},
        {"GetDriveSizeUsed", {-8016, -8014}},
        {"GetFilePath", {-8014}},
        {"GetFolderPath", {-8014}},
        {"GetFileMakerPath", {}},
        {"GetFileExists", {}},
        {"GetFolderExists", {}},
        {"LogSet", {}},
        {"LogClear", {}},
        {"CompressFile", {-8002, -8022}},
        {"EncryptFile", {-8021, -8023}},
        {"CompressAndEncrypt", {-8002, -8023, -8024}},
        {"ExpandFile", {-8002, -8023}},
        {"DecryptFile", {-8020, -8023}},
        {"DecryptAndExpand", {-8023, -8025}},
    };
    static const std::vector<int> query{-8002, -8014};
    const auto found = table.find(call[0].substr(5));
    return found == table.end() ? query : found->second;
}

bool Scenario::needsAway() const
{
    return std::any_of(call.begin(), call.end(), [](const std::string& word) { return word.starts_with('@'); });
}

bool Scenario::runsScript() const
{
    return prepare == addArchives || prepare == provideOpener;
}

const std::vector<Scenario>& scenarios()
{
    static const std::vector<Scenario> list = [] {
        std::vector<Scenario> all;
        addChanges(all);
        addQueries(all);
        addTheRest(all);
        return all;
    }();
    return list;
}

void build(const Scenario& scenario, const Places& places)
{
    static const std::string big = noise(std::size_t{600} * 1024);
    for (const std::string& folder : {places.home, places.away, places.volumes}) {
        if (!folder.empty()) {
            fs::remove_all(folder);
            fs::create_directories(folder);
        }
    }
    const fs::path source = fs::path(places.home) / "src";
    fs::create_directories(source / "inner" / "hollow");
    fs::create_directories(fs::path(places.home) / "dest");
    write(fs::path(places.home) / "dest" / "old.txt", "what stood there");
    write(source / "report.txt", std::string_view(big).substr(0, 5000));
    write(source / "big", big);
    write(source / "inner" / "leaf.txt", "leaf");
    write(source / "sparse", "head");
    fs::resize_file(source / "sparse", 1U << 20U);
    std::ofstream(source / "sparse", std::ios::binary | std::ios::app) << std::string_view(big).substr(0, 8192);
    fs::create_symlink("report.txt", source / "link");
    mkfifo((source / "fifo").c_str(), 0600);
    setxattr((source / "report.txt").c_str(), "user.note", "kept", 4, 0);
    chmod((source / "report.txt").c_str(), 0640);
    chmod((source / "inner").c_str(), 0750);
    if (!places.away.empty()) {
        write(fs::path(places.away) / "old.txt", "what stood away");
    }
    if (!places.volumes.empty()) {
        fs::create_directories(fs::path(places.volumes) / "Disk" / "folder");
        write(fs::path(places.volumes) / "Disk" / "folder" / "x", "x");
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
