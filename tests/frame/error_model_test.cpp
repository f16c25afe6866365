#include "frame/error_model.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

namespace {

using frame::korb_Errors;

TEST(ErrorModel, EveryCodeHasItsMessage)
{
    struct Case {
        int code;
        const char* message;
    };
    const Case cases[] = {
        {0, "SUCCESS"},
        {-3, "Invalid Number of Parameters"},
        {-4, "Invalid Parameter value(s)"},
        {-5, "Undefined Error."},
        {-9, "Undefined Error."},
        {-200, "Library failed to load"},
        {-300, "The specified file cannot be found"},
        {-301, "The specified file cannot be found"},
        {-302, "The specified folder cannot be accessed"},
        {-400, "System Error"},
        {-998, "Unknown Exception"},
        {-999, "COM Exception"},
        {-8000, "Missing source parameter"},
        {-8001, "Missing destination parameter"},
        {-8002, "Source path not found"},
        {-8003, "Destination path not found"},
        {-8004, "Source path is not a file"},
        {-8005, "Source path is not a folder"},
        {-8006, "Destination path is not a file"},
        {-8007, "Destination path is not a folder"},
        {-8008, "File already exists"},
        {-8009, "Folder already exists"},
        {-8010, "Unable to copy"},
        {-8011, "Unable to move"},
        {-8012, "Unable to rename"},
        {-8013, "Unable to delete"},
        {-8014, "Unable to complete operation - "},
        {-8015, "Drive name is not a drive"},
        {-8016, "Drive does not exist"},
        {-8017, "Missing Drive Name parameter"},
        {-8018, "Password parameter not found"},
        {-8019, "Unable to get FileMaker path"},
        {-8020, "Decryption failed"},
        {-8021, "Encryption failed"},
        {-8022, "Compression failed"},
        {-8023, "Expansion failed"},
        {-8024, "Compression and Encryption failed"},
        {-8025, "Expansion and Decryption failed"},
        {-8026, "Source Path is the same as the Destination Path."},
        {-8027, "Missing destination name parameter."},
        {-8028, "Undefined Error."},
        {1, "Undefined Error."},
    };
    korb_Errors errors;
    for (const Case& expected : cases) {
        errors.setError(expected.code, 0, std::nullopt);
        EXPECT_EQ(errors.getError(), expected.message) << expected.code;
        EXPECT_EQ(errors.getErrorNumber(), std::to_string(expected.code));
    }
}

TEST(ErrorModel, AnEmptyExtendedTextStillAddsItsBlank)
{
    korb_Errors errors;
    EXPECT_EQ(errors.getError(), "Success");
    errors.setError(-8014, 0, "Unable to determine drives");
    EXPECT_EQ(errors.getError(), "Unable to complete operation -  Unable to determine drives");
    errors.setError(-8000, 0, "");
    EXPECT_EQ(errors.getError(), "Missing source parameter ");
    errors.clearError();
    EXPECT_EQ(errors.getError(), "Success");
    EXPECT_EQ(errors.getErrorNumber(), "0");
}

// A reader never sees one writer's code with another's text.
TEST(ErrorModel, ConcurrentWritersLeaveWholeRecords)
{
    korb_Errors errors;
    std::atomic<bool> done{false};
    const auto writer = [&errors, &done](int code) {
        const std::string extended(64, static_cast<char>('0' - code));
        while (!done) {
            errors.setError(code, 0, extended);
            errors.clearError();
        }
    };
    std::thread first(writer, -3);
    std::thread second(writer, -4);
    int torn = 0;
    for (int i = 0; i < 20000; ++i) {
        const korb_Errors::Fields fields = errors.fields();
        const char expected = static_cast<char>('0' - fields.errorID);
        if (fields.errorID == 0 ? fields.extendedError.has_value()
                                : fields.extendedError.value_or("") != std::string(64, expected)) {
            ++torn;
        }
    }
    done = true;
    first.join();
    second.join();
    EXPECT_EQ(torn, 0);
}

} // namespace
