#include "operations/scene.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

const std::vector<std::string> scene{"src/f=1",      "src/sub/g=2", "src/empty/", "src/link>..", "dst/",
                                     "full/src/h=3", "file=4",      "to-src>src", "to-dst>dst",  "dangling>none"};

constexpr const char* movedToDst =
    "-src/ -src/empty/ -src/f=1 -src/link>.. -src/sub/ -src/sub/g=2 "
    "+dst/src/ +dst/src/empty/ +dst/src/f=1 +dst/src/link>.. +dst/src/sub/ +dst/src/sub/g=2";

TEST(FolderCreate, MakesFoldersAndRefusesWhatIsThere)
{
    checkSteps(scene, {
                          {"KORB_FolderCreate", {}, "-3 Invalid Number of Parameters", ""},
                          {"KORB_FolderCreate", {"@/x", ""}, "-3 Invalid Number of Parameters", ""},
                          {"KORB_FolderCreate", {""}, "-8000 Missing source parameter", ""},
                          {"KORB_FolderCreate", {"@/src"}, "-8009 Folder already exists", ""},
                          {"KORB_FolderCreate", {"@/file"}, "-8009 Folder already exists", ""},
                          {"KORB_FolderCreate", {"@/to-src/sub/"}, "-8009 Folder already exists", ""},
                          {"KORB_FolderCreate", {"@/dst/n/e/w"}, "0", "+dst/n/ +dst/n/e/ +dst/n/e/w/"},
                          {"KORB_FolderCreate", {"@/dst/n //e/"}, "0", "+dst/n / +dst/n /e/"},
                          {"KORB_FolderCreate",
                           {"@/file/x"},
                           "-8014 Unable to complete operation -  could not create @/file/x Not a directory",
                           ""},
                          {"KORB_FolderCreate",
                           {"@/dangling"},
                           "-8014 Unable to complete operation -  could not create @/dangling File exists",
                           ""},
                      });
}

TEST(FolderTransfer, ChecksInOrder)
{
    std::vector<Step> steps;
    for (const std::string function : {"KORB_FolderCopy", "KORB_FolderMove"}) {
        const bool moves = function == "KORB_FolderMove";
        const char* name = moves ? "KORB_FolderMove" : "KORB_FolderCopy";
        const std::string failed = moves ? "-8011 Unable to move could not move @/src a folder cant be put into itself"
                                         : "-8010 Unable to copy";
        const std::vector<Step> both{
            {name, {"@/src"}, "-3 Invalid Number of Parameters", ""},
            {name, {"@/src", "@/dst", ""}, "-3 Invalid Number of Parameters", ""},
            {name, {"", ""}, "-8000 Missing source parameter", ""},
            {name, {"@/none", ""}, "-8002 Source path not found", ""},
            {name, {"@/file", ""}, "-8005 Source path is not a folder", ""},
            {name, {"@/src", ""}, "-8001 Missing destination parameter", ""},
            {name, {"@/src", "@/none"}, moves ? "-8002 Source path not found" : "-8003 Destination path not found", ""},
            {name,
             {"@/src", "@/file"},
             moves ? "-8005 Source path is not a folder" : "-8007 Destination path is not a folder",
             ""},
            {name, {"@/src", "@/full"}, "-8009 Folder already exists", ""},
            {name, {"@/full", "@"}, "-8009 Folder already exists", ""},
            {name, {"@/src", "@/src"}, "-8026 Source Path is the same as the Destination Path.", ""},
            {name, {"@/src", "@/src/"}, failed, ""},
            {name, {"@/src", "@/src/sub"}, failed, ""},
            {name, {"@/src", "@/to-src"}, failed, ""},
        };
        steps.insert(steps.end(), both.begin(), both.end());
    }
    steps.push_back({"KORB_FolderCopy",
                     {"@/src", "@/to-dst/"},
                     "0",
                     "+dst/src/ +dst/src/empty/ +dst/src/f=1 +dst/src/link>.. +dst/src/sub/ +dst/src/sub/g=2"});
    steps.push_back({"KORB_FolderCopy", {"@/to-src", "@/dst"}, "0", "+dst/to-src>src"});
    steps.push_back({"KORB_FolderMove", {"@/src/", "@/dst"}, "0", movedToDst});
    steps.push_back({"KORB_FolderMove", {"@/to-src", "@/dst"}, "0", "-to-src>src +dst/to-src>src"});
    checkSteps(scene, steps);
}

// The comparison comes after the search for the target, so what lies in the source decides.
TEST(FolderCopy, OntoItselfDependsOnWhatLiesInIt)
{
    checkSteps({"src/src/f=1"}, {{"KORB_FolderCopy", {"@/src", "@/src"}, "-8009 Folder already exists", ""}});
}

TEST(FolderRename, NeverMovesAndNeverMerges)
{
    checkSteps(scene,
               {
                   {"KORB_FolderRename", {"@/src"}, "-3 Invalid Number of Parameters", ""},
                   {"KORB_FolderRename", {"", ""}, "-8000 Missing source parameter", ""},
                   {"KORB_FolderRename", {"@/none", "n"}, "-8002 Source path not found", ""},
                   {"KORB_FolderRename", {"@/file", "n"}, "-8005 Source path is not a folder", ""},
                   {"KORB_FolderRename", {"@/src", ""}, "-8009 Folder already exists", ""},
                   {"KORB_FolderRename", {"@/src", "."}, "-8009 Folder already exists", ""},
                   {"KORB_FolderRename", {"@/src", "dst"}, "-8009 Folder already exists", ""},
                   {"KORB_FolderRename", {"@/src", "src"}, "-8009 Folder already exists", ""},
                   {"KORB_FolderRename",
                    {"@/src", "dangling"},
                    "-8012 Unable to rename could not move @/dangling File exists",
                    ""},
                   {"KORB_FolderRename",
                    {"@/src", "src/n"},
                    "-8012 Unable to rename could not move @/src a folder cant be put into itself",
                    ""},
                   {"KORB_FolderRename", {"@/full/src/", "n"}, "0", "-full/src/ -full/src/h=3 +full/n/ +full/n/h=3"},
               });
}

TEST(FolderDelete, DeletesFoldersOnly)
{
    checkSteps(
        scene,
        {
            {"KORB_FolderDelete", {}, "-3 Invalid Number of Parameters", ""},
            {"KORB_FolderDelete", {""}, "-8000 Missing source parameter", ""},
            {"KORB_FolderDelete", {"@/none"}, "-8002 Source path not found", ""},
            {"KORB_FolderDelete", {"@/file"}, "-8005 Source path is not a folder", ""},
            {"KORB_FolderDelete", {"@/full"}, "0", "-full/ -full/src/ -full/src/h=3"},
            {"KORB_FolderDelete", {"@/to-src"}, "0", "-to-src>src"},
            {"KORB_FolderDelete",
             {"@/src/."},
             "-8013 Unable to delete could not remove @/src/. Device or resource busy",
             ""},
            {"KORB_FolderDelete", {"/"}, "-8013 Unable to delete could not remove / Device or resource busy", ""},
        });
}

} // namespace
