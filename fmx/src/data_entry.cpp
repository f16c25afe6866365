#include "data.h"
#include "entry.h"

#include <FMXData.h>

#include <stdexcept>

using fmx::Data;
using fmx::DataVect;
using fmx::DateTime;
using fmx::FixPt;
using fmx::Locale;
using fmx::Text;
using fmxkit::DataValue;
using fmxkit::entry;
using fmxkit::inside;
using fmxkit::outside;

namespace {

// Dates and times lose what doesn't count for them.
fmxkit::Content dateTimeContent(const DateTime& dateTime, fmx::int32 dateTimeType)
{
    const fmxkit::DateTimeValue& value = inside(&dateTime);
    switch (dateTimeType) {
    case Data::kDTDate:
        return fmxkit::DateContent{{value.day, 0}};
    case Data::kDTTime:
        return fmxkit::TimeContent{{1, value.micros}};
    case Data::kDTTimeStamp:
        return fmxkit::TimeStampContent{fmxkit::withTime(value.day, 0, 0, 0, value.micros).value()};
    default:
        throw std::invalid_argument("type of a date or time");
    }
}

// The value at an index, or the empty one that stands for all those past the end.
const DataValue& valueAt(const DataVect* self, fmx::uint32 index)
{
    static const auto& empty = *new DataValue;
    const auto& values = inside(self).values;
    return index < values.size() ? *values[index] : empty;
}

} // namespace

