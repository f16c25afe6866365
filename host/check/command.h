// fmxhost check: a conformity check for any plug-in.
#pragma once

#include "host/base/output.h"

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace fmxhost::check {

struct Arguments {
    std::filesystem::path plugin;
    std::int16_t apiVersion = 0;
    bool json = false;
    std::vector<std::string> tests; // names; none: all of them
    bool onlyFailed = false;
    double timeLimit = 60; // seconds, of each test
    std::string isolated;  // how it starts itself for one test
    bool list = false;     // only show the tests
};

extern const char* const footer; // of its help

// Errors: OutputError.
ExitStatus run(const Arguments& arguments, Output& output);

} // namespace fmxhost::check
