// The plug-in's one exported symbol and the messages that it handles.

#include "frame/call_record.h"
#include "frame/error_model.h"
#include "frame/registry.h"
#include "frame/strings.h"

#include <atomic>
#include <cstdint>

namespace {

constexpr int oldestApiVersion = 50;
constexpr int newestApiVersion = 255;

// The SDK version that the plug-in was built for: the result of a start-up that succeeds.
constexpr int sdkVersion = 65;
constexpr int refused = -1;

// Set once start-up has registered everything; shut-down does nothing before that.
std::atomic<bool> initialised{false};

void setResult(FMX_ExternCallPtr record, int value)
{
    record->result = static_cast<fmx::ptrtype>(value);
}

void startUp(FMX_ExternCallPtr record)
{
    if (frame::hostApiVersion() < oldestApiVersion || frame::hostApiVersion() > newestApiVersion) {
        setResult(record, refused);
        return;
    }
    frame::registerAll();
    frame::lastErrors().clearError();
    initialised = true;
    setResult(record, sdkVersion);
}

void shutDown()
{
    if (initialised) {
        frame::unregisterAll();
    }
}

void writeString(FMX_ExternCallPtr record)
{
    // The result field holds the buffer's address; of the capacity, in UTF-16 units, the low 32 bits count.
    auto* buffer = reinterpret_cast<fmx::unichar16*>(record->result); // NOLINT(performance-no-int-to-ptr)
    const auto capacity = static_cast<std::uint32_t>(record->parm3);
    if (buffer == nullptr || capacity == 0) {
        return;
    }
    buffer[0] = 0;
    constexpr short optionsString = 1;
    const short number = record->parm1 == kFMXT_OptionsStr ? optionsString : short{record->parm1};
    frame::loadString(number, buffer, capacity);
}

} // namespace

extern "C" __attribute__((visibility("default"))) void FMExternCallProc(FMX_ExternCallPtr record)
{
    frame::noteCallRecord(record);
    switch (record->whichCall) {
    case kFMXT_Init:
        startUp(record);
        break;
    case kFMXT_Shutdown:
        shutDown();
        break;
    case kFMXT_GetString:
        writeString(record);
        break;
    default:
        break;
    }
}
