// Walks the tree that the parser made. Values are the kit's, and so are the conversions and the decimal arithmetic;
// what stands here is how FileMaker's operators choose between text and number, and the forms that evaluate only a part
// of what they are given. The parser has limited the depth of the recursion.
#include "host/calculation/evaluate.h"

#include "host/base/plugin.h"
#include "host/base/unicode.h"

#include <algorithm>
#include <chrono>
#include <compare>
#include <exception>
#include <new>
#include <utility>

namespace fmxhost {
namespace {

bool isText(const Value& value)
{
    return value.type() == ValueType::text || value.type() == ValueType::empty;
}

bool hasDigit(std::u16string_view text)
{
    return std::any_of(text.begin(), text.end(), [](char16_t unit) { return unit >= u'0' && unit <= u'9'; });
}

Value concatenated(const Value& left, const Value& right)
{
    const fmx::TextUniquePtr text;
    text->SetText(left.data().GetAsText());
    text->AppendText(right.data().GetAsText());
    return Value(*text);
}

Value calculated(Operator operation, const Value& left, const Value& right, Span place)
{
    const fmx::FixPt& a = left.data().GetAsNumber();
    const fmx::FixPt& b = right.data().GetAsNumber();
    const fmx::FixPtUniquePtr result;
    switch (operation) {
    case Operator::add:
        a.Add(b, *result);
        break;
    case Operator::subtract:
        a.Subtract(b, *result);
        break;
    case Operator::multiply:
        a.Multiply(b, *result);
        break;
    default:
        if (a.Divide(b, *result) != 0) {
            throw CalculationError(place, "A number can't be divided by zero.");
        }
        break;
    }
    return Value(*result);
}

Value truth(bool holds)
{
    return {holds ? 1 : 0};
}

// See Evaluator::evaluate().
std::weak_ordering compare(const Value& left, const Value& right)
{
    const bool asTexts = (isText(left) && isText(right)) || (isText(left) && !hasDigit(left.text())) ||
                         (isText(right) && !hasDigit(right.text()));
    if (asTexts) {
        return foldCase(left.text()).compare(foldCase(right.text())) <=> 0;
    }
    const fmx::FixPt& a = left.data().GetAsNumber();
    const fmx::FixPt& b = right.data().GetAsNumber();
    if (a == b) {
        return std::weak_ordering::equivalent;
    }
    return a < b ? std::weak_ordering::less : std::weak_ordering::greater;
}

// The result of a binary operator, `logicalAnd` and `logicalOr` without their short cut.
Value apply(Operator operation, const Value& left, const Value& right, Span place)
{
    switch (operation) {
    case Operator::logicalOr:
        return truth(left.boolean() || right.boolean());
    case Operator::logicalXor:
        return truth(left.boolean() != right.boolean());
    case Operator::logicalAnd:
        return truth(left.boolean() && right.boolean());
    case Operator::equal:
        return truth(std::is_eq(compare(left, right)));
    case Operator::notEqual:
        return truth(std::is_neq(compare(left, right)));
    case Operator::less:
        return truth(std::is_lt(compare(left, right)));
    case Operator::greater:
        return truth(std::is_gt(compare(left, right)));
    case Operator::lessOrEqual:
        return truth(std::is_lteq(compare(left, right)));
    case Operator::greaterOrEqual:
        return truth(std::is_gteq(compare(left, right)));
    case Operator::concatenate:
        return concatenated(left, right);
    default:
        return calculated(operation, left, right, place);
    }
}

Value negated(const Value& value)
{
    const fmx::FixPtUniquePtr result;
    const fmx::FixPtUniquePtr zero;
    zero->Subtract(value.data().GetAsNumber(), *result);
    return Value(*result);
}

// A function answered an error code: what is still to do in this calculation is left out.
struct FunctionFailed {
    fmx::errcode error;
};

class Walker {
public:
    Walker(const FunctionTable& functions, const ParserOptions& options, std::map<std::u16string, Value>& variables)
        : functions_(functions), options_(options), variables_(variables)
    {
    }

    Value evaluate(const Expression& expression)
    {
        return std::visit([&](const auto& form) { return evaluate(form, expression.span); }, expression.form);
    }

private:
    static Value evaluate(const Literal& literal, Span) { return literal.value; }

    Value evaluate(const VariableReference& reference, Span) const
    {
        const auto found = variables_.find(reference.name);
        return found != variables_.end() ? found->second : Value();
    }

    Value evaluate(const LocalReference& reference, Span) const
    {
        const auto found = std::find_if(locals_.rbegin(), locals_.rend(),
                                        [&](const auto& local) { return local.first == reference.name; });
        return found->second; // the parser lets only names through that are defined here
    }

    Value evaluate(const Call& call, Span span)
    {
        std::vector<Value> arguments;
        arguments.reserve(call.arguments.size());
        for (const ExpressionPtr& argument : call.arguments) {
            arguments.push_back(evaluate(*argument));
        }
        if (const auto* builtIn = std::get_if<const BuiltIn*>(&call.function)) {
            return (*builtIn)->evaluate(arguments);
        }
        const auto& function = *std::get<const fmxkit::ExternalFunction*>(call.function);
        CallOutcome outcome = Plugin::call(function, arguments);
        if (outcome.exception) {
            throw PluginThrew(span, "An exception left " + toUtf8(function.name) + ": " + *outcome.exception);
        }
        if (outcome.error != 0) {
            throw FunctionFailed{outcome.error};
        }
        return std::move(outcome.value);
    }

