// Sends the plug-in file the messages that FileMaker sends. What every plug-in must do with them is fmxhost check's.

#include "host/base/system.h"

#include <FMWrapper.h>
#include <fmxkit/failure.h>
#include <fmxkit/registry.h>
#include <gtest/gtest.h>

#include <dlfcn.h>

#include <memory>
#include <new>
#include <string>

namespace {

class EntryPoint : public testing::Test {
protected:
    void SetUp() override
    {
        library_.reset(dlopen(file_.library.c_str(), RTLD_NOW | RTLD_LOCAL));
        ASSERT_NE(library_, nullptr) << dlerror();
        entryPoint_ = reinterpret_cast<void (*)(FMX_ExternCallPtr)>(dlsym(library_.get(), "FMExternCallProc"));
        ASSERT_NE(entryPoint_, nullptr);
    }

    void TearDown() override { fmxkit::purge(); }

    void send(FMX_ExternCallStruct& record)
    {
        record.instanceID = file_.instance.get();
        entryPoint_(&record);
    }

    long startUp(short apiVersion)
    {
        FMX_ExternCallStruct record{};
        record.extnVersion = apiVersion;
        record.whichCall = kFMXT_Init;
        send(record);
        return static_cast<long>(record.result);
    }

    void shutDown(short apiVersion)
    {
        FMX_ExternCallStruct record{};
        record.extnVersion = apiVersion;
        record.whichCall = kFMXT_Shutdown;
        send(record);
    }

    // The text, and that nothing behind the capacity was written.
    std::u16string string(int number, std::uint32_t capacity)
    {
        constexpr char16_t untouched = 0xABCD;
        std::u16string buffer(capacity + 4, untouched);
        FMX_ExternCallStruct record{};
        record.extnVersion = 62;
        record.whichCall = kFMXT_GetString;
        record.parm1 = static_cast<unsigned char>(number);
        record.parm2 = 0xFFFFFFFF00000007;
        record.parm3 = 0xDEAD000000000000 | capacity;
        record.result = reinterpret_cast<fmx::ptrtype>(buffer.data());
        send(record);
        EXPECT_EQ(buffer.substr(capacity), std::u16string(4, untouched));
        return buffer.c_str();
    }

private:
    struct Close {
        void operator()(void* library) const { dlclose(library); }
    };
    const fmxhost::PluginFile file_{FOLIDEX_PLUGIN_FILE};
    std::unique_ptr<void, Close> library_;
    void (*entryPoint_)(FMX_ExternCallPtr) = nullptr;
};

TEST_F(EntryPoint, ShutDownLeaves201AndOldHostsKeepTheirSteps)
{
    shutDown(62); // before any start-up: nothing
    EXPECT_EQ(startUp(50), 65);
    fmxkit::purge();
    EXPECT_EQ(startUp(62), 65);
    shutDown(56);
    ASSERT_EQ(fmxkit::externalFunctions().size(), 1u);
    EXPECT_EQ(fmxkit::externalFunctions().front().id, 201);
    EXPECT_EQ(fmxkit::scriptSteps().size(), 41u);
    shutDown(57);
    ASSERT_EQ(fmxkit::scriptSteps().size(), 1u);
    EXPECT_EQ(fmxkit::scriptSteps().front().id, 201);
}

TEST_F(EntryPoint, StringsAreWholeOrAbsent)
{
    const std::u16string name = u"Folidex";
    EXPECT_EQ(string(128, 256), name);
    const auto length = static_cast<std::uint32_t>(name.size());
    EXPECT_EQ(string(128, length + 2), name);
    EXPECT_EQ(string(128, length + 1), u"");
    EXPECT_EQ(string(128, 2), u"");
    EXPECT_EQ(string(128, 1), u"");

    EXPECT_EQ(string(131, 256), u"KORB1nnYnnn");
    EXPECT_EQ(string(1, 256), u"KORB1nnYnnn");
    EXPECT_NE(string(129, 1024), u"");
    EXPECT_EQ(string(130, 256), u"");
    EXPECT_EQ(string(kFMXT_HelpURLStr, 256), u""); // outside of a bundle
    EXPECT_EQ(string(149, 256), u"");              // no function's number
}

// Each allocation that the SDK can report as failed during start-up leaves through the entry point.
TEST_F(EntryPoint, FailedAllocationsLeaveAsBadAlloc)
{
    fmxkit::failNthCall(0);
    startUp(62);
    const std::uint32_t calls = fmxkit::callsSinceArmed();
    ASSERT_GT(calls, 41u);
    for (std::uint32_t n = 1; n <= calls; n += 7) {
        fmxkit::purge();
        fmxkit::failNthCall(n);
        EXPECT_THROW(startUp(62), std::bad_alloc) << n;
    }
    fmxkit::failNthCall(3, fmxkit::Failure::other);
    EXPECT_THROW(startUp(62), std::exception);
    fmxkit::failNthCall(0);
}

} // namespace
