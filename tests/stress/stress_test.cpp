// The whole plug-in as a busy server uses it: many threads, many calls, files and scripts of its own making.
//
// A caller has a folder of its own, so that what it asks for has one right answer whatever other threads do. Its calls
// are rows of a table; "$" in an argument is its folder.

#include "support/child_process.h"
#include "support/plugin_under_test.h"
#include "support/scratch_folder.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <thread>

namespace folidex::test {
namespace {

struct Row {
    const char* function;
    std::vector<const char*> arguments;
    const char* answer; // null: any but an error and an empty one
};

constexpr const char* error = "!!ERROR!!";
constexpr const char* whatever = ""; // an empty one or an error too

const std::vector<Row> everyday{
    {"FolderCreate", {"$/new/er"}, "0"},
    {"FileCopy", {"$/source/a.txt", "$/target"}, "0"},
    {"FileCopy", {"$/source/a.txt", "$/target", "y", "a.txt"}, "0"},
    {"FileRename", {"$/target/a.txt", "z.txt"}, "0"},
    {"FileMove", {"$/target/z.txt", "$/new"}, "0"},
    {"FolderCopy", {"$/source", "$/target"}, "0"},
    {"FolderRename", {"$/target/source", "copy"}, "0"},
    {"FolderMove", {"$/target/copy", "$/new/er"}, "0"},
    {"GetFileSize", {"$/new/er/copy/a.txt"}, "12"},
    {"FileDelete", {"$/new/z.txt"}, "0"},
    {"FolderDelete", {"$/new"}, "0"},
    {"GetFolderExists", {"$/new"}, "1"},
    {"GetFiles", {"$/source"}, "a.txt"},
    {"GetFolders", {"$/source"}, "inner"},
    {"GetNumFiles", {"$/source"}, "1"},
    {"GetNumSubfolders", {"$/source"}, "1"},
    {"GetFileExists", {"$/source/a.txt"}, "0"},
    {"GetFolderSize", {"$/source"}, nullptr},
    {"GetFileModificationDate", {"$/source/a.txt"}, nullptr},
    {"GetFileAccessDate", {"$/source/a.txt"}, nullptr},
    {"GetFileCreationDate", {"$/source/a.txt"}, whatever}, // not every file system keeps one
    {"GetFolderModificationDate", {"$/source"}, nullptr},
    {"GetFolderAccessDate", {"$/source"}, nullptr},
    {"GetFolderCreationDate", {"$/source"}, whatever},
    {"GetDriveSize", {"$"}, nullptr},
    {"GetDriveSizeFree", {"$"}, nullptr},
    {"GetDriveSizeUsed", {"$"}, nullptr},
    {"GetDrives", {}, whatever},
    {"FileCopy", {"$/absent", "$"}, error},
    {"FileDelete", {"$"}, error},
    {"GetFiles", {"$/source/a.txt"}, error},
    {"FolderCreate", {"$"}, error},
    {"ExpandFile", {"$/absent.zip", ""}, error},
    {"GetFilePath", {"$"}, error}, // there is no display
    {"GetFolderPath", {"$"}, error},
    {"OpenFile", {"$/source/a.txt"}, error},
    {"GetLastError", {}, nullptr}, // of whichever thread was last
    {"GetLastError", {"number"}, nullptr},
    {"LogSet", {"1"}, "0"},
    {"Version", {}, "Folidex 5.0.2.1"},
    {"Version", {"platform"}, "Mac OS X"},
    {"GetFileMakerPath", {}, nullptr},
    {"LogClear", {}, "0"},
    {"LogSet", {"0"}, "0"},
};

const std::vector<Row> archives{
    {"CompressFile", {"$/source/a.txt", "$/target/a.zip"}, "0"},
    {"EncryptFile", {"$/target/a.zip", "$/target/a.bin", "password"}, "0"},
    {"FileDelete", {"$/target/a.zip"}, "0"},
    {"DecryptFile", {"$/target/a.bin", "$/target/a.zip", "password"}, "0"},
    {"FileDelete", {"$/target/a.bin"}, "0"},
    {"ExpandFile", {"$/target/a.zip", "$/target/"}, "0"},
    {"FileDelete", {"$/target/a.zip"}, "0"},
    {"GetFileSize", {"$/target/a.txt"}, "12"},
    {"CompressAndEncrypt", {"$/source/a.txt", "$/target/a.zip", "password"}, "0"},
    {"FileDelete", {"$/target/a.txt"}, "0"},
    {"DecryptAndExpand", {"$/target/a.zip", "$/target/", "password"}, "0"},
    {"FileDelete", {"$/target/a.txt"}, "0"},
    {"FileDelete", {"$/target/a.zip"}, "0"},
};

// Belongs to one thread; several may share the plug-in.
class Caller {
public:
    Caller(const PluginUnderTest& plugin, const ScratchFolder& scratch, int number)
        : plugin_(plugin), folder_(scratch.text("caller" + std::to_string(number)))
    {
        scratch.write(folder_ + "/source/a.txt", "twelve bytes");
        scratch.write(folder_ + "/source/inner/b.txt", "more");
        scratch.makeFolder(folder_ + "/target");
    }

    // Answers how many calls that took.
    unsigned make(const std::vector<Row>& rows)
    {
        for (const Row& row : rows) {
            std::vector<fmxhost::Value> arguments;
            for (const std::string text : row.arguments) {
                arguments.emplace_back(text.starts_with('$') ? folder_ + text.substr(1) : text);
            }
            const Result result = plugin_.call(std::string("KORB_") + row.function, arguments);
            const std::string answer = result.utf8();
            const bool isRight = row.answer == nullptr ? !result.isError() && !answer.empty()
                                                       : row.answer == whatever || answer == row.answer;
            if ((!isRight || result.threw() || result.errorCode() != 0) && faults_.size() < 2000) {
                faults_ += std::string(row.function) + ": " + answer + result.exception() + "\n";
            }
        }
        return static_cast<unsigned>(rows.size());
    }

