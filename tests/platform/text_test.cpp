#include "platform/path_text.h"
#include "platform/strings_table.h"
#include "platform/unicode.h"
#include "tests/support/platform_expectations.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace {

TEST(Unicode, MalformedTextIsRefusedOrReplaced)
{
    EXPECT_EQ(platform::utf8FromUtf16(u"a\u00E9\u20AC\U0001F600"), "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80");
    EXPECT_EQ(platform::utf8FromUtf16(std::u16string{u'a', 0xD800}), std::nullopt);
    EXPECT_EQ(platform::utf8FromUtf16(std::u16string{0xDC00, u'a'}), std::nullopt);
    EXPECT_EQ(platform::utf8FromUtf16(std::u16string{0xD800, 0xD800, 0xDC00}), std::nullopt);
    EXPECT_EQ(platform::fileSystemRepresentation(std::u16string(u"/a\0b", 4)), std::nullopt);

    struct Case {
        std::string bytes;
        std::u16string text;
    };
    const Case cases[] = {
        {"\xF0\x9F\x98\x80", u"\U0001F600"},
        {"a\xFF\x62", u"a\uFFFDb"},
        {"\xC0\xAF", u"\uFFFD\uFFFD"},           // overlong
        {"\xED\xA0\x80", u"\uFFFD\uFFFD\uFFFD"}, // a surrogate
        {"\xE2\x82", u"\uFFFD"},                 // cut
        {"\xE2\x82z", u"\uFFFDz"},
        {"\xF4\x90\x80\x80", u"\uFFFD\uFFFD\uFFFD\uFFFD"}, // above U+10FFFF
        {"\xF0\x9F\x98", u"\uFFFD"},
        {std::string(1, 0), std::u16string(1, 0)},
    };
    for (const Case& expected : cases) {
        EXPECT_EQ(platform::utf16FromUtf8(expected.bytes), expected.text) << testing::PrintToString(expected.bytes);
    }
}

TEST(PathText, ComponentsAsCocoaSplitsThem)
{
    struct Case {
        std::u16string path;
        std::u16string last;
        std::u16string parent;
    };
    const Case cases[] = {
        {u"/a/b", u"b", u"/a"}, {u"/a/b/", u"b", u"/a"}, {u"/a//b//", u"b", u"/a"},  {u"/a", u"a", u"/"},
        {u"/", u"/", u"/"},     {u"//", u"/", u"/"},     {u"a", u"a", u""},          {u"a/", u"a", u""},
        {u"a/b", u"b", u"a"},   {u"", u"", u""},         {u"/a/ b ", u" b ", u"/a"}, {u"/a/.", u".", u"/a"},
    };
    for (const Case& expected : cases) {
        const auto shown = testing::PrintToString(expected.path);
        EXPECT_EQ(platform::lastComponent(expected.path), expected.last) << shown;
        EXPECT_EQ(platform::deletingLastComponent(expected.path), expected.parent) << shown;
    }
}

TEST(PathText, AppendingTidiesSlashes)
{
    struct Case {
        std::u16string path;
        std::u16string component;
        std::u16string joined;
    };
    const Case cases[] = {
        {u"/a", u"b", u"/a/b"},   {u"/a//", u"b", u"/a/b"}, {u"/", u"b", u"/b"},        {u"", u"b", u"b"},
        {u"/a", u"/b/", u"/a/b"}, {u"/a", u"", u"/a"},      {u"/a", u"b/c", u"/a/b/c"},
    };
    for (const Case& expected : cases) {
        EXPECT_EQ(platform::appendingComponent(expected.path, expected.component), expected.joined);
    }
}

TEST(PathText, StandardizingFindsTheHomeFolder)
{
    const char* home = std::getenv("HOME");
    const std::string saved = home == nullptr ? "" : home;
    setenv("HOME", "/home/somebody", 1);
    EXPECT_EQ(platform::standardized(u"~/Desktop/x.txt"), u"/home/somebody/Desktop/x.txt");
    EXPECT_EQ(platform::standardized(u"~"), u"/home/somebody");
    EXPECT_EQ(platform::standardized(u"/a/./~//b/"), u"/a/~/b");
    // Foundation keeps a "." at the start (seen over GNUstep).
    EXPECT_EQ(platform::standardized(u".//a"), folidex::test::onCocoa ? u"./a" : u"a");
    setenv("HOME", "relative", 1);
    const std::u16string fromDatabase = platform::standardized(u"~/x");
    EXPECT_TRUE(fromDatabase.starts_with(u"/") && fromDatabase.ends_with(u"/x"));
    setenv("HOME", saved.c_str(), 1);
}

TEST(StringsTable, ReadsWhatCocoaReads)
{
    const auto table =
        platform::parseStringsTable("\xEF\xBB\xBF/* a */ \"KORB 1\" = \"x \\\"y\\\" \\\\ \\n \\U00e9\";\n"
                                    "// b\n\"e\"=\"\";\"KORB 1\"  =  \"last\" ; \"\xC3\xA9\"=\"z\";// c");
    ASSERT_TRUE(table);
    EXPECT_EQ(table->size(), 3u);
    EXPECT_EQ(table->at("KORB 1"), u"last");
    EXPECT_EQ(table->at("e"), u"");
    const auto escapes = platform::parseStringsTable(R"("k" = "x \"y\" \\ \n \t \U00e9 \q";)");
    ASSERT_TRUE(escapes);
    EXPECT_EQ(escapes->at("k"), u"x \"y\" \\ \n \t \u00E9 q");

    for (const char* malformed : {"\"k\"", "\"k\" = ", "\"k\" = \"v\"", "\"k\" \"v\";", "k = v;", "\"k = \"v\";",
                                  "\"k\" = \"v\\", "\"k\" = \"\\U12\";", "\"k\" = \"\\U12xz\";", "/* x"}) {
        EXPECT_FALSE(platform::parseStringsTable(malformed)) << malformed;
    }
    EXPECT_TRUE(platform::parseStringsTable("")->empty());
}

} // namespace
