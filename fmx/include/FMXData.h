// Values of any type, as calculations pass them, vectors of them, and locales.
#pragma once

#include "FMXBinaryData.h"
#include "FMXDateTime.h"
#include "FMXFixPt.h"
#include "FMXText.h"
#include "FMXTypes.h"

#include <memory>

namespace fmx {

class Locale;
class Data;
class DataVect;

extern "C" {
FMX_API Locale* FM_Locale_Constructor1(int32 type, _fmxcpt& x);
FMX_API Locale* FM_Locale_Constructor2(const Locale& value, _fmxcpt& x);
FMX_API Locale* FM_Locale_operatorAS(Locale* self, const Locale& that, _fmxcpt& x);
FMX_API void FM_Locale_Delete(Locale* self, _fmxcpt& x);

FMX_API Data* FM_Data_Constructor1(_fmxcpt& x);
FMX_API void FM_Data_Delete(Data* self, _fmxcpt& x);
FMX_API void FM_Data_Clear(Data* self, int32 type, _fmxcpt& x);
FMX_API bool FM_Data_IsEmpty(const Data* self, _fmxcpt& x);
FMX_API bool FM_Data_IsValid(const Data* self, _fmxcpt& x);
FMX_API bool FM_Data_GetAsBoolean(const Data* self, _fmxcpt& x);
FMX_API int32 FM_Data_GetNativeType(const Data* self, _fmxcpt& x);
FMX_API const Text* FM_Data_GetAsText(const Data* self, _fmxcpt& x);
FMX_API const FixPt* FM_Data_GetAsNumber(const Data* self, _fmxcpt& x);
FMX_API const DateTime* FM_Data_GetAsDate(const Data* self, _fmxcpt& x);
FMX_API const DateTime* FM_Data_GetAsTime(const Data* self, _fmxcpt& x);
FMX_API const DateTime* FM_Data_GetAsTimeStamp(const Data* self, _fmxcpt& x);
FMX_API const Locale* FM_Data_GetLocale(const Data* self, _fmxcpt& x);
FMX_API errcode FM_Data_SetAsText(Data* self, const Text& text, const Locale& locale, int32 type, _fmxcpt& x);
FMX_API void FM_Data_SetAsNumber(Data* self, const FixPt& number, int32 type, _fmxcpt& x);
FMX_API void FM_Data_SetAsDate(Data* self, const DateTime& date, int32 type, _fmxcpt& x);
FMX_API void FM_Data_SetAsTime(Data* self, const DateTime& time, int32 type, _fmxcpt& x);
FMX_API void FM_Data_SetAsTimeStamp(Data* self, const DateTime& timeStamp, int32 type, _fmxcpt& x);
FMX_API void FM_Data_SetDateTime(Data* self, const DateTime& dateTime, int32 dateTimeType, int32 type, _fmxcpt& x);
FMX_API void FM_Data_ConvertData(Data* self, int32 type, _fmxcpt& x);

FMX_API DataVect* FM_DataVect_Constructor1(_fmxcpt& x);
FMX_API void FM_DataVect_Delete(DataVect* self, _fmxcpt& x);
FMX_API uint32 FM_DataVect_Size(const DataVect* self, _fmxcpt& x);
FMX_API void FM_DataVect_Clear(DataVect* self, _fmxcpt& x);
FMX_API bool FM_DataVect_IsEmpty(const DataVect* self, _fmxcpt& x);
FMX_API void FM_DataVect_PushBack(DataVect* self, const Data& value, _fmxcpt& x);
FMX_API Data* FM_DataVect_PopBack(DataVect* self, _fmxcpt& x);
FMX_API const Data* FM_DataVect_At(const DataVect* self, uint32 index, _fmxcpt& x);
FMX_API const Text* FM_DataVect_AtAsText(const DataVect* self, uint32 index, _fmxcpt& x);
FMX_API const FixPt* FM_DataVect_AtAsNumber(const DataVect* self, uint32 index, _fmxcpt& x);
FMX_API const DateTime* FM_DataVect_AtAsDate(const DataVect* self, uint32 index, _fmxcpt& x);
FMX_API const DateTime* FM_DataVect_AtAsTime(const DataVect* self, uint32 index, _fmxcpt& x);
FMX_API const DateTime* FM_DataVect_AtAsTimeStamp(const DataVect* self, uint32 index, _fmxcpt& x);
FMX_API bool FM_DataVect_AtAsBoolean(const DataVect* self, uint32 index, _fmxcpt& x);
}

// Which conventions a text follows. This kit carries the type along and formats as a US English system whatever it is.
class Locale {
public:
    // Language tables have numbers from 16 on.
    enum Type : int32 { kType_None = 0, kType_System = 1, kType_UnicodeRaw = 2, kType_UnicodeStandard = 3 };

