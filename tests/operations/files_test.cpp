#include "operations/scene.h"
#include "support/child_process.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

const std::vector<std::string> scene{"a/x=1",   "a/y=2",      "a/link>x",      "a/dangling>none", "a/sub/z=3",
                                     "b/y=old", "b/hard#a/x", "b/soft>../a/x", "b/full/f=4",      "to-a>a"};

constexpr const char* keepsSource = "-8010 Unable to copy removing the existing item would remove the source";

// Copy and move share every check.
TEST(FileTransfer, ChecksInOrder)
{
    std::vector<Step> steps;
    for (const char* function : {"KORB_FileCopy", "KORB_FileMove"}) {
        const std::vector<Step> both{
            {function, {}, "-3 Invalid Number of Parameters", ""},
            {function, {""}, "-3 Invalid Number of Parameters", ""},
            {function, {"", ""}, "-8000 Missing source parameter", ""},
            {function, {"@/none", ""}, "-8002 Source path not found", ""},
            {function, {"@/a/dangling", "@/b"}, "-8002 Source path not found", ""},
            {function, {"@/a/x ", "@/b"}, "-8002 Source path not found", ""},
            {function, {"@/a", ""}, "-8004 Source path is not a file", ""},
            {function, {"@/a/x", ""}, "-8001 Missing destination parameter", ""},
            {function, {"@/a/x", "@/none"}, "-8003 Destination path not found", ""},
            {function, {"@/a/x", "@/b/y"}, "-8007 Destination path is not a folder", ""},
            {function, {"@/a/x", "@/a"}, "-8026 Source Path is the same as the Destination Path.", ""},
            {function, {"@/a/x", "@/a", "y", "x"}, "-8026 Source Path is the same as the Destination Path.", ""},
            {function, {"@/a/y", "@/b"}, "-8008 File already exists", ""},
            {function, {"@/a/y", "@/b", ""}, "-8008 File already exists", ""},
            {function, {"@/a/y", "@/b", "Yes"}, "-8008 File already exists", ""},
            {function, {"@/a/y", "@/b", "1"}, "-8008 File already exists", ""},
            {function, {"@/a/y", "@/b", " y"}, "-8008 File already exists", ""},
            {function, {"@/a/x", "@/b", "", "full"}, "-8008 File already exists", ""},
            {function, {"@/a/x", "@/to-a"}, "-8008 File already exists", ""},
            {function, {"@/a/x", "@/to-a", "Y"}, keepsSource, ""},
            {function, {"@/b/soft", "@/a", "Y", "x"}, keepsSource, ""},
            {function, {"@/b/full/f", "@/b", "Y", "full"}, keepsSource, ""},
            {function, {"@/a/x", "@/b", "", "none/x"}, "", ""},
        };
        steps.insert(steps.end(), both.begin(), both.end());
        const bool moves = steps.back().function == std::string("KORB_FileMove");
        steps.back().answer = moves ? "-8010 Unable to copy could not move @/b/none/x No such file or directory"
                                    : "-8010 Unable to copy could not write @/b/none/x No such file or directory";
    }
    checkSteps(scene, steps);
}

TEST(FileCopy, Copies)
{
    checkSteps(scene,
               {
                   {"KORB_FileCopy", {"@/a/x", "@/b"}, "0", "+b/x=1"},
                   {"KORB_FileCopy", {"@/a/x", "@/b/", "n"}, "0", "+b/x=1"},
                   {"KORB_FileCopy", {"@/a/x", "@/b", "", "new \u00FC\U0001F600"}, "0", "+b/new \u00FC\U0001F600=1"},
                   {"KORB_FileCopy", {"@/a/y", "@/b", "y"}, "0", "-b/y=old +b/y=2"},
                   {"KORB_FileCopy", {"@/a/x", "@/b", "Y", "full"}, "0", "-b/full/ -b/full/f=4 +b/full=1"},
                   {"KORB_FileCopy", {"@/a/link", "@/b"}, "0", "+b/link>x"},
                   {"KORB_FileCopy", {"@/to-a//x", "@/b/full/.."}, "0", "+b/x=1"},
                   {"KORB_FileCopy", {"@/a/x", "@/a/", "Y"}, keepsSource, ""},
                   {"KORB_FileCopy", {"@/a/x", "@/a/"}, "-8008 File already exists", ""},
                   {"KORB_FileCopy",
                    {"@/a/x", "@/a", "", "dangling"},
                    "-8010 Unable to copy could not write @/a/dangling File exists",
                    ""},
               });
}

