// The syntax tree of a calculation. Names are resolved and argument counts checked when it is built.
#pragma once

#include "host/calculation/diagnostic.h"
#include "host/calculation/functions.h"
#include "host/value.h"

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace fmxhost {

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

// A name that Let defines, case-folded.
struct LocalReference {
    std::u16string name;
};

struct Call {
    Function function;
    std::vector<ExpressionPtr> arguments;
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

// If and Case: only the branch that is chosen is evaluated.
struct Choice {
    std::vector<std::pair<ExpressionPtr, ExpressionPtr>> branches; // condition, result
    ExpressionPtr otherwise;                                       // may be null: empty
};

struct Expression {
    Span span;
    std::variant<Literal, VariableReference, LocalReference, Call, OperatorChain, UnaryOperation, Let, Choice> form;
};

// A whole calculation: an expression, or one whose value a variable gets.
struct Calculation {
    std::optional<std::u16string> assignedVariable; // case-folded
    ExpressionPtr expression;
};

} // namespace fmxhost
