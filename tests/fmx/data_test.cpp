// Values of any type, their conversions, and dates and times.
#include "values.h"

#include <ctime>
#include <tuple>

using fmx::Data;
using fmx::DateTimeUniquePtr;
using fmxtest::cases;
using fmxtest::number;
using fmxtest::shown;
using fmxtest::text;
using fmxtest::textData;
using fmxtest::utf8;

namespace {

fmx::int16 small(const std::string& field)
{
    return static_cast<fmx::int16>(std::stoi(field));
}

TEST(DateTime, RollsOverWithinTheCalendar)
{
    for (const auto& c : cases("dates")) {
        DateTimeUniquePtr value;
        const fmx::errcode error = value->SetNormalizedDate(small(c[0]), small(c[1]), small(c[2]));
        EXPECT_EQ(error == 0 ? shown(*value) : std::to_string(error), c[3]);
        EXPECT_EQ(std::to_string(value->GetDaysSinceEpoch()), c[4]) << c[3];
    }
    for (const auto& c : cases("times on 3/1/2024")) {
        DateTimeUniquePtr value;
        value->SetNormalizedDate(3, 1, 2024);
        const fmx::errcode error =
            value->SetNormalizedTime(std::stoll(c[0]), small(c[1]), small(c[2]), std::stoi(c[3]));
        EXPECT_EQ(error == 0 ? shown(*value) : std::to_string(error), c[4]);
        EXPECT_TRUE(error == 0 || shown(*value) == "3/1/2024 12:00:00 AM");
    }
    DateTimeUniquePtr value;
    value->SetNormalizedDate(7, 4, 1776);
    value->SetNormalizedTime(6, 7, 8, 9);
    EXPECT_EQ(std::tuple(value->GetYear(), value->GetMonth(), value->GetDay()), std::tuple(1776, 7, 4));
    EXPECT_EQ(std::tuple(value->GetHour(), value->GetMinute(), value->GetSec(), value->GetUSec()),
              std::tuple(6, 7, 8, 9));
}

TEST(DateTime, ComparesAndKnowsNow)
{
    DateTimeUniquePtr a;
    DateTimeUniquePtr b;
    EXPECT_TRUE(*a == *b);
    a->SetNormalizedTime(24, 0, 0);
    b->SetNormalizedDate(1, 2, 1);
    EXPECT_TRUE(*a == *b);
    b->SetNormalizedTime(0, 0, 0, 1);
    EXPECT_TRUE(*a != *b);

    const auto localHour = [] {
        const std::time_t now = std::time(nullptr);
        std::tm local{};
        localtime_r(&now, &local);
        return std::tuple(local.tm_year + 1900, local.tm_mon + 1, local.tm_mday, local.tm_hour);
    };
    const auto before = localHour();
    a->Now();
    const std::tuple<int, int, int, int> now(a->GetYear(), a->GetMonth(), a->GetDay(), a->GetHour());
    EXPECT_LE(before, now);
    EXPECT_LE(now, localHour());
    // A year of two digits is a recent one.
    const std::string year = std::to_string(a->GetYear());
    EXPECT_EQ(textData("1/1/" + year.substr(2))->GetAsDate().GetYear(), a->GetYear());
}

TEST(Data, ReadsDatesAndTimesFromTexts)
{
    const auto read = [](const std::string& from, Data::DataType type) {
        const auto data = textData(from, type);
        const bool valid = data->IsValid();
        data->ConvertData(type);
        return valid ? utf8(data->GetAsText()) : "none";
    };
    for (const auto& c : cases("dates and times in texts")) {
        SCOPED_TRACE(c[0]);
        EXPECT_EQ(read(" " + c[0] + " ", Data::kDTTimeStamp), c[1]);
        EXPECT_EQ(read(c[0], Data::kDTDate), c[2]);
        EXPECT_EQ(read(c[0], Data::kDTTime), c[3]);
    }
}

TEST(Data, ConvertsBetweenNumbersDatesAndTimes)
{
    DateTimeUniquePtr moment;
    moment->SetNormalizedDate(8, 12, 1965);
    moment->SetNormalizedTime(19, 50, 0, 500000);
    fmx::DataUniquePtr data;
    const auto forms = [&data] {
        return utf8(data->GetAsText()) + " = " + shown(data->GetAsNumber()) + " on " + shown(data->GetAsDate()) +
               " at " + std::to_string(data->GetAsTime().GetHour()) + ", " + shown(data->GetAsTimeStamp());
    };
    data->SetAsTimeStamp(*moment);
    EXPECT_EQ(forms(), "8/12/1965 7:50:00.5 PM = 61997169000.5 on 8/12/1965 12:00:00 AM at 19, 8/12/1965 7:50:00.5 PM");
    data->SetAsDate(*moment);
    EXPECT_EQ(forms(), "8/12/1965 = 717560 on 8/12/1965 12:00:00 AM at 0, 8/12/1965 12:00:00 AM");
    data->SetAsTime(*moment);
    EXPECT_EQ(forms(), "19:50:00.5 = 71400.5 on 1/1/0001 12:00:00 AM at 19, 1/1/0001 7:50:00.5 PM");
    data->SetAsNumber(*number("61997169000.5"));
    EXPECT_TRUE(data->GetAsTimeStamp() == *moment);
    data->SetDateTime(*moment, Data::kDTDate, Data::kDTText);
    EXPECT_EQ(data->GetNativeType(), Data::kDTText);
    EXPECT_EQ(utf8(data->GetAsText()), "8/12/1965");
    EXPECT_THROW(data->SetDateTime(*moment, Data::kDTText, Data::kDTText), std::exception);

    data->SetAsNumber(*number("-90030.25"), Data::kDTTime);
    EXPECT_EQ(data->GetAsTime().GetSec(), -30);
    data->ConvertData(Data::kDTTime);
    EXPECT_EQ(utf8(data->GetAsText()), "-25:00:30.25");
    data->SetAsNumber(*number("717560"), Data::kDTDate);
    EXPECT_EQ(forms(), "717560 = 717560 on 8/12/1965 12:00:00 AM at 199, 1/9/0001 7:19:20 AM");
    data->SetAsNumber(*number("99999999999999999999"));
    EXPECT_EQ(data->GetAsTime().GetHour(), 0);
    EXPECT_EQ(shown(data->GetAsTimeStamp()), "1/1/0001 12:00:00 AM"); // what can't be converted
    data->ConvertData(Data::kDTBoolean);
    EXPECT_EQ(utf8(data->GetAsText()), "1");
}

TEST(Data, KnowsItsTypeAndWhetherItHoldsAnything)
{
    fmx::DataUniquePtr data;
    const auto state = [&data] { return std::tuple(data->GetNativeType(), data->IsEmpty(), data->IsValid()); };
    EXPECT_EQ(state(), std::tuple(Data::kDTInvalid, true, false));
    EXPECT_EQ(data->GetAsText().GetSize(), 0U);
    fmx::LocaleUniquePtr locale(data->GetLocale());
    EXPECT_EQ(data->SetAsText(*text(u"a"), *locale), 0);
    EXPECT_EQ(state(), std::tuple(Data::kDTText, false, true));
    EXPECT_EQ(data->SetAsText(data->GetAsText(), data->GetLocale(), Data::kDTNumber), 1218); // its own text
    EXPECT_EQ(state(), std::tuple(Data::kDTNumber, false, false));
    EXPECT_EQ(utf8(data->GetAsText()), "a");
    EXPECT_EQ(data->SetAsText(*text(u""), *locale), 0);
    EXPECT_EQ(state(), std::tuple(Data::kDTText, true, true));
    data->SetAsNumber(*fmx::FixPtUniquePtr(0), Data::kDTBoolean);
    EXPECT_EQ(state(), std::tuple(Data::kDTBoolean, false, true));
    EXPECT_FALSE(data->GetAsBoolean());
    EXPECT_THROW(data->Clear(static_cast<Data::DataType>(42)), std::exception);
    EXPECT_EQ(data->GetNativeType(), Data::kDTBoolean);
    data->Clear(Data::kDTText);
    EXPECT_EQ(state(), std::tuple(Data::kDTText, true, true));
}

TEST(DataVect, HoldsCopiesAndIsEmptyPastTheEnd)
{
    fmx::DataVectUniquePtr vector;
    EXPECT_EQ(vector->PopBack(), nullptr);
    const auto data = textData("12/31/2026 7:08:09 PM");
    vector->PushBack(*data);
    data->SetAsText(*text(u"changed"), data->GetLocale());
    const fmx::Text& first = vector->AtAsText(0);
    for (int i = 0; i < 100; ++i) {
        vector->PushBack(vector->At(0));
    }
    const auto forms = [&vector](fmx::uint32 index) {
        return utf8(vector->AtAsText(index)) + ", " + shown(vector->AtAsNumber(index)) + ", " +
               std::to_string(vector->AtAsDate(index).GetYear()) + ", " +
               std::to_string(vector->AtAsTime(index).GetHour()) + ", " + shown(vector->AtAsTimeStamp(index)) +
               (vector->AtAsBoolean(index) ? ", true" : ", false") + (vector->At(index).IsEmpty() ? ", empty" : "");
    };
    EXPECT_EQ(vector->Size(), 101U);
    EXPECT_EQ(&vector->AtAsText(0), &first); // growing moved nothing
    EXPECT_EQ(forms(100), "12/31/2026 7:08:09 PM, 1231202670809, 2026, 19, 12/31/2026 7:08:09 PM, true");
    EXPECT_EQ(forms(101), ", 0, 1, 0, 1/1/0001 12:00:00 AM, false, empty");
    vector->Clear();
    EXPECT_TRUE(vector->IsEmpty());
    EXPECT_EQ(forms(0xFFFFFFFF), ", 0, 1, 0, 1/1/0001 12:00:00 AM, false, empty");
    vector->PushBack(*data);
    const std::unique_ptr<Data> last(vector->PopBack());
    EXPECT_EQ(utf8(last->GetAsText()), "changed");
    EXPECT_TRUE(vector->IsEmpty());
}

} // namespace
