// Evaluates calculations, one after the other, with the variables that they share.
#pragma once

#include "host/base/value.h"
#include "host/calculation/functions.h"
#include "host/calculation/parse.h"

#include <map>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

namespace fmxhost {

// What a whole calculation brought.
struct Evaluation {
    Value value;            // the text "?", as in FileMaker, when a function answered an error code
    fmx::errcode error = 0; // that code; the rest of the calculation was not evaluated
    double seconds = 0;     // of wall-clock time, parsing not counted
};

// An exception came out of a function of the plug-in. what() names the function and the exception, in UTF-8.
class PluginThrew : public std::runtime_error {
public:
    PluginThrew(Span span, const std::string& message) : std::runtime_error(message), span_(span) {}
    Span span() const { return span_; } // the call

private:
    Span span_;
};

// Thread rule: one thread at a time.
class Evaluator {
public:
    // The functions must outlive the evaluator.
    explicit Evaluator(const FunctionTable& functions, ParserOptions options = {})
        : functions_(functions), options_(std::move(options))
    {
    }

    // Texts compare without letter case, numbers by value; a text that has no digit isn't equal to any number.
    // A variable that was never set is empty.
    // Errors: CalculationError, PluginThrew.
    Evaluation evaluate(std::u16string_view source);

    const FunctionTable& functions() const { return functions_; }
    const std::map<std::u16string, Value>& variables() const { return variables_; } // by case-folded name with its $

private:
    Evaluation evaluateUnguarded(std::u16string_view source);

    const FunctionTable& functions_;
    ParserOptions options_;
    std::map<std::u16string, Value> variables_;
};

} // namespace fmxhost
