// The way of a calculation: tokenize() cuts the text into tokens, and Parser reads them by recursive descent, one level
// of operators calling the next stronger one. What it makes of each part is a function that evaluates that part, and
// calls those that it has made of the parts within. A chain of operators of one level is one of them, so that only
// nesting, which is limited, needs the stack. Names of Let and While are numbered as they are read and never looked for
// again.
#include "host/calculation/evaluate.h"

#include "host/base/plugin.h"
#include "host/base/unicode.h"

#include <algorithm>
#include <chrono>
#include <exception>
#include <iterator>
#include <new>
#include <tuple>

namespace fmxhost {
namespace {

constexpr const char* tooFewParameters = "There are too few parameters in this function.";
constexpr const char* tooManyParameters = "There are too many parameters in this function.";

// A function returned an error code: the rest of this calculation is left out.
struct FunctionFailed {
    fmx::errcode error;
};

Value called(const fmxkit::ExternalFunction& function, const std::vector<Value>& arguments, Span span)
{
    CallOutcome outcome = Plugin::call(function, arguments);
    if (outcome.exception) {
        throw PluginThrew(span, "An exception left " + toUtf8(function.name) + ": " + *outcome.exception);
    }
    if (outcome.error != 0) {
        throw FunctionFailed{outcome.error};
    }
    return std::move(outcome.value);
}

template <typename Operation>
Value resultOf(const Operation& operation)
{
    try {
        return operation();
    } catch (const NoResult& none) {
        return none.value;
    }
}

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
            calculation.expression = [](Scope&) { return Value(); };
            return calculation;
        }
        if (current().kind == TokenKind::variable && tokens_[position_ + 1].is(u"=")) {
            calculation.assignedVariable = foldCase(take().text);
            take();
        }
        calculation.expression = expression();
        if (current().kind != TokenKind::end) {
            failAfterOperand();
        }
        calculation.locals = localCount_;
        return calculation;
    }

