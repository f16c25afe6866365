#include "log/log_text.h"
#include "support/plugin_under_test.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

namespace {

namespace fs = std::filesystem;
using fmxhost::ValueType;
using folidex::test::PluginUnderTest;
using folidex::test::ScratchFolder;
using Lines = std::vector<std::string>;

constexpr const char* logFile = "Desktop/HALVIK/FOLIDEX/LogFile.txt";

class LogFunctions : public testing::Test {
public:
    LogFunctions() { ::setenv("HOME", scratch.text().c_str(), 1); }
    ~LogFunctions() override
    {
        plugin.call("KORB_LogSet", {"0"});
        fs::current_path(m_before);
    }

protected:
    // Calls the function and checks that it answers the text "0".
    void run(const char* function, const std::vector<fmxhost::Value>& arguments)
    {
        const auto result = plugin.call(function, arguments);
        EXPECT_EQ(result.type(), ValueType::text);
        EXPECT_EQ(result.utf8(), "0");
        EXPECT_EQ(result.errorCode(), 0);
    }
    Lines lines() const { return logLines(scratch, logFile); }

    ScratchFolder scratch;
    PluginUnderTest plugin;

private:
    fs::path m_before = fs::current_path();
};

TEST_F(LogFunctions, ATextMeansOnByItsFirstCharacterAfterBlanks)
{
    for (const char16_t* text : {u"1", u"9 lives", u"Y", u"yes", u"T", u"true", u"  1", u" \tt"}) {
        fs::remove(scratch / logFile);
        run("KORB_LogSet", {text});
        EXPECT_EQ(lines(), Lines{sessionStarted}) << fmxhost::Value(text).utf8();
        run("KORB_LogSet", {u""});
        EXPECT_EQ(lines(), (Lines{sessionStarted, sessionEnded}));
    }
    fs::remove(scratch / logFile);
    for (const char16_t* text : {u"", u" ", u"0", u"01", u"+1", u"-1", u"on", u"no", u"\nY", u"\uFF11"}) {
        run("KORB_LogSet", {text});
        EXPECT_EQ(lines(), Lines{}) << fmxhost::Value(text).utf8();
    }
    run("KORB_LogSet", {1, u"ignored"});
    run("KORB_LogSet", {0, 1});
    EXPECT_EQ(lines(), (Lines{sessionStarted, sessionEnded}));
}

TEST_F(LogFunctions, SwitchingTwiceStartsOneSession)
{
    run("KORB_LogSet", {"1"});
    run("KORB_LogSet", {"1"});
    run("KORB_LogSet", {"0"});
    run("KORB_LogSet", {"0"});
    EXPECT_EQ(lines(), (Lines{sessionStarted, sessionEnded}));
    EXPECT_EQ(fs::current_path(), fs::path(scratch / logFile).parent_path());
}

TEST_F(LogFunctions, ClearingNeedsALogger)
{
    scratch.write(logFile, "kept\n");
    run("KORB_LogClear", {});
    EXPECT_EQ(lines(), Lines{"kept"});
    run("KORB_LogSet", {"1"});
    run("KORB_LogClear", {});
    EXPECT_EQ(lines(), Lines{contentCleared});
}

TEST_F(LogFunctions, TheLastErrorStaysReadable)
{
    plugin.call("KORB_EncryptFile", {"", "", ""});
    ASSERT_EQ(plugin.lastErrorNumber(), -8000);
    run("KORB_LogSet", {"1"});
    run("KORB_LogClear", {});
    run("KORB_LogSet", {"0"});
    const std::vector<std::vector<fmxhost::Value>> wrongCounts{{}, {"1", "1", "1"}};
    for (const auto& arguments : wrongCounts) {
        EXPECT_TRUE(plugin.call("KORB_LogSet", arguments).isError());
    }
    EXPECT_EQ(plugin.lastErrorNumber(), -8000);
}

TEST_F(LogFunctions, AnUnreachableDesktopIsIgnored)
{
    scratch.write("Desktop", "a file");
    run("KORB_LogSet", {"1"});
    run("KORB_LogClear", {});
    run("KORB_LogSet", {"0"});
    EXPECT_EQ(scratch.list(), std::vector<std::string>{"Desktop"});
}

} // namespace
