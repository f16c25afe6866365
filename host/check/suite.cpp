#include "host/check/suite.h"

#include <algorithm>
#include <iterator>
#include <set>
#include <utility>

namespace fmxhost::check {
namespace {

// A finding, and the API versions for which it was made.
class Findings {
public:
    void add(const std::vector<std::string>& texts, std::int16_t apiVersion)
    {
        for (const std::string& text : texts) {
            auto known = std::find_if(findings_.begin(), findings_.end(),
                                      [&text](const auto& finding) { return finding.first == text; });
            if (known == findings_.end()) {
                known = findings_.insert(findings_.end(), {text, {}});
            }
            known->second.push_back(apiVersion);
        }
    }

    // Says for which versions, unless for all that there were.
    std::vector<std::string> texts(std::size_t versionsExamined) const
    {
        std::vector<std::string> texts;
        for (const auto& [text, versions] : findings_) {
            texts.push_back(versions.size() == versionsExamined ? text : text + versionsText(versions));
        }
        return texts;
    }

private:
    static std::string versionsText(std::vector<std::int16_t> versions)
    {
        std::sort(versions.begin(), versions.end());
        std::string text = versions.size() == 1 ? " (API version " : " (API versions ";
        for (const std::int16_t& version : versions) {
            text += (&version == &versions.front() ? "" : ", ") + std::to_string(version);
        }
        return text + ")";
    }

    std::vector<std::pair<std::string, std::vector<std::int16_t>>> findings_;
};

class Suite {
public:
    explicit Suite(const RunOptions& options) : options_(options) {}

    TestResult run(const Test& test)
    {
        if (obstacleFoundBy_ != nullptr && test.needs >= notReached_) {
            const std::string what = notReached_ == Stage::loaded    ? "it doesn't load"
                                     : notReached_ == Stage::started ? "it doesn't start"
                                                                     : "it doesn't shut down";
            return {&test, Verdict::skipped, {what + ": see " + obstacleFoundBy_->name}, {}, {}, 0};
        }
        const auto begin = std::chrono::steady_clock::now();
        TestResult result = runForAllVersions(test);
        result.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
        return result;
    }

private:
    // The one that is played comes first: it decides whether other tests can be made. Those on which the plug-in is
    // known not to start are left out.
    std::vector<std::int16_t> versionsFor(const Test& test) const
    {
        if (test.apiVersions.empty()) {
            return {options_.apiVersion};
        }
        std::vector<std::int16_t> versions;
        std::copy_if(test.apiVersions.begin(), test.apiVersions.end(), std::back_inserter(versions),
                     [this](std::int16_t version) { return !doesNotStartOn_.contains(version); });
        std::stable_partition(versions.begin(), versions.end(),
                              [this](std::int16_t version) { return version == options_.apiVersion; });
        return versions;
    }

    TestResult runForAllVersions(const Test& test)
    {
        TestResult result;
        result.test = &test;
        Findings reasons;
        Findings notes;
        std::size_t examined = 0;
        for (const std::int16_t version : versionsFor(test)) {
            const RunResult run = runIsolated(test, {options_.plugin, version, options_.timeLimit});
            ++examined;
            noteObstacle(test, run, version);
            result.verdict = std::max(result.verdict, run.verdict);
            reasons.add(run.reasons, version);
            notes.add(run.notes, version);
            if (isFailure(run.verdict)) {
                result.output = run.output;
            }
            if (run.verdict == Verdict::timeOut) {
                break; // the others would take as long
            }
        }
        result.reasons = reasons.texts(examined);
        result.notes = notes.texts(examined);
        return result;
    }

    void noteObstacle(const Test& test, const RunResult& run, std::int16_t version)
    {
        if (!isFailure(run.verdict) || run.reached >= test.needs) {
            return;
        }
        doesNotStartOn_.insert(version);
        if (version == options_.apiVersion && obstacleFoundBy_ == nullptr) {
            notReached_ = static_cast<Stage>(static_cast<int>(run.reached) + 1);
            obstacleFoundBy_ = &test;
        }
    }

    const RunOptions& options_;
    std::set<std::int16_t> doesNotStartOn_;
    Stage notReached_ = Stage::started;     // by the plug-in, if there is an obstacle
    const Test* obstacleFoundBy_ = nullptr; // the first test that found one
};

} // namespace

void runSuite(std::span<const Test* const> tests, const RunOptions& options,
              const std::function<void(const TestResult&)>& report)
{
    Suite suite(options);
    for (const Test* test : tests) {
        report(suite.run(*test));
    }
}

} // namespace fmxhost::check
