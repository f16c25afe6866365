#include "data_conversion.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace fmxkit {
namespace {

constexpr fmx::int64 microsPerSecond = DateTimeValue::microsPerSecond;

bool isDigit(char16_t unit)
{
    return unit >= u'0' && unit <= u'9';
}

// Reads a text from left to right.
class Scanner {
public:
    explicit Scanner(std::u16string_view text) : rest_(text) { skipSpaces(); }

    bool atEnd() const { return rest_.empty(); }

    bool skipSpaces()
    {
        const bool any = !rest_.empty() && rest_.front() == u' ';
        rest_.remove_prefix(std::min(rest_.find_first_not_of(u' '), rest_.size()));
        return any;
    }

    bool skipAnyOf(std::u16string_view units)
    {
        const bool found = !rest_.empty() && units.find(rest_.front()) != std::u16string_view::npos;
        rest_.remove_prefix(found ? 1 : 0);
        return found;
    }

    // At most nine digits; how many there were is added to `count`.
    std::optional<int> number(std::size_t* count = nullptr)
    {
        const std::size_t size =
            static_cast<std::size_t>(std::find_if_not(rest_.begin(), rest_.end(), isDigit) - rest_.begin());
        if (size == 0 || size > 9) {
            return std::nullopt;
        }
        int value = 0;
        for (const char16_t digit : rest_.substr(0, size)) {
            value = value * 10 + (digit - u'0');
        }
        rest_.remove_prefix(size);
        if (count != nullptr) {
            *count = size;
        }
        return value;
    }

private:
    std::u16string_view rest_;
};

int fullYear(int shortYear)
{
    const int thisYear = localNow().date().year;
    const int sameCentury = thisYear - thisYear % 100 + shortYear;
    if (sameCentury >= thisYear + 30) {
        return sameCentury - 100;
    }
    return sameCentury < thisYear - 70 ? sameCentury + 100 : sameCentury;
}

std::optional<DateTimeValue> scanDate(Scanner& scanner)
{
    constexpr std::u16string_view separators = u"/-. ";
    std::size_t yearDigits = 0;
    const auto month = scanner.number();
    const bool firstSeparator = scanner.skipAnyOf(separators);
    const auto day = scanner.number();
    const bool secondSeparator = scanner.skipAnyOf(separators);
    const auto year = scanner.number(&yearDigits);
    if (!month || !firstSeparator || !day || !secondSeparator || !year || *year > 9999) {
        return std::nullopt;
    }
    const DateTimeValue value{
        dayNumber(yearDigits <= 2 ? fullYear(*year) : *year, std::min(*month, 13), std::min(*day, 32)).value_or(0)};
    if (value.day == 0 || value.date().month != *month || value.date().day != *day) {
        return std::nullopt;
    }
    return value;
}

// ".25" is 250000; no point is 0.
std::optional<int> scanMicros(Scanner& scanner)
{
    if (!scanner.skipAnyOf(u".")) {
        return 0;
    }
    std::size_t digits = 0;
    const auto fraction = scanner.number(&digits);
    if (!fraction) {
        return std::nullopt;
    }
    int micros = *fraction;
    for (; digits < 6; ++digits) {
        micros *= 10;
    }
    for (; digits > 6; --digits) {
        micros /= 10;
    }
    return micros;
}

// 0 without a mark, 1 for AM, 2 for PM.
std::optional<int> scanHalfOfDay(Scanner& scanner)
{
    scanner.skipSpaces();
    if (scanner.atEnd()) {
        return 0;
    }
    const bool morning = scanner.skipAnyOf(u"aA");
    if ((!morning && !scanner.skipAnyOf(u"pP")) || !scanner.skipAnyOf(u"mM")) {
        return std::nullopt;
    }
    scanner.skipSpaces();
    return morning ? 1 : 2;
}

std::optional<DateTimeValue> scanTime(Scanner& scanner)
{
    const bool negative = scanner.skipAnyOf(u"-");
    const auto hour = scanner.number();
    if (!hour || !scanner.skipAnyOf(u":")) {
        return std::nullopt;
    }
    const auto minute = scanner.number();
    const bool hasSeconds = scanner.skipAnyOf(u":");
    const auto second = hasSeconds ? scanner.number() : 0;
    const auto micros = scanMicros(scanner);
    const auto half = scanHalfOfDay(scanner);
    if (!minute || *minute > 59 || !second || *second > 59 || !micros || !half || !scanner.atEnd()) {
        return std::nullopt;
    }
    if (*half != 0 && (negative || *hour < 1 || *hour > 12)) {
        return std::nullopt;
    }
    const fmx::int64 hours = *half == 0 ? *hour : *hour % 12 + (*half == 2 ? 12 : 0);
    const fmx::int64 minutes = hours * 60 + *minute;
    const fmx::int64 all = (minutes * 60 + *second) * microsPerSecond + *micros;
    return DateTimeValue{1, negative ? -all : all};
}

std::u16string ascii(std::string_view text)
{
    return {text.begin(), text.end()};
}

// At least `width` digits.
std::string padded(fmx::int64 value, std::size_t width)
{
    std::string digits = std::to_string(value);
    digits.insert(0, width > digits.size() ? width - digits.size() : 0, '0');
    return digits;
}

std::string dateText(const DateTimeValue& value)
{
    const CivilDate date = value.date();
    return padded(date.month, 1) + '/' + padded(date.day, 1) + '/' + padded(date.year, 4);
}

// Of a time that isn't negative.
std::string timeText(fmx::int64 hour, fmx::int64 micros)
{
    const fmx::int64 wholeSeconds = micros / microsPerSecond;
    std::string text = padded(hour, 1) + ':' + padded(wholeSeconds / 60 % 60, 2) + ':' + padded(wholeSeconds % 60, 2);
    if (micros % microsPerSecond != 0) {
        text += '.' + padded(micros % microsPerSecond, 6);
        text.resize(text.find_last_not_of('0') + 1);
    }
    return text;
}

FixPtValue seconds(fmx::int64 micros)
{
    const std::string digits = std::to_string(micros).substr(micros < 0 ? 1 : 0);
    return {Decimal::fromDigits(micros < 0, digits, 6), FixPtValue::defaultPrecision};
}

// Cut off to whole microseconds.
fmx::int64 microsOf(const FixPtValue& number)
{
    return (number.value * Decimal(microsPerSecond)).toInt64();
}

} // namespace

