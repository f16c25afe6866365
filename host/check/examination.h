// What a test of "fmxhost check" works with, in the process of its own that it runs in.
//
// The process that started it reads a stream of events from a pipe (one JSON object a line, each written at once), so
// that what was found, and what was being done, is known however the process ends.
#pragma once

#include "host/base/plugin.h"

#include <cstdint>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

namespace fmxhost::check {

// How far a plug-in has got. What fails at a stage keeps every test from running that needs the next one.
enum class Stage {
    file,    // nothing of it has run
    loaded,  // loaded, and its options string asked for
    started, // the start-up message answered
    ended,   // the shut-down message answered
};

// A test that can't be made here; what() is the reason, for the user.
class Skipped : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// How a process ends whose plug-in has closed the descriptor of the events, and everything else with it.
constexpr int eventsLostStatus = 97;

// Where a test's events go. Other errors in writing are ignored: nobody is left to read then.
class EventWriter {
public:
    explicit EventWriter(int descriptor);

    // `kind` is one of the names below, `text` UTF-8. Ends the process when the descriptor has been closed, and in a
    // copy of the process: a plug-in that forks and returns twice mustn't have the test made twice.
    void write(std::string_view kind, std::string_view text) const;

private:
    int descriptor_;
    int process_;
};

namespace event {
constexpr std::string_view step = "step";       // what is being done now
constexpr std::string_view reached = "reached"; // a stage, by the name that stageName() gives it
constexpr std::string_view failure = "failure";
constexpr std::string_view note = "note";
constexpr std::string_view skipped = "skipped";
constexpr std::string_view done = "done"; // the test came to its end
} // namespace event

std::string_view stageName(Stage stage);

// Thread rule: one thread at a time.
class Examination {
public:
    Examination(std::filesystem::path file, std::int16_t apiVersion, EventWriter events)
        : file_(std::move(file)), apiVersion_(apiVersion), events_(events)
    {
    }

    const std::filesystem::path& file() const { return file_; }
    std::int16_t apiVersion() const { return apiVersion_; }

    // What is going to be done; names the place where the process crashes or hangs. "" when the plug-in's turn is over.
    void step(std::string_view text) const { events_.write(event::step, text); }
    void fail(std::string_view text) const { events_.write(event::failure, text); }
    void note(std::string_view text) const { events_.write(event::note, text); }
    void reach(Stage stage) const { events_.write(event::reached, stageName(stage)); }

    // The plug-in, loaded or started when first asked for. It is never unloaded unless a test does so: what unloading
    // goes wrong with belongs to the tests of unloading.
    // Errors: PluginError, Skipped.
    Plugin& loaded();
    Plugin& started();

    // What the start-up message was answered with; after started().
    std::int64_t startUpAnswer() const { return startUpAnswer_; }

private:
    std::filesystem::path file_;
    std::int16_t apiVersion_;
    EventWriter events_;
    std::unique_ptr<Plugin> plugin_;
    bool started_ = false;
    std::int64_t startUpAnswer_ = 0;
};

// "API version 57".
std::string apiVersionText(std::int16_t version);

} // namespace fmxhost::check
