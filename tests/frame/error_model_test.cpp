#include "frame/error_model.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <utility>

namespace {

using frame::korb_Errors;

// What functions report is shown in tests/functions, the other messages in the reference. These are in neither.
TEST(ErrorModel, HasMessagesForAllCodes)
{
    korb_Errors errors;
    EXPECT_EQ(errors.getError(), "Success");
    for (const auto& [code, message] :
         {std::pair(0, "SUCCESS"), {-5, "Undefined Error."}, {-8028, "Undefined Error."}}) {
        errors.setError(code, 0, std::nullopt);
        EXPECT_EQ(errors.getError(), message);
        EXPECT_EQ(errors.getErrorNumber(), std::to_string(code));
    }
}

// A reader never sees one writer's code with another's text.
TEST(ErrorModel, ConcurrentWritersLeaveWholeRecords)
{
    korb_Errors errors;
    std::atomic<bool> done{false};
    const auto write = [&errors, &done](int code) {
        while (!done) {
            errors.setError(code, 0, std::string(64, static_cast<char>('0' - code)));
        }
    };
    errors.setError(-3, 0, std::string(64, '3'));
    std::thread first(write, -3);
    std::thread second(write, -4);
    int torn = 0;
    int before = 0;
    for (int changes = 0; changes < 200;) { // so often have both been writing meanwhile
        const korb_Errors::Fields fields = errors.fields();
        torn += fields.extendedError == std::string(64, static_cast<char>('0' - fields.errorID)) ? 0 : 1;
        changes += fields.errorID == std::exchange(before, fields.errorID) ? 0 : 1;
    }
    done = true;
    first.join();
    second.join();
    EXPECT_EQ(torn, 0);
}

} // namespace
