#include "frame/call_record.h"

#include <atomic>

// Declared by the SDK, defined by each plug-in.
FMX_ExternCallPtr gFMX_ExternCallPtr = nullptr;

namespace frame {

namespace {

std::atomic<int> apiVersion{0};
std::atomic<void*> bundleReference{nullptr};

} // namespace

void noteCallRecord(FMX_ExternCallPtr record)
{
    // The SDK's global is a plain pointer; messages may come on several threads. Apple's library has no atomic_ref.
    __atomic_store_n(&gFMX_ExternCallPtr, record, __ATOMIC_RELEASE);
    apiVersion.store(record->extnVersion, std::memory_order_relaxed);
#ifdef __APPLE__
    // Only there is the field defined.
    void* reference = const_cast<void*>(static_cast<const void*>(record->instanceID));
    bundleReference.store(reference, std::memory_order_relaxed);
#endif
}

int hostApiVersion()
{
    return apiVersion.load(std::memory_order_relaxed);
}

platform::Bundle pluginBundle()
{
    return {bundleReference.load(std::memory_order_relaxed)};
}

} // namespace frame
