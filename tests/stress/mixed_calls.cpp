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
    : m_plugin(plugin), m_folder(scratch.text("caller" + std::to_string(number)))
{
    scratch.write(m_folder + "/source/a.txt", "twelve bytes");
    scratch.write(m_folder + "/source/inner/b.txt", "more");
    scratch.makeFolder(m_folder + "/target");
}

void MixedCalls::note(const char* function, const std::string& answer)
{
    if (m_faults.size() < mostFaultBytes) {
        m_faults.append(function).append(": ").append(answer).append("\n");
    }
}

Result MixedCalls::call(const char* function, const Arguments& arguments)
{
    ++m_calls;
    Result result = m_plugin.call(function, arguments);
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
    const std::string source = m_folder + "/source";
    const std::string target = m_folder + "/target";
    expectText("KORB_FolderCreate", {m_folder + "/new/er"}, "0");
    expectText("KORB_FileCopy", {source + "/a.txt", target}, "0");
    expectText("KORB_FileCopy", {source + "/a.txt", target, "y", "a.txt"}, "0");
    expectText("KORB_FileRename", {target + "/a.txt", "z.txt"}, "0");
    expectText("KORB_FileMove", {target + "/z.txt", m_folder + "/new"}, "0");
    expectText("KORB_FolderCopy", {source, target}, "0");
    expectText("KORB_FolderRename", {target + "/source", "copy"}, "0");
    expectText("KORB_FolderMove", {target + "/copy", m_folder + "/new/er"}, "0");
    expectText("KORB_GetFileSize", {m_folder + "/new/er/copy/a.txt"}, "12");
    expectText("KORB_FileDelete", {m_folder + "/new/z.txt"}, "0");
    expectText("KORB_FolderDelete", {m_folder + "/new"}, "0");
    expectText("KORB_GetFolderExists", {m_folder + "/new"}, "1");
}

void MixedCalls::askForAttributes()
{
    const std::string folder = m_folder + "/source";
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
    expectText("KORB_FileCopy", {m_folder + "/absent", m_folder}, error);
    expectText("KORB_FileDelete", {m_folder}, error);
    expectText("KORB_GetFiles", {m_folder + "/source/a.txt"}, error);
    expectText("KORB_FolderCreate", {m_folder}, error);
    expectText("KORB_ExpandFile", {m_folder + "/absent.zip", ""}, error);
    expectText("KORB_GetFilePath", {m_folder}, error);
    expectText("KORB_GetFolderPath", {m_folder}, error);
    expectText("KORB_OpenFile", {m_folder + "/source/a.txt"}, error);
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
    m_calls = 0;
    copyAndMove();
    askForAttributes();
    provokeErrors();
    askForTheRest();
    return m_calls;
}

unsigned MixedCalls::archiveRound()
{
    m_calls = 0;
    const std::string archive = m_folder + "/target/a.zip";
    const std::string secret = m_folder + "/target/a.bin";
    expectText("KORB_CompressFile", {m_folder + "/source/a.txt", archive}, "0");
    expectText("KORB_EncryptFile", {archive, secret, "password"}, "0");
    expectText("KORB_FileDelete", {archive}, "0");
    expectText("KORB_DecryptFile", {secret, archive, "password"}, "0");
    expectText("KORB_FileDelete", {secret}, "0");
    expectText("KORB_ExpandFile", {archive, m_folder + "/target/"}, "0");
    expectText("KORB_FileDelete", {archive}, "0");
    expectText("KORB_GetFileSize", {m_folder + "/target/a.txt"}, "12");
    expectText("KORB_CompressAndEncrypt", {m_folder + "/source/a.txt", archive, "password"}, "0");
    expectText("KORB_FileDelete", {m_folder + "/target/a.txt"}, "0");
    expectText("KORB_DecryptAndExpand", {archive, m_folder + "/target/", "password"}, "0");
    expectText("KORB_FileDelete", {m_folder + "/target/a.txt"}, "0");
    expectText("KORB_FileDelete", {archive}, "0");
    return m_calls;
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
