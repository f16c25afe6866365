// Reads strings tables: the .strings format of Cocoa bundles (Apple, "Internationalization and Localization Guide"),
// in UTF-8.
//
// Thread rule: any thread.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace platform {

// Keys in UTF-8, values in UTF-16.
using StringsTable = std::map<std::string, std::u16string, std::less<>>;

// `"key" = "value";` pairs with /* */ and // comments between them. In quotes \" \\ \n \r \t and \Uxxxx (four hex
// digits, a UTF-16 unit) are escapes; of any other character a backslash is dropped. The later of two values of one
// key counts. Nothing when the text isn't such a table.
std::optional<StringsTable> parseStringsTable(std::string_view text);

} // namespace platform
