// Sends the plug-in file the messages that FileMaker sends, odd ones included.

#include "frame/registry.h"
#include "host/base/system.h"

#include <FMWrapper.h>
#include <fmxkit/failure.h>
#include <fmxkit/registry.h>
#include <gtest/gtest.h>

#include <dlfcn.h>

#include <algorithm>
#include <memory>
#include <new>
#include <set>
#include <string>
#include <vector>

namespace {

constexpr std::uint32_t korb = 0x4B4F5242;

class EntryPoint : public testing::Test {
protected:
    void SetUp() override
    {
        m_library.reset(dlopen(m_file.library().c_str(), RTLD_NOW | RTLD_LOCAL));
        ASSERT_NE(m_library, nullptr) << dlerror();
        m_entryPoint = reinterpret_cast<void (*)(FMX_ExternCallPtr)>(dlsym(m_library.get(), "FMExternCallProc"));
        ASSERT_NE(m_entryPoint, nullptr);
    }

    void TearDown() override { fmxkit::purge(korb); }

    void send(FMX_ExternCallStruct& record)
    {
        record.instanceID = m_file.instance();
        m_entryPoint(&record);
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
    const fmxhost::PluginFile m_file{FOLIDEX_PLUGIN_FILE};
    std::unique_ptr<void, Close> m_library;
    void (*m_entryPoint)(FMX_ExternCallPtr) = nullptr;
};

TEST_F(EntryPoint, StartsOnHostsFrom50To255)
{
    for (const short refused : {short{49}, short{256}, short{0}, short{-1}, short{32767}}) {
        EXPECT_EQ(startUp(refused), -1) << refused;
        EXPECT_TRUE(fmxkit::externalFunctions().empty());
        EXPECT_TRUE(fmxkit::scriptSteps().empty());
    }
    struct Accepted {
        short apiVersion;
        bool descriptions;
        std::size_t steps;
    };
    const std::size_t all = frame::functionTable().size();
    for (const Accepted& host :
         {Accepted{50, false, 0}, {55, false, 0}, {56, true, 0}, {57, true, all}, {255, true, all}}) {
        EXPECT_EQ(startUp(host.apiVersion), 65);
        const auto functions = fmxkit::externalFunctions();
        ASSERT_EQ(functions.size(), all);
        EXPECT_TRUE(std::all_of(functions.begin(), functions.end(), [&](const fmxkit::ExternalFunction& function) {
            return function.description.empty() != host.descriptions && function.flags == 0xFF01 &&
                   function.prototype.starts_with(function.name) && function.name.starts_with(u"KORB_");
        })) << host.apiVersion;
        EXPECT_EQ(fmxkit::scriptSteps().size(), host.steps);
        fmxkit::purge(korb);
    }
}

// Solutions have saved these IDs and counts. New functions may stand anywhere between them.
TEST_F(EntryPoint, RegistersWhatSolutionsKnow)
{
    startUp(62);
    std::vector<std::u16string> rows;
    for (const auto& function : fmxkit::externalFunctions()) {
        std::string counts = " " + std::to_string(function.id) + " " + std::to_string(function.minimumArguments) + " " +
                             std::to_string(function.maximumArguments);
        rows.push_back(function.name + std::u16string(counts.begin(), counts.end()));
    }
    const std::vector<std::u16string> known{
        u"KORB_Version 1 0 1",
        u"KORB_FileCopy 2 2 4",
        u"KORB_FileMove 3 2 4",
        u"KORB_FileRename 4 2 2",
        u"KORB_FileDelete 5 1 1",
        u"KORB_GetFileSize 6 1 1",
        u"KORB_GetFileCreationDate 7 1 1",
        u"KORB_GetFileModificationDate 8 1 1",
        u"KORB_GetFileAccessDate 9 1 1",
        u"KORB_GetFileExists 10 1 1",
        u"KORB_GetFileMakerPath 11 0 0",
        u"KORB_FolderCreate 12 1 1",
        u"KORB_FolderCopy 13 2 2",
        u"KORB_FolderMove 14 2 2",
        u"KORB_FolderRename 15 2 2",
        u"KORB_FolderDelete 16 1 1",
        u"KORB_GetFolderSize 17 1 1",
        u"KORB_GetFolderCreationDate 18 1 1",
        u"KORB_GetFolderModificationDate 19 1 1",
        u"KORB_GetFolderAccessDate 20 1 1",
        u"KORB_GetFolderExists 21 1 1",
        u"KORB_GetDrives 22 0 0",
        u"KORB_GetFolders 23 1 1",
        u"KORB_GetFiles 24 1 1",
        u"KORB_GetNumSubfolders 25 1 1",
        u"KORB_GetNumFiles 26 1 1",
        u"KORB_GetDriveSize 27 1 1",
        u"KORB_GetFilePath 28 1 1",
        u"KORB_GetFolderPath 29 1 1",
        u"KORB_EncryptFile 32 3 3",
        u"KORB_DecryptFile 33 3 3",
        u"KORB_CompressFile 34 2 2",
        u"KORB_ExpandFile 35 2 2",
        u"KORB_CompressAndEncrypt 36 3 3",
        u"KORB_DecryptAndExpand 37 3 3",
        u"KORB_GetLastError 189 0 1",
        u"KORB_GetDriveSizeFree 190 1 1",
        u"KORB_GetDriveSizeUsed 191 1 1",
        u"KORB_OpenFile 194 1 1",
        u"KORB_LogSet 200 1 2",
        u"KORB_LogClear 201 0 0",
    };
    std::erase_if(rows, [&](const auto& row) { return std::find(known.begin(), known.end(), row) == known.end(); });
    EXPECT_EQ(rows, known);
}

TEST_F(EntryPoint, ShutDownLeaves201AndOldHostsKeepTheirSteps)
{
    shutDown(62); // before any start-up: nothing
    startUp(62);
    shutDown(56);
    ASSERT_EQ(fmxkit::externalFunctions().size(), 1u);
    EXPECT_EQ(fmxkit::externalFunctions().front().id, 201);
    EXPECT_EQ(fmxkit::scriptSteps().size(), frame::functionTable().size());
    shutDown(57);
    ASSERT_EQ(fmxkit::scriptSteps().size(), 1u);
    EXPECT_EQ(fmxkit::scriptSteps().front().id, 201);
}

TEST_F(EntryPoint, StringsAreWholeOrAbsent)
{
    const std::u16string name = string(128, 256);
    EXPECT_EQ(name, u"Folidex");
    const auto length = static_cast<std::uint32_t>(name.size());
    EXPECT_EQ(string(128, length + 2), name);
    EXPECT_EQ(string(128, length + 1), u"");
    EXPECT_EQ(string(128, 2), u"");
    EXPECT_EQ(string(128, 1), u"");

    const std::u16string options = string(131, 256);
    EXPECT_EQ(options.size(), 11u);
    EXPECT_EQ(options.substr(0, 5), u"KORB1");
    EXPECT_EQ(string(1, 256), options);
    EXPECT_NE(string(129, 1024), u"");
    EXPECT_EQ(string(130, 256), u"");
    EXPECT_EQ(string(kFMXT_HelpURLStr, 256), u""); // outside of a bundle
    EXPECT_EQ(string(149, 256), u"");              // no function's number
}

TEST_F(EntryPoint, OtherMessagesLeaveTheRecordAlone)
{
    for (int message = 0; message < 256; ++message) {
        if (message == kFMXT_Init || message == kFMXT_Shutdown || message == kFMXT_GetString) {
            continue;
        }
        FMX_ExternCallStruct record{};
        record.extnVersion = 62;
        record.whichCall = static_cast<unsigned char>(message);
        record.result = 0x1234;
        send(record);
        const fmx::ptrtype result = record.result; // a field of a packed record can't be bound to a reference
        EXPECT_EQ(result, 0x1234u) << message;
    }
    EXPECT_TRUE(fmxkit::externalFunctions().empty());
}

// Each allocation that the SDK can report as failed during start-up leaves through the entry point.
TEST_F(EntryPoint, FailedAllocationsLeaveAsBadAlloc)
{
    fmxkit::failNthCall(0);
    startUp(62);
    const std::uint32_t calls = fmxkit::callsSinceArmed();
    ASSERT_GT(calls, 41u);
    for (std::uint32_t n = 1; n <= calls; n += 7) {
        fmxkit::purge(korb);
        fmxkit::failNthCall(n);
        EXPECT_THROW(startUp(62), std::bad_alloc) << n;
    }
    fmxkit::failNthCall(3, fmxkit::Failure::other);
    EXPECT_THROW(startUp(62), std::exception);
    fmxkit::failNthCall(0);
}

} // namespace
