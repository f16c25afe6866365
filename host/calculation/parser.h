// Parses a calculation.
#pragma once

#include "host/calculation/functions.h"
#include "host/calculation/syntax.h"

#include <string_view>

namespace fmxhost {

// How deep parentheses, calls and signs may be nested. Deeper ones are an error instead of an exhausted stack.
constexpr int maximumNesting = 200;

struct ParserOptions {
    bool checkArgumentCounts = true; // of the plug-in's functions; the built-in ones are always checked
};

// Binding strength, strongest first: signs and "not"; * /; + -; &; = ≠ < > ≤ ≥; and; or xor. Operators of one strength
// go from left to right. "$name = …" as a whole calculation assigns; in parentheses it compares.
//
// The tree refers to the table's functions, which must outlive it.
// Errors: CalculationError at the first place that is wrong, unknown names and wrong argument counts included: nothing
// of a calculation with an error in it is ever evaluated.
Calculation parse(std::u16string_view source, const FunctionTable& functions, const ParserOptions& options = {});

} // namespace fmxhost
