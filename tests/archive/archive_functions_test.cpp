#include "archive/log_text.h"
#include "support/plugin_under_test.h"
#include "support/scratch_folder.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>

namespace {

namespace fs = std::filesystem;
using folidex::test::failedWith;
using folidex::test::PluginUnderTest;
using folidex::test::ScratchFolder;
using folidex::test::succeeded;
using Arguments = std::vector<fmxhost::Value>;
using Lines = std::vector<std::string>;

class ArchiveFunctions : public testing::Test {
protected:
    // Two paths in the scratch folder and, for three arguments, a password.
    Arguments arguments(std::size_t count, const char* source, const char* destination) const
    {
        Arguments all{scratch.text(source), scratch.text(destination), "p w"};
        all.resize(count);
        return all;
    }

    void expectFailure(const char* function, const Arguments& given, int code, const std::string& text) const
    {
        EXPECT_TRUE(failedWith(code, plugin, plugin.call(function, given)));
        EXPECT_EQ(plugin.lastErrorText(), text);
    }

    void expectSuccess(const char* function, const Arguments& given) const
    {
        const auto result = plugin.call(function, given);
        EXPECT_TRUE(succeeded(plugin, result));
        EXPECT_EQ(result.type(), fmxhost::ValueType::number);
        EXPECT_EQ(result.number(), 0);
    }