private:
    using Action = std::function<void(Scope&)>;

    // ---- Tokens

    const Token& current() const { return tokens_[position_]; }
    Token take() { return std::move(tokens_[position_++]); } // never the last one, of kind `end`

    bool takeIf(std::u16string_view symbol)
    {
        if (!current().is(symbol)) {
            return false;
        }
        if (symbol == u"(" || symbol == u"[") {
            open_.push_back(position_);
        } else if ((symbol == u")" || symbol == u"]") && !open_.empty()) {
            open_.pop_back();
        }
        ++position_;
        return true;
    }

    // What ends an operand, or something in a list where ";" could go on with it.
    void expect(std::u16string_view symbol, bool inList = false)
    {
        if (takeIf(symbol)) {
            return;
        }
        if (current().kind != TokenKind::end && current().kind != TokenKind::symbol) {
            failAfterOperand();
        }
        fail((inList ? "\";\" or \"" : "\"") + toUtf8(symbol) + "\" is expected here.");
    }

    // The ";" before a part that must be there.
    void separator()
    {
        if (current().is(u")")) {
            fail(tooFewParameters);
        }
        expect(u";");
    }

    void closeForm()
    {
        if (current().is(u";")) {
            fail(tooManyParameters);
        }
        expect(u")");
    }

    // From there to the last token that was taken.
    Span spanFrom(std::size_t offset) const
    {
        const Span& last = tokens_[position_ - 1].span;
        return {offset, last.offset + last.length - offset};
    }

    // What is missing at the end is first of all the bracket that is open.
    [[noreturn]] void fail(const std::string& message) const
    {
        const bool isOpen = current().kind == TokenKind::end && !open_.empty();
        const Token& token = isOpen ? tokens_[open_.back()] : current();
        throw CalculationError(token.span, isOpen ? lonelyText(token) : message);
    }

    [[noreturn]] void failAfterOperand() const
    {
        fail(current().is(u")") || current().is(u"]") ? lonelyText(current())
                                                      : "An operator (such as + - * / & =) is expected here.");
    }

    // About a bracket.
    static std::string lonelyText(const Token& token)
    {
        constexpr std::u16string_view brackets = u"()[]";
        const std::size_t other = brackets.find(token.text) ^ 1U;
        return "There is no \"" + toUtf8(brackets.substr(other, 1)) + "\" for this \"" + toUtf8(token.text) + "\".";
    }

    // ---- Operators and operands

    Expression expression(int level = 0)
    {
        if (level > strongestLevel) {
            return operand();
        }
        Expression first = expression(level + 1);
        std::vector<std::pair<const Operator*, Expression>> links; // the operator, and what follows it
        while (const Operator* operation = operatorOf(level)) {
            take();
            links.emplace_back(operation, expression(level + 1));
        }
        if (links.empty()) {
            return first;
        }
        return [first = std::move(first), links = std::move(links)](Scope& scope) {
            Value result = first(scope);
            for (const auto& [operation, operand] : links) {
                const auto& decidedBy = operation->decidedBy;
                const bool isDecided = decidedBy && *decidedBy == result.boolean();
                result = isDecided ? Value(*decidedBy) : resultOf([&, apply = operation->apply, &right = operand] {
                    return apply(result, right(scope));
                });
            }
            return result;
        };
    }

    const Operator* operatorOf(int level) const
    {
        const Operator* found = current().kind == TokenKind::symbol ? findOperator(current().text) : nullptr;
        return found != nullptr && found->level == level ? found : nullptr;
    }

    Expression operand()
    {
        if (nesting_++ == maximumNesting) {
            fail("This is nested too deeply: more than " + std::to_string(maximumNesting) + " levels.");
        }
        Expression result = nestedOperand();
        --nesting_;
        return result;
    }

    Expression nestedOperand()
    {
        switch (current().kind) {
        case TokenKind::text:
            return constant(Value(take().text));
        case TokenKind::number:
            return constant(Value(Value(take().text).data().GetAsNumber()));
        case TokenKind::variable:
            return [name = foldCase(take().text)](Scope& scope) {
                const auto found = scope.variables.find(name);
                return found != scope.variables.end() ? found->second : Value();
            };
        case TokenKind::name:
            return named();
        default:
            break;
        }
        if (takeIf(u"(")) {
            Expression inner = expression();
            expect(u")");
            return inner;
        }
        // Signs bind stronger than all operators.
        if (takeIf(u"not")) {
            return [inner = operand()](Scope& scope) { return Value(inner(scope).boolean() ? 0 : 1); };
        }
        if (const bool isMinus = current().is(u"-"); takeIf(u"-") || takeIf(u"+")) {
            return [inner = operand(), isMinus](Scope& scope) {
                return resultOf([&] { return isMinus ? 0 - inner(scope) : 0 + inner(scope); });
            };
        }
        fail("A number, a text, a function, a variable or \"(\" is expected here.");
    }

    static Expression constant(Value value)
    {
        return [value = std::move(value)](Scope&) { return value; };
    }

    Expression named()
    {
        const std::u16string name = foldCase(current().text);
        const bool isCall = tokens_[position_ + 1].is(u"(");
        const auto local = std::find_if(names_.rbegin(), names_.rend(), [&](const auto& n) { return n.first == name; });
        if (!isCall && local != names_.rend()) {
            take();
            return [number = local->second](Scope& scope) { return scope.locals[number]; };
        }
        static const std::map<std::u16string_view, Expression (Parser::*)(std::size_t)> forms{
            {u"let", &Parser::let},
            {u"while", &Parser::loop},
            {u"get", &Parser::get},
            {u"evaluate", &Parser::evaluated}};
        if (const auto form = forms.find(name); isCall && form != forms.end()) {
            const std::size_t offset = take().span.offset;
            takeIf(u"(");
            return (this->*form->second)(offset);
        }
        const Function* function = functions_.find(current().text);
        if (function == nullptr) {
            fail(functions_.unknownText(current().text, isCall ? "function" : "function or Let name"));
        }
        return call(*function);
    }

    // ---- Calls

    Expression call(const Function& function)
    {
        const Span name = take().span;
        const bool isChecked = options_.checkArgumentCounts || function.external == nullptr;
        // [ searchString ; replaceString ] or [ keyOrIndexOrPath ; value ; type ], behind the first argument
        const bool isGrouped = function.name == u"Substitute" || function.name == u"JSONSetElement";
        const std::size_t groupSize = isGrouped ? static_cast<std::size_t>(function.minimumArguments) - 1 : 0;
        const bool isLimited = isChecked && function.maximumArguments >= 0;
        std::vector<Expression> arguments;
        if (takeIf(u"(") && !takeIf(u")")) {
            do {
                if (isGrouped && current().is(u"[") && arguments.size() % groupSize == 1) {
                    group(arguments, groupSize);
                    continue;
                }
                if (isLimited && arguments.size() >= static_cast<std::size_t>(function.maximumArguments)) {
                    fail(tooManyParameters);
                }
                arguments.push_back(expression());
            } while (takeIf(u";"));
            expect(u")", true);
        }
        if (isChecked && arguments.size() < static_cast<std::size_t>(function.minimumArguments)) {
            throw CalculationError(name, tooFewParameters);
        }
        if (!function.evaluate && function.external == nullptr) {
            return choice(std::move(arguments), function.name == u"Choose");
        }
        return [&function, arguments = std::move(arguments), span = spanFrom(name.offset)](Scope& scope) {
            std::vector<Value> values;
            std::transform(arguments.begin(), arguments.end(), std::back_inserter(values),
                           [&scope](const Expression& argument) { return argument(scope); });
            return function.external == nullptr ? resultOf([&] { return function.evaluate(values); })
                                                : called(*function.external, values, span);
        };
    }

    void group(std::vector<Expression>& arguments, std::size_t size)
    {
        takeIf(u"[");
        for (std::size_t index = 0; index < size; ++index) {
            if (index > 0) {
                separator();
            }
            arguments.push_back(expression());
        }
        expect(u"]");
    }

    // If ( condition ; result {; otherwise} ) and Case ( condition ; result {; condition ; result …} {; otherwise} ),
    // or Choose ( number ; result0 {; result1 …} ): only the branch that is chosen is evaluated.
    static Expression choice(std::vector<Expression> parts, bool isNumbered)
    {
        return [parts = std::move(parts), isNumbered](Scope& scope) {
            std::size_t index = 0;
            while (!isNumbered && index + 1 < parts.size() && !parts[index](scope).boolean()) {
                index += 2;
            }
            const std::size_t branch = isNumbered ? static_cast<std::size_t>(parts[0](scope).integer()) + 1
                                       : index + 1 < parts.size() ? index + 1
                                                                  : index;
            return branch > 0 && branch < parts.size() ? parts[branch](scope) : Value();
        };
    }

    // ---- What looks like a call and is more than one. Each reads on behind its "(".

    // Let ( name = … ; body ) or Let ( [ name = … ; name = … ] ; body )
    Expression let(std::size_t)
    {
        const std::size_t outer = names_.size();
        Action bind = bindings(outer);
        separator();
        Expression body = expression();
        closeForm();
        names_.resize(outer);
        return [bind = std::move(bind), body = std::move(body)](Scope& scope) {
            bind(scope);
            return body(scope);
        };
    }

    // While ( [ name = … ] ; condition ; [ name = … ] ; result )
    Expression loop(std::size_t offset)
    {
        const std::size_t outer = names_.size();
        const std::size_t firstLocal = localCount_;
        Action bind = bindings(outer);
        separator();
        Expression condition = expression();
        separator();
        Action logic = bindings(outer);
        separator();
        Expression result = expression();
        closeForm();
        names_.resize(outer);
        return [=, lastLocal = localCount_, span = spanFrom(offset)](Scope& scope) {
            constexpr int maximumRounds = 50000; // FileMaker's, unless SetRecursion says otherwise
            std::fill(&scope.locals[firstLocal], scope.locals.data() + lastLocal, Value()); // of the last time
            bind(scope);
            for (int round = 0; condition(scope).boolean(); ++round) {
                if (round == maximumRounds) {
                    throw CalculationError(span, "While goes round more than 50000 times.");
                }
                logic(scope);
            }
            return result(scope);
        };
    }

    // Get ( flag ): the flag is a word, no expression.
    Expression get(std::size_t)
    {
        if (current().kind != TokenKind::name) {
            fail("The name of what is asked for is expected here, such as CurrentDate.");
        }
        const Token flag = take();
        const auto answer = options_.getAnswers.find(foldCase(flag.text));
        if (answer == options_.getAnswers.end() && !stateOf(flag.text)) {
            throw CalculationError(flag.span, unknownStateText(flag.text));
        }
        closeForm();
        if (answer != options_.getAnswers.end()) {
            return constant(answer->second);
        }
        return [name = flag.text](Scope&) { return *stateOf(name); };
    }

    // A text that is a calculation; "?" for one that is none, as in FileMaker. Names that Let defines outside aren't
    // known inside.
    Expression evaluated(std::size_t offset)
    {
        Expression text = expression();
        closeForm();
        return [&functions = functions_, &options = options_, text = std::move(text),
                span = spanFrom(offset)](Scope& scope) -> Value {
            constexpr int maximumDepth = 10;
            const std::u16string source = text(scope).text();
            try {
                const Calculation calculation = parse(source, functions, options);
                Scope inner{scope.variables, std::vector<Value>(calculation.locals), scope.depth + 1};
                return inner.depth > maximumDepth ? Value(u"?") : calculation.expression(inner);
            } catch (const PluginThrew& error) {
                throw PluginThrew(span, error.what());
            } catch (const CalculationError&) {
                return {u"?"};
            }
        };
    }

    // One binding or a list of them, of a form whose own names begin at `outer`.
    Action bindings(std::size_t outer)
    {
        std::vector<Action> all;
        if (!takeIf(u"[")) {
            return binding(outer);
        }
        while (!takeIf(u"]")) {
            all.push_back(binding(outer));
            if (!current().is(u"]") && !takeIf(u";")) {
                expect(u"]", true);
            }
        }
        return [all = std::move(all)](Scope& scope) {
            for (const Action& bind : all) {
                bind(scope);
            }
        };
    }

    Action binding(std::size_t outer)
    {
        const bool isVariable = current().kind == TokenKind::variable;
        if (current().kind != TokenKind::name && !isVariable) {
            fail("A name or a $variable is expected here.");
        }
        const std::u16string name = foldCase(take().text);
        if (!takeIf(u"=")) {
            fail("\"=\" is expected here.");
        }
        Expression value = expression();
        if (isVariable) {
            return [name, value](Scope& scope) { scope.variables.insert_or_assign(name, value(scope)); };
        }
        // A name that is bound here already gets a new value.
        auto own = std::find_if(names_.begin() + static_cast<std::ptrdiff_t>(outer), names_.end(),
                                [&](const auto& bound) { return bound.first == name; });
        if (own == names_.end()) {
            own = names_.insert(own, {name, localCount_++});
        }
        return [number = own->second, value](Scope& scope) { scope.locals[number] = value(scope); };
    }

    std::vector<Token> tokens_;
    const FunctionTable& functions_;
    const ParserOptions& options_;
    std::size_t position_ = 0;
    int nesting_ = 0;
    std::vector<std::size_t> open_;                             // positions of the brackets that are open
    std::vector<std::pair<std::u16string, std::size_t>> names_; // that are known here, case-folded, with their numbers
    std::size_t localCount_ = 0;
};

} // namespace

