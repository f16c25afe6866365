#include "stress/mixed_calls.h"

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace folidex::test {
namespace fs = std::filesystem;
namespace {

constexpr std::size_t mostFaultBytes = 2000;
constexpr const char* error = "!!ERROR!!";

} // namespace

MixedCalls::MixedCalls(const PluginUnderTest& plugin, const ScratchFolder& scratch, int number)
    : plugin_(plugin), folder_(scratch.text("caller" + std::to_string(number)))
{
    scratch.write(folder_ + "/source/a.txt", "twelve bytes");
    scratch.write(folder_ + "/source/inner/b.txt", "more");
    scratch.makeFolder(folder_ + "/target");
}

void MixedCalls::note(const char* function, const std::string& answer)
{
    if (faults_.size() < mostFaultBytes) {
        faults_.append(function).append(": ").append(answer).append("\n");
    }
}

Result MixedCalls::call(const char* function, const Arguments& arguments)
{
    ++calls_;
    Result result = plugin_.call(function, arguments);
    if (result.threw() || result.errorCode() != 0) {
        note(function, "threw " + result.exception());
    }
    return result;
}

void MixedCalls::expectText(const char* function, const Arguments& arguments, const std::string& wanted)
{
    if (const std::string answer = call(function, arguments).utf8(); answer != wanted) {
        note(function, answer + " instead of " + wanted);
    }
}

void MixedCalls::expectDate(const char* function, const Arguments& arguments)
{
    const Result result = call(function, arguments);
    if (result.type() != fmxhost::ValueType::timestamp || result.timestamp().year < 2020) {
        note(function, result.utf8());
    }
}

void MixedCalls::expectAny(const char* function, const Arguments& arguments)
{
    const Result result = call(function, arguments);
    if (result.isError() || result.utf8().empty()) {
        note(function, result.utf8());
    }
}

void MixedCalls::copyAndMove()
{
    const std::string source = folder_ + "/source";
    const std::string target = folder_ + "/target";
    expectText("KORB_FolderCreate", {folder_ + "/new/er"}, "0");
    expectText("KORB_FileCopy", {source + "/a.txt", target}, "0");
    expectText("KORB_FileCopy", {source + "/a.txt", target, "y", "a.txt"}, "0");
    expectText("KORB_FileRename", {target + "/a.txt", "z.txt"}, "0");
    expectText("KORB_FileMove", {target + "/z.txt", folder_ + "/new"}, "0");
    expectText("KORB_FolderCopy", {source, target}, "0");
    expectText("KORB_FolderRename", {target + "/source", "copy"}, "0");
    expectText("KORB_FolderMove", {target + "/copy", folder_ + "/new/er"}, "0");
    expectText("KORB_GetFileSize", {folder_ + "/new/er/copy/a.txt"}, "12");
    expectText("KORB_FileDelete", {folder_ + "/new/z.txt"}, "0");
    expectText("KORB_FolderDelete", {folder_ + "/new"}, "0");
    expectText("KORB_GetFolderExists", {folder_ + "/new"}, "1");
}

void MixedCalls::askForAttributes()
{
    const std::string folder = folder_ + "/source";
    const std::string file = folder + "/a.txt";
    expectText("KORB_GetFiles", {folder}, "a.txt");
    expectText("KORB_GetFolders", {folder}, "inner");
    expectText("KORB_GetNumFiles", {folder}, "1");
    expectText("KORB_GetNumSubfolders", {folder}, "1");
    expectText("KORB_GetFileSize", {file}, "12");
    expectText("KORB_GetFileExists", {file}, "0");
    expectAny("KORB_GetFolderSize", {folder});
    for (const char* function : {"KORB_GetFileModificationDate", "KORB_GetFileAccessDate"}) {
        expectDate(function, {file});
    }
    for (const char* function : {"KORB_GetFolderModificationDate", "KORB_GetFolderAccessDate"}) {
        expectDate(function, {folder});
    }
    call("KORB_GetFileCreationDate", {file}); // not every file system keeps one
    call("KORB_GetFolderCreationDate", {folder});
    for (const char* function : {"KORB_GetDriveSize", "KORB_GetDriveSizeFree", "KORB_GetDriveSizeUsed"}) {
        expectAny(function, {folder});
    }
}

void MixedCalls::provokeErrors()
{
    expectText("KORB_FileCopy", {folder_ + "/absent", folder_}, error);
    expectText("KORB_FileDelete", {folder_}, error);
    expectText("KORB_GetFiles", {folder_ + "/source/a.txt"}, error);
    expectText("KORB_FolderCreate", {folder_}, error);
    expectText("KORB_ExpandFile", {folder_ + "/absent.zip", ""}, error);
    expectText("KORB_GetFilePath", {folder_}, error);
    expectText("KORB_GetFolderPath", {folder_}, error);
    expectText("KORB_OpenFile", {folder_ + "/source/a.txt"}, error);
    expectAny("KORB_GetLastError", {}); // of whichever thread was last
    expectAny("KORB_GetLastError", {"number"});
}

void MixedCalls::askForTheRest()
{
    expectText("KORB_LogSet", {"1"}, "0");
    expectText("KORB_Version", {}, "Folidex 5.0.2.1");
    expectText("KORB_Version", {"platform"}, "Mac OS X");
    expectAny("KORB_GetFileMakerPath", {});
    call("KORB_GetDrives");
    expectText("KORB_LogClear", {}, "0");
    expectText("KORB_LogSet", {"0"}, "0");
}

unsigned MixedCalls::round()
{
    calls_ = 0;
    copyAndMove();
    askForAttributes();
    provokeErrors();
    askForTheRest();
    return calls_;
}

unsigned MixedCalls::archiveRound()
{
    calls_ = 0;
    const std::string archive = folder_ + "/target/a.zip";
    const std::string secret = folder_ + "/target/a.bin";
    expectText("KORB_CompressFile", {folder_ + "/source/a.txt", archive}, "0");
    expectText("KORB_EncryptFile", {archive, secret, "password"}, "0");
    expectText("KORB_FileDelete", {archive}, "0");
    expectText("KORB_DecryptFile", {secret, archive, "password"}, "0");
    expectText("KORB_FileDelete", {secret}, "0");
    expectText("KORB_ExpandFile", {archive, folder_ + "/target/"}, "0");
    expectText("KORB_FileDelete", {archive}, "0");
    expectText("KORB_GetFileSize", {folder_ + "/target/a.txt"}, "12");
    expectText("KORB_CompressAndEncrypt", {folder_ + "/source/a.txt", archive, "password"}, "0");
    expectText("KORB_FileDelete", {folder_ + "/target/a.txt"}, "0");
    expectText("KORB_DecryptAndExpand", {archive, folder_ + "/target/", "password"}, "0");
    expectText("KORB_FileDelete", {folder_ + "/target/a.txt"}, "0");
    expectText("KORB_FileDelete", {archive}, "0");
    return calls_;
}

std::size_t openDescriptors()
{
    const fs::directory_iterator descriptors("/proc/self/fd");
    return static_cast<std::size_t>(std::distance(begin(descriptors), end(descriptors)));
}

std::size_t residentBytes()
{
    std::ifstream statm("/proc/self/statm");
    std::size_t size = 0;
    std::size_t resident = 0;
    statm >> size >> resident;
    return resident * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

bool isFullRun()
{
    return std::getenv("FOLIDEX_FULL") != nullptr;
}

void prepareProcess(const ScratchFolder& scratch)
{
    setenv("HOME", scratch.text().c_str(), 1);
    unsetenv("DISPLAY");
    unsetenv("WAYLAND_DISPLAY");
}

} // namespace folidex::test