namespace fmx {
extern "C" {

Locale* FM_Locale_Constructor1(int32 type, _fmxcpt& x)
{
    return entry(x, [&] { return outside<Locale>(new fmxkit::LocaleValue{type}); });
}

Locale* FM_Locale_Constructor2(const Locale& value, _fmxcpt& x)
{
    return entry(x, [&] { return outside<Locale>(new fmxkit::LocaleValue(inside(&value))); });
}

Locale* FM_Locale_operatorAS(Locale* self, const Locale& that, _fmxcpt& x)
{
    return entry(x, [&] {
        inside(self) = inside(&that);
        return self;
    });
}

void FM_Locale_Delete(Locale* self, _fmxcpt& x)
{
    fmxkit::destroy(self, x);
}

Data* FM_Data_Constructor1(_fmxcpt& x)
{
    return fmxkit::create<Data>(x);
}

void FM_Data_Delete(Data* self, _fmxcpt& x)
{
    fmxkit::destroy(self, x);
}

void FM_Data_Clear(Data* self, int32 type, _fmxcpt& x)
{
    entry(x, [&] { inside(self).set(std::monostate(), type); });
}

bool FM_Data_IsEmpty(const Data* self, _fmxcpt& x)
{
    return entry(x, [&] { return inside(self).isEmpty(); });
}

bool FM_Data_IsValid(const Data* self, _fmxcpt& x)
{
    return entry(x, [&] { return inside(self).isValid(); });
}

bool FM_Data_GetAsBoolean(const Data* self, _fmxcpt& x)
{
    return entry(x, [&] { return inside(self).boolean(); });
}

int32 FM_Data_GetNativeType(const Data* self, _fmxcpt& x)
{
    return entry(x, [&] { return inside(self).type(); });
}

const Text* FM_Data_GetAsText(const Data* self, _fmxcpt& x)
{
    return entry(x, [&] { return outside<Text>(&inside(self).text()); });
}

const FixPt* FM_Data_GetAsNumber(const Data* self, _fmxcpt& x)
{
    return entry(x, [&] { return outside<FixPt>(&inside(self).number()); });
}

const DateTime* FM_Data_GetAsDate(const Data* self, _fmxcpt& x)
{
    return entry(x, [&] { return outside<DateTime>(&inside(self).date()); });
}

const DateTime* FM_Data_GetAsTime(const Data* self, _fmxcpt& x)
{
    return entry(x, [&] { return outside<DateTime>(&inside(self).time()); });
}

const DateTime* FM_Data_GetAsTimeStamp(const Data* self, _fmxcpt& x)
{
    return entry(x, [&] { return outside<DateTime>(&inside(self).timeStamp()); });
}

const Locale* FM_Data_GetLocale(const Data* self, _fmxcpt& x)
{
    return entry(x, [&] { return outside<Locale>(&inside(self).locale()); });
}

errcode FM_Data_SetAsText(Data* self, const Text& text, const Locale& locale, int32 type, _fmxcpt& x)
{
    return entry(x, [&] {
        DataValue& data = inside(self);
        const fmxkit::LocaleValue newLocale = inside(&locale);
        data.set(inside(&text), type);
        data.setLocale(newLocale);
        return type == Data::kDTInvalid ? errcode{0} : data.validity();
    });
}

void FM_Data_SetAsNumber(Data* self, const FixPt& number, int32 type, _fmxcpt& x)
{
    entry(x, [&] { inside(self).set(inside(&number), type); });
}

void FM_Data_SetAsDate(Data* self, const DateTime& date, int32 type, _fmxcpt& x)
{
    entry(x, [&] { inside(self).set(dateTimeContent(date, Data::kDTDate), type); });
}

void FM_Data_SetAsTime(Data* self, const DateTime& time, int32 type, _fmxcpt& x)
{
    entry(x, [&] { inside(self).set(dateTimeContent(time, Data::kDTTime), type); });
}

void FM_Data_SetAsTimeStamp(Data* self, const DateTime& timeStamp, int32 type, _fmxcpt& x)
{
    entry(x, [&] { inside(self).set(dateTimeContent(timeStamp, Data::kDTTimeStamp), type); });
}

void FM_Data_SetDateTime(Data* self, const DateTime& dateTime, int32 dateTimeType, int32 type, _fmxcpt& x)
{
    entry(x, [&] { inside(self).set(dateTimeContent(dateTime, dateTimeType), type); });
}

void FM_Data_ConvertData(Data* self, int32 type, _fmxcpt& x)
{
    entry(x, [&] { inside(self).convert(type); });
}

DataVect* FM_DataVect_Constructor1(_fmxcpt& x)
{
    return fmxkit::create<DataVect>(x);
}

void FM_DataVect_Delete(DataVect* self, _fmxcpt& x)
{
    fmxkit::destroy(self, x);
}

uint32 FM_DataVect_Size(const DataVect* self, _fmxcpt& x)
{
    return entry(x, [&] { return static_cast<uint32>(inside(self).values.size()); });
}

void FM_DataVect_Clear(DataVect* self, _fmxcpt& x)
{
    entry(x, [&] { inside(self).values.clear(); });
}

bool FM_DataVect_IsEmpty(const DataVect* self, _fmxcpt& x)
{
    return entry(x, [&] { return inside(self).values.empty(); });
}

void FM_DataVect_PushBack(DataVect* self, const Data& value, _fmxcpt& x)
{
    entry(x, [&] { inside(self).values.push_back(std::make_unique<DataValue>(inside(&value))); });
}

Data* FM_DataVect_PopBack(DataVect* self, _fmxcpt& x)
{
    return entry(x, [&]() -> Data* {
        auto& values = inside(self).values;
        if (values.empty()) {
            return nullptr;
        }
        Data* const last = outside<Data>(values.back().release());
        values.pop_back();
        return last;
    });
}

const Data* FM_DataVect_At(const DataVect* self, uint32 index, _fmxcpt& x)
{
    return entry(x, [&] { return outside<Data>(&valueAt(self, index)); });
}

const Text* FM_DataVect_AtAsText(const DataVect* self, uint32 index, _fmxcpt& x)
{
    return entry(x, [&] { return outside<Text>(&valueAt(self, index).text()); });
}

const FixPt* FM_DataVect_AtAsNumber(const DataVect* self, uint32 index, _fmxcpt& x)
{
    return entry(x, [&] { return outside<FixPt>(&valueAt(self, index).number()); });
}

const DateTime* FM_DataVect_AtAsDate(const DataVect* self, uint32 index, _fmxcpt& x)
{
    return entry(x, [&] { return outside<DateTime>(&valueAt(self, index).date()); });
}

const DateTime* FM_DataVect_AtAsTime(const DataVect* self, uint32 index, _fmxcpt& x)
{
    return entry(x, [&] { return outside<DateTime>(&valueAt(self, index).time()); });
}

const DateTime* FM_DataVect_AtAsTimeStamp(const DataVect* self, uint32 index, _fmxcpt& x)
{
    return entry(x, [&] { return outside<DateTime>(&valueAt(self, index).timeStamp()); });
}

bool FM_DataVect_AtAsBoolean(const DataVect* self, uint32 index, _fmxcpt& x)
{
    return entry(x, [&] { return valueAt(self, index).boolean(); });
}

} // extern "C"
} // namespace fmx
