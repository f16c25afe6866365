#include "platform/path_text.h"
#include "platform/unicode.h"
#ifdef __linux__
#include "platform/linux/desktop/uri.h"
#endif

#include <gtest/gtest.h>

#include <cstdlib>
#include <optional>
#include <utility>

namespace {

TEST(Unicode, MalformedTextIsRefusedOrReplaced)
{
    EXPECT_EQ(platform::utf8FromUtf16(u"a\u00E9\u20AC\U0001F600"), "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80");
    EXPECT_EQ(platform::utf8FromUtf16(std::u16string{u'a', 0xD800}), std::nullopt);
    EXPECT_EQ(platform::utf8FromUtf16(std::u16string{0xDC00, u'a'}), std::nullopt);
    EXPECT_EQ(platform::utf8FromUtf16(std::u16string{0xD800, 0xD800, 0xDC00}), std::nullopt);
    EXPECT_EQ(platform::fileSystemRepresentation(std::u16string(u"/a\0b", 4)), std::nullopt);

    for (const auto& [bytes, text] : {
             std::pair<std::string, std::u16string>("\xF0\x9F\x98\x80", u"\U0001F600"),
             {"a\xFF\x62", u"a\uFFFDb"},
             {"\xC0\xAF", u"\uFFFD\uFFFD"},           // overlong
             {"\xED\xA0\x80", u"\uFFFD\uFFFD\uFFFD"}, // a surrogate
             {"\xE2\x82z", u"\uFFFDz"},
             {"\xF4\x90\x80\x80", u"\uFFFD\uFFFD\uFFFD\uFFFD"}, // above U+10FFFF
             {"\xF0\x9F\x98", u"\uFFFD"},
             {std::string(1, 0), std::u16string(1, 0)},
         }) {
        EXPECT_EQ(platform::utf16FromUtf8(bytes), text) << testing::PrintToString(bytes);
    }
}

TEST(PathText, ComponentsAsCocoaSplitsAndJoinsThem)
{
    struct Case {
        std::u16string path;
        std::u16string last;
        std::u16string parent;
        std::u16string withX; // with the component "/x//y/" appended
    };
    const Case cases[] = {
        {u"/a/b", u"b", u"/a", u"/a/b/x/y"}, {u"/a//b//", u"b", u"/a", u"/a/b/x/y"},
        {u"/a", u"a", u"/", u"/a/x/y"},      {u"//", u"/", u"/", u"/x/y"},
        {u"a/", u"a", u"", u"a/x/y"},        {u"", u"", u"", u"/x/y"},
        {u"/a/.", u".", u"/a", u"/a/./x/y"}, {u"/a/ b ", u" b ", u"/a", u"/a/ b /x/y"},
    };
    for (const Case& expected : cases) {
        const auto shown = testing::PrintToString(expected.path);
        EXPECT_EQ(platform::lastComponent(expected.path), expected.last) << shown;
        EXPECT_EQ(platform::deletingLastComponent(expected.path), expected.parent) << shown;
        EXPECT_EQ(platform::appendingComponent(expected.path, u"/x//y/"), expected.withX) << shown;
    }
    EXPECT_EQ(platform::appendingComponent(u"/a", u""), u"/a");
    EXPECT_EQ(platform::appendingComponent(u"", u"a"), u"a");
}

TEST(PathText, StandardizingFindsTheHomeFolder)
{
    const char* home = std::getenv("HOME");
    const std::string saved = home == nullptr ? "" : home;
    setenv("HOME", "/home/somebody/", 1);
    EXPECT_EQ(platform::standardized("~/Desktop/x.txt"), "/home/somebody/Desktop/x.txt");
    setenv("HOME", "/home/M\xfcller", 1); // ISO 8859-1
    EXPECT_EQ(platform::standardized("~/x"), "/home/M\xfcller/x");
    setenv("HOME", "relative", 1);
    const std::string fromDatabase = platform::standardized("~/x");
    EXPECT_TRUE(fromDatabase.starts_with("/") && fromDatabase.ends_with("/x"));
    setenv("HOME", saved.c_str(), 1);
}

#if defined(__linux__) && !defined(FOLIDEX_COCOA)
TEST(FileUri, OnlyAFileOfThisMachineHasAPath)
{
    const auto none = std::nullopt;
    for (const auto& [uri, path] : {
             std::pair<std::string, std::optional<std::string>>("file:///tmp/a%20b%25%c3%A9;$(x)'q'\"",
                                                                "/tmp/a b%\xC3\xA9;$(x)'q'\""),
             {"FILE://LocalHost/tmp/a", "/tmp/a"},
             {"file:/tmp/a//", "/tmp/a"},
             {"file:///", "/"},
             {"file:///tmp/%23%3F", "/tmp/#?"},
             {"file://server/tmp/a", none},
             {"sftp:///tmp/a", none},
             {"/tmp/a", none},
             {"file:tmp", none},
             {"file://", none},
             {"file:///a?b", none},
             {"file:///a#b", none},
             {"file:///a%4", none},
             {"file:///a%G0", none},
             {"file:///a%00b", none},
             {"file:///a%FF", none},
         }) {
        EXPECT_EQ(platform::linux_os::pathFromFileUri(uri), path) << uri;
        if (path) {
            const std::string encoded = "file://" + platform::linux_os::percentEncoded(*path);
            EXPECT_EQ(platform::linux_os::pathFromFileUri(encoded), path) << encoded;
        }
    }
}
#endif

} // namespace
