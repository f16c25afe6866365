#include "archive/routine.h"

#include "archive/script_bridge.h"
#include "log/current_logger.h"
#include "support/scratch_folder.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <future>
#include <iterator>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;
using namespace archive;
using folidex::test::ScratchFolder;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

const std::u16string unwritable(1, char16_t{0xDC00});

// Routines with a script of the test's own and without the pause.
class ArchiveRoutine : public testing::Test {
public:
    ArchiveRoutine() { useScript("printf '%s' \"$#$1\" >\"${0%/*}/argument\""); }

protected:
    void useScript(const std::string& text) { scratch.write("script.sh", text); }

    ScriptSetup setup(milliseconds pause = milliseconds(0)) const
    {
        return {[this] { return platform::ResourceFile{scratch.text("script.sh"), nullptr}; }, pause};
    }
    Status run(const Routine& routine, const Job& job) const { return runRoutine(routine, job, setup()); }

    // The script's one argument, behind the number of arguments; empty when it didn't run.
    std::string argument() const { return scratch.exists("argument") ? scratch.read("argument") : std::string(); }

    ScratchFolder scratch;
};

TEST_F(ArchiveRoutine, HandsTheScriptOneArgument)
{
    struct Case {
        const Routine& routine;
        Job job;
        const char* argument;
    };
    const Job file{u"Disk/d/a b.txt", u"/out.d/x.zip", u"p w"};
    const Job folder{u"/d/folder", u"/out/x"};
    const Job archiveFile{u"/d/x.zip", u"/out/in", u"p|w"};
    const Case cases[] = {
        {routines::zipAFile, file, "1zip|/d/|/out.d/|a b.txt|x.zip"},
        {routines::zipAFolder, folder, "1zip|/d/|/out/|folder|x"},
        {routines::unzipAFile, archiveFile, "1unzip|/d/|/out/|x.zip|expand"},
        {routines::unzipAFile, {u"Disk/d/x.zip", u""}, "1unzip|/d/|/d/|x.zip|expand"},
        {routines::unzipAFile, {u"/d/x.zip", u"/"}, "1unzip|/d/|/d/|x.zip|expand"},
        {routines::zipAndEncrypt, file, "1zipencrypt|/d/|/out.d/|a b.txt|x.zip|p w"},
        {routines::zipAndEncryptFolder, {u"/d/folder", u"x.zip", u""}, "1zipencrypt|/d/||folder|x.zip|"},
        {routines::zipAndEncrypt, {u"/d/a.txt", u"/x.zip", unwritable}, "1zipencrypt|/d/|/|a.txt|x.zip|"},
        {routines::unzipAndDecrypt, archiveFile, "1unzipdecrypt|/d/|/out/|x.zip|expand|p|w"},
        {routines::unzipAndDecrypt, {u"/d/x.zip", u"/", unwritable}, "1unzipdecrypt|/d/|/|x.zip|expand|"},
        {routines::encryptTheFile, file, "1encrypt|/d/|/out.d/|a b.txt|x.zip|p w"},
        // U+012F ends a folder as a slash does, but the volume's name ends at a true slash.
        {routines::zipAFolder, {u"Disk/d/a\u012Fb", u"Disk\u012Fx"}, "1zip|/d/a\u012F||b|x"},
        {routines::decryptTheFile, {u"/d/\u00FC.txt", u"/o.d/", u"\u00FC"}, "1decrypt|/d/|/o.d/|\u00FC.txt||\u00FC"},
    };
    for (const Case& expected : cases) {
        EXPECT_EQ(run(expected.routine, expected.job), 0) << expected.argument;
        EXPECT_EQ(argument(), expected.argument);
    }
    // Beyond the 1024 bytes that a command once had.
    const std::u16string longName(3000, u'n');
    EXPECT_EQ(run(routines::zipAFolder, {longName, u"/x"}), 0);
    EXPECT_EQ(argument(), "1zip||/|" + std::string(3000, 'n') + "|x");
}

TEST_F(ArchiveRoutine, RunsNothingForAPathThatFailsItsCheck)
{
    struct Case {
        Status (*routine)(PathView, PathView, platform::Bundle);
        Status (*withPassword)(PathView, PathView, std::u16string_view, platform::Bundle);
        bool sourceNeedsDot;
        bool destinationNeedsDot;
        Status badPath;
    };
    const Case cases[] = {
        {ZipAFile, nullptr, true, true, -1},
        {ZipAFolder, nullptr, false, false, -1},
        {UnzipAFile, nullptr, true, false, -1},
        {nullptr, ZipAndEncrypt, true, true, 200},
        {nullptr, ZipAndEncryptFolder, false, true, 200},
        {nullptr, UnzipAndDecrypt, true, false, 200},
        {nullptr, EncryptTheFile, true, true, 200},
        {nullptr, DecryptTheFile, true, true, 200},
    };
    const PathView dot = u"/d/a.b";
    const PathView noDot = u"/d/a";
    const PathView marked = u"/d.d/!!error!!/a";
    for (const Case& expected : cases) {
        SCOPED_TRACE(&expected - std::begin(cases));
        const auto run = [&expected](PathView source, PathView destination) {
            return expected.routine != nullptr ? expected.routine(source, destination, {})
                                               : expected.withPassword(source, destination, u"p", {});
        };
        const auto began = steady_clock::now();
        EXPECT_EQ(run(marked, dot), expected.badPath);
        EXPECT_EQ(run(dot, marked), expected.badPath);
        if (expected.sourceNeedsDot) {
            EXPECT_EQ(run(noDot, dot), expected.badPath);
        }
        if (expected.destinationNeedsDot) {
            EXPECT_EQ(run(dot, noDot), expected.badPath);
        }
        EXPECT_LT(steady_clock::now() - began, milliseconds(900)) << "no shell was started, so there is no pause";
    }
    EXPECT_EQ(run(routines::zipAFolder, {noDot, noDot}), 0);
    EXPECT_EQ(run(routines::unzipAFile, {dot, noDot}), 0);
    EXPECT_EQ(run(routines::zipAndEncryptFolder, {noDot, dot, u"p"}), 0);
    EXPECT_EQ(run(routines::unzipAndDecrypt, {dot, noDot, u"p"}), 0);
}

