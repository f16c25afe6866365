// The archive script while it runs: a command of the shell, and what it says at its end.
#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

namespace archive {

struct CloseScript {
    void operator()(std::FILE* pipe) const { ::pclose(pipe); }
};
using ScriptProcess = std::unique_ptr<std::FILE, CloseScript>;

// Starts a command by popen(3). Empty when no process could be started.
ScriptProcess startScript(const std::string& command);

struct ScriptEnding {
    // What pclose(3) returned, the script's wait status. Where the host ignores SIGCHLD, or reaps all children itself,
    // the system keeps none: then it is made of the report, and -1 for a script that was killed.
    std::int32_t status = 0;
    std::string report; // "status verb: cause"; empty when the script didn't come to its end
};

// Of its output only the report is kept, the first line.
ScriptEnding waitForEnd(ScriptProcess script);

} // namespace archive
