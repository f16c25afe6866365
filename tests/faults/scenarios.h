// What is tried with faults: one call of one function on a small tree of files, and what it may leave when it fails.
#pragma once

#include "faults/fault_injector.h"

#include <map>
#include <string>
#include <vector>

namespace folidex::test {

// Where a scenario's files are: on two file systems, if there are two.
struct Places {
    std::string home;
    std::string away;

    std::string path(std::string word) const; // "~" at its beginning is the home folder, "@" the away one
};

struct Scenario {
    std::vector<std::string> call{};          // function, without "KORB_", and arguments for Places::path()
    std::string where{};                      // what is special about it
    Lacks lacks{};                            // nothing of which changes what an undisturbed call does
    std::string replaced{};                   // what goes before the copy comes, and stays removed when that fails
    bool leavesPart = false;                  // a failure may leave a part of what goes or comes
    unsigned flushes = 2;                     // at least, of what goes to another file system: its content and its name
    void (*prepare)(const Places&) = nullptr; // after the common tree was built
    bool needsRoot = false;
    bool isOnVolume = false; // the home folder is the volume "Disk", in a root folder of the scenario's own
    bool runsScript = false; // takes the time of a shell script
    bool logs = false;       // the log is on, and in the home folder
    // By the call that fails ("*": any), another answer that is right, such as a sum without what couldn't be examined;
    // "*": any answer.
    std::map<CallName, std::string> otherAnswers{};

    std::string name() const; // letters, digits and underscores
    bool isAcross() const;
};

const std::vector<Scenario>& scenarios();

// Empties the places and builds the tree that every scenario starts from, and what the scenario adds.
void build(const Scenario& scenario, const Places& places);

} // namespace folidex::test
