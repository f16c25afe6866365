#include "values.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>

using fmx::Data;
using fmxtest::number;
using fmxtest::shown;
using fmxtest::text;
using fmxtest::textData;
using fmxtest::utf8;

namespace {

TEST(Data, ReadsNumbersFromTexts)
{
    const std::u16string manyDigits(400, u'8');
    const struct {
        std::u16string from;
        std::string expected;
        bool valid;
    } cases[] = {
        {u"a1b2", "12", true},
        {u"$1,254.50", "1254.5", true},
        {u"-5", "-5", true},
        {u"5-", "-5", true},
        {u"1-2", "-12", true},
        {u"--3", "-3", true},
        {u"1.2.3", "1.23", true},
        {u".", "0", false},
        {u"", "0", true},
        {u"none", "0", false},
        {u"-", "0", false},
        {u"007", "7", true},
        {u"0.50", ".5", true},
        {u"-0.0", "0", true},
        {u"1e5", "15", true},
        {u".00000000000000000000000000000000001", ".00000000000000000000000000000000001", true},
        {manyDigits, std::string(400, '8'), true},
        {u"1" + manyDigits, "0", false},
        {u"0000" + manyDigits, std::string(400, '8'), true},
        {u"." + manyDigits + u"888", '.' + std::string(399, '8') + '9', true},
    };
    for (const auto& [from, expected, valid] : cases) {
        const auto data = textData(from, Data::kDTNumber);
        EXPECT_EQ(shown(data->GetAsNumber()), expected) << utf8(*text(from));
        EXPECT_EQ(data->IsValid(), valid) << utf8(*text(from));
        EXPECT_EQ(data->GetAsBoolean(), expected != "0");
    }
}

TEST(Data, ReadsDatesAndTimesFromTexts)
{
    const struct {
        std::u16string_view from;
        std::optional<std::string> timeStamp, date, time;
    } cases[] = {
        {u"11/24/2026", "11/24/2026 12:00:00 AM", "11/24/2026", "0:00:00"},
        {u"2-9-2026 1:02 PM", "2/9/2026 1:02:00 PM", "2/9/2026", "13:02:00"},
        {u" 2/29/2024   12:00:01.250 am ", "2/29/2024 12:00:01.25 AM", "2/29/2024", "0:00:01.25"},
        {u"2/29/2024 23:59:59.9999999", "2/29/2024 11:59:59.999999 PM", "2/29/2024", "23:59:59.999999"},
        {u"2/29/2023", std::nullopt, std::nullopt, std::nullopt},
        {u"13/1/2023", std::nullopt, std::nullopt, std::nullopt},
        {u"1/32/2023", std::nullopt, std::nullopt, std::nullopt},
        {u"1/1/4001", std::nullopt, std::nullopt, std::nullopt},
        {u"1/1/2026 24:00", std::nullopt, std::nullopt, std::nullopt},
        {u"1/1/2026x", std::nullopt, std::nullopt, std::nullopt},
        {u"25:30", std::nullopt, std::nullopt, "25:30:00"},
        {u"-1:00:00.5", std::nullopt, std::nullopt, "-1:00:00.5"},
        {u"12:60", std::nullopt, std::nullopt, std::nullopt},
        {u"13:00 PM", std::nullopt, std::nullopt, std::nullopt},
        {u"hello", std::nullopt, std::nullopt, std::nullopt},
    };
    const auto read = [](std::u16string_view from, Data::DataType type) {
        const auto data = textData(from, type);
        const bool valid = data->IsValid();
        data->ConvertData(type);
        return valid ? std::optional(utf8(data->GetAsText())) : std::nullopt;
    };
    for (const auto& [from, timeStamp, date, time] : cases) {
        SCOPED_TRACE(utf8(*text(from)));
        EXPECT_EQ(read(from, Data::kDTTimeStamp), timeStamp);
        EXPECT_EQ(read(from, Data::kDTDate), date);
        EXPECT_EQ(read(from, Data::kDTTime), time);
    }
    fmx::DateTimeUniquePtr now;
    now->Now();
    const int soon = now->GetYear() % 100;
    const std::string shortYear = (soon < 10 ? "0" : "") + std::to_string(soon);
    EXPECT_EQ(textData(u"1/1/" + std::u16string(shortYear.begin(), shortYear.end()))->GetAsDate().GetYear(),
              now->GetYear());
}

TEST(Data, ConvertsBetweenNumbersDatesAndTimes)
{
    fmx::DateTimeUniquePtr moment;
    moment->SetNormalizedDate(8, 12, 1965);
    moment->SetNormalizedTime(19, 50, 0, 500000);
    fmx::DataUniquePtr data;
    data->SetAsTimeStamp(*moment);
    EXPECT_EQ(data->GetNativeType(), Data::kDTTimeStamp);
    EXPECT_EQ(shown(data->GetAsNumber()), "61997169000.5"); // seconds since 1/1/0001
    EXPECT_EQ(data->GetAsDate().GetDaysSinceEpoch(), 717560);
    EXPECT_EQ(data->GetAsTime().GetHour(), 19);
    EXPECT_TRUE(data->GetAsBoolean());

    data->SetAsNumber(*number(u"61997169000.5"));
    EXPECT_TRUE(data->GetAsTimeStamp() == *moment);
    data->SetAsDate(*moment);
    EXPECT_EQ(utf8(data->GetAsText()), "8/12/1965");
    EXPECT_EQ(shown(data->GetAsNumber()), "717560");
    data->SetAsTime(*moment);
    EXPECT_EQ(utf8(data->GetAsText()), "19:50:00.5");
    EXPECT_EQ(shown(data->GetAsNumber()), "71400.5");
    data->SetDateTime(*moment, Data::kDTDate, Data::kDTText);
    EXPECT_EQ(data->GetNativeType(), Data::kDTText);
    EXPECT_EQ(utf8(data->GetAsText()), "8/12/1965");
    EXPECT_THROW(data->SetDateTime(*moment, Data::kDTText, Data::kDTText), std::exception);

    data->SetAsNumber(*number(u"-90030.25"), Data::kDTTime);
    EXPECT_EQ(data->GetAsTime().GetHour(), -25);
    EXPECT_EQ(data->GetAsTime().GetSec(), -30);
    data->ConvertData(Data::kDTTime);
    EXPECT_EQ(utf8(data->GetAsText()), "-25:00:30.25");
    data->SetAsNumber(*number(u"99999999999999999999"));
    EXPECT_EQ(shown(data->GetAsTimeStamp()), "1/1/0001 12:00:00 AM"); // what can't be converted
    data->ConvertData(Data::kDTBoolean);
    EXPECT_EQ(utf8(data->GetAsText()), "1");
}

TEST(Data, KnowsItsTypeAndWhetherItHoldsAnything)
{
    fmx::DataUniquePtr data;
    EXPECT_TRUE(data->IsEmpty());
    EXPECT_FALSE(data->IsValid());
    EXPECT_EQ(data->GetNativeType(), Data::kDTInvalid);
    EXPECT_EQ(data->GetAsText().GetSize(), 0U);
    fmx::LocaleUniquePtr locale(data->GetLocale());

    EXPECT_EQ(data->SetAsText(*text(u"a"), *locale), 0);
    EXPECT_FALSE(data->IsEmpty());
    EXPECT_TRUE(data->IsValid());
    EXPECT_EQ(data->SetAsText(data->GetAsText(), data->GetLocale(), Data::kDTNumber), 1218); // its own text
    EXPECT_EQ(utf8(data->GetAsText()), "a");
    EXPECT_FALSE(data->IsValid());
    EXPECT_EQ(data->SetAsText(*text(u""), *locale), 0);
    EXPECT_TRUE(data->IsEmpty());
    EXPECT_TRUE(data->IsValid());
    data->SetAsNumber(*fmx::FixPtUniquePtr(0));
    EXPECT_FALSE(data->IsEmpty());
    data->SetAsNumber(data->GetAsNumber(), Data::kDTBoolean);
    EXPECT_FALSE(data->GetAsBoolean());
    EXPECT_THROW(data->Clear(static_cast<Data::DataType>(42)), std::exception);
    EXPECT_EQ(data->GetNativeType(), Data::kDTBoolean);
    data->Clear(Data::kDTText);
    EXPECT_TRUE(data->IsEmpty());
    EXPECT_EQ(data->GetNativeType(), Data::kDTText);
}

TEST(DataVect, HoldsCopiesAndIsEmptyPastTheEnd)
{
    fmx::DataVectUniquePtr vector;
    EXPECT_TRUE(vector->IsEmpty());
    EXPECT_EQ(vector->PopBack(), nullptr);
    const auto data = textData(u"12/31/2026 7:08:09 PM");
    vector->PushBack(*data);
    data->SetAsText(*text(u"changed"), data->GetLocale());
    const fmx::Text& first = vector->AtAsText(0);
    for (int i = 0; i < 100; ++i) {
        vector->PushBack(vector->At(0));
    }
    EXPECT_EQ(vector->Size(), 101U);
    EXPECT_EQ(&vector->AtAsText(0), &first); // growing moved nothing
    EXPECT_EQ(utf8(vector->AtAsText(100)), "12/31/2026 7:08:09 PM");
    EXPECT_EQ(vector->AtAsDate(1).GetMonth(), 12);
    EXPECT_EQ(vector->AtAsTime(1).GetHour(), 19);
    EXPECT_EQ(vector->AtAsTimeStamp(1).GetSec(), 9);
    EXPECT_EQ(shown(vector->AtAsNumber(1)), "1231202670809");
    EXPECT_TRUE(vector->AtAsBoolean(1));

    const fmx::Text& past = vector->AtAsText(101);
    vector->Clear();
    EXPECT_EQ(&vector->AtAsText(0xFFFFFFFF), &past);
    EXPECT_EQ(past.GetSize(), 0U);
    EXPECT_FALSE(vector->AtAsNumber(0).AsBool());
    EXPECT_FALSE(vector->AtAsBoolean(0));
    EXPECT_EQ(vector->AtAsTimeStamp(0).GetYear(), 1);
    EXPECT_TRUE(vector->At(0).IsEmpty());

    vector->PushBack(*data);
    const std::unique_ptr<Data> last(vector->PopBack());
    EXPECT_EQ(utf8(last->GetAsText()), "changed");
    EXPECT_TRUE(vector->IsEmpty());
}

} // namespace
