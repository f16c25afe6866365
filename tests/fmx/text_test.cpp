#include "values.h"

using fmx::Text;
using fmxtest::cases;
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
    } encoded[] = {
        {"", Text::kEncoding_UTF8, u""},
        {"Gr\xC3\xBC\xC3\x9F \xE2\x82\xAC \xF0\x9F\x98\x80.", Text::kEncoding_Native, u"Grüß € 😀."},
        {"\xC3(", Text::kEncoding_UTF8, u"\uFFFD("},                                         // lacks its second byte
        {"\xC0\xAF|\xE0\x80\xAF", Text::kEncoding_UTF8, u"\uFFFD\uFFFD|\uFFFD\uFFFD\uFFFD"}, // overlong
        {"\xED\xA0\x80", Text::kEncoding_UTF8, u"\uFFFD\uFFFD\uFFFD"},                       // a surrogate
        {"a\xF0\x9F\x98", Text::kEncoding_UTF8, u"a\uFFFD"}, // cut at the end: one part, one mark
        {"\x80\xA5\xDB\xF0", Text::kEncoding_ASCII_Mac, u"Ä•€\uF8FF"},
        {"a\xE9\x80\xFF", Text::kEncoding_ISO_8859_1, u"aé\u0080ÿ"},
    };
    fmx::TextUniquePtr value;
    for (const auto& [bytes, encoding, expected] : encoded) {
        value->AssignWithLength(bytes.data(), static_cast<fmx::uint32>(bytes.size()), encoding);
        EXPECT_EQ(units(*value), expected) << bytes;
    }
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
    for (fmx::uint32 capacity = 0; capacity <= 12; ++capacity) {
        const std::string_view all = "aé€😀z";
        const std::string_view expected = all.substr(0, capacity < 1    ? 0
                                                        : capacity < 3  ? 1
                                                        : capacity < 6  ? 3
                                                        : capacity < 10 ? 6
                                                                        : capacity);
        std::string buffer(16, '#');
        const fmx::uint32 written = value->GetBytesEx(buffer.data(), capacity);
        EXPECT_EQ(buffer.substr(0, written), expected) << capacity;
        EXPECT_EQ(buffer[written], written < capacity ? '\0' : '#') << capacity;
        EXPECT_EQ(buffer.find_first_not_of('#', capacity), std::string::npos) << capacity;
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
    text(u"x\xD83Dy")->GetBytesEx(buffer, 8); // an unpaired surrogate
    EXPECT_STREQ(buffer, "x\uFFFDy");
    EXPECT_EQ(value->GetBytesEx(buffer, 8, 99), 0U);
}

TEST(Text, EditsParts)
{
    const auto digits = text(u"0123456789");
    for (const auto& c : cases("edits")) {
        SCOPED_TRACE(c[1] + " " + c[2] + " " + c[3]);
        const auto value = text(c[0]);
        const Text& other = c[1].ends_with("itself") ? *value : *digits;
        const auto position = static_cast<fmx::uint32>(std::stoul(c[2]));
        const auto size = static_cast<fmx::uint32>(std::stoul(c[3]));
        if (c[1].starts_with("set")) {
            value->SetText(other, position, size);
        } else if (c[1].starts_with("append")) {
            value->AppendText(other, position, size);
        } else if (c[1].starts_with("insert")) {
            value->InsertText(other, position);
        } else {
            value->DeleteText(position, size);
        }
        EXPECT_EQ(utf8(*value), c[4]);
    }
}

TEST(Text, FindsWithAndWithoutCase)
{
    const auto shown = [](fmx::uint32 index) { return index == Text::kSize_Invalid ? "none" : std::to_string(index); };
    for (const auto& c : cases("searches")) {
        SCOPED_TRACE(c[0] + " / " + c[1]);
        const auto in = text(c[0]);
        const auto wanted = text(c[1]);
        const auto position = static_cast<fmx::uint32>(std::stoul(c[2]));
        EXPECT_EQ(shown(in->Find(*wanted, position)), c[3]);
        EXPECT_EQ(shown(in->FindIgnoringCase(*wanted, position)), c[4]);
        EXPECT_EQ(shown(in->FindPrev(*wanted, position)), c[5]);
        EXPECT_EQ(shown(in->FindPrevIgnoringCase(*wanted, position)), c[6]);
    }
    // Half a character is found as a unit only.
    EXPECT_EQ(text(u"a😀b")->Find(*text(u"\xDE00"), 0), 2U);
    EXPECT_EQ(text(u"a😀b")->FindIgnoringCase(*text(u"\xDE00"), 0), Text::kSize_Invalid);
}

TEST(Text, ComparesCodeUnits)
{
    const std::u16string_view ascending[] = {u"", u"A", u"AB", u"B", u"a", u"é", u"😀", u"\uFFFD"};
    for (std::size_t i = 0; i < std::size(ascending); ++i) {
        for (std::size_t j = 0; j < std::size(ascending); ++j) {
            fmxtest::expectOrder(*text(ascending[i]), *text(ascending[j]), i, j);
        }
    }
}

} // namespace
