#include "archive/script_process.h"

#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <mutex>
#include <string_view>

namespace archive {

namespace {

// The first line of what the script prints, cut where no report is as long.
std::string firstLine(int output)
{
    std::array<char, 4096> buffer{};
    std::size_t size = 0;
    while (size < buffer.size() && std::string_view(buffer.data(), size).find('\n') == std::string_view::npos) {
        const auto count = ::read(output, buffer.data() + size, buffer.size() - size);
        if (count == 0 || (count < 0 && errno != EINTR)) {
            break;
        }
        size += count > 0 ? static_cast<std::size_t>(count) : 0;
    }
    const std::string_view text(buffer.data(), size);
    return std::string(text.substr(0, text.find('\n')));
}

} // namespace

ScriptProcess startScript(const std::string& command)
{
#ifdef __linux__
    constexpr const char* mode = "re"; // close-on-exec, so that no process of another thread holds the pipe open
#else
    constexpr const char* mode = "r";
#endif
    static std::mutex lock; // no script of another thread holds it open either
    const std::lock_guard guard(lock);
    return ScriptProcess(::popen(command.c_str(), mode));
}

ScriptEnding waitForEnd(ScriptProcess script)
{
    ScriptEnding ending;
    ending.report = firstLine(::fileno(script.get()));
    int reported = 0;
    const char* const end = ending.report.data() + ending.report.size();
    if (std::from_chars(ending.report.data(), end, reported).ec != std::errc()) {
        ending.report.clear(); // somebody else's words
    }
    ending.status = ::pclose(script.release());
    if (ending.status < 0 && !ending.report.empty()) {
        constexpr int exitStatusUnit = 256; // of a wait status
        ending.status = reported * exitStatusUnit;
    }
    return ending;
}

} // namespace archive
