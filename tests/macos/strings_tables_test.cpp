#include "platform/strings_table.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace {

TEST(StringsTables, ParseInEveryLanguage)
{
    int tables = 0;
    for (const auto& folder : std::filesystem::directory_iterator(RESOURCES_FOLDER)) {
        if (folder.path().extension() != ".lproj") {
            continue;
        }
        std::ifstream stream(folder.path() / "KORBFolidex.strings");
        const std::string text{std::istreambuf_iterator<char>(stream), {}};
        const auto table = platform::parseStringsTable(text);
        ASSERT_TRUE(table) << folder.path();
        EXPECT_EQ(table->count("KORB 1"), 1U) << folder.path();
        EXPECT_EQ(table->count("KORB 201"), 1U) << folder.path();
        ++tables;
    }
    EXPECT_GE(tables, 2);
}

} // namespace
