// Makes every call that the archive program makes fail, verb by verb, once and from then on, and lets others change its
// source at every moment: an error leaves nothing, a success is whole.
//
// Each trial is a process of its own, on one processor, where all is done on one thread. All trials with FOLIDEX_FULL
// in the environment, otherwise a sample; their number is printed.

#include "archiver/call.h"
#include "archiver/result_file.h"
#include "faults/fault_injector.h"
#include "support/child_process.h"
#include "support/scratch_folder.h"
#include "support/tree_snapshot.h"

#include <gtest/gtest.h>
#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <set>
#include <sstream>
#include <string>

namespace folidex::test {
namespace {

struct Verb {
    friend std::ostream& operator<<(std::ostream& stream, const Verb& verb) { return stream << verb.name; }

    std::string name;
    std::string source;
    std::string result; // empty: what is packed comes into the folder
    std::string password{};
    std::string undoing{}; // of a result that differs each time
};

const Verb verbs[] = {
    {"zip", "tree", "x", "", "unzip"},
    {"zipencrypt", "tree", "x", "pw", "unzipdecrypt"},
    {"unzip", "plain.zip", ""},
    {"unzipdecrypt", "aes.zip", "", "pw"},
    {"encrypt", "file.bin", "x", "pw", "decrypt"},
    {"decrypt", "file.enc", "x", "pw"},
};

struct Fault {
    CallName call;
    int error;
    bool isTransparent = false; // the call is repeated, or there is another way
};

constexpr int interrupted = EINTR;

std::vector<Fault> faultsOf(CallName call)
{
    if (call == "malloc" || call == "thread") {
        return {{call, call == "malloc" ? ENOMEM : EAGAIN}};
    }
    std::vector<Fault> faults{{call, EIO}};
    const bool canBeCut = call == "read" || call == "write";
    if (canBeCut || call == "open" || call == "create" || call == "unnamed" || call == "flush") {
        faults.push_back({call, interrupted, true});
    }
    if (canBeCut) {
        faults.push_back({call, shortCount, true});
    }
    if (call == "unnamed" || call == "renameat2") {
        faults.push_back({call, EOPNOTSUPP, true});
    }
    if (call == "link") {
        faults.push_back({call, EPERM, true});
    }
    return faults;
}

struct Trial {
    std::string text;
    FaultPlan plan;
    bool mustSucceed = false;
    bool mayLeave = false; // a work item, which it can't remove
};

class ArchiveProgram : public testing::TestWithParam<Verb> {
protected:
    ArchiveProgram() : scratch_(std::move(ScratchPair().home))
    {
        scratch_->write("file.bin", noise(1'200'000));
        scratch_->write("tree/sub/small.txt", "content");
        scratch_->write("tree/large.bin", noise(600'000) + std::string(600'000, 'a'));
        scratch_->write("tree/unseen/small.txt", "content");
        scratch_->symlink("sub", "tree/link");
        scratch_->write("victim/file", "untouched");
        inChild([this] {
            archiver::perform(lineFor({"zip", "tree", "plain.zip"}));
            archiver::perform(lineFor({"zipencrypt", "tree", "aes.zip", "pw"}));
            archiver::perform(lineFor({"encrypt", "file.bin", "file.enc", "pw"}));
            return "";
        });
    }

    static std::string noise(std::size_t size)
    {
        std::string bytes(size, '\0');
        std::uint32_t state = 1;
        std::generate(bytes.begin(), bytes.end(), [&] {
            state = state * 1664525U + 1013904223U;
            return static_cast<char>(state >> 24U);
        });
        return bytes;
    }

    std::string lineFor(const Verb& verb, const std::string& to = "", const std::string& from = "") const
    {
        const std::string folder = scratch_->path().string() + "/";
        std::string line = verb.name + "|" + folder + from + "|" + folder + to + "|" + verb.source + "|" +
                           (verb.result.empty() ? "expand" : verb.result);
        return verb.password.empty() ? line : line + "|" + verb.password;
    }

    // The destination before a trial: what is there is replaced.
    void prepare() const
    {
        std::filesystem::remove_all(*scratch_ / "out");
        scratch_->write("out/x", "earlier");
        scratch_->write("out/tree/sub/small.txt", "earlier");
        scratch_->write("out/tree/mine", "mine");
    }

