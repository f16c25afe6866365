#include "host/calculation/operators.h"

#include "host/unicode.h"

#include <algorithm>

namespace fmxhost {
namespace {

bool isText(const Value& value)
{
    return value.type() == ValueType::text || value.type() == ValueType::empty;
}

bool hasDigit(std::u16string_view text)
{
    return std::any_of(text.begin(), text.end(), [](char16_t unit) { return unit >= u'0' && unit <= u'9'; });
}

Value concatenated(const Value& left, const Value& right)
{
    const fmx::TextUniquePtr text;
    text->SetText(left.data().GetAsText());
    text->AppendText(right.data().GetAsText());
    return Value(*text);
}

Value calculated(Operator operation, const Value& left, const Value& right, Span place)
{
    const fmx::FixPt& a = left.data().GetAsNumber();
    const fmx::FixPt& b = right.data().GetAsNumber();
    const fmx::FixPtUniquePtr result;
    switch (operation) {
    case Operator::add:
        a.Add(b, *result);
        break;
    case Operator::subtract:
        a.Subtract(b, *result);
        break;
    case Operator::multiply:
        a.Multiply(b, *result);
        break;
    default:
        if (a.Divide(b, *result) != 0) {
            throw CalculationError(place, "A number can't be divided by zero.");
        }
        break;
    }
    return Value(*result);
}

Value truth(bool holds)
{
    return {holds ? 1 : 0};
}

} // namespace

std::weak_ordering compare(const Value& left, const Value& right)
{
    const bool asTexts = (isText(left) && isText(right)) || (isText(left) && !hasDigit(left.text())) ||
                         (isText(right) && !hasDigit(right.text()));
    if (asTexts) {
        return foldCase(left.text()).compare(foldCase(right.text())) <=> 0;
    }
    const fmx::FixPt& a = left.data().GetAsNumber();
    const fmx::FixPt& b = right.data().GetAsNumber();
    if (a == b) {
        return std::weak_ordering::equivalent;
    }
    return a < b ? std::weak_ordering::less : std::weak_ordering::greater;
}

Value apply(Operator operation, const Value& left, const Value& right, Span place)
{
    switch (operation) {
    case Operator::logicalOr:
        return truth(left.boolean() || right.boolean());
    case Operator::logicalXor:
        return truth(left.boolean() != right.boolean());
    case Operator::logicalAnd:
        return truth(left.boolean() && right.boolean());
    case Operator::equal:
        return truth(std::is_eq(compare(left, right)));
    case Operator::notEqual:
        return truth(std::is_neq(compare(left, right)));
    case Operator::less:
        return truth(std::is_lt(compare(left, right)));
    case Operator::greater:
        return truth(std::is_gt(compare(left, right)));
    case Operator::lessOrEqual:
        return truth(std::is_lteq(compare(left, right)));
    case Operator::greaterOrEqual:
        return truth(std::is_gteq(compare(left, right)));
    case Operator::concatenate:
        return concatenated(left, right);
    default:
        return calculated(operation, left, right, place);
    }
}

Value negated(const Value& value)
{
    const fmx::FixPtUniquePtr result;
    const fmx::FixPtUniquePtr zero;
    zero->Subtract(value.data().GetAsNumber(), *result);
    return Value(*result);
}

} // namespace fmxhost