std::optional<FixPtValue> numberFromText(std::u16string_view text)
{
    std::string digits;
    std::size_t scale = 0;
    bool negative = false;
    bool pointSeen = false;
    bool digitSeen = false;
    for (const char16_t unit : text) {
        if (digits.size() > scale + Decimal::maximumPlaces) {
            return std::nullopt;
        }
        if (isDigit(unit)) {
            digitSeen = true;
            // Digits beyond the limit can't change a number of 400 places by a half of the last one.
            if (!pointSeen ? (!digits.empty() || unit != u'0') : scale <= Decimal::maximumPlaces) {
                digits += static_cast<char>(unit);
                scale += pointSeen ? 1 : 0;
            }
        } else if (unit == u'-' || unit == u'\u2212') {
            negative = true;
        } else if (unit == u'.') {
            pointSeen = true;
        }
    }
    if (!digitSeen || digits.size() > scale + Decimal::maximumPlaces) {
        return std::nullopt;
    }
    const int precision =
        std::max(FixPtValue::defaultPrecision, std::min(static_cast<int>(scale), Decimal::maximumPlaces));
    try {
        return FixPtValue(Decimal::fromDigits(negative, std::move(digits), scale), precision);
    } catch (const std::overflow_error&) {
        return std::nullopt; // 400 nines, rounded up
    }
}

std::optional<DateTimeValue> dateFromText(std::u16string_view text)
{
    const auto value = timeStampFromText(text);
    return value ? std::optional(DateTimeValue{value->day, 0}) : std::nullopt;
}

std::optional<DateTimeValue> timeFromText(std::u16string_view text)
{
    Scanner scanner(text);
    if (const auto time = scanTime(scanner)) {
        return time;
    }
    const auto timeStamp = timeStampFromText(text);
    return timeStamp ? std::optional(DateTimeValue{1, timeStamp->micros}) : std::nullopt;
}

std::optional<DateTimeValue> timeStampFromText(std::u16string_view text)
{
    Scanner scanner(text);
    const auto date = scanDate(scanner);
    const bool spaced = scanner.skipSpaces();
    if (!date || scanner.atEnd()) {
        return date;
    }
    const auto time = spaced ? scanTime(scanner) : std::nullopt;
    if (!time || time->micros < 0 || time->micros >= DateTimeValue::microsPerDay) {
        return std::nullopt;
    }
    return DateTimeValue{date->day, time->micros};
}

std::u16string textFromNumber(const FixPtValue& number)
{
    return ascii(number.value.toText());
}

std::u16string textFromDate(const DateTimeValue& date)
{
    return ascii(dateText(date));
}

std::u16string textFromTime(const DateTimeValue& time)
{
    const fmx::int64 micros = time.micros < 0 ? -time.micros : time.micros;
    const std::string text = timeText(micros / microsPerSecond / 3600, micros);
    return ascii(time.micros < 0 ? '-' + text : text);
}

std::u16string textFromTimeStamp(const DateTimeValue& timeStamp)
{
    const fmx::int64 hour = timeStamp.micros / microsPerSecond / 3600;
    const fmx::int64 hourOfHalf = hour % 12 == 0 ? 12 : hour % 12;
    return ascii(dateText(timeStamp) + ' ' + timeText(hourOfHalf, timeStamp.micros) + (hour < 12 ? " AM" : " PM"));
}

FixPtValue numberFromDate(const DateTimeValue& date)
{
    return {Decimal(date.day), FixPtValue::defaultPrecision};
}

FixPtValue numberFromTime(const DateTimeValue& time)
{
    return seconds(time.micros);
}

FixPtValue numberFromTimeStamp(const DateTimeValue& timeStamp)
{
    return seconds((timeStamp.day - 1) * DateTimeValue::microsPerDay + timeStamp.micros);
}

std::optional<DateTimeValue> dateFromNumber(const FixPtValue& number)
{
    const fmx::int64 day = number.value.toInt64();
    return isDayNumber(day) ? std::optional(DateTimeValue{static_cast<fmx::int32>(day), 0}) : std::nullopt;
}

std::optional<DateTimeValue> timeFromNumber(const FixPtValue& number)
{
    constexpr fmx::int64 limit = fmx::int64{0x7FFFFFFF} * 3600 * microsPerSecond;
    const fmx::int64 micros = microsOf(number);
    return micros >= -limit && micros <= limit ? std::optional(DateTimeValue{1, micros}) : std::nullopt;
}

std::optional<DateTimeValue> timeStampFromNumber(const FixPtValue& number)
{
    const fmx::int64 micros = microsOf(number);
    return micros < 0 ? std::nullopt : withTime(1, 0, 0, micros / microsPerSecond, micros % microsPerSecond);
}

} // namespace fmxkit
