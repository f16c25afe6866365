#include "values.h"

#include <gtest/gtest.h>

#ifdef __linux__
#include <malloc.h>
#endif

#include <string>
#include <vector>

using fmx::Text;
using fmxtest::text;
using fmxtest::units;
using fmxtest::utf8;

namespace {

TEST(Text, DecodesBytes)
{
    const struct {
        std::string_view bytes;
        Text::Encoding encoding;
        std::u16string_view expected;
    } cases[] = {
        {"", Text::kEncoding_UTF8, u""},
        {"plain ASCII, longer than a word", Text::kEncoding_Native, u"plain ASCII, longer than a word"},
        {"Gr\xC3\xBC\xC3\x9F \xE2\x82\xAC \xF0\x9F\x98\x80.", Text::kEncoding_Native, u"Grüß € 😀."},
        {"\xC3(", Text::kEncoding_UTF8, u"\uFFFD("},                                         // lacks its second byte
        {"\xC0\xAF|\xE0\x80\xAF", Text::kEncoding_UTF8, u"\uFFFD\uFFFD|\uFFFD\uFFFD\uFFFD"}, // overlong
        {"\xED\xA0\x80", Text::kEncoding_UTF8, u"\uFFFD\uFFFD\uFFFD"},                       // a surrogate
        {"\xF4\x90\x80\x80\xFF", Text::kEncoding_UTF8, u"\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD"},   // beyond U+10FFFF
        {"a\xF0\x9F\x98", Text::kEncoding_UTF8, u"a\uFFFD"}, // cut at the end: one part, one mark
        {"\xF0\x9F\x98"
         "b",
         Text::kEncoding_UTF8, u"\uFFFDb"},
        {"\x80\xA5\xDB\xF0", Text::kEncoding_ASCII_Mac, u"Ä•€\uF8FF"},
        {"a\xE9\x80\xFF", Text::kEncoding_ISO_8859_1, u"aé\u0080ÿ"},
    };
    for (const auto& [bytes, encoding, expected] : cases) {
        fmx::TextUniquePtr value;
        value->AssignWithLength(bytes.data(), static_cast<fmx::uint32>(bytes.size()), encoding);
        EXPECT_EQ(units(*value), expected) << bytes;
    }
    fmx::TextUniquePtr value;
    EXPECT_THROW(value->Assign("x", static_cast<Text::Encoding>(99)), std::exception);
}

TEST(Text, ZerosEndOnlyWhatHasNoLength)
{
    fmx::TextUniquePtr value;
    value->AssignWithLength("a\0b", 3, Text::kEncoding_UTF8);
    EXPECT_EQ(units(*value), std::u16string_view(u"a\0b", 3));
    value->Assign("a\0b");
    EXPECT_EQ(units(*value), u"a");
    const fmx::uint16 withZero[] = {'x', 0, 'y', 0};
    value->AssignUnicode(withZero);
    EXPECT_EQ(units(*value), u"x");
    value->AssignWide(L"w\U0001F600");
    EXPECT_EQ(units(*value), u"w😀");
    const wchar_t invalid[] = {L'a', static_cast<wchar_t>(0xD800), static_cast<wchar_t>(0x110000)};
    value->AssignWideWithLength(invalid, 3);
    EXPECT_EQ(units(*value), u"a\uFFFD\uFFFD");
}

TEST(Text, WritesWholeCharactersThatFit)
{
    const auto value = text(u"aé€😀z");
    const struct {
        fmx::uint32 capacity;
        std::string_view expected;
    } cases[] = {{0, ""},    {1, "a"},   {2, "a"},     {3, "aé"},    {5, "aé"},
                 {6, "aé€"}, {9, "aé€"}, {10, "aé€😀"}, {11, "aé€😀z"}};
    for (const auto& [capacity, expected] : cases) {
        std::string buffer(16, '#');
        const fmx::uint32 written = value->GetBytesEx(buffer.data(), capacity);
        EXPECT_EQ(buffer.substr(0, written), expected) << capacity;
        EXPECT_EQ(buffer[written], written < capacity ? '\0' : '#') << capacity;
        EXPECT_EQ(buffer.substr(std::max(capacity, written + 1)),
                  std::string(16 - std::max(capacity, written + 1), '#'));
    }
    char buffer[8] = "#######";
    value->GetBytes(buffer, 7, 1, 2, Text::kEncoding_UTF8);
    EXPECT_STREQ(buffer, "é€");
    value->GetBytes(buffer, 2, 1, 2, Text::kEncoding_UTF8); // keeps room for the zero byte
    EXPECT_STREQ(buffer, "");
    EXPECT_EQ(value->GetBytesEx(buffer, 8, 0, Text::kSize_End, Text::kEncoding_ISO_8859_1), 5U);
    EXPECT_STREQ(buffer, "a\xE9??z");
    EXPECT_EQ(value->GetBytesEx(buffer, 8, 1, 2, Text::kEncoding_ASCII_Mac), 2U);
    EXPECT_STREQ(buffer, "\x8E\xDB");
    EXPECT_EQ(utf8(*text(u"x\xD83Dy")), "x\uFFFDy"); // an unpaired surrogate
    EXPECT_EQ(value->GetBytesEx(buffer, 8, 99), 0U);
}

TEST(Text, EditsParts)
{
    const auto other = text(u"0123456789");
    const auto check = [&](std::u16string_view start, auto&& edit, std::u16string_view expected) {
        const auto value = text(start);
        edit(*value);
        EXPECT_EQ(units(*value), expected);
    };
    check(
        u"abc", [&](Text& t) { t.SetText(*other, 3, 4); }, u"3456");
    check(
        u"abc", [&](Text& t) { t.SetText(*other, 8); }, u"89");
    check(
        u"abc", [&](Text& t) { t.SetText(*other, 10); }, u"");
    check(
        u"abc", [&](Text& t) { t.SetText(t, 1, 1); }, u"b");
    check(
        u"abc", [&](Text& t) { t.AppendText(*other, 9, 5); }, u"abc9");
    check(
        u"abc", [&](Text& t) { t.AppendText(t); }, u"abcabc");
    check(
        u"abc", [&](Text& t) { t.AppendText(t, 1, 1); }, u"abcb");
    check(
        u"abc", [&](Text& t) { t.InsertText(*other, 0); }, u"0123456789abc");
    check(
        u"abc", [&](Text& t) { t.InsertText(t, 1); }, u"aabcbc");
    check(
        u"abc", [&](Text& t) { t.InsertText(*other, 77); }, u"abc0123456789");
    check(
        u"abc", [&](Text& t) { t.DeleteText(1); }, u"a");
    check(
        u"abc", [&](Text& t) { t.DeleteText(0, 2); }, u"c");
    check(
        u"abc", [&](Text& t) { t.DeleteText(3, 2); }, u"abc");
    check(
        u"abc", [&](Text& t) { t.DeleteText(1, 0); }, u"abc");
}

TEST(Text, SharedBuffersDontShowChanges)
{
    const auto first = text(u"one");
    fmx::TextUniquePtr second;
    second->SetText(*first);
    second->AppendText(*first);
    EXPECT_EQ(units(*first), u"one");
    fmx::DataUniquePtr data;
    data->SetAsText(*first, *fmx::LocaleUniquePtr());
    first->Uppercase();
    first->DeleteText(0, 1);
    EXPECT_EQ(units(data->GetAsText()), u"one");
    EXPECT_EQ(units(*first), u"NE");
    EXPECT_EQ(units(*second), u"oneone");
}

#ifdef __linux__ // where the allocator tells at any time what is in use
TEST(Text, CopiesALongTextOnce)
{
    const std::string bytes(30'000'000, 'x');
    const auto inUse = [] { return mallinfo2().uordblks + mallinfo2().hblkhd; };
    const std::size_t before = inUse();
    fmx::TextUniquePtr value;
    value->AssignWithLength(bytes.data(), static_cast<fmx::uint32>(bytes.size()), Text::kEncoding_UTF8);
    const std::size_t assigned = inUse();
    if (assigned == before) {
        GTEST_SKIP() << "this build's allocator doesn't count";
    }
    EXPECT_LT(assigned - before, bytes.size() * 2 + 100'000);
    fmx::DataUniquePtr data;
    data->SetAsText(*value, *fmx::LocaleUniquePtr());
    fmx::DataVectUniquePtr vector;
    vector->PushBack(*data);
    EXPECT_EQ(vector->AtAsText(0).GetSize(), bytes.size());
    EXPECT_LT(inUse() - assigned, 100'000U);
}
#endif

TEST(Text, FindsWithAndWithoutCase)
{
    constexpr fmx::uint32 none = Text::kSize_Invalid;
    const struct {
        std::u16string_view in, wanted;
        fmx::uint32 position, next, nextAnyCase, previous, previousAnyCase;
    } cases[] = {
        {u"abcABC", u"bc", 0, 1, 1, none, none},
        {u"abcABC", u"bc", 2, none, 4, 1, 1},
        {u"abcABC", u"BC", 99, none, none, 4, 4},
        {u"abcABC", u"c", none, none, none, 2, 5},
        {u"straße", u"STRASSE", 0, none, 0, none, 0},
        {u"straße", u"S", 3, none, none, none, 0},   // half of a folded "ß" is no match
        {u"ΜΆΪΟΣ 😀", u"μάϊος", 0, none, 0, none, 0}, // final sigma
        {u"a😀b", u"\xDE00", 0, 2, none, none, none}, // half a character is found as a unit only
        {u"İ", u"i\u0307", 0, none, 0, none, 0},
        {u"abc", u"", 0, none, none, none, none},
        {u"", u"a", 0, none, none, none, none},
        {u"ab", u"abc", 0, none, none, none, none},
    };
    for (const auto& c : cases) {
        const auto in = text(c.in);
        const auto wanted = text(c.wanted);
        SCOPED_TRACE(utf8(*in) + " / " + utf8(*wanted));
        EXPECT_EQ(in->Find(*wanted, c.position), c.next);
        EXPECT_EQ(in->FindIgnoringCase(*wanted, c.position), c.nextAnyCase);
        EXPECT_EQ(in->FindPrev(*wanted, c.position), c.previous);
        EXPECT_EQ(in->FindPrevIgnoringCase(*wanted, c.position), c.previousAnyCase);
    }
}

TEST(Text, MapsCaseAsUnicodeDoes)
{
    const struct {
        std::u16string_view original, upper, lower;
    } cases[] = {
        {u"", u"", u""},
        {u"iI", u"II", u"ii"},
        {u"ßŉﬃ", u"SSʼNFFI", u"ßŉﬃ"},
        {u"ὈΔΥΣΣΕΎΣ", u"ὈΔΥΣΣΕΎΣ", u"ὀδυσσεύς"},
        {u"𐐀𐐨", u"𐐀𐐀", u"𐐨𐐨"},
    };
    for (const auto& [original, upper, lower] : cases) {
        const auto value = text(original);
        value->Uppercase();
        EXPECT_EQ(units(*value), upper);
        value->SetText(*text(original));
        value->Lowercase();
        EXPECT_EQ(units(*value), lower);
    }
}

TEST(Text, ComparesCodeUnits)
{
    const std::u16string_view ascending[] = {u"", u"A", u"AB", u"B", u"a", u"é", u"😀", u"\uFFFD"};
    for (std::size_t i = 0; i < std::size(ascending); ++i) {
        for (std::size_t j = 0; j < std::size(ascending); ++j) {
            const auto a = text(ascending[i]);
            const auto b = text(ascending[j]);
            EXPECT_EQ(*a == *b, i == j);
            EXPECT_EQ(*a != *b, i != j);
            EXPECT_EQ(*a < *b, i < j);
            EXPECT_EQ(*a <= *b, i <= j);
            EXPECT_EQ(*a > *b, i > j);
            EXPECT_EQ(*a >= *b, i >= j);
        }
    }
}

} // namespace
