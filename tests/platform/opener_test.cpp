// Opening a file: the desktop's own opener with a private handler, and openers that behave in odd ways.

#include "desktop/private_session.h"
#include "platform/desktop.h"
#include "platform/unicode.h"

#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <optional>
#include <regex>
#include <string>

namespace {

using namespace folidex::test;
using namespace std::chrono_literals;

class Opener : public testing::Test {
protected:
    void SetUp() override
    {
        environment_.set("DISPLAY", ":99"); // never connected to
        environment_.set("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nowhere");
        environment_.set("XDG_DATA_HOME", folder_.text("data"));
        environment_.set("XDG_CONFIG_HOME", folder_.text("config"));
        folder_.makeFolder("bin");
    }

    // A program of the search path in place of the machine's own.
    void provide(const std::string& name, const std::string& script, mode_t mode = 0755)
    {
        folder_.write("bin/" + name, "#!/bin/sh\n" + script + "\n");
        folder_.setMode("bin/" + name, mode);
        environment_.set("PATH", folder_.text("bin"));
    }

    // An application that writes its argument to a file, and is the one for texts and folders.
    void provideHandler()
    {
        folder_.write("handler", "#!/bin/sh\nprintf '%s' \"$1\" >'" + folder_.text("part") + "'\nmv '" +
                                     folder_.text("part") + "' '" + folder_.text("opened") + "'\n");
        folder_.setMode("handler", 0755);
        folder_.write("data/applications/handler.desktop",
                      "[Desktop Entry]\nType=Application\nName=Handler\nExec=" + folder_.text("handler") +
                          " %f\nMimeType=text/plain;inode/directory;\n");
        folder_.write("config/mimeapps.list",
                      "[Default Applications]\ntext/plain=handler.desktop\ninode/directory=handler.desktop\n");
    }

    bool open(const std::string& path) { return platform::openWithDefaultApplication(platform::utf16FromUtf8(path)); }

