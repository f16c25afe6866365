// The process-wide logger, and the lines that functions write to it. Each line goes to the logger that is on at that
// moment, or nowhere.
//
// Thread rule: a line that is being written keeps its logger alive when another thread switches it off.
#pragma once

#include "log/plugin_logger.h"

#include <memory>
#include <string_view>

namespace logging {

// Null while logging is off, as it is when the plug-in is loaded.
std::shared_ptr<PluginLogger> currentLogger();

// Creates the logger, or destroys it; does nothing when logging is on, or off, already.
void switchOn();
void switchOff();

void writeLine(std::string_view text);

// The lines on entry to a function and on the way out, whichever way that is, in the session that was on at the
// entry, as long as it lasts.
class FunctionTrace {
public:
    explicit FunctionTrace(std::string_view name); // must outlive the value
    ~FunctionTrace();
    FunctionTrace(const FunctionTrace&) = delete;
    FunctionTrace& operator=(const FunctionTrace&) = delete;

private:
    std::weak_ptr<PluginLogger> logger_; // switching off ends its session at once
    std::string_view name_;
};

} // namespace logging
