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

    // Returns how many calls that took.
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

// A process without a display, with its log in the scratch folder.
class Stress : public testing::Test {
protected:
    using Clock = std::chrono::steady_clock;

    Stress()
    {
        setenv("HOME", scratch.text().c_str(), 1);
        unsetenv("DISPLAY");
        unsetenv("WAYLAND_DISPLAY");
    }

    // Each caller on a thread of its own, until so many calls are made or it is time. Returns how many were made.
    unsigned run(std::vector<Caller>& callers, unsigned calls, Clock::time_point end = Clock::time_point::max()) const
    {
        std::atomic<unsigned> made = 0;
        std::vector<std::jthread> threads;
        for (Caller& caller : callers) {
            const bool takesArchives = &caller - callers.data() < 2;
            threads.emplace_back([&, takesArchives] {
                for (unsigned round = 0; made < calls && Clock::now() < end; ++round) {
                    // Rarely, for each takes a second and more, but two at once.
                    made += caller.make(takesArchives && round % 400 == 100 ? archives : everyday);
                }
            });
        }
        threads.clear();
        return made;
    }

    // Warms up, and then calls on without anything growing.
    void expectNoGrowth(int number, unsigned warmUp, unsigned calls, std::chrono::seconds atMost) const
    {
        std::vector<Caller> callers;
        for (int caller = 0; caller < number; ++caller) {
            callers.emplace_back(plugin, scratch, caller);
        }
        run(callers, warmUp);
        const auto descriptors = openDescriptors();
        const std::size_t heap = heapInUse();
        const bool isFull = std::getenv("FOLIDEX_FULL") != nullptr;
        const unsigned made =
            run(callers, isFull ? 1'000'000 : calls, isFull ? Clock::time_point::max() : Clock::now() + atMost);
        for (const Caller& caller : callers) {
            EXPECT_EQ(caller.faults(), "");
        }
        EXPECT_GE(made, callers.size() * everyday.size());
        EXPECT_EQ(openDescriptors(), descriptors);
        EXPECT_LT(heapInUse(), heap + 64 * std::size_t{1024}); // what the C library keeps for threads varies a little
        std::printf("%u calls in %d threads; heap in use: %zu KiB before, %zu KiB after\n", made, number, heap / 1024,
                    heapInUse() / 1024);
    }

    ScratchFolder scratch;
    PluginUnderTest plugin;

private:
    static std::size_t heapInUse()
    {
#ifdef FOLIDEX_SANITIZED // a sanitizer's allocator isn't asked, and reports leaks itself
        return 0;
#else
        return mallinfo2().uordblks + mallinfo2().hblkhd;
#endif
    }
};

// What Valgrind runs too.
TEST_F(Stress, OnePass)
{
    Caller caller(plugin, scratch, 0);
    caller.make(everyday);
    caller.make(archives);
    EXPECT_EQ(caller.faults(), "");
}

TEST_F(Stress, OneThreadForLong)
{
    expectNoGrowth(1, 5'000, 20'000, std::chrono::seconds(1200));
}

// As FileMaker Server's engines call. ThreadSanitizer's run is the one that counts, several times slower than others.
TEST_F(Stress, ThreadsMixAllFunctions)
{
#ifdef FOLIDEX_THREAD_SANITIZED
    constexpr std::chrono::seconds shortRun(120);
#else
    constexpr std::chrono::seconds shortRun(8);
#endif
    expectNoGrowth(24, 24 * 60, 100'000, shortRun);
}

// The shell that reads the script is one of ours, which writes down what is open in it. However soon it ends, a second
// is what such a call takes.
TEST_F(Stress, ScriptsGetNoDescriptors)
{
    scratch.setMode(scratch.write("bin/sh", "#!/bin/sh\n"
                                            "for link in /proc/$$/fd/*; do\n"
                                            "    readlink \"$link\" >>\"${0%/*}/../open\"\n"
                                            "done\n"
                                            "exit 3\n"),
                    0700);
    scratch.write("a.txt", "content");
    const int secret = open(scratch.write("of-the-host", "secret").c_str(), O_RDONLY | O_CLOEXEC);
    setenv("PATH", (scratch.text("bin") + ":/usr/bin:/bin").c_str(), 1);
    const auto start = Clock::now();
    EXPECT_TRUE(plugin.call("KORB_EncryptFile", {scratch.text("a.txt"), scratch.text("a.bin"), "password"}).isError());
    EXPECT_GE(Clock::now() - start, std::chrono::seconds(1));
    close(secret);
    EXPECT_FALSE(scratch.exists("a.bin"));
    const std::string open = scratch.read("open");
    EXPECT_NE(open.find("pipe:"), std::string::npos) << open;
    for (const char* foreign : {"of-the-host", "Folidex.fmx", "a.bin"}) {
        EXPECT_EQ(open.find(foreign), std::string::npos) << open;
    }
}

// A process that has changed its user closes its descriptors to its children (proc(5), dumpable).
TEST_F(Stress, ScriptsRunWhereChildrenAreShutOut)
{
    scratch.setMode("", 0777);
    scratch.write("a.txt", "content");
    const std::string answer = inChild([&] {
        becomeOrdinaryUser();
        return plugin.call("KORB_CompressFile", {scratch.text("a.txt"), scratch.text("a.zip")}).utf8();
    });
    EXPECT_EQ(answer, "0");
}

} // namespace
} // namespace folidex::test
