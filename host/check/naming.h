// How the results of "fmxhost check" name what a plug-in has registered, and texts of it.
#pragma once

#include <fmxkit/registry.h>

#include <string>
#include <string_view>
#include <vector>

namespace fmxhost::check {

// "function 3 Smpl_Fail", "script step 3 Smpl_Fail"; without the name where there is none. UTF-8.
std::string nameOf(const fmxkit::ExternalFunction& function);
std::string nameOf(const fmxkit::ScriptStep& step);

// The text in quotes, as UTF-8; of a long one its beginning.
std::string inQuotes(std::u16string_view text);

// Four characters, first one in the highest byte, in quotes; in hexadecimal where they can't be shown.
std::string idText(std::uint32_t id);

// Ascending numbers as people write them: "2, 3, 10 to 255".
std::string numbersText(const std::vector<unsigned>& numbers);

} // namespace fmxhost::check