    Locale& operator=(const Locale& that) { return *_fmxcall(FM_Locale_operatorAS, this, that); }

    void operator delete(void* self)
    {
        _fmxcpt x;
        FM_Locale_Delete(static_cast<Locale*>(self), x);
    }

private:
    Locale();
    Locale(const Locale&);
};

class LocaleUniquePtr : public std::unique_ptr<Locale> {
public:
    explicit LocaleUniquePtr(Locale::Type type = Locale::kType_System)
        : std::unique_ptr<Locale>(_fmxcall(FM_Locale_Constructor1, type))
    {
    }
    explicit LocaleUniquePtr(const Locale& value) : std::unique_ptr<Locale>(_fmxcall(FM_Locale_Constructor2, value)) {}
};

// One value. What it was set from is kept; every other form is made when it is first asked for, and both belong to the
// Data: a reference is good until the Data changes or goes.
//
// Conversions: a number as text has no exponent, no trailing zeros and no zero before its decimal point (".5"). A text
// as number is made of its digits, wherever they stand, negative with any minus sign, with its first decimal point
// ("a1b2" is 12). A date is "11/24/2026", a time "13:02:03", a timestamp "11/24/2026 1:02:03 PM", fractions of a second
// follow the seconds. As numbers these are the day's number (1/1/0001 is 1), seconds, and seconds since 1/1/0001 0:00.
// A boolean is whether the number isn't 0. What can't be converted is an empty text, 0 or 1/1/0001 0:00:00.
class Data {
public:
    enum DataType : int32 {
        kDTInvalid = 0,
        kDTText = 1,
        kDTNumber = 2,
        kDTDate = 3,
        kDTTime = 4,
        kDTTimeStamp = 5,
        kDTBinary = 6,
        kDTBoolean = 7
    };

    bool IsEmpty() const { return _fmxcall(FM_Data_IsEmpty, this); } // nothing set, or an empty text
    // False when nothing was set, or when a text can't be read as the native type.
    bool IsValid() const { return _fmxcall(FM_Data_IsValid, this); }
    DataType GetNativeType() const { return static_cast<DataType>(_fmxcall(FM_Data_GetNativeType, this)); }
    void Clear(DataType type = kDTInvalid) { _fmxcall(FM_Data_Clear, this, type); }

    const Text& GetAsText() const { return *_fmxcall(FM_Data_GetAsText, this); }
    const FixPt& GetAsNumber() const { return *_fmxcall(FM_Data_GetAsNumber, this); }
    const DateTime& GetAsDate() const { return *_fmxcall(FM_Data_GetAsDate, this); }
    const DateTime& GetAsTime() const { return *_fmxcall(FM_Data_GetAsTime, this); }
    const DateTime& GetAsTimeStamp() const { return *_fmxcall(FM_Data_GetAsTimeStamp, this); }
    bool GetAsBoolean() const { return _fmxcall(FM_Data_GetAsBoolean, this); }
    const Locale& GetLocale() const
    {
        return *_fmxcall(FM_Data_GetLocale, this);
    } // of the last text; else the system's

