// Makes one test in a process of its own, and knows what came of it however that process ended.
#pragma once

#include "host/check/test.h"

#include <string>
#include <vector>

namespace fmxhost::check {

enum class Verdict {
    pass,
    note,    // passed, and there is something to know
    skipped, // can't be made here, or a test before it failed at what it needs
    fail,
    crash,   // the process ended before the test did
    timeOut, // it was ended because the test took too long
};

// fail, crash, timeOut.
bool isFailure(Verdict verdict);

// What came of a test. Texts are UTF-8, where the plug-in's own are.
struct Result {
    Verdict verdict = Verdict::pass;
    std::vector<std::string> reasons; // why it failed or was skipped
    std::vector<std::string> notes;
    Stage reached = Stage::file;
    std::string output; // the end of what the process wrote to its standard output and standard error
};

// Starts this program once more for the test and waits for it. The processes of its group end with it.
// Errors: std::system_error when no process can be started.
Result runIsolated(const Test& test, const Settings& settings);

// The other side: makes the test in this process, whose standard output runIsolated() reads, and ends the process.
[[noreturn]] void runHere(const Test& test, const Settings& settings);

} // namespace fmxhost::check
