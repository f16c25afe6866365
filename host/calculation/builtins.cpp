// The built-in functions: as many of FileMaker's as scripts around a plug-in's functions need.
#include "host/calculation/functions.h"

#include "host/unicode.h"

#include <algorithm>
#include <cstdint>

namespace fmxhost {
namespace {

using Arguments = std::vector<Value>;

constexpr char16_t valueSeparator = u'\r'; // ¶

std::size_t countAt(const Arguments& arguments, std::size_t index)
{
    return static_cast<std::size_t>(std::max<std::int64_t>(0, arguments[index].integer()));
}

Value characterOf(const Arguments& arguments)
{
    constexpr std::int64_t lastCharacter = 0x10FFFF;
    const std::int64_t code = arguments[0].integer();
    if (code <= 0 || code > lastCharacter) {
        return {u""};
    }
    if (code <= 0xFFFF) {
        return {std::u16string(1, static_cast<char16_t>(code))};
    }
    const auto above = static_cast<std::uint32_t>(code - 0x10000);
    return {
        std::u16string{static_cast<char16_t>(0xD800 + (above >> 10)), static_cast<char16_t>(0xDC00 + (above & 0x3FF))}};
}

Value codeOf(const Arguments& arguments)
{
    const std::u16string text = arguments[0].text();
    return text.empty() ? Value() : Value(static_cast<std::int64_t>(characterAt(text, 0).value));
}

Value valueFalse(const Arguments&)
{
    return {0};
}
Value valueTrue(const Arguments&)
{
    return {1};
}

Value asNumber(const Arguments& arguments)
{
    return Value(arguments[0].data().GetAsNumber());
}
Value asText(const Arguments& arguments)
{
    return Value(arguments[0].data().GetAsText());
}

Value getValue(const Arguments& arguments)
{
    const std::u16string list = arguments[0].text();
    std::size_t start = 0;
    for (std::size_t skip = countAt(arguments, 1); skip != 1; --skip) {
        const std::size_t end = list.find(valueSeparator, start);
        if (skip == 0 || end == std::u16string::npos) {
            return {u""};
        }
        start = end + 1;
    }
    return {std::u16string_view(list).substr(start, list.find(valueSeparator, start) - start)};
}

// A separator at the end closes the last value, it doesn't begin another one.
Value valueCount(const Arguments& arguments)
{
    const std::u16string list = arguments[0].text();
    const auto separators = std::count(list.begin(), list.end(), valueSeparator);
    const bool open = !list.empty() && list.back() != valueSeparator;
    return {static_cast<std::int64_t>(separators + (open ? 1 : 0))};
}

Value isEmpty(const Arguments& arguments)
{
    return {arguments[0].data().IsEmpty() ? 1 : 0};
}

Value length(const Arguments& arguments)
{
    return {static_cast<std::int64_t>(arguments[0].data().GetAsText().GetSize())};
}

Value left(const Arguments& arguments)
{
    return {std::u16string_view(arguments[0].text()).substr(0, countAt(arguments, 1))};
}

Value right(const Arguments& arguments)
{
    const std::u16string text = arguments[0].text();
    return {std::u16string_view(text).substr(text.size() - std::min(text.size(), countAt(arguments, 1)))};
}

Value middle(const Arguments& arguments)
{
    const std::u16string text = arguments[0].text();
    const std::size_t start = std::max<std::size_t>(1, countAt(arguments, 1)) - 1;
    if (start >= text.size()) {
        return {u""};
    }
    return {std::u16string_view(text).substr(start, countAt(arguments, 2))};
}

Value position(const Arguments& arguments)
{
    const fmx::Text& text = arguments[0].data().GetAsText();
    const fmx::Text& wanted = arguments[1].data().GetAsText();
    auto start = static_cast<fmx::uint32>(
        std::min<std::size_t>(std::max<std::size_t>(1, countAt(arguments, 2)) - 1, text.GetSize()));
    for (std::size_t occurrence = countAt(arguments, 3); occurrence > 0; --occurrence, ++start) {
        start = text.FindIgnoringCase(wanted, start);
        if (start == fmx::Text::kSize_Invalid) {
            return {0};
        }
        if (occurrence == 1) {
            return {static_cast<std::int64_t>(start) + 1};
        }
    }
    return {0};
}

Value substitute(const Arguments& arguments)
{
    const std::u16string text = arguments[0].text();
    const std::u16string wanted = arguments[1].text();
    const std::u16string replacement = arguments[2].text();
    if (wanted.empty()) {
        return arguments[0];
    }
    std::u16string result;
    std::size_t start = 0;
    for (std::size_t found = text.find(wanted); found != std::u16string::npos; found = text.find(wanted, start)) {
        result.append(text, start, found - start).append(replacement);
        start = found + wanted.size();
    }
    return {result.append(text, start)};
}

Value inCase(const Arguments& arguments, void (fmx::Text::*change)())
{
    const fmx::TextUniquePtr text;
    text->SetText(arguments[0].data().GetAsText());
    ((*text).*change)();
    return Value(*text);
}
Value lower(const Arguments& arguments)
{
    return inCase(arguments, &fmx::Text::Lowercase);
}
Value upper(const Arguments& arguments)
{
    return inCase(arguments, &fmx::Text::Uppercase);
}

} // namespace

const std::vector<BuiltIn>& builtIns()
{
    static const std::vector<BuiltIn> table{
        {u"Case", u"Case ( test1 ; result1 { ; test2 ; result2 ; … ; default } )",
         u"The result of the first test that is true, else the default.", 2, anyNumberOfArguments, nullptr},
        {u"Char", u"Char ( number )", u"The character with this Unicode number; 10 is a line feed, 13 a ¶.", 1, 1,
         characterOf},
        {u"Code", u"Code ( text )", u"The Unicode number of the first character.", 1, 1, codeOf},
        {u"False", u"False", u"The number 0.", 0, 0, valueFalse},
        {u"GetAsNumber", u"GetAsNumber ( text )", u"The digits of a text as a number.", 1, 1, asNumber},
        {u"GetAsText", u"GetAsText ( data )", u"Anything as a text.", 1, 1, asText},
        {u"GetValue", u"GetValue ( listOfValues ; valueNumber )",
         u"One value of a list separated by ¶; 1 is the first.", 2, 2, getValue},
        {u"If", u"If ( test ; resultIfTrue { ; resultIfFalse } )", u"One of two results.", 2, 3, nullptr},
        {u"IsEmpty", u"IsEmpty ( value )", u"1 for an empty value, else 0.", 1, 1, isEmpty},
        {u"Left", u"Left ( text ; numberOfCharacters )", u"The beginning of a text.", 2, 2, left},
        {u"Length", u"Length ( text )", u"The length of a text in UTF-16 units.", 1, 1, length},
        {u"Let", u"Let ( [ name1 = value1 ; $name2 = value2 ; … ] ; calculation )",
         u"Names values for a calculation; those with $ stay set for the calculations that follow.", 2, 2, nullptr},
        {u"Lower", u"Lower ( text )", u"The text in lower case.", 1, 1, lower},
        {u"Middle", u"Middle ( text ; start ; numberOfCharacters )", u"A part of a text; 1 is the first character.", 3,
         3, middle},
        {u"Position", u"Position ( text ; searchString ; start ; occurrence )",
         u"Where a text stands in another one, in any letter case; 0 when it isn't there.", 4, 4, position},
        {u"Right", u"Right ( text ; numberOfCharacters )", u"The end of a text.", 2, 2, right},
        {u"Substitute", u"Substitute ( text ; searchString ; replaceString )",
         u"Replaces a text wherever it stands, in this letter case.", 3, 3, substitute},
        {u"True", u"True", u"The number 1.", 0, 0, valueTrue},
        {u"Upper", u"Upper ( text )", u"The text in upper case.", 1, 1, upper},
        {u"ValueCount", u"ValueCount ( text )", u"How many values a list separated by ¶ has.", 1, 1, valueCount},
    };
    return table;
}

} // namespace fmxhost