TEST_F(ArchiveRoutine, AnswersTheScriptsWaitStatus)
{
    const Job job{u"/d/a.b", u"/o.d/x", u"p"};
    for (const int exitStatus : {0, 1, 82, 127}) {
        useScript("exit " + std::to_string(exitStatus));
        EXPECT_EQ(run(routines::decryptTheFile, job), exitStatus * 256);
    }
    useScript("kill -9 $$");
    EXPECT_NE(run(routines::decryptTheFile, job), 0);
    // Output is discarded: it neither blocks nor counts.
    useScript("trap '' PIPE; head -c 300000 /dev/zero 2>/dev/null; exit 5");
    EXPECT_EQ(run(routines::decryptTheFile, job), 5 * 256);
}

TEST_F(ArchiveRoutine, FailsWithoutAScriptOrWithAFieldThatCantBeWritten)
{
    const PathView file = u"/d/a.b";
    const std::u16string badName = u"/d.d/" + unwritable;
    const std::u16string badFolder = u"/d." + unwritable + u"/a";
    const ScriptSetup noScript{[] { return std::nullopt; }, milliseconds(0)};
    EXPECT_EQ(runRoutine(routines::zipAFile, {file, badName}, noScript), -43);

    EXPECT_EQ(run(routines::zipAFile, {file, badName}), -50);
    EXPECT_EQ(run(routines::zipAFolder, {badName, file}), -50);
    EXPECT_EQ(run(routines::zipAndEncrypt, {badFolder, file, u"p"}), -50);
    EXPECT_EQ(run(routines::encryptTheFile, {file, file, unwritable}), -50);
    EXPECT_EQ(argument(), "");
    EXPECT_EQ(run(routines::unzipAFile, {file, badName}), 0) << "the destination's name isn't used";
    EXPECT_EQ(argument(), "1unzip|/d/|/d.d/|a.b|expand");

    // More than a system passes to a process: the shell can't be started.
    const std::u16string endless(4U << 20U, u'n');
    EXPECT_EQ(run(routines::zipAFolder, {endless, file}), -50);
}

// A script that reports as the archive script does.
constexpr const char* reporting = "[ -s \"$FOLIDEX_REPORT\" ] && why='no room: \303\274' || why=\n"
                                  "printf '\\n82 unzip: %s\\n' \"$why\" >>\"$FOLIDEX_REPORT\"; exit 82";

TEST_F(ArchiveRoutine, LearnsTheStatusWhereTheSystemKeepsNone)
{
    const Job job{u"/d/a.b", u"/o.d/x", u"p"};
    const auto previous = std::signal(SIGCHLD, SIG_IGN);
    useScript(reporting);
    std::vector<std::future<Status>> calls;
    for (int i = 0; i < 4; ++i) {
        calls.push_back(std::async(std::launch::async, [&] { return run(routines::decryptTheFile, job); }));
    }
    for (std::future<Status>& call : calls) {
        EXPECT_EQ(call.get(), 82 * 256);
    }
    useScript("printf '\\n0 unzip:\\n' >>\"$FOLIDEX_REPORT\"");
    EXPECT_EQ(run(routines::decryptTheFile, job), 0);
    useScript("kill -9 $$");
    EXPECT_EQ(run(routines::decryptTheFile, job), -1);
    std::signal(SIGCHLD, previous);
}

TEST_F(ArchiveRoutine, LogsTheCauseOfAFailureWhereTheLogIsOn)
{
    ::setenv("HOME", scratch.text().c_str(), 1);
    const fs::path before = fs::current_path();
    logging::switchOn();
    useScript(reporting);
    run(routines::unzipAFile, {u"/d/a.b", u"/o/"});
    const std::string log = scratch.read("Desktop/HALVIK/FOLIDEX/LogFile.txt");
    logging::switchOff();
    fs::current_path(before);
    EXPECT_TRUE(log.ends_with("\tZipFuncs.sh: 82 unzip: no room: \303\274\n")) << log;
}

} // namespace
