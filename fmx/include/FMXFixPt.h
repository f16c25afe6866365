// Decimal numbers.
#pragma once

#include "FMXTypes.h"

#include <memory>

namespace fmx {

class FixPt;

extern "C" {
FMX_API FixPt* FM_FixPt_Constructor1(int32 value, int precision, _fmxcpt& x);
FMX_API FixPt* FM_FixPt_Constructor2(int32 value, const FixPt& precisionExample, _fmxcpt& x);
FMX_API void FM_FixPt_Delete(FixPt* self, _fmxcpt& x);
FMX_API void FM_FixPt_AssignInt(FixPt* self, int32 value, _fmxcpt& x);
FMX_API void FM_FixPt_AssignInt64(FixPt* self, int64 value, _fmxcpt& x);
FMX_API void FM_FixPt_AssignDouble(FixPt* self, double value, _fmxcpt& x);
FMX_API void FM_FixPt_AssignFixPt(FixPt* self, const FixPt& value, _fmxcpt& x);
FMX_API bool FM_FixPt_operatorEQ(const FixPt* self, const FixPt& that, _fmxcpt& x);
FMX_API bool FM_FixPt_operatorNE(const FixPt* self, const FixPt& that, _fmxcpt& x);
FMX_API bool FM_FixPt_operatorLT(const FixPt* self, const FixPt& that, _fmxcpt& x);
FMX_API bool FM_FixPt_operatorLE(const FixPt* self, const FixPt& that, _fmxcpt& x);
FMX_API bool FM_FixPt_operatorGT(const FixPt* self, const FixPt& that, _fmxcpt& x);
FMX_API bool FM_FixPt_operatorGE(const FixPt* self, const FixPt& that, _fmxcpt& x);
FMX_API void FM_FixPt_Increment(FixPt* self, int32 n, _fmxcpt& x);
FMX_API void FM_FixPt_Increment64(FixPt* self, int64 n, _fmxcpt& x);
FMX_API void FM_FixPt_Decrement(FixPt* self, int32 n, _fmxcpt& x);
FMX_API void FM_FixPt_Decrement64(FixPt* self, int64 n, _fmxcpt& x);
FMX_API void FM_FixPt_Negate(FixPt* self, _fmxcpt& x);
FMX_API int FM_FixPt_GetPrecision(const FixPt* self, _fmxcpt& x);
FMX_API void FM_FixPt_SetPrecision(FixPt* self, int precision, _fmxcpt& x);
FMX_API void FM_FixPt_Add(const FixPt* self, const FixPt& that, FixPt& result, _fmxcpt& x);
FMX_API void FM_FixPt_Subtract(const FixPt* self, const FixPt& that, FixPt& result, _fmxcpt& x);
FMX_API void FM_FixPt_Multiply(const FixPt* self, const FixPt& that, FixPt& result, _fmxcpt& x);
FMX_API errcode FM_FixPt_Divide(const FixPt* self, const FixPt& that, FixPt& result, _fmxcpt& x);
FMX_API bool FM_FixPt_AsBool(const FixPt* self, _fmxcpt& x);
FMX_API int32 FM_FixPt_AsLong(const FixPt* self, _fmxcpt& x);
FMX_API int64 FM_FixPt_AsLong64(const FixPt* self, _fmxcpt& x);
FMX_API double FM_FixPt_AsFloat(const FixPt* self, _fmxcpt& x);
}

// A decimal number with at most 400 digits before the decimal point and at most `precision` digits behind it:
// FileMaker's SetPrecision counts the same way, and whole numbers are exact at any precision. Digits that don't fit are
// rounded, a half away from zero. The precision is 0 to 400; values outside count as the nearer end. A number too large
// for 400 digits, an infinity and a NaN are failures.
class FixPt {
public:
    void AssignInt(int32 value) { _fmxcall(FM_FixPt_AssignInt, this, value); }
    void AssignInt64(int64 value) { _fmxcall(FM_FixPt_AssignInt64, this, value); }
    // The shortest decimal that names this double, then rounded: 0.1 is 0.1, whole numbers up to 2^53 are exact.
    void AssignDouble(double value) { _fmxcall(FM_FixPt_AssignDouble, this, value); }
    // Takes the value, keeps this number's own precision.
    void AssignFixPt(const FixPt& value) { _fmxcall(FM_FixPt_AssignFixPt, this, value); }

    // By value, whatever the precisions.
    bool operator==(const FixPt& that) const { return _fmxcall(FM_FixPt_operatorEQ, this, that); }
    bool operator!=(const FixPt& that) const { return _fmxcall(FM_FixPt_operatorNE, this, that); }
    bool operator<(const FixPt& that) const { return _fmxcall(FM_FixPt_operatorLT, this, that); }
    bool operator<=(const FixPt& that) const { return _fmxcall(FM_FixPt_operatorLE, this, that); }
    bool operator>(const FixPt& that) const { return _fmxcall(FM_FixPt_operatorGT, this, that); }
    bool operator>=(const FixPt& that) const { return _fmxcall(FM_FixPt_operatorGE, this, that); }

    void Increment(int32 n) { _fmxcall(FM_FixPt_Increment, this, n); }
    void Increment64(int64 n) { _fmxcall(FM_FixPt_Increment64, this, n); }
    void Decrement(int32 n) { _fmxcall(FM_FixPt_Decrement, this, n); }
    void Decrement64(int64 n) { _fmxcall(FM_FixPt_Decrement64, this, n); }
    void Negate() { _fmxcall(FM_FixPt_Negate, this); }

    int GetPrecision() const { return _fmxcall(FM_FixPt_GetPrecision, this); }
    void SetPrecision(int precision) { _fmxcall(FM_FixPt_SetPrecision, this, precision); }

    // Rounded to the precision of `result`, which may be one of the operands.
    void Add(const FixPt& that, FixPt& result) const { _fmxcall(FM_FixPt_Add, this, that, result); }
    void Subtract(const FixPt& that, FixPt& result) const { _fmxcall(FM_FixPt_Subtract, this, that, result); }
    void Multiply(const FixPt& that, FixPt& result) const { _fmxcall(FM_FixPt_Multiply, this, that, result); }
    // Division by zero returns 1218 ("number cannot be evaluated") and leaves `result` as it was.
    errcode Divide(const FixPt& that, FixPt& result) const { return _fmxcall(FM_FixPt_Divide, this, that, result); }

    // Whole numbers are cut off towards zero; values outside the type's range become its nearest end.
    bool AsBool() const { return _fmxcall(FM_FixPt_AsBool, this); }
    int32 AsLong() const { return _fmxcall(FM_FixPt_AsLong, this); }
    int64 AsLong64() const { return _fmxcall(FM_FixPt_AsLong64, this); }
    double AsFloat() const { return _fmxcall(FM_FixPt_AsFloat, this); } // correctly rounded; beyond range: infinity

    void operator delete(void* self)
    {
        _fmxcpt x;
        FM_FixPt_Delete(static_cast<FixPt*>(self), x);
    }

private:
    FixPt();
    FixPt(const FixPt&);
    FixPt& operator=(const FixPt&);
};

class FixPtUniquePtr : public std::unique_ptr<FixPt> {
public:
    explicit FixPtUniquePtr(int32 value = 0, int precision = 16)
        : std::unique_ptr<FixPt>(_fmxcall(FM_FixPt_Constructor1, value, precision))
    {
    }
    FixPtUniquePtr(int32 value, const FixPt& precisionExample)
        : std::unique_ptr<FixPt>(_fmxcall(FM_FixPt_Constructor2, value, precisionExample))
    {
    }
};

} // namespace fmx
