// Exact decimal arithmetic, and what stands behind fmx::FixPt.
#pragma once

#include "entry.h"

#include <FMXFixPt.h>

#include <string>
#include <string_view>

namespace fmxkit {

// A decimal number, exact. The digits are few (FileMaker's limit is 400 on each side of the point), so they are kept
// one a character, the way they are read and shown.
class Decimal {
public:
    static constexpr int maximumPlaces = 400; // digits behind the decimal point, and as many before it

    Decimal() = default;
    explicit Decimal(fmx::int64 value);
    // Throws std::domain_error for an infinity or a NaN.
    static Decimal fromDouble(double value);
    // `digits` are '0' to '9', the last `scale` of them behind the decimal point.
    static Decimal fromDigits(bool negative, std::string digits, std::size_t scale);

    bool isZero() const noexcept { return digits_.empty(); }
    bool isNegative() const noexcept { return negative_; }
    std::size_t places() const noexcept { return scale_; }

    // To `places` digits behind the decimal point, a half away from zero. Throws std::overflow_error when there are
    // more than maximumPlaces digits before it.
    Decimal rounded(int places) const;
    Decimal negated() const;

    friend Decimal operator+(const Decimal& a, const Decimal& b);
    friend Decimal operator-(const Decimal& a, const Decimal& b) { return a + b.negated(); }
    friend Decimal operator*(const Decimal& a, const Decimal& b);
    // Rounded to `places`; `divisor` isn't zero.
    Decimal dividedBy(const Decimal& divisor, int places) const;

    // Below, at or above 0 as this is below, equal to or above `other`.
    int compare(const Decimal& other) const;

    fmx::int64 toInt64() const noexcept; // cut off towards zero; beyond the range its nearest end
    double toDouble() const;             // correctly rounded
    std::string toText() const;          // "0", "-12.5", ".5": no exponent, no trailing zeros

private:
    void normalise();

    bool negative_ = false;
    std::string digits_;    // without leading zeros; empty for 0
    std::size_t scale_ = 0; // how many digits stand behind the decimal point; may exceed the digits; no trailing zeros
};

struct FixPtValue {
    static constexpr int defaultPrecision = 16;

    FixPtValue() = default;
    FixPtValue(const Decimal& initial, int wantedPrecision);
    void assign(const Decimal& newValue) { value = newValue.rounded(precision); }

    Decimal value;
    int precision = defaultPrecision; // digits behind the decimal point, 0 to Decimal::maximumPlaces
};

template <>
struct Behind<fmx::FixPt> {
    using Type = FixPtValue;
};

} // namespace fmxkit
