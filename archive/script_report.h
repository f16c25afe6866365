// How the archive script tells what its exit status can't: why it failed, and the status itself where the host ignores
// SIGCHLD, so that the system keeps none. The script's command line and output have no room for either: it finds the
// name of a file in its environment, and adds a line to that.
#pragma once

#include <cstdio>
#include <optional>
#include <string>

namespace archive {

class ScriptReport {
public:
    // Makes the file. With `wantsCause` the script says why it failed here, otherwise in the system log. Without a file
    // (no room in the folder for temporary files) there is no report.
    explicit ScriptReport(bool wantsCause);
    ~ScriptReport();
    ScriptReport(const ScriptReport&) = delete;
    ScriptReport& operator=(const ScriptReport&) = delete;

    // popen(3) for reading, with this report's name in the environment of the command, and of no other that any thread
    // hands over at the same time; null on failure.
    std::FILE* startShell(const std::string& command) const;

    struct Ending {
        int exitStatus = 0;
        std::string cause; // empty after a success
    };
    // Once the script has ended; nothing when it didn't come to its end, as after a KILL.
    std::optional<Ending> read() const;

private:
    std::string path_;
};

} // namespace archive
