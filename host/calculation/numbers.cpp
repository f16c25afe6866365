#include "host/calculation/built_ins.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>

namespace fmxhost {
namespace {

// In as many digits as it has.
Value ofReal(long double value)
{
    using Limits = std::numeric_limits<long double>;
    if (!std::isfinite(value)) {
        throw NoResult{Value::undefined()};
    }
    const int digitsBefore = value != 0 ? static_cast<int>(std::floor(std::log10(std::fabs(value)))) + 1 : 0;
    char text[Limits::max_exponent10 + Limits::digits10];
    std::snprintf(text, sizeof text, "%.*Lf", std::clamp(Limits::digits10 - digitsBefore, 0, 16), value);
    return Value(Value(text).data().GetAsNumber());
}

Value towardsZero(const Value& number)
{
    return number < 0 ? 0 - floorOf(0 - number) : floorOf(number);
}

// Negative places are digits before the decimal point.
Value atPlaces(const Value& number, const Value& places, const std::function<Value(const Value&)>& whole)
{
    const Value unit = power(10, places);
    return whole(number * unit) / unit;
}

// The least of the values; with the factor -1 the greatest. Empty ones don't count.
Value least(const Arguments& arguments, int factor = 1)
{
    Value found;
    for (const Value& value : arguments) {
        const bool isFirst = found.data().IsEmpty();
        found = !value.data().IsEmpty() && (isFirst || value * factor < found * factor) ? value : found;
    }
    return found;
}

} // namespace

Value floorOf(const Value& number)
{
    const Value nearest = number.rounded();
    return number < nearest ? nearest - 1 : nearest;
}

Value power(const Value& base, const Value& exponent)
{
    if (!(exponent == exponent.rounded())) {
        const auto real = [](const Value& value) { return std::strtold(value.utf8().c_str(), nullptr); };
        return ofReal(std::pow(real(base), real(exponent)));
    }
    if (exponent < 0) {
        return 1 / power(base, 0 - exponent);
    }
    Value result = 1;
    Value square = base; // to the power of two that is the value of the rest's last binary digit
    for (std::int64_t rest = exponent.integer(); rest > 0; rest /= 2) {
        result = rest % 2 != 0 ? result * square : result;
        square = rest > 1 ? square * square : square;
    }
    return result;
}

std::vector<Function> numberFunctions()
{
    using In = const Value&;
    return {
        row(u"Abs ( number )", [](In number) { return number < 0 ? 0 - number : number + 0; }),
        row(u"Ceiling ( number )", [](In number) { return 0 - floorOf(0 - number); }),
        row(u"Div ( number ; divisor )", [](In number, In divisor) { return floorOf(number / divisor); }),
        row(u"Floor ( number )", floorOf),
        row(u"Int ( number )", towardsZero),
        {u"Max ( value { ; value … } )", 1, -1, [](const Arguments& all) { return least(all, -1); }},
        {u"Min ( value { ; value … } )", 1, -1, [](const Arguments& all) { return least(all); }},
        row(u"Mod ( number ; divisor )",
            [](In number, In divisor) { return number - divisor * floorOf(number / divisor); }),
        row(u"Pi", [] { return Value(u"3.1415926535897932").rounded(16); }),
        row(u"Round ( number ; precision )",
            [](In number, In precision) {
                return atPlaces(number, precision, [](In scaled) { return scaled.rounded(); });
            }),
        row(u"Sign ( number )", [](In number) { return (0 < number ? 1 : 0) - (number < 0 ? 1 : 0); }),
        row(u"Sqrt ( number )", [](In number) { return power(number, u".5"); }),
        row(u"Truncate ( number ; precision )",
            [](In number, In precision) { return atPlaces(number, precision, towardsZero); }),
    };
}

} // namespace fmxhost
