// What is tried with faults: one call of one function on a small tree of files, and what it may leave when it fails.
#pragma once

#include "faults/fault_injector.h"

#include <string>
#include <utility>
#include <vector>

namespace folidex::test {

// Where a scenario's files are. `home` and `away` are on different file systems.
struct Places {
    std::string home;
    std::string away;    // empty where there is no second file system
    std::string volumes; // "/Volumes" in a scenario with a root folder of its own, else empty
};

// Whether a successful answer other than the undisturbed one's is right, as that of a sum without what couldn't be
// examined.
using OtherAnswer = bool(const std::string& answer, const std::string& undisturbed);

struct Scenario {
    std::vector<std::string>
        call{};              // function and arguments; "~" at the beginning is the home folder, "@" the away one
    std::string where{};     // what is special about it
    bool leavesPart = false; // a failure may leave a part of what goes or comes
    std::string replaced{};  // what goes before the copy comes, and stays removed when that fails
    void (*prepare)(const Places&) = nullptr;  // after the common tree was built
    std::vector<std::pair<Call, int>> lacks{}; // what the system doesn't have, and the errno value that says so
    OtherAnswer* isOtherAnswer = nullptr;
    std::vector<Call> otherAnswerTo{}; // the calls without which there may be one; none: any
    bool needsRoot = false;
    bool ownRoot = false; // "/" is the scratch folder; needs root's rights
    bool logs = false;    // the log is on, and in the home folder

    std::string name() const; // letters, digits and underscores
    std::vector<std::string> arguments(const Places& places) const;
    static std::string inPlaces(std::string word, const Places& places); // "~" and "@" replaced
    const std::vector<int>& codes() const; // that the function's description allows when the system refuses something
    bool needsAway() const;
    bool runsScript() const; // takes the time of a shell script
};

const std::vector<Scenario>& scenarios();

// Empties the places and builds the tree that every scenario starts from, and what the scenario adds.
void build(const Scenario& scenario, const Places& places);

} // namespace folidex::test
