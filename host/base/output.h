// What fmxhost writes: bytes to a file descriptor that let no failed write pass, terminal styles, JSON texts.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <variant>
#include <vector>

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

// Buffered. Thread rule: one thread at a time.
class Output {
public:
    // The descriptor stays open and belongs to the caller.
    explicit Output(int descriptor) : descriptor_(descriptor) {}
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;

    // Errors: OutputError. What is still in the buffer when the object goes is lost: flush() is how to know.
    void write(std::string_view bytes);
    void flush();

    // One line on standard error, after what was written so far; of an error with the program's name before it.
    // Errors: OutputError, of this output; what can't be said on standard error isn't.
    void report(std::string_view line);
    void reportError(std::string_view message);

    int descriptor() const { return descriptor_; }

private:
    int descriptor_;
    std::string buffer_;
};

// Opens what stands in for closed standard descriptors, so that no file of the plug-in gets their numbers. Writing to a
// stand-in fails as it would have.
void reserveStandardDescriptors();

enum class Style { error, good, faint };

// Whether the descriptor leads to a terminal that understands escape sequences (TERM is set and isn't "dumb"), and
// NO_COLOR isn't set to anything but an empty text (https://no-color.org).
bool wantsColour(int descriptor);

// The text in the style, or as it is when `colour` is false.
std::string styled(std::string_view text, Style style, bool colour);

// A JSON object (RFC 8259) on one line, without a line end, with U+FFFD for what isn't valid UTF-8.
using JsonMember = std::pair<std::string, std::variant<std::int64_t, double, std::string>>;
std::string jsonObject(const std::vector<JsonMember>& members);

} // namespace fmxhost
