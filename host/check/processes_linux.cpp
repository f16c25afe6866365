#include "host/check/processes.h"

#include <sys/prctl.h>
#include <sys/types.h>
#include <sys/wait.h>

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <system_error>
#include <vector>

namespace fmxhost::check {
namespace {

// Each thread has a list of those that it started or adopted (proc(5), "children").
std::vector<pid_t> children()
{
    std::vector<pid_t> found;
    std::error_code error;
    for (const auto& thread : std::filesystem::directory_iterator("/proc/self/task", error)) {
        std::ifstream list(thread.path() / "children");
        for (pid_t child = 0; list >> child;) {
            found.push_back(child);
        }
    }
    return found;
}

} // namespace

void adoptOrphans()
{
    prctl(PR_SET_CHILD_SUBREAPER, 1);
}

std::optional<std::size_t> childProcesses()
{
    if (!std::ifstream("/proc/thread-self/children")) { // kernels may be built without it
        return std::nullopt;
    }
    return children().size();
}

void endChildProcesses()
{
    // The children of those that end are adopted, so there may be more each time. One that starts others as fast as
    // they are ended isn't waited for.
    constexpr int mostRounds = 100;
    std::vector<pid_t> left = children();
    for (int round = 0; round < mostRounds && !left.empty(); ++round, left = children()) {
        for (const pid_t child : left) {
            kill(child, SIGKILL);
            while (waitpid(child, nullptr, 0) == -1 && errno == EINTR) {
            }
        }
    }
}

} // namespace fmxhost::check