TEST(FileMove, Moves)
{
    checkSteps(scene,
               {
                   {"KORB_FileMove", {"@/a/x", "@/b"}, "0", "-a/x=1 +b/x=1"},
                   {"KORB_FileMove", {"@/a/x", "@/b/", "", "new/"}, "0", "-a/x=1 +b/new=1"},
                   {"KORB_FileMove", {"@/a/y", "@/b", "Y"}, "0", "-a/y=2 -b/y=old +b/y=2"},
                   {"KORB_FileMove", {"@/b/soft", "@/a"}, "0", "-b/soft>../a/x +a/soft>../a/x"},
                   {"KORB_FileMove", {"@/a/x", "@/a/"}, "-8026 Source Path is the same as the Destination Path.", ""},
                   {"KORB_FileMove", {"@/a//x", "@/a/", "Y"}, keepsSource, ""},
                   {"KORB_FileMove",
                    {"@/a/x", "@/a", "", "dangling"},
                    "-8010 Unable to copy could not move @/a/dangling File exists",
                    ""},
               });
}

TEST(FileRename, StaysInItsFolder)
{
    checkSteps(scene, {
                          {"KORB_FileRename", {"@/a/x"}, "-3 Invalid Number of Parameters", ""},
                          {"KORB_FileRename", {"@/a/x", "n", "m"}, "-3 Invalid Number of Parameters", ""},
                          {"KORB_FileRename", {"", ""}, "-8000 Missing source parameter", ""},
                          {"KORB_FileRename", {"@/none", ""}, "-8002 Source path not found", ""},
                          {"KORB_FileRename", {"@/a", "n"}, "-8004 Source path is not a file", ""},
                          {"KORB_FileRename", {"@/a/x", ""}, "-8027 Missing destination name parameter.", ""},
                          {"KORB_FileRename", {"@/a/x", "y"}, "-8008 File already exists", ""},
                          {"KORB_FileRename", {"@/a/x", "x"}, "-8008 File already exists", ""},
                          {"KORB_FileRename", {"@/a/x", ".."}, "-8008 File already exists", ""},
                          {"KORB_FileRename", {"@/a/x", "dangling"}, "-8011 Unable to move", ""},
                          {"KORB_FileRename", {"@/a/x", std::string(256, 'n')}, "-8011 Unable to move", ""},
                          {"KORB_FileRename", {"@/a/x", "n\u00E9w"}, "0", "-a/x=1 +a/n\u00E9w=1"},
                          {"KORB_FileRename", {"@/a/link", "l"}, "0", "-a/link>x +a/l>x"},
                      });
}

TEST(FileDelete, DeletesFilesOnly)
{
    checkSteps(scene, {
                          {"KORB_FileDelete", {}, "-3 Invalid Number of Parameters", ""},
                          {"KORB_FileDelete", {"@/a/x", ""}, "-3 Invalid Number of Parameters", ""},
                          {"KORB_FileDelete", {""}, "-8000 Missing source parameter", ""},
                          {"KORB_FileDelete", {"@/none"}, "-8002 Source path not found", ""},
                          {"KORB_FileDelete", {"@/a/dangling"}, "-8002 Source path not found", ""},
                          {"KORB_FileDelete", {"@/b/full"}, "-8004 Source path is not a file", ""},
                          {"KORB_FileDelete", {"@/to-a"}, "-8004 Source path is not a file", ""},
                          {"KORB_FileDelete", {"@/a/x"}, "0", "-a/x=1"},
                          {"KORB_FileDelete", {"@/b/soft"}, "0", "-b/soft>../a/x"},
#ifdef __linux__
                          {"KORB_FileDelete",
                           {"/proc/version"},
                           "-8013 Unable to delete could not remove /proc/version " +
                               std::string(folidex::test::isRoot() ? "Operation not permitted" : "Permission denied"),
                           ""},
#endif
                      });
}

