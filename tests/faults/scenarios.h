// What is tried with faults: one call of one function on a small tree of files, and what it may leave when it fails.
#pragma once

#include "faults/fault_injector.h"

#include <functional>
#include <string>
#include <vector>

namespace folidex::test {

// Where a scenario's files are. `home` and `away` are on different file systems.
struct Places {
    std::string home;
    std::string away;    // empty where there is no second file system
    std::string volumes; // "/Volumes" in a scenario with a root folder of its own, else empty

    std::vector<std::string> folders() const;
};

// What may stand after a failure. An exception, which may come after the work is done, may leave everything done too.
enum class Leaves {
    asBefore,
    targetGone, // or without what stood at the target, which goes before the copy comes
    part,       // of what goes or comes; a move's source or target is whole all the same
};

struct Scenario {
    std::string name;
    std::string function;
    std::function<std::vector<std::string>(const Places&)> arguments;
    std::vector<int> codes; // that the function's description allows when the system refuses something
    Leaves leaves = Leaves::asBefore;
    std::function<std::string(const Places&)> source{}; // these two of copies and moves
    std::function<std::string(const Places&)> target{};
    std::function<void(const Places&)> prepare{}; // after the common tree was built
    // Whether a successful answer other than the undisturbed one's is right, as that of a sum without what couldn't be
    // examined.
    std::function<bool(const std::string& answer, const std::string& undisturbed)> isOtherAnswer{};
    std::vector<Call> otherAnswerTo{}; // the calls without which there may be one; none: any
    Call denied = Call::count_;        // what the system doesn't have in this scenario
    int deniedError = 0;
    bool needsAway = false;
    bool needsRoot = false;
    bool ownRoot = false;    // "/" is the scratch folder; needs root's rights
    bool logs = false;       // the log is on, and in the home folder
    bool runsScript = false; // takes the time of a shell script
};

std::vector<Scenario> scenarios();

// Empties the places and builds the tree that every scenario starts from.
void buildTree(const Places& places);

} // namespace folidex::test
