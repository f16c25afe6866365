// Writes what calculations brought: plainly or as JSON.
#pragma once

#include "host/calculation/evaluator.h"
#include "host/output.h"
#include "host/value.h"

#include <string_view>

namespace fmxhost {

// How plain results are written.
struct PlainStyle {
    bool hideControls = false; // for terminals: control characters but tabs and line ends become U+FFFD
    bool colour = false;       // error results stand out
};

// The value as FileMaker shows it, and a line end. Line ends within it (¶, line feed, or both in this order) become
// line feeds, so that a list is one item a line; lone surrogates become U+FFFD. Long texts are written piece by piece.
// Errors: OutputError.
void writePlain(Output& output, const Value& value, const PlainStyle& style = {});

// One JSON object on one line (RFC 8259) with these members:
//   calculation  the text as it was given
//   type         "text", "number", "timestamp", "empty"; of other plug-ins also "date", "time", "container"
//   value        always a string: a text as it is (lone surrogates as U+FFFD), a number in decimal digits, a timestamp
//   as
//                YYYY-MM-DDTHH:MM:SS, a date or a time as the part of that; "" for empty ones and for containers
//   error        the code that the function returned
//   seconds      how long the evaluation took
// Errors: OutputError.
void writeJson(Output& output, std::string_view calculation, const Evaluation& evaluation);

// A JSON string with its quotation marks.
std::string jsonString(std::string_view utf8);

} // namespace fmxhost
