#include "log/plugin_logger.h"

#include "log/log_text.h"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <ctime>
#include <filesystem>
#include <iomanip>
#include <map>

namespace {

namespace fs = std::filesystem;
using folidex::test::ScratchFolder;
using logging::PluginLogger;
using Lines = std::vector<std::string>;

// The logger changes the current folder; each test gives it back.
class PluginLoggerTest : public testing::Test {
public:
    ~PluginLoggerTest() override { fs::current_path(m_before); }

protected:
    Lines lines() const { return logLines(scratch, "a/b/LogFile.txt"); }
    std::string logPath() const { return scratch.text("a/b/LogFile.txt"); }

    ScratchFolder scratch;

private:
    fs::path m_before = fs::current_path();
};

TEST_F(PluginLoggerTest, WritesOneIndentedLineForEachEvent)
{
    {
        PluginLogger logger("NAME", logPath());
        logger.WriteLine("top");
        logger.EnteringFunction("outer");
        logger.EnteringFunction("inner");
        logger.WriteParameter("path", "/a b/ü");
        logger.ExitingFunction("inner");
        logger.ExitingFunction("outer");
        logger.WriteLine("");
    }
    EXPECT_EQ(lines(), (Lines{sessionStarted, "T\ttop", "T\tFUNCTION ENTER: outer", "T\t\tFUNCTION ENTER: inner",
                              "T\t\t\tPARAM: path VAL: /a b/ü", "T\t\tFUNCTION EXIT: inner", "T\tFUNCTION EXIT: outer",
                              "T\t", sessionEnded}));

    PluginLogger again("NAME", logPath());
    EXPECT_EQ(lines().size(), 10U) << "a session is appended to what is there";
}

TEST_F(PluginLoggerTest, StampsLinesWithLocalTime)
{
    const PluginLogger logger("NAME", logPath());
    std::istringstream stamp("20" + scratch.read("a/b/LogFile.txt").substr(0, 17));
    std::tm time{};
    stamp >> std::get_time(&time, "%Y-%m-%d %H:%M:%S");
    ASSERT_FALSE(stamp.fail());
    time.tm_isdst = -1;
    EXPECT_NEAR(static_cast<double>(std::mktime(&time)), static_cast<double>(std::time(nullptr)), 5);
}

TEST_F(PluginLoggerTest, MakesMissingFoldersOpenToAllAndStaysInTheLast)
{
    const mode_t mask = ::umask(0);
    const PluginLogger logger("NAME", scratch.text("a//b/LogFile.txt"));
    ::umask(mask);
    for (const char* folder : {"a", "a/b"}) {
        EXPECT_EQ(fs::status(scratch / folder).permissions(), fs::perms::all) << folder;
    }
    EXPECT_EQ(fs::current_path(), scratch / "a/b");
}

TEST_F(PluginLoggerTest, ClearingLeavesOneLine)
{
    PluginLogger logger("NAME", logPath());
    logger.WriteLine("gone");
    logger.ClearLog();
    EXPECT_EQ(lines(), Lines{contentCleared});
}

TEST_F(PluginLoggerTest, WhatCantBeWrittenIsLeftOut)
{
    scratch.write("file", "kept");
    fs::current_path(scratch.path());
    {
        PluginLogger logger("NAME", scratch.text("file/b/LogFile.txt"));
        logger.ClearLog();
        EXPECT_FALSE(logger.OpenLogFile());
    }
    EXPECT_EQ(scratch.list(), std::vector<std::string>{"file"});
    EXPECT_EQ(scratch.read("file"), "kept");

    PluginLogger silent("NAME", logPath());
    silent.SetLogPath("");
    silent.WriteLine("unwritten");
    silent.ClearLog();
    EXPECT_EQ(lines(), Lines{sessionStarted});
}

TEST_F(PluginLoggerTest, TheDefaultPathKeepsItsTilde)
{
    fs::current_path(scratch.path());
    std::string path = "unchanged";
    logging::CreateDefaultPath("NAME", path);
    EXPECT_EQ(path, "~/Desktop/HALVIK/NAME/LogFile.txt");
    EXPECT_EQ(fs::current_path(), scratch / "HALVIK/NAME");

    fs::current_path(scratch.makeFolder("blocked"));
    scratch.write("blocked/HALVIK");
    path = "unchanged";
    logging::CreateDefaultPath("NAME", path);
    EXPECT_EQ(path, "unchanged");
}

TEST_F(PluginLoggerTest, InstanceNumbersStayInTheirRange)
{
    EXPECT_LE(logging::GetInstanceID(), 9998U);
}

// Threads that log and move the current folder at once neither lose nor tear lines, nor make folders elsewhere.
TEST_F(PluginLoggerTest, ThreadsWriteWholeLines)
{
    constexpr int threadCount = 4;
    constexpr int rounds = 50;
    {
        PluginLogger logger("NAME", logPath());
        inParallel(threadCount, [&logger](int number) {
            for (int round = 0; round < rounds; ++round) {
                logger.EnteringFunction("f");
                logger.WriteLine(std::string(200, static_cast<char>('a' + number)));
                logger.ExitingFunction("f");
            }
        });
    }
    std::map<std::string, int> counts;
    for (const std::string& line : lines()) {
        ++counts[line.substr(line.rfind('\t') + 1)];
    }
    std::map<std::string, int> expected{{sessionStarted.substr(2), 1},
                                        {sessionEnded.substr(2), 1},
                                        {"FUNCTION ENTER: f", threadCount * rounds},
                                        {"FUNCTION EXIT: f", threadCount * rounds}};
    for (const char letter : {'a', 'b', 'c', 'd'}) {
        expected[std::string(200, letter)] = rounds;
    }
    EXPECT_EQ(counts, expected);
    EXPECT_EQ(scratch.list(), std::vector<std::string>{"a"});
    EXPECT_EQ(scratch.list("a"), std::vector<std::string>{"b"});
    EXPECT_EQ(scratch.list("a/b"), std::vector<std::string>{"LogFile.txt"});
}

} // namespace
