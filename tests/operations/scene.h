// One call on a small scene of files, and what it answers and changes.
#pragma once

#include "support/plugin_under_test.h"
#include "support/scratch_folder.h"

#include <string>
#include <vector>

// "@" in a text stands for the scene's folder.
struct Step {
    const char* function;
    std::vector<std::string> arguments;
    std::string answer;  // the result; after a failure code, blank and KORB_GetLastError's text
    std::string changes; // "-path" for what is gone and "+path" for what is new or different; files with "=content"
};

// Puts `items` anew below a scratch folder for each step ("a/" a folder, "a=text" a file, "a>text" a link, "a#b" a hard
// link of b) and checks answer and changes.
void checkSteps(const std::vector<std::string>& items, const std::vector<Step>& steps);

// The same with the scene's folder as the root of the file system, so that "/Volumes/" is in it. "" or what differs.
// Takes root's rights.
std::string differencesInOwnRoot(const std::vector<std::string>& items, const std::vector<Step>& steps);
