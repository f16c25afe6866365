#include "host/calculation/evaluator.h"

#include "host/calculation/operators.h"
#include "host/plugin.h"
#include "host/unicode.h"

#include <algorithm>
#include <chrono>
#include <exception>
#include <new>
#include <utility>

namespace fmxhost {
namespace {

// A function answered an error code: what is still to do in this calculation is left out.
struct FunctionFailed {
    fmx::errcode error;
};

// Walks the tree. The parser has limited the depth of the recursion.
class Walker {
public:
    explicit Walker(std::map<std::u16string, Value>& variables) : variables_(variables) {}

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
        for (const Binding& binding : let.bindings) {
            Value value = evaluate(*binding.value);
            if (binding.isVariable) {
                variables_.insert_or_assign(binding.name, std::move(value));
            } else {
                locals_.emplace_back(binding.name, std::move(value));
            }
        }
        Value result = evaluate(*let.body);
        locals_.erase(locals_.begin() + static_cast<std::ptrdiff_t>(outer), locals_.end());
        return result;
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

    std::map<std::u16string, Value>& variables_;
    std::vector<std::pair<std::u16string, Value>> locals_;
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
        evaluation.value = Walker(variables_).evaluate(*calculation.expression);
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
