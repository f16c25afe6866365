// Paths that begin with a volume's name, in a root folder of the test's own.

#include "queries/answer.h"
#include "support/child_process.h"
#include "support/platform_expectations.h"
#include "support/scratch_folder.h"

#include <gtest/gtest.h>

#ifdef __linux__
#include <sys/mount.h>
#endif
#include <sys/statvfs.h>

#include <cstdlib>
#include <ctime>

namespace {

using folidex::test::inChild;
using folidex::test::PluginUnderTest;
using folidex::test::ScratchFolder;

TEST(VolumePaths, AreTriedWhereThePathAsTypedLeadsNowhere)
{
    if (!folidex::test::isRoot()) {
        GTEST_SKIP() << "takes root's rights";
    }
    const ScratchFolder root;
    root.write("Volumes/Backup/file", "12345");
    root.makeFolder("Volumes/Backup/folder");
    root.write("Volumes/note", "123");
    root.write("both/as typed", "x");
    root.write("Volumes/both/on volume", "xy");
    root.makeFolder("folder here, file there");
    root.write("Volumes/folder here, file there", "x");
    root.write("file here, folder there", "1234567");
    root.makeFolder("Volumes/file here, folder there");

    struct Case {
        const char* function;
        const char* argument;
        const char* expected;
    };
    constexpr Case cases[] = {
        {"KORB_GetFiles", "Backup", "file"},
        {"KORB_GetFolders", "Backup/", "folder"},
        {"KORB_GetNumFiles", "Backup", "1"},
        {"KORB_GetFiles", "both", "as typed"},
        {"KORB_GetFiles", "note", "-8014 Unable to complete operation -  Unable to get files"},
        {"KORB_GetNumSubfolders", "note", "-8014 Unable to complete operation -  Unable to get number of subfolders"},
        {"KORB_GetFiles", "folder here, file there", "-8005 Source path is not a folder"},
        {"KORB_GetFiles", "file here, folder there", "-8005 Source path is not a folder"},
        {"KORB_GetFiles", "absent", "-8002 Source path not found"},

        {"KORB_GetFileSize", "Backup/file", "5"},
        {"KORB_GetFileSize", "note", "3"},
        {"KORB_GetFileSize", "file here, folder there", "-8004 Source path is not a file"},
        {"KORB_GetFileSize", "folder here, file there", "-8004 Source path is not a file"},
        {"KORB_GetFolderSize", "both", "1"},
        {"KORB_GetFolderSize", "note",
         "-8014 Unable to complete operation -  could not read the folder /Volumes/note Not a directory"},
        {"KORB_GetFolderSize", "folder here, file there", "-8005 Source path is not a folder"},
        {"KORB_GetFolderAccessDate", "absent", "-8002 Source path not found"},

        {"KORB_GetFileExists", "note", "0"},
        {"KORB_GetFileExists", "folder here, file there", "0"},
        {"KORB_GetFileExists", "file here, folder there", "0"},
        {"KORB_GetFileExists", "both", "-8004 Source path is not a file"},
        {"KORB_GetFileExists", "Backup", "1"},
        {"KORB_GetFolderExists", "Backup", "0"},
        {"KORB_GetFolderExists", "folder here, file there", "0"},
        {"KORB_GetFolderExists", "file here, folder there", "0"},
        {"KORB_GetFolderExists", "note", "-8005 Source path is not a folder"},
        {"KORB_GetFolderExists", "absent", "1"},

        {"KORB_GetDriveSize", "absent", "-8016 Drive does not exist"},
    };
    const PluginUnderTest plugin;
    EXPECT_EQ(inChild([&] {
                  folidex::test::enterRoot(root.text());
                  std::string differences;
                  for (const Case& expected : cases) {
                      const std::string found = answer(plugin, expected.function, {expected.argument});
                      if (!folidex::test::saysTheSame(found, expected.expected)) {
                          differences += std::string(expected.function) + " of " + expected.argument + ": " + found +
                                         ", not " + expected.expected + "\n";
                      }
                  }
                  return differences;
              }),
              "");
}

#ifdef __linux__ // mounts of the test's own
TEST(VolumePaths, ADriveFromTheListHasSizesUnderItsName)
{
    const ScratchFolder root;
    const std::string image = root.text("image");
    const std::string prepare =
        "truncate -s 4M '" + image + "' && mkfs.ext4 -q -L Backup -m 50 '" + image + "' >/dev/null 2>&1";
    if (!folidex::test::isRoot() || std::system(prepare.c_str()) != 0) {
        GTEST_SKIP() << "takes root's rights and mkfs.ext4";
    }
    SKIP_ON_GNUSTEP("the workspace can't be made in a root folder without GNUstep's own files");
    root.makeFolder("proc");
    root.makeFolder("Volumes/Backup");
    const PluginUnderTest plugin;
    const std::string found = inChild([&] {
        folidex::test::leaveMountNamespace();
        const std::string mountImage =
            "mount -o loop '" + image + "' '" + root.text("Volumes/Backup") + "' 2>/dev/null";
        if (std::system(mountImage.c_str()) != 0 || mount("proc", root.text("proc").c_str(), "proc", 0, nullptr) != 0) {
            return std::string("no loop device");
        }
        folidex::test::enterRoot(root.text());
        struct statvfs status;
        statvfs("/Volumes/Backup", &status);
        const auto bytes = [&status](fsblkcnt_t blocks) { return std::to_string(blocks * status.f_frsize); };
        const bool sizesHold =
            answer(plugin, "KORB_GetDriveSize", {"Backup"}) == bytes(status.f_blocks) &&
            answer(plugin, "KORB_GetDriveSizeFree", {"Backup"}) == bytes(status.f_bavail) &&
            answer(plugin, "KORB_GetDriveSizeUsed", {"Backup"}) == bytes(status.f_blocks - status.f_bavail);
        return answer(plugin, "KORB_GetDrives", {}) + (sizesHold ? "" : " with other sizes");
    });
    if (found == "no loop device") {
        GTEST_SKIP() << found;
    }
    EXPECT_EQ(found, "Backup");
}
#endif

} // namespace
