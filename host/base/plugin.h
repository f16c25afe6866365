// Loads a plug-in and talks to it as FileMaker does: call record, messages, string requests, calls of what it
// registered.
//
// Thread rules: call() may be called from any number of threads at once. Everything else (loading, start-up, string
// requests, shut-down, unloading) belongs to one thread, as in FileMaker; while it runs there must be no call.
#pragma once

#include "host/base/system.h"
#include "host/base/value.h"

#include <fmxkit/registry.h>

#include <dlfcn.h>

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace fmxhost {

// Message codes of the call record.
enum class Message : std::uint8_t {
    startUp = 0,
    idle = 1,
    shutDown = 4,
    preferences = 5,
    stringRequest = 7,
    sessionShutDown = 8,
    fileShutDown = 9,
};

// Numbers of the strings that a host asks for.
enum class PluginString : std::uint8_t { name = 128, preferences = 129, options = 131, helpLocation = 132 };

// API version of FileMaker 19, the latest one that plug-ins know of.
constexpr std::int16_t defaultApiVersion = 62;

// Why a plug-in can't be used. what() is one line of UTF-8 for the user.
class PluginError : public std::runtime_error {
public:
    enum class Kind {
        notLoaded, // no such file, not a library, missing symbols, no entry point
        refused,   // it answered the start-up message by refusing
        exception, // an exception left its entry point
    };

    PluginError(Kind kind, const std::string& text) : std::runtime_error(text), kind_(kind) {}
    Kind kind() const { return kind_; }

private:
    Kind kind_;
};

// What came of one call.
struct CallOutcome {
    Value value;                          // the result as the handler left it; empty when an exception came out
    fmx::errcode error = 0;               // what the handler returned
    std::optional<std::string> exception; // the exception that left the handler: its type and text, in UTF-8
};

// One at a time in a process: whatever is registered with the kit is taken for its own.
class Plugin {
public:
    // Loads the file and looks for its entry point, all without a message; start() does the rest.
    // Errors: PluginError.
    explicit Plugin(const std::filesystem::path& file, std::int16_t apiVersion = defaultApiVersion);
    ~Plugin(); // unload(), without exceptions
    Plugin(const Plugin&) = delete;
    Plugin& operator=(const Plugin&) = delete;

    // Sends the start-up message, unless the options say that the plug-in doesn't want it, and takes over what it
    // registered. Returns what the plug-in returned: the SDK version that it was built for.
    // Errors: PluginError.
    std::int64_t start();

    // Sends the shut-down message, even if the plug-in has never been started.
    // What it leaves registered stays registered until unload().
    // Errors: PluginError when an exception comes out.
    void shutDown();

    // Shuts down what was started and wasn't shut down, forgets what is still registered, and unloads the file. Returns
    // how many functions and script steps were left. Afterwards only the destructor may be called.
    // Errors: as shutDown(), after having unloaded all the same.
    std::size_t unload();

    // The plug-in's answer to a string request, up to its first zero; empty when it gave none.
    // `capacity`: units that the plug-in is told it may write, its terminating zero included.
    // Errors: PluginError when an exception comes out.
    std::u16string string(PluginString number, std::uint32_t capacity = 1024);

    // Its options string, asked for once, and whether that asks for start-up and shut-down messages, by its eighth
    // unit. Errors: as string().
    const std::u16string& options();
    bool wantsStartUp() { return options().find(u'n', 7) != 7; }

    // Sends any message; `result` goes into the record beforehand. Returns the record's result field.
    // Errors: PluginError when an exception comes out.
    fmx::ptrtype send(Message message, std::uint8_t parameter1 = 0, fmx::ptrtype parameter2 = 0,
                      fmx::ptrtype parameter3 = 0, fmx::ptrtype result = 0);

    // What the plug-in registered during start-up, in that order.
    const std::vector<fmxkit::ExternalFunction>& functions() const { return functions_; }
    const std::vector<fmxkit::ScriptStep>& scriptSteps() const { return scriptSteps_; }

    // The function of that name, in any letter case. Errors: std::out_of_range when there is none.
    const fmxkit::ExternalFunction& function(std::u16string_view name) const;

    // Calls a function with whatever arguments, also with a number of them that FileMaker would not let through.
    // An exception from the handler ends in the outcome. Any thread.
    // Errors: std::bad_alloc and std::exception from the kit outside the handler.
    static CallOutcome call(const fmxkit::ExternalFunction& function, const std::vector<Value>& arguments);

    const std::filesystem::path& file() const { return file_; }
    // The call record as the last message left it.
    const FMX_ExternCallStruct& record() const { return record_; }

private:
    using EntryPoint = void (*)(FMX_ExternCallPtr);

    std::filesystem::path file_;
    PluginFile onDisk_;
    std::unique_ptr<void, int (*)(void*)> library_{nullptr, &dlclose};
    // Plug-ins keep the record's address and read the API version through it later, so it lives as long as the plug-in
    // and its version is written once.
    FMX_ExternCallStruct record_{};
    EntryPoint entryPoint_ = nullptr;
    bool running_ = false;
    std::optional<std::u16string> options_;
    std::vector<fmxkit::ExternalFunction> functions_;
    std::vector<fmxkit::ScriptStep> scriptSteps_;
};

} // namespace fmxhost
