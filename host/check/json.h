// JSON as fmxhost prints it.
#pragma once

#include <nlohmann/json.hpp>

#include <string>

namespace fmxhost::check {

using Json = nlohmann::ordered_json;

// UTF-8, with U+FFFD for what isn't valid.
inline std::string jsonText(const Json& json)
{
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

inline std::string jsonLines(const Json& array)
{
    std::string text = "[";
    const char* separator = "\n";
    for (const Json& element : array) {
        text += separator + jsonText(element);
        separator = ",\n";
    }
    return text + "\n]\n";
}

} // namespace fmxhost::check
