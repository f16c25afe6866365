#include "host/base/unicode.h"
#include "host/calculation/built_ins.h"

#include <unicode/uchar.h>
#include <unicode/utf16.h>

#include <cstdlib>

namespace fmxhost {
namespace {

using Text = std::u16string;

// ---- Numbers of characters in one number: five digits each, the last ones of the first character.

constexpr std::int64_t codeUnit = 100000;

Text charactersOf(const Value& codes)
{
    Text result;
    for (Value rest = codes; 0 < rest;) {
        // A character beyond U+FFFF may have six digits. No two are meant: the second one would be U+0001.
        const bool isOne = rest < 2 * codeUnit;
        const Value others = isOne ? 0 : floorOf(rest / codeUnit);
        const std::int64_t code = (rest - others * codeUnit).integer();
        char16_t units[2] = {};
        int count = 0;
        U16_APPEND_UNSAFE(units, count, static_cast<UChar32>(code));
        result.append(units, code > 0 ? static_cast<std::size_t>(count) : 0);
        rest = others;
    }
    return result;
}

Value codesOf(const Text& text)
{
    Value codes = 0;
    Value unit = 1;
    for (std::size_t at = 0; at < text.size(); at += characterAt(text, at).length, unit = unit * codeUnit) {
        codes = codes + unit * std::int64_t{characterAt(text, at).value};
    }
    return text.empty() ? Value() : Value(codes);
}

// ---- Places in a text, from 1 on

// At most the end of the text.
std::size_t offsetOf(const Text& text, std::size_t place)
{
    return std::min(std::max<std::size_t>(1, place) - 1, text.size());
}

// A negative occurrence counts backwards from the start.
std::int64_t position(const Value& in, const Value& searched, Count start, std::int64_t occurrence)
{
    constexpr fmx::uint32 none = fmx::Text::kSize_Invalid; // also what is before the first character
    const fmx::Text& text = in.data().GetAsText();
    const bool isBackwards = occurrence < 0;
    const std::size_t place =
        std::min<std::size_t>(std::max<std::size_t>(start, isBackwards ? 0 : 1), text.GetSize() + 1U);
    auto found = static_cast<fmx::uint32>(place - 1);
    for (std::int64_t left = std::abs(occurrence); left > 0 && found != none; --left) {
        const auto find = isBackwards ? &fmx::Text::FindPrevIgnoringCase : &fmx::Text::FindIgnoringCase;
        found = (text.*find)(searched.data().GetAsText(), found);
        found += left == 1 || found == none ? 0 : isBackwards ? -1U : 1U;
    }
    return occurrence == 0 ? 0 : std::int64_t{found + 1U}; // 0 for none
}

std::int64_t patternCount(const Value& in, const Value& searched)
{
    const fmx::Text& text = in.data().GetAsText();
    const fmx::Text& wanted = searched.data().GetAsText();
    std::int64_t count = 0;
    for (fmx::uint32 at = 0; (at = text.FindIgnoringCase(wanted, at)) != fmx::Text::kSize_Invalid; ++count) {
        at += std::max<fmx::uint32>(1, wanted.GetSize());
    }
    return count;
}

// ---- Changes

// With pairs: one after the other.
Text substitute(const Arguments& arguments)
{
    Text text = arguments[0].text();
    for (std::size_t pair = 1; pair + 1 < arguments.size(); pair += 2) {
        const Text wanted = arguments[pair].text();
        const Text replacement = arguments[pair + 1].text();
        Text result;
        std::size_t start = 0;
        for (std::size_t found = 0; !wanted.empty() && (found = text.find(wanted, start)) != Text::npos;
             start = found + wanted.size()) {
            result.append(text, start, found - start).append(replacement);
        }
        text = result.append(text, start);
    }
    return text;
}

Text inCase(const Value& value, void (fmx::Text::*change)())
{
    const fmx::TextUniquePtr text;
    text->SetText(value.data().GetAsText());
    ((*text).*change)();
    return unitsOf(*text);
}

// The first letter of each word in upper case, the others in lower case.
Text proper(const Value& value)
{
    const Text text = inCase(value, &fmx::Text::Lowercase);
    Text result;
    bool isInWord = false;
    for (std::size_t at = 0; at < text.size(); at += characterAt(text, at).length) {
        const Text letter = text.substr(at, characterAt(text, at).length);
        result += isInWord ? letter : inCase(Value(letter), &fmx::Text::Uppercase);
        isInWord =
            u_isalnum(static_cast<UChar32>(characterAt(letter, 0).value)) != 0 || letter == u"'" || letter == u"’";
    }
    return result;
}

Text filter(const Text& text, const Text& kept)
{
    Text result;
    for (std::size_t at = 0; at < text.size(); at += characterAt(text, at).length) {
        const Text character = text.substr(at, characterAt(text, at).length);
        result += kept.find(character) == Text::npos ? u"" : character;
    }
    return result;
}

Text quote(const Text& text)
{
    Text result = u"\"";
    for (const char16_t unit : text) {
        if (unit == u'"' || unit == u'\\' || unit == u'¶' || unit == u'\r') {
            result += u'\\';
        }
        result += unit == u'\r' ? u'¶' : unit;
    }
    return result + u'"';
}

Text trim(Text text)
{
    text.resize(text.find_last_not_of(u' ') + 1); // npos + 1: 0
    return text.substr(std::min(text.find_first_not_of(u' '), text.size()));
}

Value numberOf(const Value& value)
{
    const bool isNone = value.text().find_first_of(u"0123456789") == Text::npos && !value.isUndefined();
    return isNone ? Value() : Value(value.data().GetAsNumber());
}

} // namespace

std::vector<Function> textFunctions()
{
    return {
        row(u"Char ( number )", charactersOf),
        row(u"Code ( text )", codesOf),
        row(u"Exact ( originalText ; comparisonText )", [](const Text& a, const Text& b) { return a == b ? 1 : 0; }),
        row(u"Filter ( textToFilter ; filterText )", filter),
        row(u"GetAsBoolean ( data )", [](const Value& data) { return data.boolean() ? 1 : 0; }),
        row(u"GetAsNumber ( text )", numberOf),
        row(u"GetAsText ( data )", [](const Text& text) { return text; }),
        row(u"IsEmpty ( value )",
            [](const Value& value) { return value.data().IsEmpty() || value.isUndefined() ? 1 : 0; }),
        row(u"IsValid ( value )", [](const Value& value) { return value.isUndefined() ? 0 : 1; }),
        row(u"Left ( text ; numberOfCharacters )", [](const Text& text, Count count) { return text.substr(0, count); }),
        row(u"Length ( text )", [](const Value& text) { return std::int64_t{text.data().GetAsText().GetSize()}; }),
        row(u"Lower ( text )", [](const Value& text) { return inCase(text, &fmx::Text::Lowercase); }),
        row(u"Middle ( text ; start ; numberOfCharacters )",
            [](const Text& text, Count start, Count count) { return text.substr(offsetOf(text, start), count); }),
        row(u"PatternCount ( text ; searchString )", patternCount),
        row(u"Position ( text ; searchString ; start ; occurrence )", position),
        row(u"Proper ( text )", proper),
        row(u"Quote ( text )", quote),
        row(u"Replace ( text ; start ; numberOfCharacters ; replacementText )",
            [](Text text, Count start, Count count, const Text& replacement) {
                return text.replace(offsetOf(text, start), count, replacement);
            }),
        row(u"Right ( text ; numberOfCharacters )",
            [](const Text& text, Count count) {
                return text.substr(text.size() - std::min(text.size(), count.value));
            }),
        {u"Substitute ( text ; searchString ; replaceString )", 3, 3, substitute},
        row(u"Trim ( text )", trim),
        row(u"Upper ( text )", [](const Value& text) { return inCase(text, &fmx::Text::Uppercase); }),
    };
}

} // namespace fmxhost
