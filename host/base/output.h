// What fmxhost writes: standard output, of which no failed write passes, messages, terminal styles, JSON objects.
//
// Thread rule: one thread at a time.
#pragma once

#include <nlohmann/json_fwd.hpp>

#include <string>
#include <string_view>
#include <system_error>

namespace fmxhost {

// Exit statuses of fmxhost; scripts rely on them.
enum class ExitStatus : int {
    success = 0,
    calculationError = 1, // a calculation can't be parsed or evaluated
    checkFailed = 1,      // a test of "check" failed
    wrongUse = 2,         // of the command line, an unreadable file of calculations included
    pluginUnusable = 3,   // it can't be loaded or refuses to start
    pluginThrew = 4,      // an exception left the plug-in
    outputFailed = 5,     // what was to be written couldn't be (a full disk)
};

// A write failed; code() is the errno.
class OutputError : public std::system_error {
public:
    using std::system_error::system_error;
};

// To standard output, through C's buffer.
// Errors: OutputError. Whether all of it was written is known after flush().
void print(std::string_view text);
void flush();

// One line on standard error, after what was printed so far; of an error with the program's name before it.
// Errors: OutputError, of standard output; what can't be said on standard error isn't.
void report(std::string_view line);
void reportError(std::string_view message);

// Opens what stands in for closed standard descriptors, so that no file of the plug-in gets their numbers. Writing to a
// stand-in fails as it would have.
void reserveStandardDescriptors();

enum class Style { error, good, faint };

// The text in the style, if the descriptor leads to a terminal that understands escape sequences (TERM is set and isn't
// "dumb"), and NO_COLOR isn't set to anything but an empty text (https://no-color.org).
std::string styled(std::string_view text, Style style, int descriptor);

// JSON (RFC 8259) on one line, without a line end, with U+FFFD for what isn't valid UTF-8.
using Json = nlohmann::ordered_json;
std::string jsonText(const Json& value);

} // namespace fmxhost
