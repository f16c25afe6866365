#include "host/calculation/diagnostic.h"

#include <gtest/gtest.h>

#include <string>

namespace fmxhost {
namespace {

TEST(PointAt, AlignsTheCaretsWithWhatATerminalShows)
{
    struct Case {
        const char16_t* source;
        Span span;
        const char* expected;
    };
    const Case cases[] = {
        {u"f(1)", {0, 1}, "f(1)\n^"},
        {u"a & foo(1)", {4, 3}, "a & foo(1)\n    ^~~"},
        {u"\"日本\" & x", {7, 1}, "\"日本\" & x\n         ^"}, // wide: two columns each
        {u"\"e\u0301\" x", {5, 1}, "\"e\u0301\" x\n    ^"},    // combining: none
        {u"\"😀\" x", {5, 1}, "\"😀\" x\n     ^"},               // a surrogate pair, wide
        {u"\t1 x", {3, 1}, " 1 x\n   ^"},                      // a tab would break the alignment
        {u"1 +", {3, 0}, "1 +\n   ^"},                         // the end
        {u"", {0, 0}, "\n^"},
        {u"1 +\n2 2\n3", {6, 1}, "2 2\n  ^"},
        {u"1 +\r\n2 2", {7, 1}, "2 2\n  ^"},
        {u"ab\ncd", {0, 5}, "ab\n^~"}, // a span over several lines ends with its first one
        {u"1", {99, 5}, "1\n ^"},
    };
    for (const Case& test : cases) {
        EXPECT_EQ(pointAt(test.source, test.span), test.expected);
    }
}

TEST(PointAt, CutsALongLineToTheSurroundings)
{
    std::u16string source(1000, u'a');
    source += u"!";
    source.append(1000, u'b');
    const std::string text = pointAt(source, {1000, 1});
    EXPECT_EQ(text, "…" + std::string(50, 'a') + "!" + std::string(49, 'b') + "…\n" + std::string(51, ' ') + "^");
}

TEST(PlaceOf, CountsLinesAndCharacters)
{
    const std::u16string_view source = u"a\nb\r\ncd\re😀f";
    const auto at = [&](char16_t unit) { return placeOf(source, source.find(unit)); };
    EXPECT_EQ(at(u'a').line, 1U);
    EXPECT_EQ(at(u'b').line, 2U);
    EXPECT_EQ(at(u'd').line, 3U);
    EXPECT_EQ(at(u'd').column, 2U);
    EXPECT_EQ(at(u'f').line, 4U);
    EXPECT_EQ(at(u'f').column, 3U);
}

} // namespace
} // namespace fmxhost
