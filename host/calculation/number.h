// FileMaker's decimal numbers, to calculate with.
#pragma once

#include "host/base/value.h"

#include <cstdint>
#include <memory>
#include <utility>

namespace fmxhost {

// Thrown where FileMaker has no result: ends the function or the operation with this value instead, "?" or an empty
// one.
struct NoResult {
    Value value;
};

// The "?" that FileMaker shows for what can't be calculated: a value of that type that isn't valid.
Value undefinedValue(fmx::Data::DataType type = fmx::Data::kDTNumber);
bool isUndefined(const Value& value);

// Immutable. Operators keep more places behind the decimal point than a Value, which is rounded to FileMaker's 16.
// Errors: NoResult of what isn't defined (a division by zero, an operand that is undefined); std::exception from the
// kit beyond 400 digits.
class Number {
public:
    Number(std::int64_t value);
    explicit Number(const Value& value);
    static Number ofReal(long double value); // in as many digits as it has

    operator Value() const;
    long double real() const;
    std::int64_t integer() const { return number_->AsLong64(); } // cut off towards zero, at most the type's ends

    // The nearest number with so many places, 0 to 400, a half away from zero.
    Number rounded(int places) const;

    friend Number operator+(const Number& a, const Number& b);
    friend Number operator-(const Number& a, const Number& b);
    friend Number operator*(const Number& a, const Number& b);
    friend Number operator/(const Number& a, const Number& b);
    friend bool operator<(const Number& a, const Number& b) { return *a.number_ < *b.number_; }
    friend bool operator==(const Number& a, const Number& b) { return *a.number_ == *b.number_; }

private:
    explicit Number(fmx::FixPtUniquePtr number) : number_(std::move(number)) {}
    template <auto operation>
    static Number combined(const Number& a, const Number& b);

    std::shared_ptr<const fmx::FixPt> number_;
};

Number floorOf(const Number& number);
Number power(const Number& base, const Number& exponent);

} // namespace fmxhost
