#include "support/child_process.h"

#include <fcntl.h>
#include <grp.h>
#include <sys/wait.h>
#include <unistd.h>
#ifdef __linux__
#include <sched.h>
#include <sys/mount.h>
#endif

#include <array>
#include <cerrno>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <system_error>

namespace folidex::test {
namespace {

void check(int result, const char* what)
{
    if (result != 0) {
        throw std::system_error(errno, std::generic_category(), what);
    }
}

[[noreturn]] void runChild(const std::function<std::string()>& body, int answer)
{
    std::string text;
    try {
        text = body();
    } catch (const std::exception& error) {
        text = std::string("child: ") + error.what();
    }
    std::FILE* stream = fdopen(answer, "w");
    _exit(std::fwrite(text.data(), 1, text.size(), stream) == text.size() && std::fclose(stream) == 0 ? 0 : 1);
}

} // namespace

std::string inChild(const std::function<std::string()>& body)
{
    std::array<int, 2> ends{};
    check(pipe(ends.data()), "pipe");
    const pid_t child = fork();
    if (child == 0) {
        close(ends[0]);
        runChild(body, ends[1]);
    }
    check(child < 0 ? child : 0, "fork");
    close(ends[1]);
    std::FILE* stream = fdopen(ends[0], "r");
    std::string answer;
    for (int byte = std::getc(stream); byte != EOF; byte = std::getc(stream)) {
        answer.push_back(static_cast<char>(byte));
    }
    std::fclose(stream);
    int status = 0;
    waitpid(child, &status, 0);
    if (WIFSIGNALED(status)) {
        return "child: ended by signal " + std::to_string(WTERMSIG(status));
    }
    return WEXITSTATUS(status) == 0 ? answer : "child: exit status " + std::to_string(WEXITSTATUS(status));
}

void becomeOrdinaryUser()
{
    constexpr id_t nobody = 65534;
    if (geteuid() == 0) {
        check(setgroups(0, nullptr), "setgroups");
        check(setgid(nobody), "setgid");
        check(setuid(nobody), "setuid");
    }
}

#ifdef __linux__
void leaveMountNamespace()
{
    check(unshare(CLONE_NEWNS), "unshare");
    check(mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr), "mount --make-rprivate");
}
#endif

void enterRoot(const std::string& folder)
{
    check(chroot(folder.c_str()), "chroot");
    check(chdir("/"), "chdir");
}

#ifdef __linux__
std::map<int, std::string> openDescriptors()
{
    constexpr int most = 1024;
    std::map<int, std::string> open;
    for (int number = 0; number < most; ++number) {
        if (fcntl(number, F_GETFD) != -1) {
            std::error_code noProc;
            open[number] = std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(number), noProc);
        }
    }
    return open;
}
#endif

} // namespace folidex::test
