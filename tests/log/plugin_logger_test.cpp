// What the functions that switch the log don't show (tests/functions/log.calc).
#include "log/current_logger.h"
#include "log/plugin_logger.h"
#include "support/scratch_folder.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <iomanip>
#include <map>
#include <sstream>
#include <thread>

namespace {

namespace fs = std::filesystem;
using folidex::test::ScratchFolder;
using logging::PluginLogger;
using Lines = std::vector<std::string>;

const std::string started = "************* SESSION STARTED *************";
const std::string ended = "************* SESSION ENDED *************";

// The logger changes the current folder; each test gives it back.
class Logger : public testing::Test {
public:
    ~Logger() override { fs::current_path(before_); }

protected:
    // The lines of the log without their time stamps.
    Lines lines(const std::string& file = "a/b/LogFile.txt") const
    {
        constexpr std::size_t timeStampLength = 17;
        Lines lines;
        std::istringstream stream(scratch.exists(file) ? scratch.read(file) : "");
        for (std::string line; std::getline(stream, line);) {
            lines.push_back(line.substr(std::min(line.size(), timeStampLength)));
        }
        return lines;
    }

    ScratchFolder scratch;
    const std::string path = scratch.text("a//b/LogFile.txt");

private:
    fs::path before_ = fs::current_path();
};

TEST_F(Logger, StampsLinesWithLocalTimeWhereItHasAPath)
{
    ::setenv("TZ", "Asia/Kolkata", 1);
    ::tzset();
    PluginLogger logger("NAME", path);
    std::istringstream stamp("20" + scratch.read("a/b/LogFile.txt").substr(0, 17));
    std::tm time{};
    stamp >> std::get_time(&time, "%Y-%m-%d %H:%M:%S");
    ASSERT_FALSE(stamp.fail());
    EXPECT_NEAR(static_cast<double>(std::mktime(&time)), static_cast<double>(std::time(nullptr)), 600);
    ::unsetenv("TZ");
    logger.SetLogPath("");
    logger.WriteLine("unwritten");
    logger.SetLogPath(path);
    EXPECT_EQ(lines(), Lines{"\t" + started});
}

TEST_F(Logger, TheDefaultPathKeepsItsTilde)
{
    fs::current_path(scratch.path());
    std::string found = "unchanged";
    logging::CreateDefaultPath("NAME", found);
    EXPECT_EQ(found, "~/Desktop/HALVIK/NAME/LogFile.txt");
    EXPECT_EQ(fs::current_path(), scratch / "HALVIK/NAME");

    fs::current_path(scratch.makeFolder("blocked"));
    scratch.write("blocked/HALVIK");
    found = "unchanged";
    logging::CreateDefaultPath("NAME", found);
    EXPECT_EQ(found, "unchanged");
}

// Whoever switches during a call finds each log's lines indented as its own calls are.
TEST_F(Logger, ACallLeavesTheLogThatItEntered)
{
    ::setenv("HOME", scratch.text().c_str(), 1);
    {
        const logging::FunctionTrace before("before");
        logging::switchOn();
        const logging::FunctionTrace outer("outer");
        logging::switchOff();
        logging::switchOn();
    }
    logging::writeLine("last");
    logging::switchOff();
    EXPECT_EQ(
        lines("Desktop/HALVIK/FOLIDEX/LogFile.txt"),
        (Lines{"\t" + started, "\tFUNCTION ENTER: outer", "\t\t" + ended, "\t" + started, "\tlast", "\t" + ended}));
}

// Threads that log and move the current folder at once neither lose nor tear lines, nor make folders elsewhere.
TEST_F(Logger, ThreadsWriteWholeLines)
{
    constexpr int rounds = 50;
    const std::string letters = "abcd";
    {
        PluginLogger logger("NAME", path);
        std::vector<std::jthread> threads;
        for (const char letter : letters) {
            threads.emplace_back([&logger, letter] {
                for (int round = 0; round < rounds; ++round) {
                    logger.EnteringFunction("f");
                    logger.WriteLine(std::string(200, letter));
                    logger.ExitingFunction("f");
                }
            });
        }
    }
    std::map<std::string, int> counts;
    for (const std::string& line : lines()) {
        ++counts[line.substr(line.rfind('\t') + 1)];
    }
    const int calls = rounds * static_cast<int>(letters.size());
    std::map<std::string, int> expected{
        {started, 1}, {ended, 1}, {"FUNCTION ENTER: f", calls}, {"FUNCTION EXIT: f", calls}};
    for (const char letter : letters) {
        expected[std::string(200, letter)] = rounds;
    }
    EXPECT_EQ(counts, expected);
    EXPECT_EQ(scratch.list(), Lines{"a"});
    EXPECT_EQ(scratch.list("a/b"), Lines{"LogFile.txt"});
}

} // namespace