Calculation parse(std::u16string_view source, const FunctionTable& functions, const ParserOptions& options)
{
    return Parser(source, functions, options).run();
}

Evaluation evaluate(std::u16string_view source, const FunctionTable& functions, const ParserOptions& options,
                    Variables& variables)
{
    const Span whole{0, source.size()};
    try {
        const Calculation calculation = parse(source, functions, options);
        Scope scope{variables, std::vector<Value>(calculation.locals)};
        Evaluation evaluation;
        const auto start = std::chrono::steady_clock::now();
        try {
            evaluation.value = calculation.expression(scope);
        } catch (const FunctionFailed& failure) {
            evaluation.value = Value(u"?");
            evaluation.error = failure.error;
        }
        evaluation.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        if (calculation.assignedVariable) {
            variables.insert_or_assign(*calculation.assignedVariable, evaluation.value);
        }
        return evaluation;
    } catch (const CalculationError&) {
        throw;
    } catch (const std::bad_alloc&) {
        throw CalculationError(whole, "There isn't enough memory for this calculation.");
    } catch (const std::exception&) {
        // The kit's one kind of failure: a number of more than 400 digits, or a text of 4 Gi units.
        throw CalculationError(whole, "A value in this calculation is too large.");
    }
}

} // namespace fmxhost