    const std::string& faults() const { return faults_; }

private:
    const PluginUnderTest& plugin_;
    std::string folder_;
    std::string faults_; // a few of them
};

bool isFullRun()
{
    return std::getenv("FOLIDEX_FULL") != nullptr;
}

std::size_t residentBytes()
{
    std::ifstream statm("/proc/self/statm");
    std::size_t size = 0;
    std::size_t resident = 0;
    statm >> size >> resident;
    return resident * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

// A process without a display, with its log in the scratch folder.
class Stress : public testing::Test {
protected:
    Stress()
    {
        setenv("HOME", scratch.text().c_str(), 1);
        unsetenv("DISPLAY");
        unsetenv("WAYLAND_DISPLAY");
    }

    ScratchFolder scratch;
    PluginUnderTest plugin;
};

// What Valgrind runs too.
TEST_F(Stress, OnePass)
{
    Caller caller(plugin, scratch, 0);
    caller.make(everyday);
    caller.make(archives);
    EXPECT_EQ(caller.faults(), "");
}

TEST_F(Stress, NeitherMemoryNorDescriptorsGrow)
{
    constexpr unsigned warmUpCalls = 10'000;
    Caller caller(plugin, scratch, 0);
    const unsigned wanted = isFullRun() ? 1'000'000 : 40'000;
    unsigned calls = caller.make(archives);
    while (calls < warmUpCalls) {
        calls += caller.make(everyday);
    }
    const std::size_t resident = residentBytes();
    const auto descriptors = openDescriptors();
    while (calls < wanted) {
        calls += caller.make(everyday);
    }
    EXPECT_EQ(caller.faults(), "");
    EXPECT_EQ(openDescriptors(), descriptors);
#ifndef FOLIDEX_SANITIZED // a sanitizer keeps freed memory
    EXPECT_LT(residentBytes(), resident + (std::size_t{1} << 20U));
#endif
    std::printf("%u calls; resident after %u: %zu KiB, at the end: %zu KiB\n", calls, warmUpCalls, resident / 1024,
                residentBytes() / 1024);
}

// As FileMaker Server's engines call. ThreadSanitizer's run is the one that counts, several times slower than others.
TEST_F(Stress, ThreadsMixAllFunctions)
{
    using Clock = std::chrono::steady_clock;
#ifdef FOLIDEX_THREAD_SANITIZED
    constexpr std::chrono::seconds shortRun(120);
#else
    constexpr std::chrono::seconds shortRun(8);
#endif
    constexpr int callers = 24;
    const unsigned wanted = isFullRun() ? 1'000'000 : 100'000;
    std::vector<Caller> all;
    for (int number = 0; number < callers; ++number) {
        all.emplace_back(plugin, scratch, number);
    }
    const auto run = [&](unsigned calls, Clock::time_point end) {
        std::atomic<unsigned> made = 0;
        std::vector<std::thread> threads;
        for (std::size_t number = 0; number < all.size(); ++number) {
            threads.emplace_back([&, number] {
                for (unsigned round = 0; made < calls && Clock::now() < end; ++round) {
                    // Rarely, for each takes a second and more, but two at once.
                    made += all[number].make(number < 2 && round % 400 == 100 ? archives : everyday);
                }
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        return made.load();
    };
    run(callers * 60, Clock::time_point::max());
    const auto descriptors = openDescriptors();
#ifndef FOLIDEX_SANITIZED
    const std::size_t heap = mallinfo2().uordblks;
#endif
    const unsigned made = run(wanted, isFullRun() ? Clock::time_point::max() : Clock::now() + shortRun);
    for (const Caller& caller : all) {
        EXPECT_EQ(caller.faults(), "");
    }
    EXPECT_GE(made, callers * everyday.size());
    EXPECT_EQ(openDescriptors(), descriptors);
#ifndef FOLIDEX_SANITIZED
    EXPECT_LT(mallinfo2().uordblks,
              heap + 64 * std::size_t{1024}); // what the C library keeps for threads varies a little
#endif
    std::printf("%u calls in %d threads\n", made, callers);
}

// The first program that the script looks for is one of ours, which writes down what is open in it.
TEST_F(Stress, ScriptsGetNoDescriptors)
{
    scratch.setMode(scratch.write("bin/openssl", "#!/bin/sh\n"
                                                 "for link in /proc/$$/fd/*; do\n"
                                                 "    readlink \"$link\" >>\"${0%/*}/../open\"\n"
                                                 "done\n"
                                                 "exit 1\n"),
                    0700);
    scratch.write("a.txt", "content");
    const int secret = open(scratch.write("of-the-host", "secret").c_str(), O_RDONLY | O_CLOEXEC);
    setenv("PATH", (scratch.text("bin") + ":/usr/bin:/bin").c_str(), 1);
    EXPECT_TRUE(plugin.call("KORB_EncryptFile", {scratch.text("a.txt"), scratch.text("a.bin"), "password"}).isError());
    close(secret);
    EXPECT_FALSE(scratch.exists("a.bin"));
    const std::string open = scratch.read("open");
    EXPECT_NE(open.find("/dev/null"), std::string::npos) << open;
    for (const char* foreign : {"of-the-host", "Folidex.fmx", "a.bin"}) {
        EXPECT_EQ(open.find(foreign), std::string::npos) << open;
    }
}

} // namespace
} // namespace folidex::test
