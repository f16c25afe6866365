// Four-character codes, as plug-ins identify themselves by. Binary data itself is named only.
//
// Thread rule, here and in every header of this interface: one value belongs to one thread at a time; any number of
// threads may call const members of one value at once.
#pragma once

#include "FMXTypes.h"

#include <memory>

namespace fmx {

class BinaryData;
class QuadChar;

extern "C" {
FMX_API QuadChar* FM_QuadChar_Constructor1(_fmxcpt& x);
FMX_API QuadChar* FM_QuadChar_Constructor2(char a, char b, char c, char d, _fmxcpt& x);
FMX_API QuadChar* FM_QuadChar_Constructor3(const QuadChar& value, _fmxcpt& x);
FMX_API const QuadChar* FM_QuadChar_operatorAS(QuadChar* self, const QuadChar& that, _fmxcpt& x);
FMX_API uchar FM_QuadChar_operatorAR(QuadChar* self, int index, _fmxcpt& x);
FMX_API uchar FM_QuadChar_operatorCAR(const QuadChar* self, int index, _fmxcpt& x);
FMX_API bool FM_QuadChar_operatorEQ(const QuadChar* self, const QuadChar& that, _fmxcpt& x);
FMX_API bool FM_QuadChar_operatorNE(const QuadChar* self, const QuadChar& that, _fmxcpt& x);
FMX_API bool FM_QuadChar_operatorLT(const QuadChar* self, const QuadChar& that, _fmxcpt& x);
FMX_API bool FM_QuadChar_operatorLE(const QuadChar* self, const QuadChar& that, _fmxcpt& x);
FMX_API bool FM_QuadChar_operatorGT(const QuadChar* self, const QuadChar& that, _fmxcpt& x);
FMX_API bool FM_QuadChar_operatorGE(const QuadChar* self, const QuadChar& that, _fmxcpt& x);
FMX_API uint32 FM_QuadChar_GetMacType(const QuadChar* self, _fmxcpt& x);
FMX_API void FM_QuadChar_SetMacType(QuadChar* self, uint32 macType, _fmxcpt& x);
FMX_API void FM_QuadChar_Delete(QuadChar* self, _fmxcpt& x);
}

// Four bytes, ordered as a number whose highest byte is the first character. All zero when made without arguments.
class QuadChar {
public:
    const QuadChar& operator=(const QuadChar& that) // NOLINT(misc-unconventional-assign-operator): the interface's type
    {
        return *_fmxcall(FM_QuadChar_operatorAS, this, that);
    }

    // `index` is 0 to 3; anything else is a failure.
    uchar operator[](int index) { return _fmxcall(FM_QuadChar_operatorAR, this, index); }
    uchar operator[](int index) const { return _fmxcall(FM_QuadChar_operatorCAR, this, index); }

    bool operator==(const QuadChar& that) const { return _fmxcall(FM_QuadChar_operatorEQ, this, that); }
    bool operator!=(const QuadChar& that) const { return _fmxcall(FM_QuadChar_operatorNE, this, that); }
    bool operator<(const QuadChar& that) const { return _fmxcall(FM_QuadChar_operatorLT, this, that); }
    bool operator<=(const QuadChar& that) const { return _fmxcall(FM_QuadChar_operatorLE, this, that); }
    bool operator>(const QuadChar& that) const { return _fmxcall(FM_QuadChar_operatorGT, this, that); }
    bool operator>=(const QuadChar& that) const { return _fmxcall(FM_QuadChar_operatorGE, this, that); }

    // The code as one number, first character in the highest byte.
    uint32 GetMacType() const { return _fmxcall(FM_QuadChar_GetMacType, this); }
    void SetMacType(uint32 macType) { _fmxcall(FM_QuadChar_SetMacType, this, macType); }

    void operator delete(void* self)
    {
        _fmxcpt x;
        FM_QuadChar_Delete(static_cast<QuadChar*>(self), x);
    }

private:
    QuadChar();
    QuadChar(const QuadChar&);
};

class QuadCharUniquePtr : public std::unique_ptr<QuadChar> {
public:
    QuadCharUniquePtr() : std::unique_ptr<QuadChar>(_fmxcall(FM_QuadChar_Constructor1)) {}
    QuadCharUniquePtr(char a, char b, char c, char d)
        : std::unique_ptr<QuadChar>(_fmxcall(FM_QuadChar_Constructor2, a, b, c, d))
    {
    }
    explicit QuadCharUniquePtr(const QuadChar& value)
        : std::unique_ptr<QuadChar>(_fmxcall(FM_QuadChar_Constructor3, value))
    {
    }
};

} // namespace fmx
