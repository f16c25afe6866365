// The texts that FileMaker shows for the plug-in, by number, from the strings table "KORBFolidex": 1 the options
// string, 128 the name, 129 the preferences text, 132 the help location, 150 to 201 the functions' prototypes, each
// prototype's number plus 200 its description.
#pragma once

#include "frame/fmx_sdk.h"

#include <cstddef>

namespace frame {

// Writes the text and a terminating zero into `buffer` of `capacity` UTF-16 units; returns the text's length. A text
// that is missing or doesn't fit whole is not written at all, and 0 is returned. A text fits when it is shorter than
// `capacity` - 1.
std::size_t loadString(short number, fmx::unichar16* buffer, std::size_t capacity);

enum class Extent {
    whole,
    bareName // up to the first "(": a prototype's function name
};

// The same as a new text value, of at most 1022 units; empty where loadString writes nothing.
fmx::TextUniquePtr loadText(short number, Extent extent);

} // namespace frame
