#include "decimal.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <stdexcept>
#include <string_view>
#include <utility>
#include <vector>

namespace fmxkit {
namespace {

// Magnitudes: strings of digits, most significant first. Leading zeros are allowed where nothing else is said.

std::string withoutLeadingZeros(std::string digits)
{
    digits.erase(0, std::min(digits.find_first_not_of('0'), digits.size()));
    return digits;
}

// Both without leading zeros.
int compareMagnitudes(std::string_view a, std::string_view b)
{
    return a.size() != b.size() ? (a.size() < b.size() ? -1 : 1) : a.compare(b);
}

// `a` is the longer one, or as long.
std::string addMagnitudes(std::string a, std::string_view b)
{
    int carry = 0;
    for (std::size_t i = 0; i < a.size() && (i < b.size() || carry != 0); ++i) {
        char& digit = a[a.size() - 1 - i];
        const int sum = digit - '0' + (i < b.size() ? b[b.size() - 1 - i] - '0' : 0) + carry;
        digit = static_cast<char>('0' + sum % 10);
        carry = sum / 10;
    }
    if (carry != 0) {
        a.insert(a.begin(), '1');
    }
    return a;
}

// `a` is the greater one, or equal, and at least as long.
void subtractMagnitude(std::string& a, std::string_view b)
{
    int borrow = 0;
    for (std::size_t i = 0; i < a.size() && (i < b.size() || borrow != 0); ++i) {
        char& digit = a[a.size() - 1 - i];
        int difference = digit - '0' - (i < b.size() ? b[b.size() - 1 - i] - '0' : 0) - borrow;
        borrow = difference < 0 ? 1 : 0;
        difference += borrow * 10;
        digit = static_cast<char>('0' + difference);
    }
}

std::string multiplyMagnitudes(std::string_view a, std::string_view b)
{
    std::vector<int> columns(a.size() + b.size(), 0); // 400 * 81 fits well
    for (std::size_t i = 0; i < a.size(); ++i) {
        for (std::size_t j = 0; j < b.size(); ++j) {
            columns[i + j + 1] += (a[i] - '0') * (b[j] - '0');
        }
    }
    std::string product(columns.size(), '0');
    int carry = 0;
    for (std::size_t i = columns.size(); i-- > 0;) {
        const int sum = columns[i] + carry;
        product[i] = static_cast<char>('0' + sum % 10);
        carry = sum / 10;
    }
    return product;
}

// The quotient's digits and what remains. `divisor` has no leading zeros and isn't empty.
std::pair<std::string, std::string> divideMagnitudes(std::string_view dividend, std::string_view divisor)
{
    std::string quotient;
    std::string remainder;
    for (const char digit : dividend) {
        remainder = withoutLeadingZeros(std::move(remainder) + digit);
        char count = '0';
        while (compareMagnitudes(remainder, divisor) >= 0) {
            subtractMagnitude(remainder, divisor);
            remainder = withoutLeadingZeros(std::move(remainder));
            ++count;
        }
        quotient += count;
    }
    return {quotient, remainder};
}

using ScientificText = std::array<char, 64>; // "d.ddde±dd" and zeros

// With as few digits as make the same number again.
ScientificText shortestText(double value)
{
    ScientificText text{};
#ifdef __cpp_lib_to_chars
    std::to_chars(text.data(), text.data() + text.size() - 1, value, std::chars_format::scientific);
#else // Apple's library has it for doubles since macOS 13.3; this needs a digit more at some powers of two
    constexpr int most = std::numeric_limits<double>::max_digits10 - 1;
    for (int places = 0; places <= most; ++places) {
        std::snprintf(text.data(), text.size(), "%.*e", places, value);
        if (std::strtod(text.data(), nullptr) == value) {
            break;
        }
    }
#endif
    return text;
}

} // namespace

Decimal::Decimal(fmx::int64 value) : negative_(value < 0)
{
    digits_ = std::to_string(value).substr(negative_ ? 1 : 0);
    normalise();
}

Decimal Decimal::fromDouble(double value)
{
    if (!std::isfinite(value)) {
        throw std::domain_error("not a finite number");
    }
    const ScientificText text = shortestText(std::fabs(value));
    const std::size_t mark = std::string_view(text.data()).find('e');
    std::string digits(text.data(), mark);
    digits.erase(std::remove(digits.begin(), digits.end(), '.'), digits.end());
    const int exponent = std::atoi(text.data() + mark + 1);
    const int scale = static_cast<int>(digits.size()) - 1 - exponent;
    if (scale < 0) {
        digits.append(static_cast<std::size_t>(-scale), '0');
    }
    return fromDigits(std::signbit(value), std::move(digits), static_cast<std::size_t>(std::max(scale, 0)));
}

Decimal Decimal::fromDigits(bool negative, std::string digits, std::size_t scale)
{
    Decimal result;
    result.negative_ = negative;
    result.digits_ = std::move(digits);
    result.scale_ = scale;
    result.normalise();
    return result;
}

void Decimal::normalise()
{
    const std::size_t last = digits_.find_last_not_of('0');
    const std::size_t zeros = digits_.size() - (last == std::string::npos ? 0 : last + 1);
    const std::size_t needless = std::min(zeros, scale_);
    digits_.resize(digits_.size() - needless);
    scale_ -= needless;
    digits_ = withoutLeadingZeros(std::move(digits_));
    if (digits_.empty()) {
        negative_ = false;
        scale_ = 0;
    }
}

Decimal Decimal::rounded(int places) const
{
    Decimal result = *this;
    const auto kept = static_cast<std::size_t>(places);
    if (scale_ > kept) {
        const std::size_t dropped = scale_ - kept;
        const bool up = dropped <= digits_.size() && digits_[digits_.size() - dropped] >= '5';
        result.digits_.resize(digits_.size() - std::min(dropped, digits_.size()));
        if (up) {
            result.digits_ = addMagnitudes('0' + result.digits_, "1");
        }
        result.scale_ = kept;
        result.normalise();
    }
    if (result.digits_.size() > result.scale_ + maximumPlaces) {
        throw std::overflow_error("number");
    }
    return result;
}

Decimal Decimal::negated() const
{
    Decimal result = *this;
    result.negative_ = !negative_ && !isZero();
    return result;
}

Decimal operator+(const Decimal& a, const Decimal& b)
{
    if (a.isZero() || b.isZero()) {
        return a.isZero() ? b : a;
    }
    const std::size_t scale = std::max(a.scale_, b.scale_);
    std::string greater = a.digits_ + std::string(scale - a.scale_, '0');
    std::string smaller = b.digits_ + std::string(scale - b.scale_, '0');
    bool negative = a.negative_;
    if (compareMagnitudes(greater, smaller) < 0) {
        std::swap(greater, smaller);
        negative = b.negative_;
    }
    if (a.negative_ == b.negative_) {
        greater = addMagnitudes(std::move(greater), smaller);
    } else {
        subtractMagnitude(greater, smaller);
    }
    return Decimal::fromDigits(negative, std::move(greater), scale);
}

Decimal operator*(const Decimal& a, const Decimal& b)
{
    return Decimal::fromDigits(a.negative_ != b.negative_, multiplyMagnitudes(a.digits_, b.digits_),
                               a.scale_ + b.scale_);
}

Decimal Decimal::dividedBy(const Decimal& divisor, int places) const
{
    // One digit more than wanted, to round by; it decides alone, because a half goes away from zero.
    const auto wanted = static_cast<std::size_t>(places) + 1;
    const std::size_t zerosForBoth = wanted + divisor.scale_;
    std::string dividend = digits_ + std::string(zerosForBoth > scale_ ? zerosForBoth - scale_ : 0, '0');
    const std::size_t scale = zerosForBoth > scale_ ? wanted : scale_ - divisor.scale_;
    auto [quotient, remainder] = divideMagnitudes(dividend, divisor.digits_);
    return fromDigits(negative_ != divisor.negative_, std::move(quotient), scale).rounded(places);
}

int Decimal::compare(const Decimal& other) const
{
    const Decimal difference = *this - other;
    return difference.isZero() ? 0 : (difference.isNegative() ? -1 : 1);
}

fmx::int64 Decimal::toInt64() const noexcept
{
    const std::size_t whole = digits_.size() - std::min(scale_, digits_.size());
    fmx::int64 value = 0;
    for (std::size_t i = 0; i < whole; ++i) {
        const int digit = digits_[i] - '0';
        // Counted downwards: the negative end is farther from zero.
        if (__builtin_mul_overflow(value, fmx::int64{10}, &value) ||
            __builtin_sub_overflow(value, fmx::int64{digit}, &value)) {
            return negative_ ? std::numeric_limits<fmx::int64>::min() : std::numeric_limits<fmx::int64>::max();
        }
    }
    if (negative_) {
        return value;
    }
    return value == std::numeric_limits<fmx::int64>::min() ? std::numeric_limits<fmx::int64>::max() : -value;
}

double Decimal::toDouble() const
{
    if (isZero()) {
        return 0;
    }
    // Without a decimal point the text means the same in every locale.
    const std::string text = (negative_ ? "-" : "") + digits_ + "e-" + std::to_string(scale_);
    return std::strtod(text.c_str(), nullptr);
}

std::string Decimal::toText() const
{
    if (isZero()) {
        return "0";
    }
    std::string text = digits_;
    if (scale_ > 0) {
        text.insert(0, scale_ > text.size() ? scale_ - text.size() : 0, '0');
        text.insert(text.size() - scale_, 1, '.');
    }
    return negative_ ? '-' + text : text;
}

FixPtValue::FixPtValue(const Decimal& initial, int wantedPrecision)
    : precision(std::clamp(wantedPrecision, 0, Decimal::maximumPlaces))
{
    assign(initial);
}

} // namespace fmxkit
