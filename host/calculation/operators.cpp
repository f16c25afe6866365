// Values are the kit's, and so are the conversions and the decimal arithmetic; what stands here is how FileMaker's
// operators choose between text and number.
#include "host/calculation/functions.h"

#include "host/base/unicode.h"

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

bool isNoNumber(const Value& value)
{
    return isText(value) && value.text().find_first_of(u"0123456789") == std::u16string::npos;
}

// Negative, 0 or positive; see evaluate().
int compare(const Value& left, const Value& right)
{
    if ((isText(left) && isText(right)) || isNoNumber(left) || isNoNumber(right)) {
        return foldCase(left.text()).compare(foldCase(right.text()));
    }
    const fmx::FixPt& a = left.data().GetAsNumber();
    const fmx::FixPt& b = right.data().GetAsNumber();
    return a == b ? 0 : a < b ? -1 : 1;
}

Value concatenated(const Value& left, const Value& right, Span)
{
    const fmx::TextUniquePtr text;
    text->SetText(left.data().GetAsText());
    text->AppendText(right.data().GetAsText());
    return Value(*text);
}

template <auto operation>
Value calculated(const Value& left, const Value& right, Span)
{
    const fmx::FixPtUniquePtr result;
    (left.data().GetAsNumber().*operation)(right.data().GetAsNumber(), *result);
    return Value(*result);
}

Value divided(const Value& left, const Value& right, Span place)
{
    const fmx::FixPtUniquePtr result;
    if (left.data().GetAsNumber().Divide(right.data().GetAsNumber(), *result) != 0) {
        throw CalculationError(place, "A number can't be divided by zero.");
    }
    return Value(*result);
}

} // namespace

std::span<const Operator> operators()
{
    static constexpr Operator table[] = {
        {u"or", 0, true, [](const Value& a, const Value& b, Span) { return truth(a.boolean() || b.boolean()); }},
        {u"xor", 0, {}, [](const Value& a, const Value& b, Span) { return truth(a.boolean() != b.boolean()); }},
        {u"and", 1, false, [](const Value& a, const Value& b, Span) { return truth(a.boolean() && b.boolean()); }},
        {u"=", 2, {}, [](const Value& a, const Value& b, Span) { return truth(compare(a, b) == 0); }},
        {u"≠", 2, {}, [](const Value& a, const Value& b, Span) { return truth(compare(a, b) != 0); }},
        {u"<", 2, {}, [](const Value& a, const Value& b, Span) { return truth(compare(a, b) < 0); }},
        {u">", 2, {}, [](const Value& a, const Value& b, Span) { return truth(compare(a, b) > 0); }},
        {u"≤", 2, {}, [](const Value& a, const Value& b, Span) { return truth(compare(a, b) <= 0); }},
        {u"≥", 2, {}, [](const Value& a, const Value& b, Span) { return truth(compare(a, b) >= 0); }},
        {u"&", 3, {}, concatenated},
        {u"+", 4, {}, calculated<&fmx::FixPt::Add>},
        {u"-", 4, {}, calculated<&fmx::FixPt::Subtract>},
        {u"*", 5, {}, calculated<&fmx::FixPt::Multiply>},
        {u"/", 5, {}, divided},
    };
    return table;
}

std::span<const Sign> signs()
{
    static constexpr Sign table[] = {
        {u"not", [](const Value& value) { return truth(!value.boolean()); }},
        {u"-", [](const Value& value) { return calculated<&fmx::FixPt::Subtract>(Value(0), value, {}); }},
        {u"+", [](const Value& value) { return Value(value.data().GetAsNumber()); }},
    };
    return table;
}

} // namespace fmxhost
