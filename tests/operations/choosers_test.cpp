#include "desktop/fake_portal.h"
#include "desktop/private_session.h"
#include "support/plugin_under_test.h"
#include "support/scratch_folder.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

namespace {

using namespace folidex::test;
using fmxhost::ValueType;

const std::string unreachable = "Unable to complete operation -  ";

class Choosers : public testing::Test {
protected:
    // A server: no display, no bus.
    void SetUp() override
    {
        for (const char* name : {"DISPLAY", "WAYLAND_DISPLAY", "DBUS_SESSION_BUS_ADDRESS", "XDG_RUNTIME_DIR"}) {
            environment_.set(name, std::nullopt);
        }
    }

    Environment environment_;
    PluginUnderTest plugin_;
};

TEST_F(Choosers, FailOnAServer)
{
    for (const auto& [function, text] : {std::pair("KORB_GetFilePath", "Unable to get file path"),
                                         std::pair("KORB_GetFolderPath", "Unable to get folder path")}) {
        EXPECT_TRUE(failedWith(-8014, plugin_, plugin_.call(function, {u""})));
        EXPECT_EQ(plugin_.lastErrorText(), unreachable + text);
        EXPECT_TRUE(failedWith(-3, plugin_, plugin_.call(function)));
        EXPECT_TRUE(failedWith(-3, plugin_, plugin_.call(function, {u"", u""})));
    }
}

TEST_F(Choosers, AnswerThePathOrAnEmptyText)
{
    if (!PrivateSession::available()) {
        GTEST_SKIP() << "dbus-daemon is missing";
    }
    const PrivateSession session;
    for (const char* function : {"KORB_GetFilePath", "KORB_GetFolderPath"}) {
        {
            const FakePortal portal(
                session.address(),
                {.uris = std::vector<std::string>{"file:///n/%C3%84%20%E2%82%AC"}, .requestName = {}});
            const Result chosen = plugin_.call(function, {u"ignored"});
            EXPECT_TRUE(succeeded(plugin_, chosen));
            EXPECT_EQ(chosen.type(), ValueType::text);
            EXPECT_EQ(chosen.utf8(), "/n/\xC3\x84 \xE2\x82\xAC");
        }
        plugin_.call(function); // an error to be cleared
        const FakePortal portal(session.address(), {.code = 1, .uris = {}, .requestName = {}});
        const Result cancelled = plugin_.call(function, {u""});
        EXPECT_TRUE(succeeded(plugin_, cancelled));
        EXPECT_EQ(cancelled.type(), ValueType::text);
        EXPECT_EQ(cancelled.utf8(), "");
        EXPECT_EQ(plugin_.lastErrorText(), "Success");
    }
}

TEST_F(Choosers, OpenFileChecksThePathBeforeTheDisplay)
{
    const ScratchFolder folder;
    EXPECT_TRUE(failedWith(-8000, plugin_, plugin_.call("KORB_OpenFile", {u""})));
    EXPECT_EQ(plugin_.lastErrorText(), "Missing source parameter ");
    EXPECT_TRUE(failedWith(-8002, plugin_, plugin_.call("KORB_OpenFile", {folder.text16("missing")})));
    EXPECT_EQ(plugin_.lastErrorText(), "Source path not found ");
    EXPECT_TRUE(failedWith(-8014, plugin_, plugin_.call("KORB_OpenFile", {folder.text16()})));
    EXPECT_EQ(plugin_.lastErrorText(), unreachable + "Could not open the file at that location.");

    // A wrong count leaves no error behind, unlike everywhere else.
    for (const std::vector<fmxhost::Value>& arguments :
         {std::vector<fmxhost::Value>{}, std::vector<fmxhost::Value>{folder.text16(), u""}}) {
        const Result result = plugin_.call("KORB_OpenFile", arguments);
        EXPECT_TRUE(result.isError());
        EXPECT_EQ(plugin_.lastErrorText(), "Success");
    }
}

TEST_F(Choosers, OpenFileAnswersATextZero)
{
    const ScratchFolder folder;
    folder.write("bin/gio", "#!/bin/sh\n[ \"$1\" = open ] && printf %s \"$2\" >'" + folder.text("opened") + "'\n");
    folder.setMode("bin/gio", 0755);
    environment_.set("PATH", folder.text("bin"));
    environment_.set("DISPLAY", ":99"); // never connected to
    const std::string path = std::string(250, 'a') + "/" + std::string(250, 'b') + "/" + std::string(250, 'c') + "/" +
                             std::string(250, 'd') + "/" + std::string(250, 'e') + "/a b;$(x) 'q' \"\xC3\xA9.txt";
    folder.write(path, "text");
    const Result opened = plugin_.call("KORB_OpenFile", {folder.text16(path)});
    EXPECT_TRUE(succeeded(plugin_, opened));
    EXPECT_EQ(opened.type(), ValueType::text);
    EXPECT_EQ(opened.utf8(), "0");
    EXPECT_EQ(folder.read("opened"), folder.text(path));
}

} // namespace