    // The last argument is the native type that the value then has; what it holds stays as given. A text is shared, not
    // copied. A text that can't be read as its native type is kept and returns 1218 (number), 500 (date) or 501 (time).
    errcode SetAsText(const Text& text, const Locale& locale, DataType type = kDTText)
    {
        return _fmxcall(FM_Data_SetAsText, this, text, locale, type);
    }
    void SetAsNumber(const FixPt& number, DataType type = kDTNumber)
    {
        _fmxcall(FM_Data_SetAsNumber, this, number, type);
    }
    void SetAsDate(const DateTime& date, DataType type = kDTDate) { _fmxcall(FM_Data_SetAsDate, this, date, type); }
    void SetAsTime(const DateTime& time, DataType type = kDTTime) { _fmxcall(FM_Data_SetAsTime, this, time, type); }
    void SetAsTimeStamp(const DateTime& timeStamp, DataType type = kDTTimeStamp)
    {
        _fmxcall(FM_Data_SetAsTimeStamp, this, timeStamp, type);
    }
    // `dateTimeType` says what of `dateTime` counts: kDTDate, kDTTime or kDTTimeStamp; another type is a failure.
    void SetDateTime(const DateTime& dateTime, DataType dateTimeType, DataType nativeType)
    {
        _fmxcall(FM_Data_SetDateTime, this, dateTime, dateTimeType, nativeType);
    }
    // Makes the form of that type what the value holds.
    void ConvertData(DataType type) { _fmxcall(FM_Data_ConvertData, this, type); }

    void operator delete(void* self)
    {
        _fmxcpt x;
        FM_Data_Delete(static_cast<Data*>(self), x);
    }

private:
    Data();
    Data(const Data&);
    Data& operator=(const Data&);
};

class DataUniquePtr : public std::unique_ptr<Data> {
public:
    DataUniquePtr() : std::unique_ptr<Data>(_fmxcall(FM_Data_Constructor1)) {}
};

// Values in order. An index past the end names an empty value that lives as long as the library: never a failure.
class DataVect {
public:
    uint32 Size() const { return _fmxcall(FM_DataVect_Size, this); }
    bool IsEmpty() const { return _fmxcall(FM_DataVect_IsEmpty, this); }
    void Clear() { _fmxcall(FM_DataVect_Clear, this); }
    void PushBack(const Data& value) { _fmxcall(FM_DataVect_PushBack, this, value); } // a copy; texts are shared
    // Takes the last value out; the caller owns it. Null when there is none.
    Data* PopBack() { return _fmxcall(FM_DataVect_PopBack, this); }

    const Data& At(uint32 index) const { return *_fmxcall(FM_DataVect_At, this, index); }
    const Text& AtAsText(uint32 index) const { return *_fmxcall(FM_DataVect_AtAsText, this, index); }
    const FixPt& AtAsNumber(uint32 index) const { return *_fmxcall(FM_DataVect_AtAsNumber, this, index); }
    const DateTime& AtAsDate(uint32 index) const { return *_fmxcall(FM_DataVect_AtAsDate, this, index); }
    const DateTime& AtAsTime(uint32 index) const { return *_fmxcall(FM_DataVect_AtAsTime, this, index); }
    const DateTime& AtAsTimeStamp(uint32 index) const { return *_fmxcall(FM_DataVect_AtAsTimeStamp, this, index); }
    bool AtAsBoolean(uint32 index) const { return _fmxcall(FM_DataVect_AtAsBoolean, this, index); }

    void operator delete(void* self)
    {
        _fmxcpt x;
        FM_DataVect_Delete(static_cast<DataVect*>(self), x);
    }

private:
    DataVect();
    DataVect(const DataVect&);
    DataVect& operator=(const DataVect&);
};

class DataVectUniquePtr : public std::unique_ptr<DataVect> {
public:
    DataVectUniquePtr() : std::unique_ptr<DataVect>(_fmxcall(FM_DataVect_Constructor1)) {}
};

} // namespace fmx
