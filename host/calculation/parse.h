// Reads a calculation: its tokens, its syntax tree, and where and why it can't be read. Names are resolved and argument
// counts checked when the tree is made.
#pragma once

#include "host/base/value.h"
#include "host/calculation/functions.h"

#include <cstddef>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

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

enum class TokenKind {
    text,         // a text literal; `text` is what it stands for
    number,       // `text` is the literal as written
    name,         // of a function or of a Let name
    variable,     // with its $ or $$
    symbol,       // an operator or punctuation; `text` in one spelling: "≠" for "<>", "≤" for "<=", "≥" for ">="
    operatorWord, // and, or, xor, not; `text` in lower case
    end,
};

struct Token {
    TokenKind kind = TokenKind::end;
    std::u16string text;
    Span span;

    bool is(std::u16string_view symbol) const
    {
        return (kind == TokenKind::symbol || kind == TokenKind::operatorWord) && text == symbol;
    }
};

// The tokens, with one of kind `end` last. Blanks and comments ("//" to the end of the line, "/*" to "*/") separate
// tokens.
// Errors: CalculationError.
std::vector<Token> tokenize(std::u16string_view source);

// What is open where the source ends.
struct OpenEnd {
    bool isOpen = false;             // a bracket, a text or a comment: the calculation goes on
    std::optional<std::size_t> text; // the text that is open: the offset behind its quotation mark
};
OpenEnd openAtEnd(std::u16string_view source);

struct Expression;
using ExpressionPtr = std::unique_ptr<const Expression>;

enum class Operator {
    logicalOr,
    logicalXor,
    logicalAnd,
    equal,
    notEqual,
    less,
    greater,
    lessOrEqual,
    greaterOrEqual,
    concatenate,
    add,
    subtract,
    multiply,
    divide
};

struct Literal {
    Value value;
};

// $name and $$name: they outlive the calculation. The name is case-folded.
struct VariableReference {
    std::u16string name;
};

// A name that Let or While defines, case-folded.
struct LocalReference {
    std::u16string name;
};

struct Call {
    Function function;
    std::vector<ExpressionPtr> arguments; // the pairs of Substitute one behind the other
};

// Operators of one precedence from left to right. A list and not a chain of nodes: a long sum needs no deep stack.
struct OperatorChain {
    struct Link {
        Operator operation;
        Span place; // of the operator
        ExpressionPtr operand;
    };
    ExpressionPtr first;
    std::vector<Link> links;
};

enum class UnaryOperator { plus, minus, logicalNot };

struct UnaryOperation {
    UnaryOperator operation;
    ExpressionPtr operand;
};

struct Binding {
    std::u16string name; // case-folded
    bool isVariable = false;
    ExpressionPtr value;
};

struct Let {
    std::vector<Binding> bindings;
    ExpressionPtr body;
};

struct While {
    std::vector<Binding> bindings;
    ExpressionPtr condition;
    std::vector<Binding> logic;
    ExpressionPtr result;
};

// If and Case: only the branch that is chosen is evaluated.
struct Choice {
    std::vector<std::pair<ExpressionPtr, ExpressionPtr>> branches; // condition, result
    ExpressionPtr otherwise;                                       // may be null: empty
};

// Evaluate: a text that is a calculation.
struct Evaluated {
    ExpressionPtr text;
};

struct Expression {
    Span span;
    std::variant<Literal, VariableReference, LocalReference, Call, OperatorChain, UnaryOperation, Let, While, Choice,
                 Evaluated>
        form;
};

// A whole calculation: an expression, or one whose value a variable gets.
struct Calculation {
    std::optional<std::u16string> assignedVariable; // case-folded
    ExpressionPtr expression;
};

// How deep parentheses, calls and signs may be nested. Deeper ones are an error instead of an exhausted stack.
constexpr int maximumNesting = 200;

struct ParserOptions {
    bool checkArgumentCounts = true; // of the plug-in's functions; the built-in ones are always checked
    // What Get answers, by the case-folded name of what is asked for; before what the host knows by itself.
    std::map<std::u16string, Value> getAnswers;
};

// Binding strength, strongest first: signs and "not"; * /; + -; &; = ≠ < > ≤ ≥; and; or xor. Operators of one strength
// go from left to right. "$name = …" as a whole calculation assigns; in parentheses it compares.
//
// The tree refers to the table's functions, which must outlive it.
// Errors: CalculationError at the first place that is wrong, unknown names and wrong argument counts included: nothing
// of a calculation with an error in it is ever evaluated.
Calculation parse(std::u16string_view source, const FunctionTable& functions, const ParserOptions& options = {});

} // namespace fmxhost
