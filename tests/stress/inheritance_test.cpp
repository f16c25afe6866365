// What the plug-in's files and child processes have of the host's: its umask, and none of its descriptors.

#include "stress/mixed_calls.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

namespace folidex::test {
namespace fs = std::filesystem;
namespace {

class Inheritance : public testing::Test {
protected:
    Inheritance() { prepareProcess(scratch); }
    void TearDown() override { umask(umask_); }

    unsigned modeOf(const char* name) const
    {
        struct stat status {};
        return stat((scratch / name).c_str(), &status) == 0 ? status.st_mode & 07777U : 0;
    }

    ScratchFolder scratch;
    PluginUnderTest plugin;

private:
    mode_t umask_ = umask(077);
};

TEST_F(Inheritance, NewItemsHaveTheUmask)
{
    scratch.write("a.txt", "content");
    EXPECT_TRUE(succeeded(plugin, plugin.call("KORB_FolderCreate", {scratch.text("made/inner")})));
    EXPECT_TRUE(succeeded(plugin, plugin.call("KORB_CompressFile", {scratch.text("a.txt"), scratch.text("a.zip")})));
    EXPECT_EQ(modeOf("made"), 0700U);
    EXPECT_EQ(modeOf("made/inner"), 0700U);
    EXPECT_EQ(modeOf("a.zip"), 0600U);
}

// The first program that the script looks for is one of ours, which writes down what is open in it.
TEST_F(Inheritance, ScriptsGetNoDescriptors)
{
    const fs::path program = scratch.write("bin/openssl", "#!/bin/sh\n"
                                                          "for link in /proc/$$/fd/*; do\n"
                                                          "    readlink \"$link\" >>\"${0%/*}/../open\"\n"
                                                          "done\n"
                                                          "exit 1\n");
    scratch.setMode(program, 0700);
    scratch.write("a.txt", "content");
    const fs::path secret = scratch.write("of-the-host", "secret");
    const int kept = open(secret.c_str(), O_RDONLY | O_CLOEXEC);
    const char* usual = std::getenv("PATH");
    const std::string path = usual != nullptr ? usual : "/usr/bin:/bin";
    setenv("PATH", (scratch.text("bin") + ":" + path).c_str(), 1);
    const Result result = plugin.call("KORB_EncryptFile", {scratch.text("a.txt"), scratch.text("a.bin"), "password"});
    setenv("PATH", path.c_str(), 1);
    close(kept);

    EXPECT_TRUE(result.isError());
    EXPECT_FALSE(scratch.exists("a.bin"));
    const std::string open = scratch.read("open");
    EXPECT_NE(open.find("/dev/null"), std::string::npos) << open;
    for (const char* foreign : {"of-the-host", "Folidex.fmx", "a.bin"}) {
        EXPECT_EQ(open.find(foreign), std::string::npos) << open;
    }
}

} // namespace
} // namespace folidex::test
