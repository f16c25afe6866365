// Where the plug-in of this repository deviates by design: what its users rely on stays as it is. A note, no failure.
#pragma once

#include "host/check/examination.h"

#include <string_view>

namespace fmxhost::check {

enum class EntryKind { function, scriptStep };

// Reports what is wrong with an entry of the plug-in: a failure, or a note where it is so by design.
void reportDeviation(const Examination& examination, std::string_view test, std::uint32_t pluginId, EntryKind kind,
                     short id, std::string_view text);

} // namespace fmxhost::check
