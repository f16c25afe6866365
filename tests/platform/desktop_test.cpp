#include "desktop/fake_portal.h"
#include "desktop/private_session.h"
#include "platform/desktop.h"
#include "platform/linux/desktop_uri.h"
#include "platform/unicode.h"

#include <gtest/gtest.h>

#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstring>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace {

using namespace folidex::test;
using namespace std::chrono_literals;
using platform::ChooserKind;
using Answer = platform::Choice::Answer;
using Fate = PortalBehaviour::Fate;

TEST(FileUri, OnlyAFileOfThisMachineHasAPath)
{
    struct Case {
        std::string uri;
        std::optional<std::string> path;
    };
    const Case cases[] = {
        {"file:///tmp/a%20b%25%c3%A9;$(x)'q'\"", "/tmp/a b%\xC3\xA9;$(x)'q'\""},
        {"FILE://LocalHost/tmp/a", "/tmp/a"},
        {"file:/tmp/a", "/tmp/a"},
        {"file:///tmp/a//", "/tmp/a"},
        {"file:///", "/"},
        {"file:///tmp/%23%3F", "/tmp/#?"},
        {"file://server/tmp/a", std::nullopt},
        {"smb://server/tmp/a", std::nullopt},
        {"sftp:///tmp/a", std::nullopt},
        {"/tmp/a", std::nullopt},
        {"file:tmp", std::nullopt},
        {"file://", std::nullopt},
        {"file:///a?b", std::nullopt},
        {"file:///a#b", std::nullopt},
        {"file:///a%", std::nullopt},
        {"file:///a%4", std::nullopt},
        {"file:///a%G0", std::nullopt},
        {"file:///a%00b", std::nullopt},
        {"file:///a%FF", std::nullopt},
        {"", std::nullopt},
    };
    for (const Case& expected : cases) {
        EXPECT_EQ(platform::linux_os::pathFromFileUri(expected.uri), expected.path) << expected.uri;
        if (expected.path) {
            const std::string uri = "file://" + platform::linux_os::percentEncoded(*expected.path);
            EXPECT_EQ(platform::linux_os::pathFromFileUri(uri), expected.path) << uri;
        }
    }
}

struct TimedCall {
    std::chrono::duration<double> time;
    ProcessCounts before;
    ProcessCounts after;
};

TimedCall timed(const std::function<void()>& call)
{
    const ProcessCounts before = processCounts();
    const auto start = std::chrono::steady_clock::now();
    call();
    const auto time = std::chrono::steady_clock::now() - start;
    return {time, before, processCounts()};
}

// Every failure within its time, the process as it was before.
void expectFailure(const std::string& name, std::chrono::duration<double> limit)
{
    Answer answer = Answer::chosen;
    const TimedCall call = timed([&] { answer = platform::chooseItem(ChooserKind::file, "Select").answer; });
    EXPECT_EQ(answer, Answer::failed) << name;
    EXPECT_LT(call.time, limit) << name;
    EXPECT_EQ(call.before, call.after) << name;
    EXPECT_FALSE(platform::showAlert("h", "m")) << name;
}

constexpr auto atOnce = 500ms;
constexpr auto inTime = 5s;

// A server's environment, without any desktop.
TEST(DesktopOfAServer, EveryCallFailsAtOnce)
{
    Environment environment;
    for (const char* name : {"DISPLAY", "WAYLAND_DISPLAY", "DBUS_SESSION_BUS_ADDRESS", "XDG_RUNTIME_DIR"}) {
        environment.set(name, std::nullopt);
    }
    expectFailure("no display", atOnce);
    EXPECT_FALSE(platform::openWithDefaultApplication(u"/tmp"));
    environment.set("DISPLAY", "");
    expectFailure("empty display", atOnce);
    environment.set("WAYLAND_DISPLAY", "wayland-0");
    expectFailure("no bus", atOnce);
    environment.set("XDG_RUNTIME_DIR", "run");
    expectFailure("relative folder of the bus", atOnce);
    environment.set("XDG_RUNTIME_DIR", "/nowhere");
    expectFailure("no socket", atOnce);
    const ScratchFolder folder;
    for (const std::string& address : {std::string("unix:path=/nowhere/bus"), std::string("tcp:host=127.0.0.1,port=9"),
                                       "unixexec:path=/usr/bin/touch,argv1=" + folder.text("ran"),
                                       std::string("autolaunch:"), std::string("nonsense"), std::string(";;")}) {
        environment.set("DBUS_SESSION_BUS_ADDRESS", address);
        expectFailure(address, atOnce);
    }
    EXPECT_FALSE(folder.exists("ran"));
}

