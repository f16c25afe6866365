// Errors in a calculation, and how they are shown: the line, and carets under the place.
#pragma once

#include <cstddef>
#include <stdexcept>
#include <string>
#include <string_view>

namespace fmxhost {

// A part of a calculation's source, in UTF-16 units.
struct Span {
    std::size_t offset = 0;
    std::size_t length = 0;
};

// A calculation that can't be parsed or evaluated. what() is the message, in UTF-8.
class CalculationError : public std::runtime_error {
public:
    CalculationError(Span span, const std::string& message) : std::runtime_error(message), span_(span) {}
    Span span() const { return span_; }

private:
    Span span_;
};

// Line and column of an offset, both from 1; columns count characters. Lines end with LF, CR or CR LF.
struct Place {
    std::size_t line = 1;
    std::size_t column = 1;
};
Place placeOf(std::u16string_view source, std::size_t offset);

// Two lines of UTF-8 with a line feed between them and none at the end: the line of the source that the span begins in,
// and below it "^" under the span's first character and "~" under the rest of it. Columns are those of a terminal; a
// long line is cut to the surroundings of the place.
std::string pointAt(std::u16string_view source, Span span);

} // namespace fmxhost
