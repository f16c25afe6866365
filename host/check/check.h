// fmxhost check: a conformity check for any plug-in.
#pragma once

#include "host/base/output.h"

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace fmxhost::check {

struct Options {
    std::filesystem::path plugin;
    std::int16_t apiVersion = 0; // of the host that is played
    bool json = false;
    std::vector<std::string> tests; // names; none: all of them
    bool onlyFailed = false;
    double timeLimit = 60;            // s, for each process
    std::filesystem::path allowances; // what the plug-in keeps on purpose
    std::filesystem::path libraries;  // the list of what a server has; empty: the installed one
    std::string isolated;             // the test for which it has started itself
};

extern const char* const footer; // of the command's help

// Errors: OutputError.
ExitStatus run(Options options);

// Names and summaries of the tests.
ExitStatus listTests(bool json);

} // namespace fmxhost::check