    // Contents of the destination, or of what comes out of what is there.
    std::string state(const std::string& of = "out") const
    {
        std::string text;
        for (const auto& [path, entry] : snapshot(*scratch_ / of)) {
            text += path + " " + entry.content + "\n";
        }
        return text;
    }
    std::string undone() const
    {
        const Verb& verb = GetParam();
        if (verb.undoing.empty() || scratch_->read("out/x") == "earlier") {
            return state();
        }
        std::filesystem::remove_all(*scratch_ / "back");
        scratch_->makeFolder("back");
        const Verb back{verb.undoing, "x", verb.undoing == "decrypt" ? "x" : "", verb.password};
        const archiver::Ending ending = archiver::perform(lineFor(back, "back/", "out/"));
        return ending.status == 0 ? state("back") : "can't be undone: " + ending.cause;
    }

    // In a process of its own: how the call ends, a line; and behind it the destination as it is then.
    std::string attempt(FaultPlan plan, FaultReport* report = nullptr, bool onAllProcessors = false) const
    {
        cpu_set_t one;
        CPU_ZERO(&one);
        CPU_SET(static_cast<std::size_t>(std::max(sched_getcpu(), 0)), &one);
        if (!onAllProcessors) {
            sched_setaffinity(0, sizeof one, &one);
        }
        archiver::callersMask();
        plan.code = reinterpret_cast<const void*>(&archiver::perform);
        const std::string line = lineFor(GetParam(), "out/");
        armFaults(plan);
        const archiver::Ending ending = archiver::perform(line);
        const FaultReport seen = disarmFaults();
        if (report != nullptr) {
            *report = seen;
        }
        return std::to_string(ending.status) + "\n" + (ending.status == 0 ? undone() : state());
    }

    static std::string withoutWorkItems(const std::string& state)
    {
        std::istringstream lines(state);
        std::string rest;
        for (std::string line; std::getline(lines, line);) {
            rest += line.starts_with("/.folidex-archive-") ? "" : line + "\n";
        }
        return rest;
    }

    std::string judge(const Trial& trial, bool onAllProcessors = false) const
    {
        prepare();
        const std::string ended = inChild([&] { return attempt(trial.plan, nullptr, onAllProcessors); });
        const std::string status = ended.substr(0, ended.find('\n'));
        std::string left = ended.substr(std::min(ended.size(), status.size() + 1));
        if (trial.mayLeave) {
            left = withoutWorkItems(left);
        }
        // Wrong input it wasn't.
        static const std::set<std::string> failures{"66", "70", "73", "74"};
        if (status == "0") {
            return left == whole_ ? "" : "a success that isn't whole";
        }
        if (failures.count(status) == 0 || trial.mustSucceed) {
            return "ends with " + ended.substr(0, 200);
        }
        if (left != before_) {
            return "leaves something: " + left;
        }
        return scratch_->read("victim/file") == "untouched" ? "" : "touches something else";
    }

    // Undisturbed: what there is before and after, and the calls.
    FaultReport measure()
    {
        prepare();
        before_ = state();
        FaultReport report;
        const std::string file = scratch_->path().string() + "/calls";
        const std::string ended = inChild([&] {
            const std::string text = attempt({}, &report);
            std::ofstream calls(file);
            for (const auto& [name, count] : report.calls) {
                calls << name << " " << count << "\n";
            }
            calls << "total " << report.total << "\n";
            return text;
        });
        EXPECT_EQ(ended.substr(0, 2), "0\n") << ended;
        whole_ = ended.substr(2);
        static std::set<std::string> names;
        std::ifstream calls(file);
        std::string name;
        for (unsigned count = 0; calls >> name >> count;) {
            (name == "total" ? report.total : report.calls[*names.insert(name).first]) = count;
        }
        return report;
    }

    void tryAll(const std::vector<Trial>& trials) const
    {
        const std::size_t wanted = std::getenv("FOLIDEX_FULL") != nullptr ? trials.size() : 80;
        const std::size_t step = std::max<std::size_t>(trials.size() / wanted, 1);
        std::size_t count = 0;
        for (std::size_t at = 0; at < trials.size(); at += step, ++count) {
            const std::string wrong = judge(trials[at]);
            EXPECT_EQ(wrong, "") << GetParam().name << ", " << trials[at].text;
        }
        std::cout << count << " of " << trials.size() << " trials\n";
    }

