// A child process with a time limit, whose output is read to its end.
#pragma once

#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

namespace fmxhost::check {

// Where the child finds the pipe for its report.
constexpr int reportDescriptor = 3;

struct ChildEnd {
    bool timedOut = false;
    int signal = 0; // that ended it; 0: none
    int exitStatus = 0;
};

struct ChildOutput {
    std::string report;   // of a very long one the beginning
    std::string standard; // output and errors together; of a long one the end
};

// Standard input is empty; the group of processes is the child's own, and is ended with it. So is, where orphans can be
// adopted, whatever it left outside of the group: this process must have no other children.
// Errors: std::system_error when the process can't be started.
ChildEnd runChild(const std::filesystem::path& program, const std::vector<std::string>& arguments,
                  std::chrono::duration<double> timeLimit, ChildOutput& output);

} // namespace fmxhost::check
