#include "host/base/unicode.h"
#include "host/calculation/built_ins.h"

#include <cstdlib>
#include <set>
#include <tuple>

namespace fmxhost {
namespace {

using List = std::vector<std::u16string>;

// A separator (¶, which is CR, LF, U+2028 and U+2029) at the end closes the last value, it doesn't begin another one.
List valuesOf(const std::u16string& text)
{
    List values;
    for (std::size_t start = 0; start < text.size();) {
        const std::size_t end = std::min(text.find_first_of(u"\r\n\u2028\u2029", start), text.size());
        values.push_back(text.substr(start, end - start));
        start = end + 1;
    }
    return values;
}

// So many of the values from one on, each with a ¶ behind it.
std::u16string listOf(const List& values, std::size_t first = 0, std::size_t count = std::size_t(-1))
{
    std::u16string result;
    for (std::size_t index = first; index < values.size() && index - first < count; ++index) {
        result += values[index] + u'\r';
    }
    return result;
}

std::u16string getValue(const std::u16string& text, Count number)
{
    const List values = valuesOf(text);
    return number > 0 && number <= values.size() ? values[number - 1] : u"";
}

// In any letter case.
std::u16string filterValues(const std::u16string& text, const std::u16string& filter)
{
    List values = valuesOf(text);
    const List kept = valuesOf(foldCase(filter));
    std::erase_if(values, [&](const std::u16string& value) {
        return std::find(kept.begin(), kept.end(), foldCase(value)) == kept.end();
    });
    return listOf(values);
}

// Empty values are left out.
std::u16string list(const Arguments& arguments)
{
    std::u16string result;
    for (const Value& value : arguments) {
        const std::u16string text = value.text();
        result += (result.empty() || text.empty() ? u"" : u"\r") + text;
    }
    return result;
}

// What a value is compared by: the text, or with the number of another type of data its number.
std::pair<double, std::u16string> keyOf(const std::u16string& value, std::int64_t type)
{
    if (type < 2) {
        return {0, foldCase(value)};
    }
    try {
        return {(type == 2 ? Value(value) : momentOf(Value(value), fmx::Data::DataType(type))).number(), u""};
    } catch (const NoResult&) {
        return {};
    }
}

std::int64_t typeOf(const Arguments& arguments)
{
    return arguments.size() > 1 ? std::clamp<std::int64_t>(arguments[1].integer(), -5, 5) : 1;
}

// Downwards for a negative type.
std::u16string sortValues(const Arguments& arguments)
{
    const std::int64_t type = typeOf(arguments);
    List values = valuesOf(arguments[0].text());
    std::stable_sort(values.begin(), values.end(), [type](const auto& left, const auto& right) {
        const auto& [a, b] = type < 0 ? std::tie(right, left) : std::tie(left, right);
        return keyOf(a, std::abs(type)) < keyOf(b, std::abs(type));
    });
    return listOf(values);
}

std::u16string uniqueValues(const Arguments& arguments)
{
    std::set<std::pair<double, std::u16string>> known;
    List values = valuesOf(arguments[0].text());
    std::erase_if(values, [&, type = std::abs(typeOf(arguments))](const std::u16string& value) {
        return !known.insert(keyOf(value, type)).second;
    });
    return listOf(values);
}

} // namespace

std::vector<Function> listFunctions()
{
    return {
        row(u"FilterValues ( textToFilter ; filterValues )", filterValues),
        row(u"GetValue ( listOfValues ; valueNumber )", getValue),
        row(u"LeftValues ( text ; numberOfValues )",
            [](const std::u16string& text, Count count) { return listOf(valuesOf(text), 0, count); }),
        {u"List ( value { ; value … } )", 1, -1, list},
        row(u"MiddleValues ( text ; startingValue ; numberOfValues )",
            [](const std::u16string& text, Count first, Count count) {
                return listOf(valuesOf(text), std::max<std::size_t>(first, 1) - 1, count);
            }),
        row(u"RightValues ( text ; numberOfValues )",
            [](const std::u16string& text, Count count) {
                const List values = valuesOf(text);
                return listOf(values, values.size() - std::min(values.size(), count.value));
            }),
        {u"SortValues ( values { ; dataType ; locale } )", 1, 3, sortValues},
        {u"UniqueValues ( values { ; dataType ; locale } )", 1, 3, uniqueValues},
        row(u"ValueCount ( text )",
            [](const std::u16string& text) { return static_cast<std::int64_t>(valuesOf(text).size()); }),
    };
}

} // namespace fmxhost
