#include "frame/error_model.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

namespace {

using frame::korb_Errors;

// What functions report is shown in tests/functions; these are the codes that none of them reports.
TEST(ErrorModel, HasMessagesForCodesThatNoFunctionReports)
{
    korb_Errors errors;
    EXPECT_EQ(errors.getError(), "Success");
    for (const auto& [code, message] : {
             std::pair(0, "SUCCESS"),
             {-4, "Invalid Parameter value(s)"},
             {-5, "Undefined Error."},
             {-200, "Library failed to load"},
             {-300, "The specified file cannot be found"},
             {-301, "The specified file cannot be found"},
             {-302, "The specified folder cannot be accessed"},
             {-400, "System Error"},
             {-998, "Unknown Exception"},
             {-999, "COM Exception"},
             {-8006, "Destination path is not a file"},
             {-8015, "Drive name is not a drive"},
             {-8019, "Unable to get FileMaker path"},
             {-8028, "Undefined Error."},
         }) {
        errors.setError(code, 0, std::nullopt);
        EXPECT_EQ(errors.getError(), message) << code;
        EXPECT_EQ(errors.getErrorNumber(), std::to_string(code));
    }
}

// A reader never sees one writer's code with another's text, however long it looks.
TEST(ErrorModel, ConcurrentWritersLeaveWholeRecords)
{
    korb_Errors errors;
    std::atomic<int> writing{2};
    const auto writer = [&errors, &writing](int code) {
        for (int record = 0; record < 100'000; ++record) {
            errors.setError(code, 0, std::string(64, static_cast<char>('0' - code)));
        }
        --writing;
    };
    errors.setError(-3, 0, std::string(64, '3'));
    const std::jthread first(writer, -3);
    const std::jthread second(writer, -4);
    int torn = 0;
    while (writing > 0) {
        const korb_Errors::Fields fields = errors.fields();
        torn += fields.extendedError == std::string(64, static_cast<char>('0' - fields.errorID)) ? 0 : 1;
    }
    EXPECT_EQ(torn, 0);
}

} // namespace
