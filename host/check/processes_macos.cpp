// Children only: macOS gives orphans to launchd.
#include "host/check/processes.h"

#include <libproc.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <vector>

namespace fmxhost::check {
namespace {

std::vector<pid_t> children()
{
    const auto list = [](void* places, int bytes) {
        return ::proc_listpids(PROC_PPID_ONLY, static_cast<uint32_t>(::getpid()), places, bytes);
    };
    const int roomy = list(nullptr, 0); // with free places
    std::vector<pid_t> found(static_cast<std::size_t>(roomy > 0 ? roomy : 0) / sizeof(pid_t));
    const int used = list(found.data(), static_cast<int>(found.size() * sizeof(pid_t)));
    found.resize(static_cast<std::size_t>(used > 0 ? used : 0) / sizeof(pid_t));
    return found;
}

} // namespace

void adoptOrphans() {}

std::optional<std::size_t> childProcesses()
{
    return children().size();
}

void endChildProcesses()
{
    for (const pid_t child : children()) {
        kill(child, SIGKILL);
        while (waitpid(child, nullptr, 0) == -1 && errno == EINTR) {
        }
    }
}

} // namespace fmxhost::check
