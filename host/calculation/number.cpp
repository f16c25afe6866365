#include "host/calculation/number.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>

namespace fmxhost {
namespace {

constexpr int workingPlaces = 48;
constexpr int shownPlaces = 16; // FileMaker's, unless SetPrecision says otherwise

} // namespace

Value undefinedValue(fmx::Data::DataType type)
{
    fmx::DataUniquePtr data;
    data->SetAsText(Value(u"?").data().GetAsText(), *fmx::LocaleUniquePtr(), type);
    return Value(std::move(data));
}

bool isUndefined(const Value& value)
{
    const ValueType type = value.type();
    return type != ValueType::empty && type != ValueType::text && type != ValueType::container &&
           !value.data().IsValid();
}

Number::Number(std::int64_t value)
{
    fmx::FixPtUniquePtr number(0, workingPlaces);
    number->AssignInt64(static_cast<fmx::int64>(value));
    number_ = std::move(number);
}

Number::Number(const Value& value)
{
    if (isUndefined(value)) {
        throw NoResult{value};
    }
    fmx::FixPtUniquePtr number(0, workingPlaces);
    number->AssignFixPt(value.data().GetAsNumber());
    number_ = std::move(number);
}

Number Number::ofReal(long double value)
{
    if (!std::isfinite(value)) {
        throw NoResult{undefinedValue()};
    }
    const int digitsBefore = value != 0 ? static_cast<int>(std::floor(std::log10(std::fabs(value)))) + 1 : 0;
    const int places = std::clamp(std::numeric_limits<long double>::digits10 - digitsBefore, 0, shownPlaces);
    char text[std::numeric_limits<long double>::max_exponent10 + shownPlaces + 4];
    std::snprintf(text, sizeof text, "%.*Lf", places, value);
    return Number(Value(text));
}

Number::operator Value() const
{
    return Value(*rounded(shownPlaces).number_);
}

long double Number::real() const
{
    return std::strtold(Value(*number_).utf8().c_str(), nullptr);
}

Number Number::rounded(int places) const
{
    fmx::FixPtUniquePtr result(0, places);
    result->AssignFixPt(*number_);
    return Number(std::move(result));
}

template <auto operation>
Number Number::combined(const Number& a, const Number& b)
{
    fmx::FixPtUniquePtr result(0, workingPlaces);
    ((*a.number_).*operation)(*b.number_, *result);
    return Number(std::move(result));
}

Number operator+(const Number& a, const Number& b)
{
    return Number::combined<&fmx::FixPt::Add>(a, b);
}

Number operator-(const Number& a, const Number& b)
{
    return Number::combined<&fmx::FixPt::Subtract>(a, b);
}

Number operator*(const Number& a, const Number& b)
{
    return Number::combined<&fmx::FixPt::Multiply>(a, b);
}

Number operator/(const Number& a, const Number& b)
{
    if (b == 0) {
        throw NoResult{undefinedValue()};
    }
    return Number::combined<&fmx::FixPt::Divide>(a, b);
}

Number floorOf(const Number& number)
{
    const Number nearest = number.rounded(0);
    return number < nearest ? nearest - 1 : nearest;
}

Number power(const Number& base, const Number& exponent)
{
    if (!(exponent == exponent.rounded(0))) {
        return Number::ofReal(std::pow(base.real(), exponent.real()));
    }
    if (exponent < 0) {
        return 1 / power(base, 0 - exponent);
    }
    Number result = 1;
    Number square = base; // to the power of two that has the binary digit's value
    for (std::int64_t rest = exponent.integer(); rest > 0; rest /= 2) {
        result = rest % 2 != 0 ? result * square : result;
        square = rest > 1 ? square * square : square;
    }
    return result;
}

} // namespace fmxhost
