// Character styles of a text: named by the interface, not offered by this kit.
#pragma once

#include "FMXTypes.h"

namespace fmx {

class TextStyle;

} // namespace fmx
