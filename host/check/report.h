// The results of "fmxhost check", for people and as JSON.
#pragma once

#include "host/check/suite.h"
#include "host/check/json.h"
#include "host/base/output.h"

#include <array>
#include <filesystem>
#include <string>

namespace fmxhost::check {

struct ReportOptions {
    bool json = false;
    bool onlyFailed = false;
};

class Report {
public:
    Report(Output& output, ReportOptions options) : output_(output), options_(options) {}

    // For people: written at once.
    // Errors: OutputError.
    void add(const TestResult& result);

    // The summary, or all of the JSON: one object on one line,
    //   {"plugin": FILE, "api": N, "passed": BOOL, "counts": {"pass": N, "note": N, "skipped": N, "fail": N, "crash":
    //   N,
    //    "timeout": N}, "tests": [{"name": NAME, "verdict": one of the words in counts, "reasons": [TEXT…],
    //    "notes": [TEXT…], "seconds": NUMBER, "output": what it wrote, of tests that failed}…]}
    // Errors: OutputError.
    void finish(const std::filesystem::path& plugin, std::int16_t apiVersion);

    bool passed() const;

private:
    void write(const TestResult& result);
    std::string summary() const;
    std::size_t count(Verdict verdict) const { return counts_.at(static_cast<std::size_t>(verdict)); }

    Output& output_;
    ReportOptions options_;
    std::array<std::size_t, 6> counts_{}; // by Verdict
    Json tests_ = Json::array();
};

// One line a test: its name and what it tests; as JSON an array of objects with name and summary.
std::string testList(bool json);

} // namespace fmxhost::check
