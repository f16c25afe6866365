// Calls the desktop's services as a host does whose timer interrupts every wait: desktop_call file|folder, or
// desktop_call alert HEADER MESSAGE. Says what came of it, and whether the call left threads, descriptors or children.
#include "platform/desktop.h"

#include <sys/time.h>
#include <sys/wait.h>

#include <csignal>
#include <filesystem>
#include <iostream>
#include <iterator>
#include <string>
#include <string_view>
#include <tuple>

namespace {

auto belongings()
{
    const auto entries = [](const char* folder) {
        return std::distance(std::filesystem::directory_iterator(folder), std::filesystem::directory_iterator());
    };
    return std::tuple(entries("/proc/self/task"), entries("/proc/self/fd"), waitpid(-1, nullptr, WNOHANG));
}

std::string outcome(std::string_view what, char** arguments)
{
    if (what == "alert") {
        return platform::showAlert(arguments[0], arguments[1]) ? "shown" : "not shown";
    }
    return platform::chooseItem(what == "file" ? platform::ChooserKind::file : platform::ChooserKind::folder, "Select")
        .path;
}

} // namespace

int main(int, char** arguments)
{
    struct sigaction counting {};
    counting.sa_handler = [](int) {};
    sigaction(SIGALRM, &counting, nullptr);
    const itimerval every5ms{{0, 5000}, {0, 5000}};
    setitimer(ITIMER_REAL, &every5ms, nullptr);
    const auto before = belongings();
    std::cout << outcome(arguments[1], arguments + 2) << '\n';
    std::cout << (belongings() == before ? "nothing" : "something") << " left behind\n";
}
