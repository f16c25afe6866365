#include "host/calculation/built_ins.h"

#include <cmath>
#include <iterator>

namespace fmxhost {
namespace {

Number absolute(const Number& number)
{
    return number < 0 ? 0 - number : number;
}

// Negative places are digits before the decimal point.
Number atPlaces(const Number& number, std::int64_t places, Number (*whole)(const Number& number))
{
    const Number unit = power(10, places);
    return whole(number * unit) / unit;
}

Number rounded(const Number& number, std::int64_t places)
{
    return atPlaces(number, places, [](const Number& scaled) { return scaled.rounded(0); });
}

Number truncated(const Number& number, std::int64_t places)
{
    const Number magnitude = atPlaces(absolute(number), places, floorOf);
    return number < 0 ? 0 - magnitude : magnitude;
}

Number product(const Number& from, const Number& to)
{
    constexpr std::int64_t most = 1000; // more have too many digits, or are 0
    Number result = 1;
    Number factor = from;
    for (std::int64_t count = 0; factor < to + 1 && count < most; ++count, factor = factor + 1) {
        result = result * factor;
    }
    return result;
}

Number squareRoot(const Number& number)
{
    Number root = Number::ofReal(std::sqrt(number.real()));
    if (!(root == 0)) {
        root = (root + number / root) / 2; // doubles the digits that are right
    }
    return root;
}

template <long double (*function)(long double)>
Number real(const Number& number)
{
    return Number::ofReal(function(number.real()));
}

// ---- Of all arguments. Empty ones don't count.

std::vector<Value> given(const Arguments& arguments)
{
    std::vector<Value> values;
    std::copy_if(arguments.begin(), arguments.end(), std::back_inserter(values),
                 [](const Value& value) { return !value.data().IsEmpty(); });
    return values;
}

template <bool isLargest>
Value extreme(const Arguments& arguments)
{
    const std::vector<Value> values = given(arguments);
    const auto found = std::max_element(values.begin(), values.end(), [](const Value& a, const Value& b) {
        return isLargest ? Number(a) < Number(b) : Number(b) < Number(a);
    });
    return found != values.end() ? *found : Value();
}

Number sumOf(const Arguments& arguments)
{
    Number sum = 0;
    for (const Value& value : arguments) {
        sum = sum + Number(value);
    }
    return sum;
}

Number countOf(const Arguments& arguments)
{
    return static_cast<std::int64_t>(given(arguments).size());
}

} // namespace

std::vector<Function> numberFunctions()
{
    const Number pi = Number(Value(u"3.14159265358979323846264338327950288419716939937510"));
    return {
        row(u"Abs ( number )", u"The number without its sign.", absolute),
        row(u"Average ( number { ; number … } )", u"The mean of numbers; empty values don't count.",
            [](const Arguments& all) { return sumOf(all) / countOf(all); }),
        row(u"Ceiling ( number )", u"The next whole number upwards.",
            [](const Number& number) { return 0 - floorOf(0 - number); }),
        row(u"Combination ( setSize ; numberOfChoices )", u"In how many ways so many can be chosen of a set.",
            [](const Number& set, const Number& chosen) {
                return product(set - chosen + 1, set) / product(1, chosen);
            }),
        row(u"Count ( value { ; value … } )", u"How many of the values aren't empty.", countOf),
        row(u"Div ( number ; divisor )", u"The whole part of a quotient.",
            [](const Number& number, const Number& divisor) { return floorOf(number / divisor); }),
        row(u"Exp ( number )", u"e to the power of the number.", real<std::exp>),
        row(u"Factorial ( number )", u"The product of the whole numbers up to this one.",
            [](const Number& number) { return product(1, number); }),
        row(u"Floor ( number )", u"The next whole number downwards.", floorOf),
        row(u"Int ( number )", u"The number without the digits behind its decimal point.",
            [](const Number& number) { return truncated(number, 0); }),
        row(u"Lg ( number )", u"The logarithm to the base 2.", real<std::log2>),
        row(u"Ln ( number )", u"The natural logarithm.", real<std::log>),
        row(u"Log ( number )", u"The logarithm to the base 10.", real<std::log10>),
        row(u"Max ( value { ; value … } )", u"The greatest of the values.", extreme<true>),
        row(u"Min ( value { ; value … } )", u"The least of the values.", extreme<false>),
        row(u"Mod ( number ; divisor )", u"The remainder of a division, with the divisor's sign.",
            [](const Number& number, const Number& divisor) { return number - divisor * floorOf(number / divisor); }),
        row(u"Pi", u"3.14159…", [pi] { return pi; }),
        row(u"Round ( number ; precision )", u"The number with so many digits behind its decimal point.", rounded),
        row(u"Sign ( number )", u"-1, 0 or 1 as the number is negative, 0 or positive.",
            [](const Number& number) {
                return Value(number < 0 ? -1 : number == 0 ? 0 : 1);
            }),
        row(u"Sqrt ( number )", u"The square root.", squareRoot),
        row(u"Sum ( number { ; number … } )", u"The sum of the numbers.", sumOf),
        row(u"Truncate ( number ; precision )", u"The number cut off to so many digits behind its decimal point.",
            truncated),
    };
}

} // namespace fmxhost
