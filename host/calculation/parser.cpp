#include "host/calculation/parser.h"

#include "host/calculation/lexer.h"
#include "host/unicode.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <span>
#include <utility>

namespace fmxhost {
namespace {

struct OperatorSymbol {
    std::u16string_view symbol;
    Operator operation;
};

constexpr std::array<OperatorSymbol, 2> disjunctions{{{u"or", Operator::logicalOr}, {u"xor", Operator::logicalXor}}};
constexpr std::array<OperatorSymbol, 1> conjunctions{{{u"and", Operator::logicalAnd}}};
constexpr std::array<OperatorSymbol, 6> comparisons{{{u"=", Operator::equal},
                                                     {u"≠", Operator::notEqual},
                                                     {u"<", Operator::less},
                                                     {u">", Operator::greater},
                                                     {u"≤", Operator::lessOrEqual},
                                                     {u"≥", Operator::greaterOrEqual}}};
constexpr std::array<OperatorSymbol, 1> concatenations{{{u"&", Operator::concatenate}}};
constexpr std::array<OperatorSymbol, 2> sums{{{u"+", Operator::add}, {u"-", Operator::subtract}}};
constexpr std::array<OperatorSymbol, 2> products{{{u"*", Operator::multiply}, {u"/", Operator::divide}}};

// Weakest first.
constexpr std::array<std::span<const OperatorSymbol>, 6> levels{disjunctions,   conjunctions, comparisons,
                                                                concatenations, sums,         products};

constexpr const char* tooFewParameters = "There are too few parameters in this function.";
constexpr const char* tooManyParameters = "There are too many parameters in this function.";

class Parser {
public:
    Parser(std::u16string_view source, const FunctionTable& functions, const ParserOptions& options)
        : tokens_(tokenize(source)), functions_(functions), options_(options)
    {
    }

    Calculation run()
    {
        Calculation calculation;
        if (current().kind == TokenKind::end) {
            fail("There is nothing to calculate.");
        }
        if (current().kind == TokenKind::variable && tokens_[position_ + 1].is(u"=")) {
            calculation.assignedVariable = foldCase(take().text);
            take();
        }
        calculation.expression = expression();
        if (current().kind != TokenKind::end) {
            failAfterOperand();
        }
        return calculation;
    }

private:
    // Counts the nesting for as long as it lives.
    class Nesting {
    public:
        explicit Nesting(Parser& parser) : parser_(parser)
        {
            if (parser_.nesting_ == maximumNesting) {
                parser_.fail("This is nested too deeply: more than " + std::to_string(maximumNesting) + " levels.");
            }
            ++parser_.nesting_;
        }
        ~Nesting() { --parser_.nesting_; }
        Nesting(const Nesting&) = delete;
        Nesting& operator=(const Nesting&) = delete;

    private:
        Parser& parser_;
    };

    const Token& current() const { return tokens_[position_]; }
    Token take() { return std::move(tokens_[position_++]); } // never the last one, of kind `end`

    bool takeIf(std::u16string_view symbol)
    {
        if (!current().is(symbol)) {
            return false;
        }
        ++position_;
        return true;
    }

    [[noreturn]] void fail(const std::string& message) const { throw CalculationError(current().span, message); }

    void expect(std::u16string_view symbol, const char* message)
    {
        if (!takeIf(symbol)) {
            fail(message);
        }
    }

    [[noreturn]] void failAfterOperand() const
    {
        if (current().is(u")")) {
            fail("There is no \"(\" for this \")\".");
        }
        fail("An operator (such as + - * / & =) is expected here.");
    }

    template <class Form>
    ExpressionPtr make(std::size_t offset, Form form) const
    {
        const Span& last = tokens_[position_ - 1].span;
        const Span span{offset, last.offset + last.length - offset};
        return std::make_unique<const Expression>(Expression{span, std::move(form)});
    }

    ExpressionPtr expression(std::size_t level = 0)
    {
        if (level == levels.size()) {
            return operand();
        }
        const std::size_t offset = current().span.offset;
        OperatorChain chain{expression(level + 1), {}};
        for (;;) {
            const auto found = std::find_if(levels[level].begin(), levels[level].end(),
                                            [this](const OperatorSymbol& entry) { return current().is(entry.symbol); });
            if (found == levels[level].end()) {
                break;
            }
            const Span place = take().span;
            chain.links.push_back({found->operation, place, expression(level + 1)});
        }
        return chain.links.empty() ? std::move(chain.first) : make(offset, std::move(chain));
    }

    ExpressionPtr operand()
    {
        const Nesting nesting(*this);
        const std::size_t offset = current().span.offset;
        switch (current().kind) {
        case TokenKind::text:
            return make(offset, Literal{Value(take().text)});
        case TokenKind::number:
            return make(offset, Literal{Value(Value(take().text).data().GetAsNumber())});
        case TokenKind::variable:
            return make(offset, VariableReference{foldCase(take().text)});
        case TokenKind::name:
            return named();
        default:
            break;
        }
        if (takeIf(u"(")) {
            ExpressionPtr inner = expression();
            if (!takeIf(u")")) {
                failInList("\")\" is expected here.");
            }
            return inner;
        }
        if (takeIf(u"not")) {
            return make(offset, UnaryOperation{UnaryOperator::logicalNot, operand()});
        }
        if (takeIf(u"-")) {
            return make(offset, UnaryOperation{UnaryOperator::minus, operand()});
        }
        if (takeIf(u"+")) {
            return make(offset, UnaryOperation{UnaryOperator::plus, operand()});
        }
        fail("A number, a text, a function, a variable or \"(\" is expected here.");
    }

