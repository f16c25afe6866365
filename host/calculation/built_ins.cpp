// FileMaker's own functions, as many as scripts around a plug-in's functions need, with FileMaker's results.
#include "host/calculation/functions.h"

#include "host/base/unicode.h"

#include <unicode/utf16.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <tuple>

namespace fmxhost {
namespace {

using Arguments = std::vector<Value>;

constexpr char16_t valueSeparator = u'\r'; // ¶

// A separator at the end closes the last value, it doesn't begin another one.
std::vector<std::u16string> valuesOf(const Value& list)
{
    std::vector<std::u16string> values;
    const std::u16string text = list.text();
    for (std::size_t start = 0; start < text.size();) {
        const std::size_t end = std::min(text.find(valueSeparator, start), text.size());
        values.push_back(text.substr(start, end - start));
        start = end + 1;
    }
    return values;
}

std::size_t countAt(const Arguments& arguments, std::size_t index)
{
    return static_cast<std::size_t>(std::max<std::int64_t>(0, arguments[index].integer()));
}

Value characterOf(const Arguments& arguments)
{
    constexpr std::int64_t lastCharacter = 0x10FFFF;
    const std::int64_t code = arguments[0].integer();
    std::array<char16_t, 2> units{};
    std::size_t count = 0;
    if (code > 0 && code <= lastCharacter) {
        U16_APPEND_UNSAFE(units, count, static_cast<UChar32>(code));
    }
    return {std::u16string_view(units.data(), count)};
}

Value codeOf(const Arguments& arguments)
{
    const std::u16string text = arguments[0].text();
    return text.empty() ? Value() : Value(static_cast<std::int64_t>(characterAt(text, 0).value));
}

Value getValue(const Arguments& arguments)
{
    const std::vector<std::u16string> values = valuesOf(arguments[0]);
    const std::size_t number = countAt(arguments, 1);
    return number > 0 && number <= values.size() ? Value(values[number - 1]) : Value(u"");
}

Value right(const Arguments& arguments)
{
    const std::u16string text = arguments[0].text();
    return {text.substr(text.size() - std::min(text.size(), countAt(arguments, 1)))};
}

// The offset that an argument gives as a place from 1 on, in the text of the first argument or at its end.
std::size_t offsetAt(const Arguments& arguments, std::size_t index)
{
    return std::min<std::size_t>(std::max<std::size_t>(1, countAt(arguments, index)) - 1,
                                 arguments[0].data().GetAsText().GetSize());
}

Value position(const Arguments& arguments)
{
    const fmx::Text& text = arguments[0].data().GetAsText();
    const fmx::Text& wanted = arguments[1].data().GetAsText();
    const std::size_t occurrence = countAt(arguments, 3);
    auto place = static_cast<fmx::uint32>(offsetAt(arguments, 2)); // behind the beginning of the last one found
    for (std::size_t found = 0; found < occurrence; ++found, ++place) {
        place = text.FindIgnoringCase(wanted, place);
        if (place == fmx::Text::kSize_Invalid) {
            return {0};
        }
    }
    return {occurrence > 0 ? std::int64_t{place} : 0};
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

Value filter(const Arguments& arguments)
{
    const std::u16string text = arguments[0].text();
    const std::u16string kept = arguments[1].text();
    std::u16string result;
    for (std::size_t at = 0; at < text.size();) {
        const std::u16string_view character = std::u16string_view(text).substr(at, characterAt(text, at).length);
        result += kept.find(character) == std::u16string::npos ? u"" : character;
        at += character.size();
    }
    return {result};
}

Value patternCount(const Arguments& arguments)
{
    const fmx::Text& text = arguments[0].data().GetAsText();
    const fmx::Text& wanted = arguments[1].data().GetAsText();
    std::int64_t count = 0;
    for (fmx::uint32 at = 0; (at = text.FindIgnoringCase(wanted, at)) != fmx::Text::kSize_Invalid; ++count) {
        at += std::max<fmx::uint32>(1, wanted.GetSize());
    }
    return {count};
}

Value quote(const Arguments& arguments)
{
    std::u16string result = u"\"";
    for (const char16_t unit : arguments[0].text()) {
        if (unit == u'"' || unit == u'\\' || unit == u'¶' || unit == valueSeparator) {
            result += u'\\';
        }
        result += unit == valueSeparator ? u'¶' : unit;
    }
    return {result + u'"'};
}

Value trim(const Arguments& arguments)
{
    std::u16string text = arguments[0].text();
    text.resize(text.find_last_not_of(u' ') + 1); // npos + 1: 0
    return {text.substr(std::min(text.find_first_not_of(u' '), text.size()))};
}

// Empty values are left out.
Value list(const Arguments& arguments)
{
    std::u16string result;
    for (const Value& value : arguments) {
        const std::u16string text = value.text();
        result += (result.empty() || text.empty() ? u"" : u"\r") + text;
    }
    return {result};
}

// The value as a date or a timestamp; "?" where it can't be read as one.
Value moment(const Value& value, fmx::Data::DataType type)
{
    fmx::DataUniquePtr data;
    if (value.type() == ValueType::text || value.type() == ValueType::empty) {
        const fmx::errcode error = data->SetAsText(value.data().GetAsText(), *fmx::LocaleUniquePtr(), type);
        if (error != 0 || !data->IsValid()) {
            return {u"?"};
        }
    }
    data->SetDateTime(type == fmx::Data::kDTDate ? value.data().GetAsDate() : value.data().GetAsTimeStamp(), type,
                      type);
    return Value(std::move(data));
}

Value dayOfWeek(const Arguments& arguments)
{
    constexpr std::int64_t daysOfAWeek = 7;
    const Value date = moment(arguments[0], fmx::Data::kDTDate); // as a number: days, the first one a Monday
    return date.type() == ValueType::date ? Value(date.integer() % daysOfAWeek + 1) : date;
}

// FileMaker's numbers for types of data; negative ones sort downwards.
Value sortValues(const Arguments& arguments)
{
    const std::int64_t given = arguments.size() > 1 ? arguments[1].integer() : 1;
    std::vector<std::pair<double, std::u16string>> values; // what numbers and texts are sorted by
    for (const std::u16string& value : valuesOf(arguments[0])) {
        const std::int64_t type = std::abs(given);
        values.emplace_back(type == 1   ? 0
                            : type == 2 ? Value(value).number()
                                        : moment(value, fmx::Data::DataType(type)).number(),
                            value);
    }
    std::stable_sort(values.begin(), values.end(), [given](const auto& left, const auto& right) {
        const auto& [a, b] = given < 0 ? std::tie(right, left) : std::tie(left, right);
        return std::abs(given) == 1 ? foldCase(a.second) < foldCase(b.second) : a.first < b.first;
    });
    std::u16string result;
    for (const auto& [key, value] : values) {
        result += value + valueSeparator;
    }
    return {result};
}

// Paths. FileMaker begins those of macOS with the volume.
constexpr std::string_view bootVolume = "/Macintosh HD";
#ifdef __APPLE__
constexpr std::string_view ownVolume = bootVolume;
#else
constexpr std::string_view ownVolume;
#endif
constexpr std::string_view volumes = "/Volumes/";

bool isPosixPath(const Value& format)
{
    return foldCase(format.text()) == u"posixpath";
}

Value convertFromFileMakerPath(const Arguments& arguments)
{
    std::string path = arguments[0].utf8();
    bool ofMac = !ownVolume.empty();
    const std::size_t colon = path.find(':'); // behind "file", "filemac", "imagelinux" and the like
    if (colon < path.find('/')) {
        ofMac = path.substr(0, colon).ends_with("mac");
        path.erase(0, colon + 1);
    }
    if (path == bootVolume || path.starts_with(std::string(bootVolume) + "/")) {
        path = path.size() == bootVolume.size() ? "/" : path.substr(bootVolume.size());
    } else if (ofMac && path.starts_with('/') && !path.starts_with(volumes)) {
        path = std::string(volumes) + path.substr(1);
    }
    return isPosixPath(arguments[1]) ? Value(path) : Value(u"?");
}

Value convertToFileMakerPath(const Arguments& arguments)
{
    std::string path = arguments[0].utf8();
    if (!ownVolume.empty() && path.starts_with(volumes)) {
        path.erase(0, volumes.size() - 1);
    } else if (path.starts_with('/')) {
        path.insert(0, ownVolume);
    }
    return isPosixPath(arguments[1]) ? Value("file:" + path) : Value(u"?");
}

// A folder as Get answers it: FileMaker's path, with a "/" at its end.
Value folder(const char* variable, const char* below)
{
    const char* value = std::getenv(variable);
    const std::string path = value != nullptr ? value : "/tmp";
    return {std::string(ownVolume) + path + (path.ends_with('/') ? "" : "/") + below};
}

template <fmx::Data::DataType type>
Value now()
{
    const fmx::DateTimeUniquePtr time;
    time->Now();
    time->SetNormalizedTime(time->GetHour(), time->GetMinute(), time->GetSec()); // whole seconds, as in FileMaker
    fmx::DataUniquePtr data;
    data->SetDateTime(*time, type, type);
    return Value(std::move(data));
}

} // namespace

std::optional<Value> stateOf(std::u16string_view flag)
{
    constexpr auto nothing = [] { return Value(u""); };
    static const std::map<std::u16string_view, Value (*)()> states{
        {u"currentdate", now<fmx::Data::kDTDate>},
        {u"currenthosttimestamp", now<fmx::Data::kDTTimeStamp>},
        {u"currenttime", now<fmx::Data::kDTTime>},
        {u"currenttimestamp", now<fmx::Data::kDTTimeStamp>},
        {u"desktoppath", [] { return folder("HOME", "Desktop/"); }},
        {u"documentspath", [] { return folder("HOME", "Documents/"); }},
        {u"lasterror", [] { return Value(0); }},
        {u"scriptparameter", nothing},
        {u"scriptresult", nothing},
        {u"systemplatform", [] { return Value(ownVolume.empty() ? 5 : 1); }},
        {u"temporarypath", [] { return folder("TMPDIR", ""); }},
    };
    const auto found = states.find(foldCase(flag));
    return found != states.end() ? std::optional(found->second()) : std::nullopt;
}

std::span<const Function> builtIns()
{
    static constexpr Function table[] = {
        {u"Case ( test1 ; result1 { ; test2 ; result2 ; … ; default } )",
         u"The result of the first test that is true, else the default.", 2, Function::anyNumber, nullptr},
        {u"Char ( number )", u"The character with this Unicode number; 10 is a line feed, 13 a ¶.", 1, 1, characterOf},
        {u"Code ( text )", u"The Unicode number of the first character.", 1, 1, codeOf},
        {u"ConvertFromFileMakerPath ( fileMakerPath ; format )",
         u"A path as FileMaker writes it in the format PosixPath.", 2, 2, convertFromFileMakerPath},
        {u"ConvertToFileMakerPath ( path ; format )", u"A path in the format PosixPath as FileMaker writes it.", 2, 2,
         convertToFileMakerPath},
        {u"DayOfWeek ( date )", u"1 for a Sunday to 7 for a Saturday.", 1, 1, dayOfWeek},
        {u"Evaluate ( expression )", u"The result of a text that is a calculation, \"?\" if it isn't one.", 1, 1,
         nullptr},
        {u"False", u"The number 0.", 0, 0, [](const Arguments&) { return Value(0); }},
        {u"Filter ( textToFilter ; filterText )", u"The text without what isn't among the characters of the other one.",
         2, 2, filter},
        {u"Get ( flag )",
         u"A state of FileMaker's: CurrentDate, CurrentTime, CurrentTimestamp, CurrentHostTimestamp, DesktopPath, "
         u"DocumentsPath, TemporaryPath, SystemPlatform, LastError, ScriptParameter, ScriptResult; others, and other "
         u"answers, by the option --get.",
         1, 1, nullptr},
        {u"GetAsNumber ( text )", u"The digits of a text as a number.", 1, 1,
         [](const Arguments& in) { return Value(in[0].data().GetAsNumber()); }},
        {u"GetAsText ( data )", u"Anything as a text.", 1, 1,
         [](const Arguments& in) { return Value(in[0].data().GetAsText()); }},
        {u"GetAsTimestamp ( data )", u"A text or a number of seconds as a timestamp.", 1, 1,
         [](const Arguments& in) { return moment(in[0], fmx::Data::kDTTimeStamp); }},
        {u"GetValue ( listOfValues ; valueNumber )", u"One value of a list separated by ¶; 1 is the first.", 2, 2,
         getValue},
        {u"If ( test ; resultIfTrue { ; resultIfFalse } )", u"One of two results.", 2, 3, nullptr},
        {u"IsEmpty ( value )", u"1 for an empty value, else 0.", 1, 1,
         [](const Arguments& in) { return Value(in[0].data().IsEmpty() ? 1 : 0); }},
        {u"Left ( text ; numberOfCharacters )", u"The beginning of a text.", 2, 2,
         [](const Arguments& in) { return Value(in[0].text().substr(0, countAt(in, 1))); }},
        {u"Length ( text )", u"The length of a text in UTF-16 units.", 1, 1,
         [](const Arguments& in) { return Value(std::int64_t{in[0].data().GetAsText().GetSize()}); }},
        {u"Let ( [ name1 = value1 ; $name2 = value2 ; … ] ; calculation )",
         u"Names values for a calculation; those with $ stay set for the calculations that follow.", 2, 2, nullptr},
        {u"List ( value1 { ; value2 ; … } )", u"The values that aren't empty, separated by ¶.", 1, Function::anyNumber,
         list},
        {u"Lower ( text )", u"The text in lower case.", 1, 1,
         [](const Arguments& in) { return inCase(in[0], &fmx::Text::Lowercase); }},
        {u"Middle ( text ; start ; numberOfCharacters )", u"A part of a text; 1 is the first character.", 3, 3,
         [](const Arguments& in) { return Value(in[0].text().substr(offsetAt(in, 1), countAt(in, 2))); }},
        {u"PatternCount ( text ; searchString )", u"How often a text stands in another one, in any letter case.", 2, 2,
         patternCount},
        {u"Position ( text ; searchString ; start ; occurrence )",
         u"Where a text stands in another one, in any letter case; 0 when it isn't there.", 4, 4, position},
        {u"PosixPath", u"The format of paths that the conversions know.", 0, 0,
         [](const Arguments&) { return Value(u"PosixPath"); }},
        {u"Quote ( text )", u"The text as a calculation would write it, in quotation marks.", 1, 1, quote},
        {u"Right ( text ; numberOfCharacters )", u"The end of a text.", 2, 2, right},
        {u"SortValues ( values { ; dataType } )",
         u"The values of a list in order, as texts (1), numbers (2), dates (3), times (4) or timestamps (5); downwards "
         u"with a negative number.",
         1, 3, sortValues},
        {u"Substitute ( text ; searchString ; replaceString )",
         u"Replaces a text wherever it stands, in this letter case; of several pairs each in brackets: "
         u"[ searchString ; replaceString ].",
         3, 3, substitute},
        {u"Trim ( text )", u"The text without blanks before and behind it.", 1, 1, trim},
        {u"True", u"The number 1.", 0, 0, [](const Arguments&) { return Value(1); }},
        {u"Upper ( text )", u"The text in upper case.", 1, 1,
         [](const Arguments& in) { return inCase(in[0], &fmx::Text::Uppercase); }},
        {u"ValueCount ( text )", u"How many values a list separated by ¶ has.", 1, 1,
         [](const Arguments& in) { return Value(static_cast<std::int64_t>(valuesOf(in[0]).size())); }},
        {u"While ( [ name1 = value1 ; … ] ; condition ; [ name1 = value2 ; … ] ; result )",
         u"Sets the second list's names over and over while the condition is true.", 4, 4, nullptr},
    };
    return table;
}

} // namespace fmxhost