class Desktop : public testing::Test {
protected:
    void SetUp() override
    {
        if (!PrivateSession::available()) {
            GTEST_SKIP() << "dbus-daemon is missing";
        }
        session_ = std::make_unique<PrivateSession>();
        // What a first call loads stays: it isn't a call's own.
        platform::chooseItem(ChooserKind::file, "");
    }

    platform::Choice choose(PortalBehaviour behaviour, ChooserKind kind = ChooserKind::file)
    {
        const FakePortal portal(session_->address(), std::move(behaviour));
        platform::Choice choice;
        const TimedCall call = timed([&] { choice = platform::chooseItem(kind, "Select"); });
        EXPECT_EQ(call.before.children, call.after.children);
        return choice;
    }

    std::unique_ptr<PrivateSession> session_;
};

TEST_F(Desktop, ChooserAsksForOneItemOfItsKind)
{
    for (const ChooserKind kind : {ChooserKind::file, ChooserKind::folder}) {
        FakePortal portal(session_->address(), {.code = 1, .uris = {}, .requestName = {}});
        platform::chooseItem(kind, "Select");
        const ChooserRequest request = portal.request();
        EXPECT_EQ(request.acceptLabel, "_Select");
        EXPECT_EQ(request.directory, kind == ChooserKind::folder);
        EXPECT_FALSE(request.multiple);
        EXPECT_TRUE(request.modal);
        EXPECT_TRUE(request.otherOptions.empty());
    }
}

TEST_F(Desktop, ChooserTakesThePortalsAnswer)
{
    const ScratchFolder& folder = session_->folder();
    const std::string file = folder.write("f", "x").string();
    struct Case {
        const char* name;
        PortalBehaviour behaviour;
        std::string path;
        ChooserKind kind;
        Answer answer;
    };
    const auto uris = [](auto... texts) { return std::vector<std::string>{texts...}; };
    const auto answers = [](std::uint32_t code, std::optional<std::vector<std::string>> list, std::string handle = {}) {
        return PortalBehaviour{.code = code, .uris = std::move(list), .requestName = std::move(handle)};
    };
    const Case cases[] = {
        {"name", answers(0, uris("file:///n/%C3%A4%20%25")), "/n/\xC3\xA4 %", ChooserKind::file, Answer::chosen},
        {"file", answers(0, uris("file://" + file)), file, ChooserKind::file, Answer::chosen},
        {"folder", answers(0, uris("file://" + folder.text())), folder.text(), ChooserKind::folder, Answer::chosen},
        {"first of two", answers(0, uris("file:///n/a", "file:///n/b")), "/n/a", ChooserKind::file, Answer::chosen},
        {"own request name", answers(0, uris("file:///n/a"), "x1"), "/n/a", ChooserKind::file, Answer::chosen},
        {"Cancel", answers(1, uris()), "", ChooserKind::file, Answer::cancelled},
        {"Escape", answers(2, std::nullopt), "", ChooserKind::folder, Answer::cancelled},
        {"cancelled with a list", answers(1, uris("file:///n/a")), "", ChooserKind::file, Answer::cancelled},
        {"no list", answers(0, std::nullopt), "", ChooserKind::file, Answer::failed},
        {"empty list", answers(0, uris()), "", ChooserKind::file, Answer::failed},
        {"remote", answers(0, uris("sftp://server/a")), "", ChooserKind::file, Answer::failed},
        {"folder for a file", answers(0, uris("file://" + folder.text())), "", ChooserKind::file, Answer::failed},
        {"file for a folder", answers(0, uris("file://" + file)), "", ChooserKind::folder, Answer::failed},
    };
    for (const Case& expected : cases) {
        const platform::Choice choice = choose(expected.behaviour, expected.kind);
        EXPECT_EQ(choice.answer, expected.answer) << expected.name;
        EXPECT_EQ(choice.path, expected.path) << expected.name;
    }
}

