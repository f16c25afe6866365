// The archive script while it runs: a command of the shell, and what it says at its end.
#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

namespace archive {

class ScriptProcess {
public:
    // Starts it by popen(3).
    explicit ScriptProcess(const std::string& command);

    // False when no process could be started.
    explicit operator bool() const { return pipe_ != nullptr; }

    struct Ending {
        // What pclose(3) returned, the script's wait status. Where the host ignores SIGCHLD, or reaps all children
        // itself, the system keeps none: then it is made of the report, and -1 for a script that was killed.
        std::int32_t status = 0;
        std::string report; // "status verb: cause"; empty when the script didn't come to its end
    };
    // Waits for its end. Of its output only the report is kept, the first line.
    Ending wait();

private:
    struct Close {
        void operator()(std::FILE* pipe) const { ::pclose(pipe); }
    };
    std::unique_ptr<std::FILE, Close> pipe_;
};

} // namespace archive
