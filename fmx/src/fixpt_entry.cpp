#include "decimal.h"
#include "entry.h"
#include "error_codes.h"

#include <FMXFixPt.h>

#include <algorithm>
#include <limits>

using fmx::FixPt;
using fmxkit::Decimal;
using fmxkit::entry;
using fmxkit::inside;

namespace {

int order(const FixPt* a, const FixPt* b)
{
    return inside(a).value.compare(inside(b).value);
}

void assign(FixPt* self, const Decimal& value)
{
    inside(self).assign(value);
}

} // namespace

namespace fmx {
extern "C" {

FixPt* FM_FixPt_Constructor1(int32 value, int precision, _fmxcpt& x)
{
    return entry(x, [&] { return fmxkit::outside<FixPt>(new fmxkit::FixPtValue(Decimal(value), precision)); });
}

FixPt* FM_FixPt_Constructor2(int32 value, const FixPt& precisionExample, _fmxcpt& x)
{
    return entry(x, [&] {
        return fmxkit::outside<FixPt>(new fmxkit::FixPtValue(Decimal(value), inside(&precisionExample).precision));
    });
}

void FM_FixPt_Delete(FixPt* self, _fmxcpt& x)
{
    fmxkit::destroy(self, x);
}

void FM_FixPt_AssignInt(FixPt* self, int32 value, _fmxcpt& x)
{
    entry(x, [&] { assign(self, Decimal(value)); });
}

void FM_FixPt_AssignInt64(FixPt* self, int64 value, _fmxcpt& x)
{
    entry(x, [&] { assign(self, Decimal(value)); });
}

void FM_FixPt_AssignDouble(FixPt* self, double value, _fmxcpt& x)
{
    entry(x, [&] { assign(self, Decimal::fromDouble(value)); });
}

void FM_FixPt_AssignFixPt(FixPt* self, const FixPt& value, _fmxcpt& x)
{
    entry(x, [&] { assign(self, inside(&value).value); });
}

FMXKIT_COMPARISONS(FixPt, order)

void FM_FixPt_Increment(FixPt* self, int32 n, _fmxcpt& x)
{
    entry(x, [&] { assign(self, inside(self).value + Decimal(n)); });
}

void FM_FixPt_Increment64(FixPt* self, int64 n, _fmxcpt& x)
{
    entry(x, [&] { assign(self, inside(self).value + Decimal(n)); });
}

void FM_FixPt_Decrement(FixPt* self, int32 n, _fmxcpt& x)
{
    entry(x, [&] { assign(self, inside(self).value - Decimal(n)); });
}

void FM_FixPt_Decrement64(FixPt* self, int64 n, _fmxcpt& x)
{
    entry(x, [&] { assign(self, inside(self).value - Decimal(n)); });
}

void FM_FixPt_Negate(FixPt* self, _fmxcpt& x)
{
    entry(x, [&] { assign(self, inside(self).value.negated()); });
}

int FM_FixPt_GetPrecision(const FixPt* self, _fmxcpt& x)
{
    return entry(x, [&] { return inside(self).precision; });
}

void FM_FixPt_SetPrecision(FixPt* self, int precision, _fmxcpt& x)
{
    entry(x, [&] { inside(self) = fmxkit::FixPtValue(inside(self).value, precision); });
}

void FM_FixPt_Add(const FixPt* self, const FixPt& that, FixPt& result, _fmxcpt& x)
{
    entry(x, [&] { assign(&result, inside(self).value + inside(&that).value); });
}

void FM_FixPt_Subtract(const FixPt* self, const FixPt& that, FixPt& result, _fmxcpt& x)
{
    entry(x, [&] { assign(&result, inside(self).value - inside(&that).value); });
}

void FM_FixPt_Multiply(const FixPt* self, const FixPt& that, FixPt& result, _fmxcpt& x)
{
    entry(x, [&] { assign(&result, inside(self).value * inside(&that).value); });
}

errcode FM_FixPt_Divide(const FixPt* self, const FixPt& that, FixPt& result, _fmxcpt& x)
{
    return entry(x, [&] {
        if (inside(&that).value.isZero()) {
            return fmxkit::numberCannotBeEvaluated;
        }
        assign(&result, inside(self).value.dividedBy(inside(&that).value, inside(&result).precision));
        return fmxkit::noError;
    });
}

bool FM_FixPt_AsBool(const FixPt* self, _fmxcpt& x)
{
    return entry(x, [&] { return !inside(self).value.isZero(); });
}

int32 FM_FixPt_AsLong(const FixPt* self, _fmxcpt& x)
{
    using Limits = std::numeric_limits<int32>;
    return entry(x, [&] {
        return static_cast<int32>(std::clamp<int64>(inside(self).value.toInt64(), Limits::min(), Limits::max()));
    });
}

int64 FM_FixPt_AsLong64(const FixPt* self, _fmxcpt& x)
{
    return entry(x, [&] { return inside(self).value.toInt64(); });
}

double FM_FixPt_AsFloat(const FixPt* self, _fmxcpt& x)
{
    return entry(x, [&] { return inside(self).value.toDouble(); });
}

} // extern "C"
} // namespace fmx