    // Where an operand is complete and neither an operator nor what would end the list follows.
    [[noreturn]] void failInList(const char* message) const
    {
        if (current().kind == TokenKind::end || current().kind == TokenKind::symbol) {
            fail(message);
        }
        failAfterOperand();
    }

    ExpressionPtr named()
    {
        const std::size_t offset = current().span.offset;
        const std::u16string folded = foldCase(current().text);
        const bool isCall = tokens_[position_ + 1].is(u"(");
        if (!isCall && std::find(locals_.begin(), locals_.end(), folded) != locals_.end()) {
            take();
            return make(offset, LocalReference{folded});
        }
        if (isCall && folded == u"let") {
            return let();
        }
        const std::optional<Function> function = functions_.find(current().text);
        if (!function) {
            failUnknown(isCall);
        }
        return call(*function);
    }

    [[noreturn]] void failUnknown(bool isCall) const
    {
        std::string message = "There is no function" + std::string(isCall ? "" : " or Let name") + " called " +
                              toUtf8(current().text) + ".";
        const std::u16string suggestion = functions_.suggestionFor(current().text);
        if (!suggestion.empty()) {
            message += " Did you mean " + toUtf8(suggestion) + "?";
        }
        fail(message);
    }

    ExpressionPtr call(const Function& function)
    {
        const Span name = take().span;
        std::vector<ExpressionPtr> arguments;
        if (takeIf(u"(") && !takeIf(u")")) {
            do {
                checkNotTooMany(function, arguments.size() + 1);
                arguments.push_back(expression());
            } while (takeIf(u";"));
            if (!takeIf(u")")) {
                failInList("\";\" or \")\" is expected here.");
            }
        }
        if (checked(function) && arguments.size() < static_cast<std::size_t>(minimumArguments(function))) {
            throw CalculationError(name, tooFewParameters);
        }
        const auto* builtIn = std::get_if<const BuiltIn*>(&function);
        if (builtIn != nullptr && (*builtIn)->evaluate == nullptr) {
            return make(name.offset, choice(std::move(arguments)));
        }
        return make(name.offset, Call{function, std::move(arguments)});
    }

    bool checked(const Function& function) const
    {
        return options_.checkArgumentCounts || std::holds_alternative<const BuiltIn*>(function);
    }

    void checkNotTooMany(const Function& function, std::size_t count) const
    {
        if (checked(function) && count > static_cast<std::size_t>(maximumArguments(function))) {
            fail(tooManyParameters);
        }
    }

    // If ( condition ; result {; otherwise} ) and Case ( condition ; result {; condition ; result …} {; otherwise} )
    static Choice choice(std::vector<ExpressionPtr> arguments)
    {
        Choice choice;
        std::size_t index = 0;
        for (; index + 1 < arguments.size(); index += 2) {
            choice.branches.emplace_back(std::move(arguments[index]), std::move(arguments[index + 1]));
        }
        if (index < arguments.size()) {
            choice.otherwise = std::move(arguments[index]);
        }
        return choice;
    }

    // Let ( name = … ; body ) or Let ( [ name = … ; name = … ] ; body )
    ExpressionPtr let()
    {
        const std::size_t offset = take().span.offset;
        expect(u"(", "\"(\" is expected here.");
        const std::size_t outerLocals = locals_.size();
        Let form;
        if (takeIf(u"[")) {
            while (!takeIf(u"]")) {
                form.bindings.push_back(binding());
                if (!takeIf(u";") && !current().is(u"]")) {
                    failInList("\";\" or \"]\" is expected here.");
                }
            }
        } else {
            form.bindings.push_back(binding());
        }
        if (current().is(u")")) {
            fail(tooFewParameters);
        }
        if (!takeIf(u";")) {
            failInList("\";\" is expected here.");
        }
        form.body = expression();
        if (current().is(u";")) {
            fail(tooManyParameters);
        }
        if (!takeIf(u")")) {
            failInList("\")\" is expected here.");
        }
        locals_.resize(outerLocals);
        return make(offset, std::move(form));
    }

    Binding binding()
    {
        if (current().kind != TokenKind::name && current().kind != TokenKind::variable) {
            fail("A name or a $variable is expected here.");
        }
        Binding result;
        result.isVariable = current().kind == TokenKind::variable;
        result.name = foldCase(take().text);
        expect(u"=", "\"=\" is expected here.");
        result.value = expression();
        if (!result.isVariable) {
            locals_.push_back(result.name);
        }
        return result;
    }

    std::vector<Token> tokens_;
    const FunctionTable& functions_;
    ParserOptions options_;
    std::size_t position_ = 0;
    int nesting_ = 0;
    std::vector<std::u16string> locals_; // names that Let has defined here, case-folded
};

} // namespace

Calculation parse(std::u16string_view source, const FunctionTable& functions, const ParserOptions& options)
{
    return Parser(source, functions, options).run();
}

} // namespace fmxhost
