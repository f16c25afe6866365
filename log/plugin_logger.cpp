#include "log/plugin_logger.h"

#include "platform/signal_block.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <utility>
#include <vector>

namespace logging {

namespace {

constexpr std::string_view logFileName = "LogFile.txt";
constexpr mode_t folderMode = 0777;

// Close-on-exec, for other threads start processes; "t" is what text files are opened with where lines end otherwise.
constexpr const char* appendMode = "a+et";
constexpr const char* emptyMode = "wet";
constexpr const char* lineMode = "ae";

// The folders on the way to the log file, from the top: "/a", "/a/b". They are absolute, so that threads that change
// the working directory at the same time don't affect each other.
std::vector<std::string> foldersOnTheWay(std::string_view logPath)
{
    std::vector<std::string> folders;
    std::string folder;
    std::size_t start = 0;
    while (start < logPath.size()) {
        const std::size_t end = std::min(logPath.find('/', start), logPath.size());
        const std::string_view component = logPath.substr(start, end - start);
        if (component == logFileName) {
            break;
        }
        if (!component.empty()) {
            folder.append("/").append(component);
            folders.push_back(folder);
        }
        start = end + 1;
    }
    return folders;
}

bool enterOrCreate(const std::string& folder)
{
    if (::chdir(folder.c_str()) == 0) {
        return true;
    }
    const bool created = ::mkdir(folder.c_str(), folderMode) == 0 || errno == EEXIST;
    return created && ::chdir(folder.c_str()) == 0;
}

// Local time as "26-12-31 23:59:59".
std::string timeStamp()
{
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    ::localtime_r(&now, &local);
    std::array<char, 30> buffer{};
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-y2k" // two digits of the year are what readers of the log expect
    const std::size_t length = std::strftime(buffer.data(), buffer.size(), "%y-%m-%d %H:%M:%S", &local);
#pragma GCC diagnostic pop
    return {buffer.data(), length};
}

void appendToFile(const std::string& path, std::string_view line)
{
    // At the limit on file sizes the line is left out, and the host goes on.
    const platform::SignalBlock noFileSizeSignal(SIGXFSZ);
    if (std::FILE* stream = std::fopen(path.c_str(), lineMode)) {
        std::fwrite(line.data(), 1, line.size(), stream);
        std::fclose(stream);
    }
}

void closeStream(std::FILE* stream)
{
    if (stream != nullptr) {
        std::fflush(stream);
        std::fclose(stream);
    }
}

} // namespace

PluginLogger::PluginLogger(std::string name, std::string path)
    : logPath_(std::move(path)), name_(std::move(name)), instanceId_(GetInstanceID())
{
    if (logPath_.empty()) {
        CreateDefaultPath(name_, logPath_);
    }
    WriteLine("************* SESSION STARTED *************");
}

PluginLogger::~PluginLogger()
{
    WriteLine("************* SESSION ENDED *************");
    CloseLogFile();
}

void PluginLogger::WriteLine(std::string_view text) noexcept
{
    writeToFile({}, text);
}

void PluginLogger::EnteringFunction(std::string_view name) noexcept
{
    writeToFile("FUNCTION ENTER: ", name);
    ++depth_;
}

void PluginLogger::ExitingFunction(std::string_view name) noexcept
{
    --depth_;
    writeToFile("FUNCTION EXIT: ", name);
}

void PluginLogger::WriteParameter(std::string_view name, std::string_view value) noexcept
{
    try {
        writeToFile("PARAM: ", std::string(name).append(" VAL: ").append(value));
    } catch (const std::exception&) {
        // Out of memory: the line is left out.
    }
}

void PluginLogger::ClearLog() noexcept
{
    if (logPath_.empty()) {
        return;
    }
    try {
        if (GetIntoLogDirectory()) {
            closeStream(std::fopen(logFile().c_str(), emptyMode));
        }
    } catch (const std::exception&) {
        // Out of memory: the file stays as it is.
    }
    WriteLine("************* CONTENT CLEARED *************");
}

bool PluginLogger::OpenLogFile() noexcept
{
    if (logPath_.empty()) {
        return false;
    }
    try {
        std::FILE* opened = GetIntoLogDirectory() ? std::fopen(logFile().c_str(), appendMode) : nullptr;
        closeStream(file_.exchange(opened));
        return opened != nullptr;
    } catch (const std::exception&) {
        return false;
    }
}

void PluginLogger::CloseLogFile() noexcept
{
    closeStream(file_.exchange(nullptr));
}

void PluginLogger::SetLogPath(std::string path)
{
    if (logPath_.empty()) {
        CreateDefaultPath(name_, logPath_);
    }
    logPath_ = std::move(path);
}

bool PluginLogger::GetIntoLogDirectory() const
{
    const std::vector<std::string> folders = foldersOnTheWay(logPath_);
    if (folders.empty() || ::chdir(folders.back().c_str()) == 0) {
        return true;
    }
    return std::all_of(folders.begin(), folders.end(), enterOrCreate);
}

// "LogFile.txt" in the folder that GetIntoLogDirectory() enters, by its whole path: the working directory may be
// another thread's choice by now.
std::string PluginLogger::logFile() const
{
    const std::vector<std::string> folders = foldersOnTheWay(logPath_);
    std::string file = folders.empty() ? std::string() : folders.back();
    return file.append("/").append(logFileName);
}

void PluginLogger::writeToFile(std::string_view label, std::string_view text) noexcept
{
    if (!OpenLogFile()) {
        return;
    }
    try {
        const std::int32_t tabs = std::max(depth_.load(), -1) + 1;
        std::string line = timeStamp();
        line.append(static_cast<std::size_t>(tabs), '\t').append(label).append(text).append("\n");
        appendToFile(logPath_, line);
    } catch (const std::exception&) {
        // Out of memory: the line is left out.
    }
    CloseLogFile();
}

void CreateDefaultPath(const std::string& name, std::string& path)
{
    const bool onDesktop = ::chdir("~/Desktop") == 0;
    static_cast<void>(onDesktop); // the tilde is literal: normally there is no such folder
    if (enterOrCreate("HALVIK") && enterOrCreate(name)) {
        path = "~/Desktop/HALVIK/" + name + "/" + std::string(logFileName);
    }
}

void DeleteLog(const std::string& name)
{
    std::string path;
    CreateDefaultPath(name, path);
    ::unlink(path.c_str());
}

std::uint32_t GetInstanceID()
{
    constexpr int largest = 2147475230;
    constexpr int divisor = 214769;
    std::srand(static_cast<unsigned>(std::time(nullptr)));
    int number = std::rand();
    while (number > largest) {
        number = std::rand();
    }
    return static_cast<std::uint32_t>(number / divisor);
}

} // namespace logging