    Value evaluate(const OperatorChain& chain, Span)
    {
        Value result = evaluate(*chain.first);
        for (const OperatorChain::Link& link : chain.links) {
            // As in FileMaker, "and" and "or" leave out what can't change the result.
            const bool decided = (link.operation == Operator::logicalAnd && !result.boolean()) ||
                                 (link.operation == Operator::logicalOr && result.boolean());
            result = decided ? Value(result.boolean() ? 1 : 0)
                             : apply(link.operation, result, evaluate(*link.operand), link.place);
        }
        return result;
    }

    Value evaluate(const UnaryOperation& unary, Span)
    {
        const Value operand = evaluate(*unary.operand);
        switch (unary.operation) {
        case UnaryOperator::logicalNot:
            return {operand.boolean() ? 0 : 1};
        case UnaryOperator::minus:
            return negated(operand);
        default:
            return Value(operand.data().GetAsNumber());
        }
    }

    Value evaluate(const Let& let, Span)
    {
        const std::size_t outer = locals_.size();
        bind(let.bindings, outer);
        return leave(outer, evaluate(*let.body));
    }

    Value evaluate(const While& loop, Span span)
    {
        constexpr int maximumRounds = 50000; // FileMaker's, unless SetRecursion says otherwise
        const std::size_t outer = locals_.size();
        bind(loop.bindings, outer);
        for (int round = 0; evaluate(*loop.condition).boolean(); ++round) {
            if (round == maximumRounds) {
                throw CalculationError(span, "While goes round more than 50000 times.");
            }
            bind(loop.logic, outer);
        }
        return leave(outer, evaluate(*loop.result));
    }

    // Names that are bound here already get a new value.
    void bind(const std::vector<Binding>& bindings, std::size_t outer)
    {
        for (const Binding& binding : bindings) {
            Value value = evaluate(*binding.value);
            if (binding.isVariable) {
                variables_.insert_or_assign(binding.name, std::move(value));
                continue;
            }
            const auto own = std::find_if(locals_.begin() + static_cast<std::ptrdiff_t>(outer), locals_.end(),
                                          [&](const auto& local) { return local.first == binding.name; });
            if (own != locals_.end()) {
                own->second = std::move(value);
            } else {
                locals_.emplace_back(binding.name, std::move(value));
            }
        }
    }

    Value leave(std::size_t outer, Value result)
    {
        locals_.erase(locals_.begin() + static_cast<std::ptrdiff_t>(outer), locals_.end());
        return result;
    }

    // "?" for a text that is no calculation, as in FileMaker. Names that Let defines outside aren't known inside.
    Value evaluate(const Evaluated& form, Span span)
    {
        constexpr int maximumDepth = 10;
        const std::u16string text = evaluate(*form.text).text();
        if (depth_ == maximumDepth) {
            throw CalculationError(span, "Evaluate is nested too deeply: more than 10 levels.");
        }
        Calculation calculation;
        try {
            calculation = parse(text, functions_, options_);
        } catch (const CalculationError&) {
            return {u"?"};
        }
        Walker inner(functions_, options_, variables_);
        inner.depth_ = depth_ + 1;
        try {
            return inner.evaluate(*calculation.expression);
        } catch (const CalculationError&) {
            return {u"?"};
        } catch (const PluginThrew& error) {
            throw PluginThrew(span, error.what());
        }
    }

    Value evaluate(const Choice& choice, Span)
    {
        for (const auto& [condition, result] : choice.branches) {
            if (evaluate(*condition).boolean()) {
                return evaluate(*result);
            }
        }
        return choice.otherwise ? evaluate(*choice.otherwise) : Value();
    }

    const FunctionTable& functions_;
    const ParserOptions& options_;
    std::map<std::u16string, Value>& variables_;
    std::vector<std::pair<std::u16string, Value>> locals_;
    int depth_ = 0; // of Evaluate
};

} // namespace

Evaluation Evaluator::evaluate(std::u16string_view source)
{
    const Span whole{0, source.size()};
    try {
        return evaluateUnguarded(source);
    } catch (const CalculationError&) {
        throw;
    } catch (const PluginThrew&) {
        throw;
    } catch (const std::bad_alloc&) {
        throw CalculationError(whole, "There isn't enough memory for this calculation.");
    } catch (const std::exception&) {
        // The kit's one kind of failure: a number of more than 400 digits, or a text of 4 Gi units.
        throw CalculationError(whole, "A value in this calculation is too large.");
    }
}

Evaluation Evaluator::evaluateUnguarded(std::u16string_view source)
{
    const Calculation calculation = parse(source, functions_, options_);
    Evaluation evaluation;
    const auto start = std::chrono::steady_clock::now();
    try {
        evaluation.value = Walker(functions_, options_, variables_).evaluate(*calculation.expression);
    } catch (const FunctionFailed& failure) {
        evaluation.value = Value(u"?");
        evaluation.error = failure.error;
    }
    evaluation.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    if (calculation.assignedVariable) {
        variables_.insert_or_assign(*calculation.assignedVariable, evaluation.value);
    }
    return evaluation;
}

} // namespace fmxhost
