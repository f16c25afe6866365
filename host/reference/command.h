// fmxhost reference: the function reference of this repository's plug-in.
#pragma once

#include "host/session.h"

#include <filesystem>

namespace fmxhost {

ExitStatus writeReference(Session& session, const std::filesystem::path& texts, bool html);

} // namespace fmxhost
