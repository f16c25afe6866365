#include "host/calculation/built_ins.h"

namespace fmxhost {
namespace {

using fmx::Data;

constexpr std::u16string_view dayNames[] = {u"Sunday",   u"Monday", u"Tuesday", u"Wednesday",
                                            u"Thursday", u"Friday", u"Saturday"};
constexpr std::u16string_view monthNames[] = {u"January",   u"February", u"March",    u"April",
                                              u"May",       u"June",     u"July",     u"August",
                                              u"September", u"October",  u"November", u"December"};

// A month and a day may lie outside their range.
Value dateOf(const Value& month, const Value& day, const Value& year)
{
    // Since the year 0; the calendar has the years 1 to 4000, which end at month 48012.
    const std::int64_t months = (floorOf(year) * 12 + floorOf(month) - 1).integer();
    if (months < 12 || months >= 48012) {
        throw NoResult{Value::undefined(Data::kDTDate)};
    }
    const fmx::DateTimeUniquePtr first;
    first->SetNormalizedDate(static_cast<fmx::int16>(months % 12 + 1), 1, static_cast<fmx::int16>(months / 12));
    return momentOf(floorOf(day) + first->GetDaysSinceEpoch() - 1, Data::kDTDate);
}

std::int64_t dayOfYear(const Date& date)
{
    return date.integer() - dateOf(1, 1, date->GetYear()).integer() + 1;
}

// 1 for a Sunday to 7: day 1 of the calendar is a Monday.
std::int64_t dayOfWeek(const Date& date)
{
    return date.integer() % 7 + 1;
}

} // namespace

Value momentOf(const Value& value, Data::DataType type)
{
    if (value.data().IsEmpty()) {
        throw NoResult{Value()};
    }
    // A text or a number is read as this type.
    const Data* read = &value.data();
    const fmx::DataUniquePtr own;
    if (value.type() == ValueType::text) {
        const fmx::LocaleUniquePtr locale;
        if (own->SetAsText(read->GetAsText(), *locale, type) != 0) {
            const fmx::DateTimeUniquePtr now;
            now->Now();
            const Value withYear(value.text() + u"/" + Value(now->GetYear()).text());
            own->SetAsText(withYear.data().GetAsText(), *locale, type);
        }
        read = own.get();
    } else if (value.type() == ValueType::number && !value.isUndefined()) {
        own->SetAsNumber(read->GetAsNumber(), type);
        read = own.get();
    }
    if (!read->IsValid() || (value.type() == ValueType::time && type == Data::kDTDate)) {
        throw NoResult{Value::undefined(type)};
    }
    fmx::DataUniquePtr made;
    made->SetDateTime(type == Data::kDTDate   ? read->GetAsDate()
                      : type == Data::kDTTime ? read->GetAsTime()
                                              : read->GetAsTimeStamp(),
                      type, type);
    return Value(std::move(made));
}

Value inTypeOf(const Value& left, const Value& right, const Value& result, bool isDifference)
{
    const Data::DataType a = left.data().GetNativeType();
    const Data::DataType b = right.data().GetNativeType();
    Data::DataType type = std::max(a, b);
    if (isDifference && b >= Data::kDTDate) {
        type = a == Data::kDTTimeStamp && b == Data::kDTTime ? a
               : a == b && a != Data::kDTDate                ? Data::kDTTime
                                                             : Data::kDTNumber;
    }
    return type >= Data::kDTDate && type <= Data::kDTTimeStamp ? momentOf(result, type) : result;
}

std::vector<Function> dateFunctions()
{
    return {
        row(u"Date ( month ; day ; year )", dateOf),
        row(u"Day ( date )", [](const Date& date) { return date->GetDay(); }),
        row(u"DayName ( date )", [](const Date& date) { return dayNames[dayOfWeek(date) - 1]; }),
        row(u"DayOfWeek ( date )", dayOfWeek),
        row(u"DayOfYear ( date )", dayOfYear),
        row(u"GetAsDate ( data )", [](const Date& date) { return date; }),
        row(u"GetAsTime ( data )", [](const Time& time) { return time; }),
        row(u"GetAsTimestamp ( data )", [](const Timestamp& timestamp) { return timestamp; }),
        row(u"Hour ( time )", [](const Time& time) { return time->GetHour(); }),
        row(u"Minute ( time )", [](const Time& time) { return time->GetMinute(); }),
        row(u"Month ( date )", [](const Date& date) { return date->GetMonth(); }),
        row(u"MonthName ( date )", [](const Date& date) { return monthNames[date->GetMonth() - 1]; }),
        row(u"Seconds ( time )", [](const Time& time) { return time->GetSec() + Value(time->GetUSec()) / 1000000; }),
        row(u"Time ( hours ; minutes ; seconds )",
            [](const Value& hours, const Value& minutes, const Value& seconds) {
                return momentOf((hours * 60 + minutes) * 60 + seconds, Data::kDTTime);
            }),
        row(u"Timestamp ( date ; time )",
            [](const Date& date, const Time& time) { return momentOf((date - 1) * 86400 + time, Data::kDTTimeStamp); }),
        // Weeks begin on Sundays, the first one on January 1st.
        row(u"WeekOfYear ( date )", [](const Date& date) { return (dayOfYear(date) + 13 - dayOfWeek(date)) / 7; }),
        row(u"Year ( date )", [](const Date& date) { return date->GetYear(); }),
    };
}

} // namespace fmxhost
