// Runs one test in a process of its own, and knows what came of it however that process ended.
#pragma once

#include "host/check/examination.h"

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace fmxhost::check {

struct Test;

enum class Verdict {
    pass,
    note,    // passed, and there is something to know
    skipped, // can't be made here, or a test before it failed at what it needs
    fail,
    crash,   // the process ended before the test did
    timeOut, // it was ended because the test took too long
};

// "pass", "note", "skipped", "fail", "crash", "timeout".
const char* verdictName(Verdict verdict);

// fail, crash, timeOut.
bool isFailure(Verdict verdict);

// What came of one run. Texts are UTF-8.
struct RunResult {
    Verdict verdict = Verdict::pass;
    std::vector<std::string> reasons; // why it failed or was skipped
    std::vector<std::string> notes;
    Stage reached = Stage::file;
    std::string output; // the end of what the process wrote to its standard output and standard error
};

struct RunOptions {
    std::filesystem::path plugin;
    std::int16_t apiVersion;
    std::chrono::duration<double> timeLimit;
};

// Starts this program once more for the test and waits for it. Processes that it started and left in its group are
// ended with it. Errors: std::system_error when no process can be started.
RunResult runIsolated(const Test& test, const RunOptions& options);

// The other side: makes the test in this process, writing what it finds to the descriptor that runIsolated() hands
// over, and ends the process.
[[noreturn]] void runHere(const Test& test, const std::filesystem::path& plugin, std::int16_t apiVersion);

} // namespace fmxhost::check