// A user may think for longer than a service may take, and the host's timers may interrupt every wait.
TEST_F(Desktop, ChooserWaitsForTheUserThroughSignals)
{
    const FakePortal portal(session_->address(),
                            {.uris = std::vector<std::string>{"file:///n/a"}, .thinkingTime = 6s, .requestName = {}});
    struct sigaction counting {};
    struct sigaction before {};
    counting.sa_handler = [](int) {};
    sigaction(SIGALRM, &counting, &before);
    const itimerval every5ms{{0, 5000}, {0, 5000}};
    const itimerval never{};
    setitimer(ITIMER_REAL, &every5ms, nullptr);
    const platform::Choice choice = platform::chooseItem(ChooserKind::file, "Select");
    setitimer(ITIMER_REAL, &never, nullptr);
    sigaction(SIGALRM, &before, nullptr);
    EXPECT_EQ(choice.path, "/n/a");
}

TEST_F(Desktop, ChooserFailsWithItsPortal)
{
    expectFailure("no portal", atOnce);
    for (const Fate fate : {Fate::refuses, Fate::dies, Fate::diesWithDialogOpen, Fate::losesBackend}) {
        const FakePortal portal(session_->address(), {.fate = fate, .code = 2, .uris = {}, .requestName = {}});
        const auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(platform::chooseItem(ChooserKind::folder, "Select").answer, Answer::failed);
        EXPECT_LT(std::chrono::steady_clock::now() - start, atOnce) << static_cast<int>(fate);
    }
}

TEST_F(Desktop, ChooserFailsInTimeWhenNobodyAnswers)
{
    const auto expectFailureInTime = [](const char* name) {
        Answer answer = Answer::chosen;
        const TimedCall call = timed([&] { answer = platform::chooseItem(ChooserKind::file, "Select").answer; });
        EXPECT_EQ(answer, Answer::failed) << name;
        EXPECT_LT(call.time, inTime) << name;
        EXPECT_EQ(call.before, call.after) << name;
    };
    {
        const FakePortal portal(session_->address(), {.fate = Fate::isFrozen, .uris = {}, .requestName = {}});
        expectFailureInTime("stopped portal");
    }
    session_->signal(SIGSTOP);
    expectFailureInTime("stopped bus");
    session_->signal(SIGCONT);
}

TEST_F(Desktop, AlertIsANotification)
{
    for (const bool markup : {true, false}) {
        std::string header;
        std::string body;
        FakeService server(session_->address(), "org.freedesktop.Notifications", [&](sd_bus*, sd_bus_message* call) {
            if (sd_bus_message_is_method_call(call, nullptr, "GetCapabilities") > 0) {
                sd_bus_reply_method_return(call, "as", 2, "body", markup ? "body-markup" : "actions");
            } else {
                const char* summary = "";
                const char* text = "";
                sd_bus_message_skip(call, "sus");
                sd_bus_message_read(call, "ss", &summary, &text);
                header = summary;
                body = text;
                sd_bus_reply_method_return(call, "u", 1);
            }
            return true;
        });
        EXPECT_TRUE(platform::showAlert("DEBUG MESSAGE", "a<b & \xC3\xA9\xFF"));
        server.vanish();
        EXPECT_EQ(header, "DEBUG MESSAGE");
        EXPECT_EQ(body, markup ? "a&lt;b &amp; \xC3\xA9\xEF\xBF\xBD" : "a<b & \xC3\xA9\xEF\xBF\xBD");
    }
}

} // namespace
