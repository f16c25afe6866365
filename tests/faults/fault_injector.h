// Makes calls of the code under test fail, or does something just before one of them. Linked into a test program, whose
// functions the dynamic linker finds before the C library's of the same names.
//
// While it is armed it sees the calls of the arming thread: allocations and starts of threads whoever makes them, all
// others when they come from the code under test itself. A call goes by a name that several functions may share:
// fchmod(2) and fchmodat(2) are "chmod"; an open(2) is "open", "create" with O_CREAT, "unnamed" with O_TMPFILE
// (fault_injector.cpp has them all).
#pragma once

#include <functional>
#include <map>
#include <string_view>
#include <utility>
#include <vector>

namespace folidex::test {

using CallName = std::string_view;
using Lacks = std::vector<std::pair<CallName, int>>; // what the system doesn't have, and the errno value that says so

constexpr int shortCount = -1; // in an error's place: half of what was asked for is done

struct FaultPlan {
    const void* code = nullptr; // an address in the code under test
    Lacks lacks{};
    CallName call{}; // the `at`-th call of this name, from 1, fails with `error`
    unsigned at = 0;
    int error = 0;
    bool lasts = false;     // so do all later ones of the name
    unsigned secondAt = 0;  // and, with EIO, this one of any name but "malloc", counted from the first that failed
    unsigned intrudeAt = 0; // `intrude` is called before this one of any name but "malloc"
    std::function<void()> intrude{};
};

struct FaultReport {
    std::map<CallName, unsigned> calls{};
    unsigned total = 0;       // of all but "malloc"
    unsigned sinceFault = 0;  // of those, after the first that failed
    bool struck = false;      // whether the planned call, or both of them, were made and did fail
    bool lostData = false;    // whether a close failed that was the first for a written file
    int temporaryFiles = 0;   // made by mkostemp(3) and not removed
    bool inheritable = false; // whether something was opened without O_CLOEXEC
};

void armFaults(const FaultPlan& plan);
FaultReport disarmFaults();

} // namespace folidex::test
