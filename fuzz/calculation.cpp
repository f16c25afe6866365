// The host's reader of calculations: an error points into the text; what was read, written out with all its
// parentheses, reads the same again and has the same value; what is open at the end is an error as long as it is.
#include "fuzz/target.h"

#include "host/base/unicode.h"
#include "host/calculation/evaluate.h"

#include <algorithm>

namespace {

using namespace fmxhost;

const FunctionTable& table()
{
    constexpr fmx::ExtPluginType nothing = [](short, const fmx::ExprEnv&, const fmx::DataVect&, fmx::Data&) {
        return fmx::errcode{0};
    };
    static const std::vector<fmxkit::ExternalFunction> functions{{0, 1, u"Plug_Straße", u"", u"", 1, 3, 0, nothing}};
    static const FunctionTable made(functions);
    return made;
}

struct Writer {
    std::size_t sourceSize;
    std::u16string written(const Calculation& calculation)
    {
        const std::u16string text = part(*calculation.expression);
        return calculation.assignedVariable ? *calculation.assignedVariable + u"=" + text : text;
    }

    std::u16string part(const Expression& expression)
    {
        FUZZ_CHECK(expression.span.length > 0 && expression.span.offset + expression.span.length <= sourceSize);
        deepest = std::max(deepest, ++depth);
        std::u16string text = std::visit([this](const auto& form) { return this->written(form); }, expression.form);
        --depth;
        return u"(" + text + u")";
    }

    static std::u16string written(const Literal& literal)
    {
        if (literal.value.type() == ValueType::number) {
            return literal.value.text();
        }
        std::u16string text = u"\"";
        for (const char16_t unit : literal.value.text()) {
            text += unit == u'"' || unit == u'\\' || unit == u'¶' ? u"\\" : u"";
            text += unit == u'\r' ? u'¶' : unit;
        }
        return text + u'"';
    }

    std::u16string written(const VariableReference& reference) { return immodest(reference.name); }
    std::u16string written(const LocalReference& reference) { return immodest(reference.name); }

    std::u16string written(const Call& call)
    {
        std::u16string text(nameOf(call.function));
        if (prototypeOf(call.function).starts_with(u"Get (")) {
            return immodest(std::u16string(prototypeOf(call.function)));
        }
        isModest = isModest && text != u"Substitute";
        const bool hasPairs = text == u"Substitute" && call.arguments.size() > 3;
        text += u'(';
        for (std::size_t index = 0; index < call.arguments.size(); ++index) {
            text += index == 0 ? u"" : u";";
            text += (hasPairs && index % 2 == 1 ? u"[" : u"") + part(*call.arguments[index]);
            text += hasPairs && index > 0 && index % 2 == 0 ? u"]" : u"";
        }
        return text + u')';
    }

    std::u16string written(const OperatorChain& chain)
    {
        static constexpr std::u16string_view symbols[] = {u" or ", u" xor ", u" and ", u"=", u"≠", u"<", u">",
                                                          u"≤",    u"≥",     u"&",     u"+", u"-", u"*", u"/"};
        std::u16string text = part(*chain.first);
        for (const OperatorChain::Link& link : chain.links) {
            text.append(symbols[static_cast<std::size_t>(link.operation)]).append(part(*link.operand));
        }
        return text;
    }

    std::u16string written(const UnaryOperation& unary)
    {
        static constexpr std::u16string_view signs[] = {u"+", u"-", u"not "};
        return std::u16string(signs[static_cast<std::size_t>(unary.operation)]) + part(*unary.operand);
    }

    std::u16string written(const std::vector<Binding>& bindings)
    {
        std::u16string text = u"[";
        for (const Binding& binding : bindings) {
            text += binding.name + u"=" + part(*binding.value) + u";";
        }
        return text + u"];";
    }
    std::u16string written(const Let& let)
    {
        return immodest(u"Let(" + written(let.bindings) + part(*let.body) + u")");
    }
    std::u16string written(const While& loop)
    {
        return immodest(u"While(" + written(loop.bindings) + part(*loop.condition) + u";" + written(loop.logic) +
                        part(*loop.result) + u")");
    }
    std::u16string written(const Evaluated& form) { return immodest(u"Evaluate(" + part(*form.text) + u")"); }

    std::u16string written(const Choice& choice)
    {
        std::u16string text = u"Case(";
        for (const auto& [condition, result] : choice.branches) {
            text += (text.ends_with(u'(') ? u"" : u";") + part(*condition) + u";" + part(*result);
        }
        return (choice.otherwise ? text + u";" + part(*choice.otherwise) : text) + u')';
    }

    std::u16string immodest(std::u16string text)
    {
        isModest = false;
        return text;
    }

    int depth = 0;
    int deepest = 0;
    bool isModest = true; // the value is the same every time and can't grow much: nothing is used twice or tells time
};

void checkError(std::u16string_view source, const CalculationError& error)
{
    const Span span = error.span();
    FUZZ_CHECK(span.offset <= source.size() && span.length <= source.size() - span.offset);
    const Place place = placeOf(source, span.offset);
    FUZZ_CHECK(place.line >= 1 && place.column >= 1 && place.line + place.column <= span.offset + 2);
    const std::string shown = pointAt(source, span);
    const std::size_t marks = shown.find('\n') + 1;
    const std::size_t caret = shown.find_first_not_of(' ', marks);
    FUZZ_CHECK(marks > 0 && shown[caret] == '^' && shown.find_first_not_of('~', caret + 1) == std::string::npos);
    FUZZ_CHECK(fuzz::referenceUtf8(fuzz::referenceUtf16(shown)) == shown);
    // The line isn't cut within a character.
    const bool isWhole = fuzz::referenceUtf8(source) && source.find(u'\uFFFD') == std::u16string_view::npos;
    FUZZ_CHECK(!isWhole || shown.find("\uFFFD") == std::string::npos);
}

// The value with its type, or nothing for an error in the calculation.
std::optional<std::pair<ValueType, std::u16string>> valueOf(std::u16string_view source)
{
    try {
        const Evaluation evaluation = Evaluator(table()).evaluate(source);
        return std::pair(evaluation.value.type(), evaluation.value.text());
    } catch (const CalculationError& error) {
        checkError(source, error);
        return std::nullopt;
    }
}

} // namespace

void fuzz::test(std::string_view input)
{
    const std::u16string source = anyUnits(input);
    try {
        const Calculation calculation = parse(source, table());
        FUZZ_CHECK(!openAtEnd(source).isOpen);
        Writer writer{source.size()};
        const std::u16string text = writer.written(calculation);
        if (writer.deepest <= maximumNesting / 2 - 1) { // each level and its parentheses are two
            FUZZ_CHECK(Writer{text.size()}.written(parse(text, table())) == text);
            FUZZ_CHECK(!writer.isModest || valueOf(source) == valueOf(text));
        }
    } catch (const CalculationError& error) {
        checkError(source, error);
    }
}
