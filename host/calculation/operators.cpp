#include "host/base/unicode.h"
#include "host/calculation/functions.h"
#include "host/calculation/moment.h"

#include <algorithm>
#include <iterator>

namespace fmxhost {
namespace {

Value truth(bool holds)
{
    return {holds ? 1 : 0};
}

bool isText(const Value& value)
{
    return value.type() == ValueType::text || value.type() == ValueType::empty;
}

// Negative, 0 or positive. Next to a text anything is a text.
int compare(const Value& left, const Value& right)
{
    if (isText(left) || isText(right) || isUndefined(left) || isUndefined(right)) {
        return foldCase(left.text()).compare(foldCase(right.text()));
    }
    const fmx::FixPt& a = left.data().GetAsNumber();
    const fmx::FixPt& b = right.data().GetAsNumber();
    return a == b ? 0 : a < b ? -1 : 1;
}

Value concatenated(const Value& left, const Value& right)
{
    const fmx::TextUniquePtr text;
    text->SetText(left.data().GetAsText());
    text->AppendText(right.data().GetAsText());
    return Value(*text);
}

template <typename Operation>
Value calculated(const Value& left, const Value& right, const Operation& operation)
{
    try {
        return operation(Number(left), Number(right));
    } catch (const NoResult& none) {
        return none.value;
    }
}

Value sum(const Value& left, const Value& right)
{
    return calculated(left, right,
                      [&](const Number& a, const Number& b) { return inTypeOf(left, right, a + b, false); });
}

Value difference(const Value& left, const Value& right)
{
    return calculated(left, right,
                      [&](const Number& a, const Number& b) { return inTypeOf(left, right, a - b, true); });
}

} // namespace

const Operator* findOperator(std::u16string_view symbol)
{
    static constexpr Operator table[] = {
        {u"or", 0, true, [](const Value& a, const Value& b) { return truth(a.boolean() || b.boolean()); }},
        {u"xor", 0, {}, [](const Value& a, const Value& b) { return truth(a.boolean() != b.boolean()); }},
        {u"and", 1, false, [](const Value& a, const Value& b) { return truth(a.boolean() && b.boolean()); }},
        {u"=", 2, {}, [](const Value& a, const Value& b) { return truth(compare(a, b) == 0); }},
        {u"≠", 2, {}, [](const Value& a, const Value& b) { return truth(compare(a, b) != 0); }},
        {u"<", 2, {}, [](const Value& a, const Value& b) { return truth(compare(a, b) < 0); }},
        {u">", 2, {}, [](const Value& a, const Value& b) { return truth(compare(a, b) > 0); }},
        {u"≤", 2, {}, [](const Value& a, const Value& b) { return truth(compare(a, b) <= 0); }},
        {u"≥", 2, {}, [](const Value& a, const Value& b) { return truth(compare(a, b) >= 0); }},
        {u"&", 3, {}, concatenated},
        {u"+", 4, {}, sum},
        {u"-", 4, {}, difference},
        {u"*", 5, {}, [](const Value& a, const Value& b) { return calculated(a, b, std::multiplies<>()); }},
        {u"/", 5, {}, [](const Value& a, const Value& b) { return calculated(a, b, std::divides<>()); }},
        {u"^", 6, {}, [](const Value& a, const Value& b) { return calculated(a, b, power); }},
    };
    const auto* found =
        std::find_if(std::begin(table), std::end(table), [&](const Operator& entry) { return entry.symbol == symbol; });
    return found != std::end(table) ? found : nullptr;
}

} // namespace fmxhost