    // What the handler was given, once it has written it.
    std::optional<std::string> opened()
    {
        for (int tries = 0; tries < 500; ++tries) {
            if (folder_.exists("opened")) {
                std::string path = folder_.read("opened");
                std::filesystem::remove(folder_ / "opened");
                return path;
            }
            usleep(10'000);
        }
        return std::nullopt;
    }

    ScratchFolder folder_;
    Environment environment_;
};

TEST_F(Opener, HandlerGetsTheExactPath)
{
    if (access("/usr/bin/gio", X_OK) != 0 || access("/usr/share/mime/mime.cache", R_OK) != 0) {
        GTEST_SKIP() << "gio or the shared MIME database is missing";
    }
    provideHandler();
    const std::string deep = std::string(200, 'd') + "/" + std::string(200, 'e') + "/" + std::string(200, 'f') + "/" +
                             std::string(200, 'g') + "/" + std::string(200, 'h') + "/" + std::string(200, 'i');
    for (const std::string& name : {std::string("plain.txt"), std::string("a b;$(x) 'q' \"\xC3\xA9.txt"),
                                    std::string("-x%41.txt"), std::string("a\nhttp:b#c?d&e.txt"), deep + "/long.txt"}) {
        const std::string path = folder_.write(name, "text\n").string();
        EXPECT_TRUE(open(path)) << name;
        EXPECT_EQ(opened(), path);
    }
    EXPECT_TRUE(open(folder_.text()));
    EXPECT_EQ(opened(), folder_.text());

    // Relative names that look like options and addresses.
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(folder_.path());
    for (const std::string& name : {std::string("-version"), std::string("http:x")}) {
        folder_.write(name, "text\n");
        EXPECT_TRUE(open(name)) << name;
        EXPECT_EQ(opened(), folder_.text(name));
    }
    std::filesystem::current_path(before);

    folder_.write("unknown", std::string("\0\1\2", 3));
    EXPECT_FALSE(open(folder_.text("unknown"))) << "no handler";
    environment_.set("DISPLAY", std::nullopt);
    environment_.set("WAYLAND_DISPLAY", std::nullopt);
    EXPECT_FALSE(open(folder_.text("plain.txt"))) << "no display";
    EXPECT_FALSE(folder_.exists("opened"));
}

TEST_F(Opener, StatusDecides)
{
    struct Case {
        const char* script;
        bool opened;
    };
    for (const auto& [script, opened] : {Case{"exit 0", true}, {"exit 2", false}, {"kill -KILL $$", false}}) {
        provide("gio", script);
        EXPECT_EQ(open("/tmp"), opened) << script;
    }
    folder_.write("bin/gio", "#!/nowhere/interpreter\n");
    EXPECT_FALSE(open("/tmp"));
    EXPECT_FALSE(open(""));
    EXPECT_FALSE(platform::openWithDefaultApplication(std::u16string{u'/', 0xD800}));
    EXPECT_FALSE(platform::openWithDefaultApplication(std::u16string(u"/tmp\0x", 6)));
}

TEST_F(Opener, XdgOpenStandsInForGio)
{
    provide("gio", "exit 0", 0644); // not executable
    EXPECT_FALSE(open("/tmp"));
    provide("xdg-open", "[ $# = 1 ] && [ \"$1\" = '/a  b;c' ]");
    EXPECT_TRUE(open("/a  b;c"));
    // The current folder isn't searched.
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(folder_ / "bin");
    for (const char* path : {"", ":", ".", "relative:"}) {
        environment_.set("PATH", path);
        EXPECT_FALSE(open("/a  b;c")) << path;
    }
    std::filesystem::current_path(before);
}

// The opener starts with nothing of the host's: no descriptors, no blocked or ignored signals, no terminal. Its signals
// are read by the shell itself: around the start of a command the shell blocks them all.
TEST_F(Opener, StartsClean)
{
    const std::string seenFile = folder_.text("seen");
    provide("gio", "/usr/bin/ls -l /proc/self/fd | /usr/bin/sed -n 's/.* \\([0-9]* -> .*\\)/\\1/p' >" + seenFile +
                       "\nwhile read -r line; do case $line in SigBlk*|SigIgn*) echo \"$line\" ;; esac; done "
                       "</proc/$$/status >>" +
                       seenFile + "\necho session $(/usr/bin/cut -d' ' -f6 /proc/$$/stat) >>" + seenFile);
    const int inheritable = dup2(STDERR_FILENO, 50);
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    const auto handler = std::signal(SIGINT, SIG_IGN);
    const bool opened = open("/tmp");
    std::signal(SIGINT, handler);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    close(inheritable);
    ASSERT_TRUE(opened);

    // Its own output is a pipe, and it reads the list through one more descriptor. posix_spawn() of the C library
    // leaves the two signals ignored that the library keeps for itself, 32 and 33.
    const std::regex expected("0 -> /dev/null\n1 -> pipe.*\n2 -> /dev/null\n3 -> /proc/[0-9]+/fd\n"
                              "SigBlk:\t0000000000000000\nSigIgn:\t0000000[01][08]0000000\nsession [0-9]+\n");
    const std::string seen = folder_.read("seen");
    EXPECT_TRUE(std::regex_match(seen, expected)) << seen;
    EXPECT_EQ(seen.find("session " + std::to_string(getsid(0)) + "\n"), std::string::npos);
}

// A host may reap or ignore its children; the status arrives all the same, and nothing is left behind.
TEST_F(Opener, HostsHandlingOfChildrenDoesNotMatter)
{
    provide("gio", "exit 2");
    struct sigaction before {};
    sigaction(SIGCHLD, nullptr, &before);
    struct sigaction ignoring {};
    ignoring.sa_handler = SIG_IGN;
    struct sigaction discarding {};
    discarding.sa_flags = SA_NOCLDWAIT;
    struct sigaction reaping {};
    reaping.sa_handler = [](int) {
        const int saved = errno;
        while (waitpid(-1, nullptr, WNOHANG) > 0) {
        }
        errno = saved;
    };
    for (const struct sigaction* action : {&before, &ignoring, &discarding, &reaping}) {
        sigaction(SIGCHLD, action, nullptr);
        const ProcessCounts counts = processCounts();
        EXPECT_FALSE(open("/tmp"));
        EXPECT_EQ(counts, processCounts());
    }
    sigaction(SIGCHLD, &before, nullptr);
}

// An opener that stays with its application has opened the file. It isn't waited for and isn't killed.
TEST_F(Opener, OpenerThatStaysIsLeftAlone)
{
    provide("gio", "echo $$ >'" + folder_.text("pid") + "'\nexec /usr/bin/sleep 60");
    const ProcessCounts counts = processCounts();
    const auto start = std::chrono::steady_clock::now();
    EXPECT_TRUE(open("/tmp"));
    EXPECT_LT(std::chrono::steady_clock::now() - start, 5s);
    EXPECT_EQ(counts, processCounts());
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "it is no child of the host";
    const pid_t opener = std::stoi(folder_.read("pid"));
    EXPECT_EQ(kill(opener, SIGTERM), 0) << "it is still running";
}

} // namespace
