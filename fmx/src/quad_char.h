// What stands behind fmx::QuadChar.
#pragma once

#include "entry.h"

#include <FMXBinaryData.h>

namespace fmxkit {

struct QuadCharValue {
    fmx::uint32 code = 0; // first character in the highest byte
};

template <>
struct Behind<fmx::QuadChar> {
    using Type = QuadCharValue;
};

} // namespace fmxkit
