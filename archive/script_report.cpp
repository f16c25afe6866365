// popen(3) takes no environment, and setenv(3) moves the environment's table while other threads may read it. So the
// table is replaced once, by a larger one, in one store, and both stay for good: a getenv(3) that is under way reads
// the old one or the new. The variable's text lies in a buffer of this file, which holds the name of one report after
// the other; the lock makes each command start under its own.

#include "archive/script_report.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <fstream>
#include <istream>
#include <mutex>
#include <string_view>

#ifdef __APPLE__
#include <crt_externs.h>
#else
extern char** environ; // NOLINT(readability-redundant-declaration): not every C library's headers declare it
#endif

namespace archive {

namespace {

constexpr std::string_view pattern = "/tmp/folidex-XXXXXX";
constexpr std::string_view variable = "FOLIDEX_REPORT=";

char**& table()
{
#ifdef __APPLE__
    return *_NSGetEnviron();
#else
    return environ;
#endif
}

// The variable as the environment has it: never freed, for the environment outlives the plug-in. Under the lock.
char* variableText()
{
    static char* const text = new char[variable.size() + pattern.size() + 1]();
    return text;
}

// Writes the report's name into the environment. The host may have replaced its table since.
void nameInEnvironment(std::string_view path)
{
    char* const text = variableText();
    *std::copy(path.begin(), path.end(), std::copy(variable.begin(), variable.end(), text)) = '\0';
    char** const before = table();
    std::size_t count = 0;
    for (; before != nullptr && before[count] != nullptr; ++count) {
        if (before[count] == text) {
            return;
        }
    }
    char** const after = new char*[count + 2];
    *after = text;
    // Without one that another copy of the plug-in has left: shells differ in which of two they take.
    *std::copy_if(before, before + count, after + 1,
                  [](const char* entry) { return !std::string_view(entry).starts_with(variable); }) = nullptr;
    __atomic_store_n(&table(), after, __ATOMIC_RELEASE);
}

} // namespace

ScriptReport::ScriptReport(bool wantsCause) : path_(pattern)
{
    const int file = ::mkostemp(path_.data(), O_CLOEXEC);
    if (file < 0) {
        path_.clear();
        return;
    }
    if (wantsCause && ::write(file, "\n", 1) != 1) {
        // The disk is full: the cause goes to the system log.
    }
    ::close(file);
}

ScriptReport::~ScriptReport()
{
    if (!path_.empty()) {
        ::unlink(path_.c_str());
    }
}

std::FILE* ScriptReport::startShell(const std::string& command) const
{
#ifdef __linux__
    constexpr const char* mode = "re"; // close-on-exec, so that no process of another thread holds the pipe open
#else
    constexpr const char* mode = "r";
#endif
    static std::mutex lock;
    const std::lock_guard guard(lock);
    nameInEnvironment(path_);
    return ::popen(command.c_str(), mode);
}

std::optional<ScriptReport::Ending> ScriptReport::read() const
{
    std::ifstream file(path_);
    std::optional<Ending> ending;
    Ending line;
    while (file >> line.exitStatus && std::getline(file >> std::ws, line.cause)) {
        ending = line;
    }
    return ending;
}

} // namespace archive