TEST(FilesOnVolumes, AreReachedByTheVolumesName)
{
    if (!folidex::test::isRoot()) {
        GTEST_SKIP() << "a root folder of the test's own takes root's rights";
    }
    const std::vector<std::string> volumes{"Volumes/Disk/x=1",
                                           "Volumes/Disk/folder/f=2",
                                           "Volumes/Disk/to/",
                                           "Volumes/x=3",
                                           "x/",
                                           "local=4",
                                           "Volumes/local/",
                                           "here=5"};
    EXPECT_EQ(
        differencesInOwnRoot(
            volumes,
            {
                {"KORB_FileCopy", {"Disk/x", "Disk/to"}, "0", "+Volumes/Disk/to/x=1"},
                {"KORB_FileCopy", {"/here", "Disk"}, "0", "+Volumes/Disk/here=5"},
                {"KORB_FileMove", {"Disk/x", "Disk/to/", "", "n"}, "0", "-Volumes/Disk/x=1 +Volumes/Disk/to/n=1"},
                {"KORB_FileMove",
                 {"Disk/folder", "Disk/to"},
                 "0",
                 "-Volumes/Disk/folder/ -Volumes/Disk/folder/f=2 +Volumes/Disk/to/folder/ +Volumes/Disk/to/folder/f=2"},
                {"KORB_FileRename", {"Disk/x", "n"}, "0", "-Volumes/Disk/x=1 +Volumes/Disk/n=1"},
                {"KORB_FileDelete", {"Disk/x"}, "0", "-Volumes/Disk/x=1"},
                {"KORB_FileDelete", {"Disk/folder"}, "-8004 Source path is not a file", ""},
                {"KORB_FileDelete", {"x"}, "-8004 Source path is not a file", ""},
                {"KORB_FileDelete", {"local"}, "-8004 Source path is not a file", ""},
                {"KORB_FileDelete", {"/local"}, "-8004 Source path is not a file", ""},
                {"KORB_FolderDelete", {"Disk/x"}, "-8005 Source path is not a folder", ""},
                {"KORB_FolderDelete", {"Disk/folder"}, "0", "-Volumes/Disk/folder/ -Volumes/Disk/folder/f=2"},
                {"KORB_FolderCreate", {"Disk/new/er"}, "0", "+Volumes/Disk/new/ +Volumes/Disk/new/er/"},
                {"KORB_FolderCreate", {"none/Volumes/x"}, "0", "+none/ +none/Volumes/ +none/Volumes/x/"},
                {"KORB_FolderCreate", {"/n/e/w"}, "0", "+n/ +n/e/ +n/e/w/"},
                {"KORB_FolderCreate", {"Disk/x"}, "-8009 Folder already exists", ""},
                {"KORB_FolderCopy",
                 {"Disk/folder", "Disk/to"},
                 "0",
                 "+Volumes/Disk/to/folder/ +Volumes/Disk/to/folder/f=2"},
                {"KORB_FolderMove",
                 {"Disk/folder", "Disk/to/"},
                 "0",
                 "-Volumes/Disk/folder/ -Volumes/Disk/folder/f=2 +Volumes/Disk/to/folder/ +Volumes/Disk/to/folder/f=2"},
            }),
        "");
}

} // namespace
