#include "host/calculation/functions.h"

#include "host/base/unicode.h"
#include "host/calculation/built_ins.h"

#include <algorithm>
#include <iterator>

namespace fmxhost {
namespace {

// Without the prefix that all functions of a plug-in share, which says nothing about which one is meant.
std::u16string withoutPrefix(const std::u16string& name)
{
    return name.substr(name.find(u'_') + 1); // npos + 1: all of it
}

// How many insertions, deletions, substitutions and swaps of neighbours make one text of the other (optimal string
// alignment distance), in UTF-16 units. Time and space grow with the product of the lengths.
std::size_t editDistance(std::u16string_view a, std::u16string_view b)
{
    std::vector<std::vector<std::size_t>> distances(a.size() + 1, std::vector<std::size_t>(b.size() + 1));
    for (std::size_t row = 0; row <= a.size(); ++row) {
        for (std::size_t column = 0; column <= b.size(); ++column) {
            std::size_t& distance = distances[row][column];
            distance = row + column;
            if (row > 0 && column > 0) {
                const std::size_t substituted = distances[row - 1][column - 1] + (a[row - 1] == b[column - 1] ? 0 : 1);
                distance = std::min({distances[row - 1][column] + 1, distances[row][column - 1] + 1, substituted});
            }
            if (row > 1 && column > 1 && a[row - 1] == b[column - 2] && a[row - 2] == b[column - 1]) {
                distance = std::min(distance, distances[row - 2][column - 2] + 1);
            }
        }
    }
    return distances.back().back();
}

// ---- How FileMaker's operators choose between types

// Negative, 0 or positive. Next to a text anything is a text, and what isn't defined is one.
int compare(const Value& left, const Value& right)
{
    const auto isText = [](const Value& value) {
        return value.type() == ValueType::text || value.type() == ValueType::empty || value.isUndefined();
    };
    if (isText(left) || isText(right)) {
        return foldCase(left.text()).compare(foldCase(right.text()));
    }
    return left == right ? 0 : left < right ? -1 : 1;
}

Value concatenated(const Value& left, const Value& right)
{
    const fmx::TextUniquePtr text;
    text->SetText(left.data().GetAsText());
    text->AppendText(right.data().GetAsText());
    return Value(*text);
}

} // namespace

const Operator* findOperator(std::u16string_view symbol)
{
    using In = const Value&;
    static constexpr Operator table[] = {
        {u"or", 0, true, [](In a, In b) { return Value(a.boolean() || b.boolean()); }},
        {u"xor", 0, {}, [](In a, In b) { return Value(a.boolean() != b.boolean()); }},
        {u"and", 1, false, [](In a, In b) { return Value(a.boolean() && b.boolean()); }},
        {u"=", 2, {}, [](In a, In b) { return Value(compare(a, b) == 0); }},
        {u"≠", 2, {}, [](In a, In b) { return Value(compare(a, b) != 0); }},
        {u"<", 2, {}, [](In a, In b) { return Value(compare(a, b) < 0); }},
        {u">", 2, {}, [](In a, In b) { return Value(compare(a, b) > 0); }},
        {u"≤", 2, {}, [](In a, In b) { return Value(compare(a, b) <= 0); }},
        {u"≥", 2, {}, [](In a, In b) { return Value(compare(a, b) >= 0); }},
        {u"&", 3, {}, concatenated},
        {u"+", 4, {}, [](In a, In b) { return inTypeOf(a, b, a + b, false); }},
        {u"-", 4, {}, [](In a, In b) { return inTypeOf(a, b, a - b, true); }},
        {u"*", 5, {}, [](In a, In b) { return a * b; }},
        {u"/", 5, {}, [](In a, In b) { return a / b; }},
        {u"^", 6, {}, power},
    };
    const auto* found =
        std::find_if(std::begin(table), std::end(table), [&](const Operator& entry) { return entry.symbol == symbol; });
    return found != std::end(table) ? found : nullptr;
}

std::string rangeText(int least, int most)
{
    return std::to_string(least) + (most < 0 ? " or more" : most != least ? " to " + std::to_string(most) : "");
}

std::string suggestion(std::string_view word, const std::vector<std::string>& candidates)
{
    constexpr std::size_t longestWord = 200;
    const std::u16string given = withoutPrefix(foldCase(toUtf16(word)));
    std::string best;
    std::size_t bestDistance = std::max<std::size_t>(1, given.size() / 3) + 1;
    for (const std::string& candidate : candidates) {
        const std::u16string folded = withoutPrefix(foldCase(toUtf16(candidate)));
        const std::size_t distance = given.size() > longestWord ? bestDistance : editDistance(given, folded);
        if (distance < bestDistance) {
            best = " Did you mean " + candidate + "?";
            bestDistance = distance;
        }
    }
    return best;
}

FunctionTable::FunctionTable(const std::vector<fmxkit::ExternalFunction>& functions)
    : functions_(functions.begin(), functions.end())
{
    functions_.insert(functions_.end(), builtIns().begin(), builtIns().end());
    for (const Function& function : functions_) {
        byFoldedName_.insert_or_assign(foldCase(function.name), &function); // FileMaker's stay: they are last
    }
}

const Function* FunctionTable::find(std::u16string_view name) const
{
    const auto found = byFoldedName_.find(foldCase(name));
    return found != byFoldedName_.end() ? found->second : nullptr;
}

std::string FunctionTable::unknownText(std::u16string_view name, std::string_view kind) const
{
    if (isLacking(name)) {
        return toUtf8(name) + " is a function of FileMaker that fmxhost lacks.";
    }
    std::vector<std::string> names;
    for (const Function& function : functions_) {
        names.push_back(toUtf8(function.name));
    }
    return "There is no " + std::string(kind) + " called " + toUtf8(name) + "." + suggestion(toUtf8(name), names);
}

} // namespace fmxhost
