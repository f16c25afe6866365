#include "entry.h"
#include "quad_char.h"

#include <FMXBinaryData.h>

#include <stdexcept>

using fmx::QuadChar;
using fmxkit::entry;
using fmxkit::inside;
using fmxkit::QuadCharValue;

namespace {

fmx::uchar characterAt(const QuadChar* self, int index)
{
    if (index < 0 || index > 3) {
        throw std::out_of_range("character of a four-character code");
    }
    return static_cast<fmx::uchar>(inside(self).code >> (24 - 8 * index));
}

fmx::int64 order(const QuadChar* a, const QuadChar* b)
{
    return fmx::int64{inside(a).code} - inside(b).code;
}

} // namespace

namespace fmx {
extern "C" {

QuadChar* FM_QuadChar_Constructor1(_fmxcpt& x)
{
    return fmxkit::create<QuadChar>(x);
}

QuadChar* FM_QuadChar_Constructor2(char a, char b, char c, char d, _fmxcpt& x)
{
    return entry(x, [&] {
        uint32 code = 0;
        for (const char character : {a, b, c, d}) {
            code = code << 8 | static_cast<unsigned char>(character);
        }
        return fmxkit::outside<QuadChar>(new QuadCharValue{code});
    });
}

QuadChar* FM_QuadChar_Constructor3(const QuadChar& value, _fmxcpt& x)
{
    return entry(x, [&] { return fmxkit::outside<QuadChar>(new QuadCharValue(inside(&value))); });
}

const QuadChar* FM_QuadChar_operatorAS(QuadChar* self, const QuadChar& that, _fmxcpt& x)
{
    return entry(x, [&]() -> const QuadChar* {
        inside(self) = inside(&that);
        return self;
    });
}

uchar FM_QuadChar_operatorAR(QuadChar* self, int index, _fmxcpt& x)
{
    return entry(x, [&] { return characterAt(self, index); });
}

uchar FM_QuadChar_operatorCAR(const QuadChar* self, int index, _fmxcpt& x)
{
    return entry(x, [&] { return characterAt(self, index); });
}

FMXKIT_COMPARISONS(QuadChar, order)

uint32 FM_QuadChar_GetMacType(const QuadChar* self, _fmxcpt& x)
{
    return entry(x, [&] { return inside(self).code; });
}

void FM_QuadChar_SetMacType(QuadChar* self, uint32 macType, _fmxcpt& x)
{
    entry(x, [&] { inside(self).code = macType; });
}

void FM_QuadChar_Delete(QuadChar* self, _fmxcpt& x)
{
    fmxkit::destroy(self, x);
}

} // extern "C"
} // namespace fmx
