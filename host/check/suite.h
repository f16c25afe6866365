// Runs tests one after the other and puts together what came of each.
#pragma once

#include "host/check/isolated_run.h"
#include "host/check/tests.h"

#include <functional>
#include <span>
#include <string>
#include <vector>

namespace fmxhost::check {

struct TestResult {
    const Test* test = nullptr;
    Verdict verdict = Verdict::pass;
    std::vector<std::string> reasons;
    std::vector<std::string> notes;
    std::string output;
    double seconds = 0;
};

// Runs the tests in their order and hands each result to `report` at once. A test that needs a stage at which an
// earlier one has failed is skipped. Errors: std::system_error when a process can't be started; whatever `report`
// throws.
void runSuite(std::span<const Test* const> tests, const RunOptions& options,
              const std::function<void(const TestResult&)>& report);

} // namespace fmxhost::check
