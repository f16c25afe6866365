// The plug-in's trace file: plain text in UTF-8, a line for each event, with a local time stamp and one tab more than
// the number of functions that were entered and not yet left. The file is opened and closed for every line, so that it
// survives a crash of the host and can be read at any time. What can't be written is silently left out.
//
// Writing changes the process's working directory to the log file's folder and creates the folders that are missing
// (mode 0777 less the umask): solutions that use relative paths depend on where it leaves them.
//
// Thread rule: several threads may write lines to one logger; whole lines may interleave. SetLogPath() and the
// destructor need a logger that no other thread is using.
#pragma once

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>

namespace logging {

class PluginLogger {
public:
    // `path`: of the log file, absolute, file-system bytes, its last component "LogFile.txt". Empty: the default path
    // for `name`, see CreateDefaultPath(). Writes the session's first line.
    PluginLogger(std::string name, std::string path);

    // Writes the session's last line.
    ~PluginLogger();

    PluginLogger(const PluginLogger&) = delete;
    PluginLogger& operator=(const PluginLogger&) = delete;

    void WriteLine(std::string_view text) noexcept;
    void EnteringFunction(std::string_view name) noexcept;
    void ExitingFunction(std::string_view name) noexcept;
    void WriteParameter(std::string_view name, std::string_view value) noexcept;

    // Empties the file and writes a line that says so.
    void ClearLog() noexcept;

    // Makes the log file reachable and keeps it open in a stream; false when that can't be done.
    bool OpenLogFile() noexcept;
    void CloseLogFile() noexcept;

    // With an empty path nothing is written any more. A logger without a path first creates the folders of its default
    // path.
    void SetLogPath(std::string path);

    // Changes the working directory to the log file's folder, component by component where one is missing. False when a
    // component can neither be entered nor created; the working directory is then the last one that was entered.
    bool GetIntoLogDirectory() const;

    std::uint32_t instanceId() const { return instanceId_; } // as GetInstanceID() drew it

private:
    void writeToFile(std::string_view label, std::string_view text) noexcept;
    std::string logFile() const;

    std::atomic<std::int32_t> depth_{0};
    std::string logPath_; // empty: not set
    const std::string name_;
    std::atomic<std::FILE*> file_{nullptr}; // belongs to the thread that takes it out
    const std::uint32_t instanceId_;
};

// Tries to enter the literal "~/Desktop", then enters "HALVIK" and in it a folder named `name`, creating the two where
// they are missing, and sets `path` to "~/Desktop/HALVIK/name/LogFile.txt". The tilde is never expanded. `path` stays
// as it is when a folder can neither be entered nor created.
void CreateDefaultPath(const std::string& name, std::string& path);

// Deletes the file at the default path for `name`, if it is there.
void DeleteLog(const std::string& name);

// A random number from 0 to 9998. Seeds the C library's generator with the current time.
std::uint32_t GetInstanceID();

} // namespace logging
