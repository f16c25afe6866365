// Between the SDK's text values and strings of UTF-16 units.
#pragma once

#include "frame/fmx_sdk.h"

#include <string>
#include <string_view>

namespace frame {

// The text's UTF-16 units, all of them and nothing added.
std::u16string textUnits(const fmx::Text& text);

// A new text value; throws what the SDK's wrapper calls throw.
fmx::TextUniquePtr makeText(std::u16string_view units);

// The units of the text in capitals, as the SDK maps them; the text itself stays as it is.
std::u16string uppercased(const fmx::Text& text);

} // namespace frame
