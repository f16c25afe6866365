#include "faults/scenarios.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string_view>
#include <utility>

namespace folidex::test {
namespace fs = std::filesystem;
namespace {

using Arguments = std::vector<std::string>;

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

void makeSparse(const fs::path& path)
{
    static const std::string tail = noise(8192);
    write(path, "head");
    fs::resize_file(path, 1U << 20U);
    std::ofstream(path, std::ios::binary | std::ios::app) << tail;
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

void makeProgram(const fs::path& path, std::string_view text)
{
    fs::create_directories(path.parent_path());
    write(path, text);
    fs::permissions(path, fs::perms::owner_all);
}

auto paths(const std::string& first, const std::string& second)
{
    return [=](const Places& at) { return Arguments{at.home + first, at.home + second}; };
}

auto path(const std::string& only)
{
    return [=](const Places& at) { return Arguments{at.home + only}; };
}

auto atHome(const std::string& name)
{
    return [=](const Places& at) { return at.home + name; };
}

auto away(const std::string& name)
{
    return [=](const Places& at) { return at.away + name; };
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

bool isAnything(const std::string&, const std::string&)
{
    return true;
}

const std::vector<int> copyCodes{-8002, -8003, -8010};
const std::vector<int> folderCopyCodes{-8002, -8003, -8010};
const std::vector<int> folderMoveCodes{-8002, -8011};

void addFileOperations(std::vector<Scenario>& list)
{
    const auto copy = [&](std::string name, const std::string& file) -> Scenario& {
        return list.emplace_back(Scenario{.name = std::move(name),
                                          .function = "KORB_FileCopy",
                                          .arguments = paths("/src/" + file, "/dest"),
                                          .codes = copyCodes,
                                          .source = atHome("/src/" + file),
                                          .target = atHome("/dest/" + file)});
    };
    copy("copy a file", "report.txt");
    copy("copy a big file", "big");
    copy("copy a file with holes", "sparse");
    copy("copy a link", "link");
    copy("copy a file that ends in a hole", "hollow").prepare = makeHollow;
    for (const char* file : {"report.txt", "link"}) {
        Scenario& owned = copy(std::string("copy somebody else's ") + file, file);
        owned.prepare = giveAway;
        owned.needsRoot = true;
    }
    Scenario& named = copy("copy a file without unnamed files", "report.txt");
    named.denied = Call::unnamed;
    named.deniedError = EOPNOTSUPP;
    Scenario& buffered = copy("copy a big file without kernel copies", "big");
    buffered.denied = Call::copyRange;
    buffered.deniedError = EXDEV;
    Scenario& looking = copy("copy a link without exchange-free renames", "link");
    looking.denied = Call::rename;
    looking.deniedError = EINVAL;

    const auto overwrite = [](const Places& at) {
        return Arguments{at.home + "/src/report.txt", at.home + "/dest", "y", "old.txt"};
    };
    // A target that is the source under another name is refused before anything happens.
    const auto hardLink = [](const Places& at) {
        fs::remove(at.home + "/dest/old.txt");
        fs::create_hard_link(at.home + "/src/report.txt", at.home + "/dest/old.txt");
    };
    for (const char* function : {"KORB_FileCopy", "KORB_FileMove"}) {
        Scenario over{.name = std::string(function) + " over another file",
                      .function = function,
                      .arguments = overwrite,
                      .codes = copyCodes,
                      .leaves = Leaves::targetGone,
                      .source = atHome("/src/report.txt"),
                      .target = atHome("/dest/old.txt")};
        list.push_back(over);
        Scenario kept = over;
        kept.name = std::string(function) + " where another file stands";
        kept.arguments = [](const Places& at) {
            return Arguments{at.home + "/src/report.txt", at.home + "/dest", "", "old.txt"};
        };
        kept.codes.push_back(-8008);
        kept.leaves = Leaves::asBefore;
        list.push_back(kept);
        over.name = std::string(function) + " over a hard link to the source";
        over.leaves = Leaves::asBefore;
        over.prepare = hardLink;
        list.push_back(over);
        over.name = std::string(function) + " over the folder that holds the source";
        over.prepare = {};
        over.arguments = [](const Places& at) {
            return Arguments{at.home + "/src/inner/leaf.txt", at.home, "Y", "src"};
        };
        list.push_back(over);
    }

    Scenario move{.name = "move a file",
                  .function = "KORB_FileMove",
                  .arguments = paths("/src/report.txt", "/dest"),
                  .codes = copyCodes,
                  .source = atHome("/src/report.txt"),
                  .target = atHome("/dest/report.txt")};
    list.push_back(move);
    move.name = "move a file without exchange-free renames";
    move.denied = Call::rename;
    move.deniedError = EINVAL;
    list.push_back(move);
    for (const std::string file : {"report.txt", "link"}) {
        list.push_back({.name = "move " + file + " to another file system",
                        .function = "KORB_FileMove",
                        .arguments =
                            [file](const Places& at) {
                                return Arguments{at.home + "/src/" + file, at.away};
                            },
                        .codes = copyCodes,
                        .source = atHome("/src/" + file),
                        .target = away("/" + file),
                        .needsAway = true});
    }
    list.push_back({.name = "rename a file",
                    .function = "KORB_FileRename",
                    .arguments =
                        [](const Places& at) {
                            return Arguments{at.home + "/src/report.txt", "new.txt"};
                        },
                    .codes = {-8002, -8011},
                    .source = atHome("/src/report.txt"),
                    .target = atHome("/src/new.txt")});
    list.push_back({.name = "delete a file",
                    .function = "KORB_FileDelete",
                    .arguments = path("/src/report.txt"),
                    .codes = {-8002, -8013}});
    list.push_back({.name = "delete a folder as a file",
                    .function = "KORB_FileDelete",
                    .arguments = path("/src"),
                    .codes = {-8002, -8004}});
    list.push_back({.name = "delete a folder as a file on a volume",
                    .function = "KORB_FileDelete",
                    .arguments = [](const Places&) { return Arguments{"Disk/folder"}; },
                    .codes = {-8002, -8004, -8013},
                    .ownRoot = true});
}

void addFolderOperations(std::vector<Scenario>& list)
{
    list.push_back({.name = "create folders",
                    .function = "KORB_FolderCreate",
                    .arguments = path("/one/two/three"),
                    .codes = {-8009, -8014},
                    .leaves = Leaves::part});
    Scenario copy{.name = "copy a folder",
                  .function = "KORB_FolderCopy",
                  .arguments = paths("/src", "/dest"),
                  .codes = folderCopyCodes,
                  .source = atHome("/src"),
                  .target = atHome("/dest/src")};
    list.push_back(copy);
    Scenario owned = copy;
    owned.name = "copy somebody else's folder";
    owned.prepare = giveAway;
    owned.needsRoot = true;
    list.push_back(owned);
    copy.name = "copy a folder without exchange-free renames";
    copy.denied = Call::rename;
    copy.deniedError = EINVAL;
    list.push_back(copy);
    list.push_back({.name = "copy a deep folder",
                    .function = "KORB_FolderCopy",
                    .arguments = paths("/deep", "/dest"),
                    .codes = folderCopyCodes,
                    .source = atHome("/deep"),
                    .target = atHome("/dest/deep"),
                    .prepare = makeDeep});
    list.push_back({.name = "move a folder",
                    .function = "KORB_FolderMove",
                    .arguments = paths("/src", "/dest"),
                    .codes = folderMoveCodes,
                    .source = atHome("/src"),
                    .target = atHome("/dest/src")});
    list.push_back({.name = "move a folder to another file system",
                    .function = "KORB_FolderMove",
                    .arguments =
                        [](const Places& at) {
                            return Arguments{at.home + "/src", at.away};
                        },
                    .codes = folderMoveCodes,
                    .leaves = Leaves::part,
                    .source = atHome("/src"),
                    .target = away("/src"),
                    .needsAway = true});
    list.push_back({.name = "rename a folder",
                    .function = "KORB_FolderRename",
                    .arguments =
                        [](const Places& at) {
                            return Arguments{at.home + "/src", "renamed"};
                        },
                    .codes = {-8002, -8012},
                    .source = atHome("/src"),
                    .target = atHome("/renamed")});
    list.push_back({.name = "delete a folder",
                    .function = "KORB_FolderDelete",
                    .arguments = path("/src"),
                    .codes = {-8002, -8013},
                    .leaves = Leaves::part});
    list.push_back({.name = "delete a deep folder",
                    .function = "KORB_FolderDelete",
                    .arguments = path("/deep"),
                    .codes = {-8002, -8013},
                    .leaves = Leaves::part,
                    .prepare = makeDeep});
}

void addQueries(std::vector<Scenario>& list)
{
    const auto query = [&](const std::string& function, const std::string& item, std::vector<int> codes,
                           decltype(Scenario::isOtherAnswer) other = {}, std::vector<Call> otherAnswerTo = {}) {
        list.push_back({.name = function + " " + item,
                        .function = function,
                        .arguments = path(item),
                        .codes = std::move(codes),
                        .prepare = item == "/deep" ? makeDeep : decltype(Scenario::prepare)(),
                        .isOtherAnswer = std::move(other),
                        .otherAnswerTo = std::move(otherAnswerTo)});
    };
    const std::vector<int> codes{-8002, -8014};
    for (const char* function : {"KORB_GetFolders", "KORB_GetFiles", "KORB_GetNumSubfolders", "KORB_GetNumFiles"}) {
        query(function, "/src", codes, isAnything, {Call::stat}); // what can't be examined is listed as a file
    }
    query("KORB_GetFolderSize", "/src", codes, isFewerBytes, {Call::statx, Call::stat});
    query("KORB_GetFolderSize", "/deep", codes, isFewerBytes, {Call::statx, Call::stat});
    query("KORB_GetFileSize", "/src/big", codes);
    for (const std::string kind : {"File", "Folder"}) {
        const std::string item = kind == "File" ? "/src/big" : "/src";
        query("KORB_Get" + kind + "CreationDate", item, codes, isLater);
        query("KORB_Get" + kind + "ModificationDate", item, codes);
        query("KORB_Get" + kind + "AccessDate", item, codes, isLaterOrEpoch);
        query("KORB_Get" + kind + "Exists", item, {}, isAbsent);
    }
    query("KORB_GetDriveSize", "/src", {-8016, -8014});
    query("KORB_GetDriveSizeFree", "/src", {-8016, -8014}, isAnything); // others write meanwhile
    query("KORB_GetDriveSizeUsed", "/src", {-8016, -8014}, isAnything);
    const auto none = [](const Places&) { return Arguments{}; };
    // Volumes that don't answer are left out, and one without a label is called after its folder.
    list.push_back({.name = "list volumes",
                    .function = "KORB_GetDrives",
                    .arguments = none,
                    .codes = {-8014},
                    .isOtherAnswer = isAnything});
    list.push_back({.name = "where the host is",
                    .function = "KORB_GetFileMakerPath",
                    .arguments = none,
                    .codes = {},
                    .isOtherAnswer = [](const std::string& answer, const std::string&) { return answer.empty(); }});
}

void addLog(std::vector<Scenario>& list)
{
    const auto setHome = [](const Places& at) { setenv("HOME", at.home.c_str(), 1); };
    list.push_back({.name = "switch the log on",
                    .function = "KORB_LogSet",
                    .arguments = [](const Places&) { return Arguments{"1"}; },
                    .codes = {},
                    .leaves = Leaves::part,
                    .prepare = setHome});
    list.push_back({.name = "clear the log",
                    .function = "KORB_LogClear",
                    .arguments = [](const Places&) { return Arguments{}; },
                    .codes = {},
                    .leaves = Leaves::part,
                    .logs = true});
}

void addDesktop(std::vector<Scenario>& list)
{
    const auto noDisplay = [](const Places&) {
        unsetenv("DISPLAY");
        unsetenv("WAYLAND_DISPLAY");
    };
    for (const char* function : {"KORB_GetFilePath", "KORB_GetFolderPath"}) {
        list.push_back({.name = std::string(function) + " without a display",
                        .function = function,
                        .arguments = path("/src"),
                        .codes = {-8014},
                        .prepare = noDisplay});
    }
    list.push_back({.name = "open a file",
                    .function = "KORB_OpenFile",
                    .arguments = path("/src/report.txt"),
                    .codes = {-8002, -8014},
                    .prepare =
                        [](const Places& at) {
                            makeProgram(at.home + "/bin/gio", "#!/bin/sh\nexit 0\n");
                            setenv("DISPLAY", ":99", 1);
                            setenv("PATH", (at.home + "/bin:/usr/bin:/bin").c_str(), 1);
                        },
                    .runsScript = true});
}

void addArchives(std::vector<Scenario>& list)
{
    const auto three = [](const std::string& first, const std::string& second) {
        return [=](const Places& at) { return Arguments{at.home + first, at.home + second, "secret"}; };
    };
    Scenario compress{.name = "compress a file",
                      .function = "KORB_CompressFile",
                      .arguments = paths("/src/report.txt", "/dest/archive.zip"),
                      .codes = {-8002, -8022},
                      .leaves = Leaves::part,
                      .runsScript = true};
    list.push_back(compress);
    compress.name = "compress a file while the log is on";
    compress.logs = true;
    list.push_back(compress);
    compress.logs = false;
    compress.name = "compress a file with the script in /tmp"; // where children can't reach a memory file
    compress.denied = Call::access;
    compress.deniedError = EACCES;
    list.push_back(compress);
    list.push_back({.name = "encrypt a file",
                    .function = "KORB_EncryptFile",
                    .arguments = three("/src/report.txt", "/dest/secret.bin"),
                    .codes = {-8021, -8023},
                    .leaves = Leaves::part,
                    .runsScript = true});
    list.push_back({.name = "compress and encrypt a folder",
                    .function = "KORB_CompressAndEncrypt",
                    .arguments = three("/src/inner", "/dest/archive.zip"),
                    .codes = {-8002, -8023, -8024},
                    .leaves = Leaves::part,
                    .runsScript = true});
    const auto seed = [](const std::string& name) {
        return [=](const Places& at) { fs::copy_file(FOLIDEX_ARCHIVES "/" + name, at.home + "/src/" + name); };
    };
    const auto withPassword = [](const std::string& first, const std::string& second) {
        return [=](const Places& at) { return Arguments{at.home + first, at.home + second, "pass word|é"}; };
    };
    list.push_back({.name = "expand an archive",
                    .function = "KORB_ExpandFile",
                    .arguments = paths("/src/plain.zip", "/dest/"),
                    .codes = {-8002, -8023},
                    .leaves = Leaves::part,
                    .prepare = seed("plain.zip"),
                    .runsScript = true});
    list.push_back({.name = "decrypt a file",
                    .function = "KORB_DecryptFile",
                    .arguments = withPassword("/src/text.encrypted", "/dest/plain.txt"),
                    .codes = {-8020, -8023},
                    .leaves = Leaves::part,
                    .prepare = seed("text.encrypted"),
                    .runsScript = true});
    list.push_back({.name = "decrypt and expand an archive",
                    .function = "KORB_DecryptAndExpand",
                    .arguments = withPassword("/src/encrypted.zip", "/dest/"),
                    .codes = {-8023, -8025},
                    .leaves = Leaves::part,
                    .prepare = seed("encrypted.zip"),
                    .runsScript = true});
    // What no script of ours made is refused by the script itself.
    list.push_back({.name = "expand what is no archive",
                    .function = "KORB_ExpandFile",
                    .arguments = paths("/src/report.txt", "/dest/"),
                    .codes = {-8002, -8023},
                    .runsScript = true});
    list.push_back({.name = "decrypt what isn't encrypted",
                    .function = "KORB_DecryptFile",
                    .arguments = three("/src/report.txt", "/dest/plain.txt"),
                    .codes = {-8020, -8023},
                    .runsScript = true});
    list.push_back({.name = "decrypt and expand what isn't encrypted",
                    .function = "KORB_DecryptAndExpand",
                    .arguments = three("/src/report.txt", "/dest/"),
                    .codes = {-8023, -8025},
                    .runsScript = true});
}

} // namespace

std::vector<std::string> Places::folders() const
{
    std::vector<std::string> folders{home};
    for (const std::string& folder : {away, volumes}) {
        if (!folder.empty()) {
            folders.push_back(folder);
        }
    }
    return folders;
}

void buildTree(const Places& places)
{
    static const std::string big = noise(std::size_t{600} * 1024);
    for (const std::string& folder : places.folders()) {
        fs::remove_all(folder);
        fs::create_directories(folder);
    }
    const fs::path source = fs::path(places.home) / "src";
    fs::create_directories(source / "inner" / "hollow");
    fs::create_directories(fs::path(places.home) / "dest");
    write(fs::path(places.home) / "dest" / "old.txt", "what stood there");
    write(source / "report.txt", std::string_view(big).substr(0, 5000));
    write(source / "big", big);
    write(source / "inner" / "leaf.txt", "leaf");
    makeSparse(source / "sparse");
    fs::create_symlink("report.txt", source / "link");
    mkfifo((source / "fifo").c_str(), 0600);
    setxattr((source / "report.txt").c_str(), "user.note", "kept", 4, 0);
    chmod((source / "report.txt").c_str(), 0640);
    chmod((source / "inner").c_str(), 0750);
    time_t date = 1'000'000'000;
    for (const char* name :
         {"report.txt", "big", "inner/leaf.txt", "sparse", "link", "fifo", "inner/hollow", "inner", "."}) {
        age(source / name, ++date);
    }
    if (!places.volumes.empty()) {
        fs::create_directories(fs::path(places.volumes) / "Disk" / "folder");
        write(fs::path(places.volumes) / "Disk" / "folder" / "x", "x");
    }
}

std::vector<Scenario> scenarios()
{
    std::vector<Scenario> list;
    addFileOperations(list);
    addFolderOperations(list);
    addQueries(list);
    addLog(list);
    addDesktop(list);
    addArchives(list);
    return list;
}

} // namespace folidex::test
