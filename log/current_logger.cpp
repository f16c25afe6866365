#include "log/current_logger.h"

#include "frame/snapshot_cell.h"
#include "platform/path_text.h"

#include <mutex>
#include <string>
#include <utility>

namespace logging {

namespace {

// A logger that is on when the plug-in is unloaded writes no last line: shutting down doesn't end the session.
class ProcessLogger {
public:
    ~ProcessLogger()
    {
        if (const auto logger = cell.load()) {
            logger->SetLogPath({});
        }
    }

    frame::SnapshotCell<PluginLogger> cell;
    std::mutex switching; // so that two threads don't start two sessions
};

ProcessLogger& process()
{
    static ProcessLogger logger;
    return logger;
}

std::string logPath()
{
    return platform::standardized("~/Desktop/HALVIK/FOLIDEX/LogFile.txt");
}

} // namespace

std::shared_ptr<PluginLogger> currentLogger()
{
    return process().cell.load();
}

void switchOn()
{
    const std::lock_guard lock(process().switching);
    if (!currentLogger()) {
        process().cell.store(std::make_shared<PluginLogger>("MARROWSTEPPEN", logPath()));
    }
}

void switchOff()
{
    const std::lock_guard lock(process().switching);
    process().cell.store(nullptr);
}

void writeLine(std::string_view text)
{
    if (const auto logger = currentLogger()) {
        logger->WriteLine(text);
    }
}

FunctionTrace::FunctionTrace(std::string_view name) : name_(name)
{
    if (const auto logger = currentLogger()) {
        logger_ = logger;
        logger->EnteringFunction(name_);
    }
}

FunctionTrace::~FunctionTrace()
{
    if (const auto logger = logger_.lock()) {
        logger->ExitingFunction(name_);
    }
}

} // namespace logging
