#include "host/base/unicode.h"
#include "host/calculation/built_ins.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <set>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace fmxhost {
namespace {

constexpr std::u16string_view separators = u"\r\n\u2028\u2029"; // of values; ¶, which is \r, is the one in results

// A separator at the end closes the last value, it doesn't begin another one.
std::vector<std::u16string> valuesOf(const std::u16string& text)
{
    std::vector<std::u16string> values;
    for (std::size_t start = 0; start < text.size();) {
        const std::size_t end = std::min(text.find_first_of(separators, start), text.size());
        values.push_back(text.substr(start, end - start));
        start = end + 1;
    }
    return values;
}

// So many of the values from one on, each with a ¶ behind it.
Value listOf(const std::vector<std::u16string>& values, std::size_t first = 0, std::size_t count = std::size_t(-1))
{
    std::u16string result;
    for (std::size_t index = first; index < values.size() && index - first < count; ++index) {
        result += values[index] + u'\r';
    }
    return {result};
}

Value getValue(const std::u16string& text, std::size_t number)
{
    const std::vector<std::u16string> values = valuesOf(text);
    return number > 0 && number <= values.size() ? Value(values[number - 1]) : Value(u"");
}

Value rightValues(const std::u16string& text, std::size_t count)
{
    const std::vector<std::u16string> values = valuesOf(text);
    return listOf(values, values.size() - std::min(values.size(), count));
}

// Values that are equal but for letter case are one.
Value filterValues(const std::u16string& text, const std::u16string& filter)
{
    std::vector<std::u16string> values = valuesOf(text);
    const std::vector<std::u16string> kept = valuesOf(foldCase(filter));
    values.erase(std::remove_if(values.begin(), values.end(),
                                [&](const auto& value) {
                                    return std::find(kept.begin(), kept.end(), foldCase(value)) == kept.end();
                                }),
                 values.end());
    return listOf(values);
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

// What a value is compared by, by FileMaker's number for the type of data: a text, or for 2 to 5 the number of a
// number, date, time or timestamp.
std::pair<double, std::u16string> keyOf(const std::u16string& value, std::int64_t type)
{
    try {
        return type < 2   ? std::pair(0.0, foldCase(value))
               : type < 3 ? std::pair(Value(value).number(), std::u16string())
                          : std::pair(momentOf(Value(value), fmx::Data::DataType(type)).number(), std::u16string());
    } catch (const NoResult&) {
        return {};
    }
}

std::int64_t typeOf(const Arguments& arguments)
{
    return arguments.size() > 1 ? std::clamp<std::int64_t>(arguments[1].integer(), -5, 5) : 1;
}

// Downwards for a negative type.
Value sortValues(const Arguments& arguments)
{
    const std::int64_t type = typeOf(arguments);
    std::vector<std::u16string> values = valuesOf(arguments[0].text());
    std::stable_sort(values.begin(), values.end(), [type](const auto& left, const auto& right) {
        const auto& [a, b] = type < 0 ? std::tie(right, left) : std::tie(left, right);
        return keyOf(a, std::abs(type)) < keyOf(b, std::abs(type));
    });
    return listOf(values);
}

Value uniqueValues(const Arguments& arguments)
{
    std::set<std::pair<double, std::u16string>> known;
    std::vector<std::u16string> unique;
    for (const std::u16string& value : valuesOf(arguments[0].text())) {
        if (known.insert(keyOf(value, std::abs(typeOf(arguments)))).second) {
            unique.push_back(value);
        }
    }
    return listOf(unique);
}

} // namespace

std::vector<Function> listFunctions()
{
    return {
        row(u"FilterValues ( textToFilter ; filterValues )", u"The values that are in another list, too.",
            filterValues),
        row(u"GetValue ( listOfValues ; valueNumber )", u"One value of a list separated by ¶; 1 is the first.",
            getValue),
        row(u"LeftValues ( text ; numberOfValues )", u"The first values of a list.",
            [](const std::u16string& text, std::size_t count) { return listOf(valuesOf(text), 0, count); }),
        row(u"List ( value { ; value … } )", u"The values that aren't empty, separated by ¶.", list),
        row(u"MiddleValues ( text ; startingValue ; numberOfValues )", u"Values of a list from one on; 1 is the first.",
            [](const std::u16string& text, std::size_t first, std::size_t count) {
                return listOf(valuesOf(text), std::max<std::size_t>(first, 1) - 1, count);
            }),
        row(u"RightValues ( text ; numberOfValues )", u"The last values of a list.", rightValues),
        row(u"SortValues ( values { ; dataType ; locale } )",
            u"The values of a list in order, as texts (1), numbers (2), dates (3), times (4) or timestamps (5); "
            u"downwards "
            u"with a negative number.",
            sortValues),
        row(u"UniqueValues ( values { ; dataType ; locale } )",
            u"Each value of a list once, compared as SortValues does.", uniqueValues),
        row(u"ValueCount ( text )", u"How many values a list separated by ¶ has.",
            [](const std::u16string& text) { return static_cast<std::int64_t>(valuesOf(text).size()); }),
    };
}

} // namespace fmxhost
