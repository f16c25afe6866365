#include "archive/routines.h"

#include "support/scratch_folder.h"

#include <gtest/gtest.h>

#include <csignal>
#include <future>
#include <string>

namespace {

using namespace archive;
using namespace archive::routines;

// Routines with a script of the test's own and without the pause.
class ArchiveRoutine : public testing::Test {
protected:
    void useScript(const std::string& text) { scratch.write("script.sh", text); }

    Status run(const Routine& routine, const Job& job) const
    {
        const auto script = [this] { return platform::ResourceFile{scratch.text("script.sh"), nullptr}; };
        return runRoutine(routine, job, {script, std::chrono::milliseconds(0)});
    }

    folidex::test::ScratchFolder scratch;
};

TEST_F(ArchiveRoutine, HandsTheScriptOneArgumentUnlessAFieldIsMissing)
{
    const std::u16string unwritable(1, char16_t{0xDC00});
    const std::u16string badName = u"/d.d/" + unwritable;
    const std::u16string badFolder = badName + u"/a.b";
    const std::u16string longName(3000, u'n');     // beyond the 1024 bytes that a command once had
    const std::u16string endless(4U << 20U, u'n'); // more than a system passes to a process
    struct Case {
        const Routine& routine;
        Job job;
        Status status;
        std::string argument; // behind the number of arguments; empty when no script runs
    };
    const Case cases[] = {
        {zipAFile, {u"Disk/d/a b.txt", u"/out.d/x"}, 0, "1zip|/d/|/out.d/|a b.txt|x"},
        {zipAFile, {u"/d/a.b", badName}, -50, ""},
        // U+012F ends a folder as a slash does, but the volume's name ends at a true slash.
        {zipAFolder, {u"Disk/d/a\u012Fb", u"Disk\u012Fx"}, 0, "1zip|/d/a\u012F||b|x"},
        {zipAFolder, {longName, u"/x"}, 0, "1zip||/|" + std::string(3000, 'n') + "|x"},
        {zipAFolder, {badName, u"/x"}, -50, ""},
        {zipAFolder, {endless, u"/x"}, -50, ""},
        {unzipAFile, {u"Disk/d/x.zip", u""}, 0, "1unzip|/d/|/d/|x.zip|expand"},
        {unzipAFile, {u"/d/x.zip", u"/"}, 0, "1unzip|/d/|/d/|x.zip|expand"},
        {unzipAFile, {u"/d/x.zip", badName}, 0, "1unzip|/d/|/d.d/|x.zip|expand"},
        {zipAndEncrypt, {u"/d/a.b", u"/x.zip", unwritable}, 0, "1zipencrypt|/d/|/|a.b|x.zip|"},
        {zipAndEncrypt, {badFolder, u"/x.zip", u"p"}, -50, ""},
        {zipAndEncryptFolder, {u"/d/a", u"x.zip", unwritable}, 0, "1zipencrypt|/d/||a|x.zip|"},
        {zipAndEncryptFolder, {u"/!!error!!/a", u"x.zip", u"p"}, 200, ""},
        {unzipAndDecrypt, {u"/d/x.zip", u"/out/in", u"p|w"}, 0, "1unzipdecrypt|/d/|/out/|x.zip|expand|p|w"},
        {unzipAndDecrypt, {u"/d/x.zip", u"/", unwritable}, 0, "1unzipdecrypt|/d/|/|x.zip|expand|"},
        {encryptTheFile, {u"/d/a.b", u"/x.y", unwritable}, -50, ""},
        {decryptTheFile, {u"/d/\u00FC.txt", u"/o.d/", u"\u00FC"}, 0, "1decrypt|/d/|/o.d/|\u00FC.txt||\u00FC"},
        {decryptTheFile, {u"/d/a.b", u"/x.y", unwritable}, -50, ""},
    };
    useScript("printf '%s' \"$#$1\" >\"${0%/*}/argument\"");
    for (const Case& expected : cases) {
        SCOPED_TRACE(&expected - cases);
        scratch.write("argument", "");
        EXPECT_EQ(run(expected.routine, expected.job), expected.status);
        EXPECT_EQ(scratch.read("argument"), expected.argument);
    }
    const auto noScript = [] { return std::nullopt; };
    EXPECT_EQ(runRoutine(zipAFile, {u"/d/a.b", badName}, {noScript, std::chrono::milliseconds(0)}), -43);
}

TEST_F(ArchiveRoutine, LearnsHowItsScriptEnded)
{
    const Job job{u"/d/a.b", u"/"};
    // Output is discarded: it neither blocks nor counts.
    useScript("trap '' PIPE; head -c 300000 /dev/zero 2>/dev/null; exit 127");
    EXPECT_EQ(run(unzipAFile, job), 127 * 256);

    // Where the system keeps no wait status, the script's report tells it.
    const auto previous = std::signal(SIGCHLD, SIG_IGN);
    useScript("echo '82 unzip: no room'; exit 82");
    std::future<Status> calls[4];
    for (std::future<Status>& call : calls) {
        call = std::async(std::launch::async, [&] { return run(unzipAFile, job); });
    }
    for (std::future<Status>& call : calls) {
        EXPECT_EQ(call.get(), 82 * 256);
    }
    useScript("echo '0 unzip:'");
    EXPECT_EQ(run(unzipAFile, job), 0);
    useScript("kill -9 $$");
    EXPECT_EQ(run(unzipAFile, job), -1);
    std::signal(SIGCHLD, previous);
}

} // namespace