    ScratchFolder scratch;
    PluginUnderTest plugin;
};

TEST_F(ArchiveFunctions, CheckTheirArgumentsInOrder)
{
    struct Case {
        const char* function;
        std::size_t count;
        bool destinationMayBeEmpty;
        bool checksExistence;
    };
    const Case cases[] = {
        {"KORB_CompressFile", 2, false, true},       {"KORB_ExpandFile", 2, true, true},
        {"KORB_EncryptFile", 3, false, false},       {"KORB_DecryptFile", 3, false, false},
        {"KORB_CompressAndEncrypt", 3, false, true}, {"KORB_DecryptAndExpand", 3, true, false},
    };
    const std::u16string longest(4096, u'x');
    const std::u16string tooLong(4097, u'x');
    for (const auto& [function, count, destinationMayBeEmpty, checksExistence] : cases) {
        SCOPED_TRACE(function);
        expectFailure(function, Arguments(count + 1, "x"), -3, "Invalid Number of Parameters");
        Arguments given(count, "");
        expectFailure(function, given, -8000, "Missing source parameter ");
        given[0] = tooLong;
        if (!destinationMayBeEmpty) {
            expectFailure(function, given, -8001, "Missing destination parameter ");
            given[1] = longest;
        }
        if (count == 3) {
            expectFailure(function, given, -8018, "Password parameter not found ");
            given[2] = longest;
        }
        expectFailure(function, given, -4, "Invalid Parameter values ");
        given[0] = longest;
        given.back() = tooLong;
        expectFailure(function, given, -4, "Invalid Parameter values ");
        if (checksExistence) {
            expectFailure(function, arguments(count, "missing.txt", "new.zip"), -8002, "Source path not found ");
            expectFailure(function, Arguments(count, std::u16string(u"/tmp\0.x", 7)), -8002, "Source path not found ");
        }
    }
    scratch.write("there.txt");
    expectFailure("KORB_CompressAndEncrypt", arguments(3, "there.txt", "there.txt"), -8008, "File already exists ");
}

struct Outcome {
    const char* function;
    std::size_t count;
    const char* source;
    const char* destination;
    int code;
    const char* text; // as KORB_GetLastError shows it, without line ends
};

std::string nameOf(const testing::TestParamInfo<Outcome>& info)
{
    return info.param.function;
}

void PrintTo(const Outcome& outcome, std::ostream* stream)
{
    *stream << outcome.function;
}

class ArchiveOutcome : public ArchiveFunctions, public testing::WithParamInterface<Outcome> {};

TEST_P(ArchiveOutcome, HasItsCodeAndText)
{
    scratch.write("plain.txt", "no archive");
    scratch.write("README", "no dot");
    const Outcome& expected = GetParam();
    expectFailure(expected.function, arguments(expected.count, expected.source, expected.destination), expected.code,
                  expected.text);
}

constexpr const char* unableToExpand = "Expansion failed  - Unable to expand file.An unknown error occurred.";

INSTANTIATE_TEST_SUITE_P(
    BadPath, ArchiveOutcome,
    testing::Values(
        Outcome{"KORB_CompressFile", 2, "README", "new.zip", -8022,
                "Compression failed  - Unable to compress file.An unknown error occurred."},
        Outcome{"KORB_ExpandFile", 2, "README", "out/", -8023, unableToExpand},
        Outcome{"KORB_EncryptFile", 3, "README", "new.enc", -8021,
                "Encryption failed  - Failed to encrypt file.Source path must be a valid file."},
        Outcome{"KORB_DecryptFile", 3, "README", "new.txt", -8020,
                "Decryption failed  - Failed to decrypt file.Source path must be a valid file."},
        Outcome{"KORB_CompressAndEncrypt", 3, "README", "new.zip", -8024,
                "Compression and Encryption failed Failed to compress and encrypt file.Source path must be a valid "
                "file."},
        Outcome{"KORB_DecryptAndExpand", 3, "README", "out/", -8025,
                "Expansion and Decryption failed  - Failed to decrypt and expand file.Source path must be a valid "
                "file."}),
    nameOf);

INSTANTIATE_TEST_SUITE_P(
    ScriptFailure, ArchiveOutcome,
    testing::Values(Outcome{"KORB_CompressFile", 2, "plain.txt", "missing/new.zip", -8022,
                            "Compression failed  - Unable to compress file.An unknown error occurred."},
                    Outcome{"KORB_ExpandFile", 2, "plain.txt", "out/", -8023, unableToExpand},
                    Outcome{"KORB_EncryptFile", 3, "missing.txt", "new.enc", -8023, unableToExpand},
                    Outcome{"KORB_DecryptFile", 3, "plain.txt", "new.txt", -8023, unableToExpand},
                    Outcome{"KORB_CompressAndEncrypt", 3, "plain.txt", "missing/new.zip", -8023,
                            "Expansion failed Unable to expand file.An unknown error occurred."},
                    Outcome{"KORB_DecryptAndExpand", 3, "missing.zip", "out/", -8023, unableToExpand}),
    nameOf);

// With the script at work.
class ArchiveScript : public ArchiveFunctions {
protected:
    void SetUp() override
    {
        if (std::system("command -v bsdtar && command -v openssl") != 0) {
            GTEST_SKIP() << "bsdtar and openssl aren't both installed";
        }
        scratch.write("folder/a.txt", "content");
    }
};

TEST_F(ArchiveScript, CompressesAndExpands)
{
    const auto began = std::chrono::steady_clock::now();
    expectSuccess("KORB_CompressFile", arguments(2, "folder//", "x.zip"));
    EXPECT_GE(std::chrono::steady_clock::now() - began, std::chrono::seconds(1));

    expectSuccess("KORB_ExpandFile", arguments(2, "x.zip", "new/out/"));
    EXPECT_EQ(scratch.read("new/out/folder/a.txt"), "content");
    fs::remove_all(scratch / "folder");
    expectSuccess("KORB_ExpandFile", {scratch.text("x.zip"), ""});
    EXPECT_EQ(scratch.read("folder/a.txt"), "content");
}

TEST_F(ArchiveScript, KeepsPasswords)
{
    struct Case {
        const char* seal;
        const char* open;
        const char* result;
        int code;
        const char* text;
    };
    const Case cases[] = {
        {"KORB_EncryptFile", "KORB_DecryptFile", "out/a.txt", -8020, "Decryption failed  - Invalid password provided"},
        {"KORB_CompressAndEncrypt", "KORB_DecryptAndExpand", "out/a.txt", -8025,
         "Expansion and Decryption failed  - Invalid password provided"},
    };
    scratch.makeFolder("out");
    for (const auto& [seal, open, result, code, text] : cases) {
        expectSuccess(seal, arguments(3, "folder/a.txt", seal == cases[0].seal ? "sealed.enc" : "sealed.zip"));
        Arguments given = arguments(3, seal == cases[0].seal ? "sealed.enc" : "sealed.zip", result);
        given[2] = "P W";
        expectFailure(open, given, code, text);
        EXPECT_FALSE(scratch.exists(result));
        given[2] = "p w";
        expectSuccess(open, given);
        EXPECT_EQ(scratch.read(result), "content");
        fs::remove(scratch / result);
    }
}

// KORB_CompressFile is the one function that writes to the log.
class ArchiveTrace : public ArchiveFunctions {
public:
    ArchiveTrace()
    {
        ::setenv("HOME", scratch.text().c_str(), 1);
        plugin.call("KORB_LogSet", {"1"});
    }
    ~ArchiveTrace() override
    {
        plugin.call("KORB_LogSet", {"0"});
        fs::current_path(before_);
    }

protected:
    // The lines of a call, without those that frame it.
    Lines linesOf(const Arguments& given) const
    {
        plugin.call("KORB_LogClear");
        plugin.call("KORB_CompressFile", given);
        Lines lines = logLines(scratch, "Desktop/HALVIK/FOLIDEX/LogFile.txt");
        EXPECT_EQ(lines.at(0), contentCleared);
        EXPECT_EQ(lines.at(1), "T\tFUNCTION ENTER: KORB_CompressFile");
        EXPECT_EQ(lines.back(), "T\tFUNCTION EXIT: KORB_CompressFile");
        return {lines.begin() + 2, lines.end() - 1};
    }

private:
    fs::path before_ = fs::current_path();
};

TEST_F(ArchiveTrace, TellsEachStepOfKORB_CompressFile)
{
    scratch.write("README");
    scratch.makeFolder("folder");
    const std::string source = "T\t\tChecking source path";
    const std::string destination = "T\t\tChecking destination path";
    const std::string kind = "T\t\tDetermining if Source Path is a file or folder";
    const std::string done = "T\t\tDone calling zip function!";
    const std::string failed = "T\t\tReturning Error: Failed to compress file, unknown error";

    EXPECT_EQ(linesOf({}), Lines{"T\t\tReturning Error: Invalid number of parameters"});
    EXPECT_EQ(linesOf({"", "x"}), (Lines{source, "T\t\tReturning Error: No source path defined."}));
    EXPECT_EQ(linesOf({"x", ""}), (Lines{source, destination, "T\t\tReturning Error: No destination path defined."}));
    EXPECT_EQ(linesOf(arguments(2, "missing", "x.zip")),
              (Lines{source, destination, kind, "T\t\tReturning Error: Souce path does not exist."}));
    EXPECT_EQ(
        linesOf(arguments(2, "README", "x.zip")),
        (Lines{source, destination, kind, "T\t\tSource is a file. Calling ZipAFile...", "T\t\tFUNCTION ENTER: ZipAFile",
               "T\t\t\tGetting path of the source", "T\t\t\tGot an error when trying to get source file path!",
               "T\t\t\tCleaning up all the variables", "T\t\tFUNCTION EXIT: ZipAFile", done, failed}));
    EXPECT_EQ(linesOf(arguments(2, "folder", "missing/x.zip")),
              (Lines{source, destination, kind, "T\t\tSource is a folder. Calling ZipAFolder...",
                     "T\t\tZipFuncs.sh: 73 zip: the destination is no folder that can be written to", done, failed}));
    if (plugin.call("KORB_CompressFile", arguments(2, "folder", "x.zip")).isError()) {
        GTEST_SKIP() << "the script's tools aren't installed";
    }
    EXPECT_EQ(linesOf(arguments(2, "folder", "x.zip")),
              (Lines{source, destination, kind, "T\t\tSource is a folder. Calling ZipAFolder...", done,
                     "T\t\tZip successful!", "T\t\tReturning Done with KORB_CompressFile"}));
}

} // namespace