    std::unique_ptr<ScratchFolder> scratch_;
    std::string before_;
    std::string whole_;
};

TEST_P(ArchiveProgram, IsWholeOrLeavesNothingWhenACallFails)
{
    const FaultReport report = measure();
    ASSERT_GT(report.calls.at("write"), 0U);
    EXPECT_GE(report.calls.at("flush"), 2U) << "what was written, and its name";
    std::vector<Trial> trials;
    for (const auto& [call, count] : report.calls) {
        // Of the thousands of allocations some, of everything else all.
        const unsigned step = call == "malloc" ? std::max(count / 200, 1U) : 1;
        for (unsigned at = 1; at <= count; at += step) {
            for (const Fault& fault : faultsOf(call)) {
                Trial trial{std::string(call) + " " + std::to_string(at) + ": " + std::to_string(fault.error), {}};
                trial.plan = {.call = call, .at = at, .error = fault.error};
                trial.mustSucceed = fault.isTransparent;
                trial.mayLeave = call == "unlink" || call == "rename" || call == "renameat2" || call == "getdents";
                trials.push_back(trial);
                // Where nothing can be renamed any more, nothing can be put back either.
                const bool canLast = fault.error == EIO || fault.error == EOPNOTSUPP || fault.error == ENOMEM;
                if (canLast && call != "rename") {
                    trial.plan.lasts = true;
                    trial.text += " and ever after";
                    trial.mayLeave = true;
                    trials.push_back(trial);
                }
            }
        }
    }
    tryAll(trials);
}

TEST_P(ArchiveProgram, IsWholeOrLeavesNothingWhenNoThreadStarts)
{
    measure();
    for (const unsigned at : {1U, 2U}) {
        const Trial trial{"", {.call = "thread", .at = at, .error = EAGAIN, .lasts = true}};
        EXPECT_EQ(judge(trial, true), "");
    }
}

// A byte of the source changes, or it is cut: either it was read before, or the call fails.
TEST_P(ArchiveProgram, NoticesThatItsSourceChanges)
{
    const FaultReport report = measure();
    const std::string name = GetParam().source == "tree" ? "tree/large.bin" : GetParam().source;
    const std::string original = scratch_->read(name);
    const auto cut = [&] { std::filesystem::resize_file(*scratch_ / name, original.size() / 3); };
    std::vector<Trial> trials;
    for (unsigned at = 1; at <= report.total; ++at) {
        trials.push_back({"cut before call " + std::to_string(at), {.intrudeAt = at, .intrude = cut}});
    }
    const std::size_t step =
        std::max<std::size_t>(trials.size() / (std::getenv("FOLIDEX_FULL") != nullptr ? trials.size() : 20), 1);
    for (std::size_t at = 0; at < trials.size(); at += step) {
        scratch_->write(name, original);
        const std::string wrong = judge(trials[at]);
        // What is packed may be cut before it is opened.
        EXPECT_TRUE(wrong.empty() ||
                    (GetParam().undoing != "" && wrong == "a success that isn't whole" && at < trials.size() / 2) ||
                    wrong.starts_with("ends with 65"))
            << GetParam().name << ", " << trials[at].text << ": " << wrong;
    }
}

// What is expanded meets what others have made, replaced or removed since it was looked at.
TEST_P(ArchiveProgram, MergesWithWhatComesAndGoes)
{
    if (GetParam().name != "unzip") {
        GTEST_SKIP() << "only an expansion puts several items into place";
    }
    const FaultReport report = measure();
    const auto change = [&] {
        std::filesystem::create_directory(*scratch_ / "out/tree/unseen");
        if (!std::filesystem::exists(*scratch_ / "out/tree/large.bin")) {
            scratch_->write("out/tree/large.bin", "earlier");
        }
        if (scratch_->read("out/tree/sub/small.txt") == "earlier") {
            std::filesystem::remove(*scratch_ / "out/tree/sub/small.txt");
        }
    };
    for (unsigned at = 1; at <= report.total; ++at) {
        EXPECT_EQ(judge({"", {.intrudeAt = at, .intrude = change}, true}), "") << "before call " << at;
    }
}

// The same bytes, written anew once they have been read.
TEST_P(ArchiveProgram, SaysThatADecryptedSourceWasWrittenTo)
{
    if (GetParam().name != "decrypt") {
        GTEST_SKIP() << "of what is packed or encrypted, what was read counts";
    }
    const FaultReport report = measure();
    const std::string original = scratch_->read(GetParam().source);
    unsigned noticed = 0;
    for (unsigned at = 1; at <= report.total; at += 2) {
        const auto rewrite = [&] { scratch_->write(GetParam().source, original); };
        prepare();
        noticed += inChild([&] { return attempt({.intrudeAt = at, .intrude = rewrite}); }).starts_with("66") ? 1U : 0U;
    }
    EXPECT_GT(noticed, 3U);
}

INSTANTIATE_TEST_SUITE_P(Verbs, ArchiveProgram, testing::ValuesIn(verbs),
                         [](const auto& verb) { return verb.param.name; });

} // namespace
} // namespace folidex::test
