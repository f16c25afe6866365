#include "host/base/unicode.h"
#include "host/calculation/built_ins.h"

#include <unicode/uchar.h>
#include <unicode/utf16.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

namespace fmxhost {
namespace {

// Numbers of characters in one number: five digits each, the first character the last ones.
constexpr std::int64_t codeUnit = 100000;

constexpr char16_t paragraphEnd = u'\r'; // ¶

Value charactersOf(const Number& codes)
{
    std::u16string result;
    for (Number rest = floorOf(codes); 0 < rest;) {
        // A character beyond U+FFFF may have six digits. No two are meant: the second one would be U+0001.
        const bool isWide = rest < 2 * codeUnit && !(rest < codeUnit);
        const Number others = isWide ? 0 : floorOf(rest / codeUnit);
        const std::int64_t code = (rest - others * codeUnit).integer();
        std::array<char16_t, 2> units{};
        std::size_t count = 0;
        if (code > 0) {
            U16_APPEND_UNSAFE(units, count, static_cast<UChar32>(code));
        }
        result.append(units.data(), count);
        rest = others;
    }
    return {result};
}

Value codesOf(const std::u16string& text)
{
    Number codes = 0;
    Number unit = 1;
    for (std::size_t at = 0; at < text.size(); at += characterAt(text, at).length, unit = unit * codeUnit) {
        codes = codes + unit * static_cast<std::int64_t>(characterAt(text, at).value);
    }
    return text.empty() ? Value() : Value(codes);
}

Value right(const std::u16string& text, std::size_t count)
{
    return {text.substr(text.size() - std::min(text.size(), count))};
}

// The offset of a place from 1 on, or the end of the text.
std::size_t offsetOf(const std::u16string& text, std::size_t place)
{
    return std::min(std::max<std::size_t>(1, place) - 1, text.size());
}

// A negative occurrence counts backwards from the start.
Value position(const Value& in, const Value& searched, std::size_t start, std::int64_t occurrence)
{
    constexpr fmx::uint32 none = fmx::Text::kSize_Invalid; // also what is before the first character
    const fmx::Text& text = in.data().GetAsText();
    const fmx::Text& wanted = searched.data().GetAsText();
    const bool isBackwards = occurrence < 0;
    const std::size_t place =
        std::min<std::size_t>(isBackwards ? start : std::max<std::size_t>(start, 1), std::size_t{text.GetSize()} + 1);
    auto next = static_cast<fmx::uint32>(place - 1);
    fmx::uint32 found = none;
    for (std::int64_t left = std::abs(occurrence); left > 0; --left) {
        found = next == none  ? none
                : isBackwards ? text.FindPrevIgnoringCase(wanted, next)
                              : text.FindIgnoringCase(wanted, next);
        if (found == none) {
            break;
        }
        next = isBackwards ? found - 1 : found + 1;
    }
    return {std::int64_t{found + 1U}}; // 0 for none
}

Value replace(std::u16string text, std::size_t start, std::size_t count, const std::u16string& replacement)
{
    return {text.replace(offsetOf(text, start), count, replacement)};
}

// With pairs: one after the other.
Value substitute(const Arguments& arguments)
{
    std::u16string text = arguments[0].text();
    for (std::size_t pair = 1; pair + 1 < arguments.size(); pair += 2) {
        const std::u16string wanted = arguments[pair].text();
        const std::u16string replacement = arguments[pair + 1].text();
        std::u16string result;
        std::size_t start = 0;
        for (std::size_t found = 0; !wanted.empty() && (found = text.find(wanted, start)) != std::u16string::npos;
             start = found + wanted.size()) {
            result.append(text, start, found - start).append(replacement);
        }
        text = result.append(text, start);
    }
    return {text};
}

Value inCase(const Value& value, void (fmx::Text::*change)())
{
    const fmx::TextUniquePtr text;
    text->SetText(value.data().GetAsText());
    ((*text).*change)();
    return Value(*text);
}

Value numberOf(const Value& value)
{
    const std::u16string digits = u"0123456789";
    return value.text().find_first_of(digits) == std::u16string::npos && !isUndefined(value)
               ? Value()
               : Value(value.data().GetAsNumber());
}

// The first letter of each word in upper case, the others in lower case.
Value proper(const Value& value)
{
    const std::u16string text = inCase(value, &fmx::Text::Lowercase).text();
    std::u16string result;
    bool isInWord = false;
    for (std::size_t at = 0; at < text.size();) {
        const Character character = characterAt(text, at);
        const std::u16string letter = text.substr(at, character.length);
        result += isInWord ? letter : inCase(Value(letter), &fmx::Text::Uppercase).text();
        isInWord = u_isalnum(static_cast<UChar32>(character.value)) != 0 || letter == u"'" || letter == u"’";
        at += character.length;
    }
    return {result};
}

Value filter(const std::u16string& text, const std::u16string& kept)
{
    std::u16string result;
    for (std::size_t at = 0; at < text.size();) {
        const std::u16string_view character = std::u16string_view(text).substr(at, characterAt(text, at).length);
        result += kept.find(character) == std::u16string::npos ? u"" : character;
        at += character.size();
    }
    return {result};
}

Value patternCount(const Value& in, const Value& searched)
{
    const fmx::Text& text = in.data().GetAsText();
    const fmx::Text& wanted = searched.data().GetAsText();
    std::int64_t count = 0;
    for (fmx::uint32 at = 0; (at = text.FindIgnoringCase(wanted, at)) != fmx::Text::kSize_Invalid; ++count) {
        at += std::max<fmx::uint32>(1, wanted.GetSize());
    }
    return {count};
}

Value quote(const std::u16string& text)
{
    std::u16string result = u"\"";
    for (const char16_t unit : text) {
        if (unit == u'"' || unit == u'\\' || unit == u'¶' || unit == paragraphEnd) {
            result += u'\\';
        }
        result += unit == paragraphEnd ? u'¶' : unit;
    }
    return {result + u'"'};
}

Value trim(std::u16string text)
{
    text.resize(text.find_last_not_of(u' ') + 1); // npos + 1: 0
    return {text.substr(std::min(text.find_first_not_of(u' '), text.size()))};
}

} // namespace

std::vector<Function> textFunctions()
{
    return {
        row(u"Char ( number )",
            u"The character with this Unicode number; 10 is a line feed, 13 a ¶. Five digits each for several.",
            charactersOf),
        row(u"Code ( text )", u"The Unicode numbers of the characters, five digits each, the last ones for the first.",
            codesOf),
        row(u"Exact ( originalText ; comparisonText )", u"1 for texts that are equal in letter case, too.",
            [](const std::u16string& a, const std::u16string& b) { return a == b ? 1 : 0; }),
        row(u"Filter ( textToFilter ; filterText )",
            u"The text without what isn't among the characters of the other one.", filter),
        row(u"GetAsBoolean ( data )", u"0 for nothing and for the number 0, else 1.",
            [](const Value& data) { return data.boolean() ? 1 : 0; }),
        row(u"GetAsNumber ( text )", u"The digits of a text as a number.", numberOf),
        row(u"GetAsText ( data )", u"Anything as a text.", [](const std::u16string& text) { return text; }),
        row(u"IsEmpty ( value )", u"1 for an empty value and for a result that isn't defined, else 0.",
            [](const Value& value) { return value.data().IsEmpty() || isUndefined(value) ? 1 : 0; }),
        row(u"IsValid ( value )", u"0 for a result that isn't defined, else 1.",
            [](const Value& value) { return isUndefined(value) ? 0 : 1; }),
        row(u"Left ( text ; numberOfCharacters )", u"The beginning of a text.",
            [](const std::u16string& text, std::size_t count) { return text.substr(0, count); }),
        row(u"Length ( text )", u"The length of a text in UTF-16 units.",
            [](const Value& text) { return std::int64_t{text.data().GetAsText().GetSize()}; }),
        row(u"Lower ( text )", u"The text in lower case.",
            [](const Value& text) { return inCase(text, &fmx::Text::Lowercase); }),
        row(u"Middle ( text ; start ; numberOfCharacters )", u"A part of a text; 1 is the first character.",
            [](const std::u16string& text, std::size_t start, std::size_t count) {
                return text.substr(offsetOf(text, start), count);
            }),
        row(u"PatternCount ( text ; searchString )", u"How often a text stands in another one, in any letter case.",
            patternCount),
        row(u"Position ( text ; searchString ; start ; occurrence )",
            u"Where a text stands in another one, in any letter case; 0 when it isn't there. A negative occurrence "
            u"counts backwards.",
            position),
        row(u"Proper ( text )", u"The text with the first letter of each word in upper case.", proper),
        row(u"Quote ( text )", u"The text as a calculation would write it, in quotation marks.", quote),
        row(u"Replace ( text ; start ; numberOfCharacters ; replacementText )",
            u"The text with another one in place of a part.", replace),
        row(u"Right ( text ; numberOfCharacters )", u"The end of a text.", right),
        row(u"Substitute ( text ; searchString ; replaceString )",
            u"Replaces a text wherever it stands, in this letter case; of several pairs each in brackets: "
            u"[ searchString ; replaceString ].",
            substitute),
        row(u"Trim ( text )", u"The text without blanks before and behind it.", trim),
        row(u"Upper ( text )", u"The text in upper case.",
            [](const Value& text) { return inCase(text, &fmx::Text::Uppercase); }),
    };
}

} // namespace fmxhost
