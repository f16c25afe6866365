// Evaluates calculations, with the variables that they share.
#pragma once

#include "host/base/value.h"
#include "host/calculation/functions.h"
#include "host/calculation/source.h"

#include <cstddef>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace fmxhost {

// How deep parentheses, calls and signs may be nested. Deeper ones are an error instead of an exhausted stack.
constexpr int maximumNesting = 200;

struct ParserOptions {
    bool checkArgumentCounts = true; // of the plug-in's functions; FileMaker's are always checked
    // What Get returns, by the case-folded name of what is asked for; before what the host knows by itself.
    std::map<std::u16string, Value> getAnswers;
};

// By case-folded name with its $. They outlive the calculation.
using Variables = std::map<std::u16string, Value>;

// What a calculation works with while it is evaluated.
struct Scope {
    Variables& variables;
    std::vector<Value> locals; // of Let and While, one for each name in each of them
    int depth = 0;             // of Evaluate
};

using Expression = std::function<Value(Scope& scope)>;

// A whole calculation: an expression, or one whose value a variable gets.
struct Calculation {
    std::optional<std::u16string> assignedVariable; // case-folded
    Expression expression;
    std::size_t locals = 0; // that its scope needs
};

// Binding strength, strongest first: signs and "not"; ^; * /; + -; &; = ≠ < > ≤ ≥; and; or xor. Operators of one
// strength go from left to right. "$name = …" as a whole calculation assigns; in parentheses it compares. One of blanks
// and comments alone is empty.
//
// Functions and options must outlive what is made of them.
// Errors: CalculationError at the first place that is wrong, unknown names and wrong argument counts included: nothing
// of a calculation with an error in it is ever evaluated.
Calculation parse(std::u16string_view source, const FunctionTable& functions, const ParserOptions& options);

// What a whole calculation brought.
struct Evaluation {
    Value value;            // the text "?", as in FileMaker, when a function of the plug-in returned an error code
    fmx::errcode error = 0; // that code; the rest of the calculation was not evaluated
    double seconds = 0;     // of wall-clock time, parsing not counted
};

// An exception came out of a function of the plug-in. what() names the function and the exception, in UTF-8.
class PluginThrew : public CalculationError {
public:
    using CalculationError::CalculationError; // the span is the call's
};

// Texts compare without letter case, and a number next to a text as a text; other values by their numbers.
// A variable that was never set is empty.
// Errors: CalculationError, PluginThrew among them.
Evaluation evaluate(std::u16string_view source, const FunctionTable& functions, const ParserOptions& options,
                    Variables& variables);

} // namespace fmxhost
