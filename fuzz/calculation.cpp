// The host's reader of calculations: an error points into the text; what was read is written out, with as few
// parentheses as possible and with all of them, reads the same again and has the same value.
#include "fuzz/target.h"

#include "host/base/unicode.h"
#include "host/calculation/evaluate.h"
#include "host/calculation/parse.h"

#include <algorithm>

namespace {

using namespace fmxhost;

fmx::errcode joinArguments(short, const fmx::ExprEnv&, const fmx::DataVect& arguments, fmx::Data& result)
{
    const fmx::TextUniquePtr text;
    for (fmx::uint32 index = 0; index < arguments.Size(); ++index) {
        text->AppendText(arguments.AtAsText(index));
    }
    result.SetAsText(*text, *fmx::LocaleUniquePtr());
    return 0;
}

fmxkit::ExternalFunction function(const char16_t* name, short minimum, short maximum)
{
    fmxkit::ExternalFunction entry;
    entry.name = name;
    entry.minimumArguments = minimum;
    entry.maximumArguments = maximum;
    entry.handler = joinArguments;
    return entry;
}

const FunctionTable& table()
{
    static const std::vector<fmxkit::ExternalFunction> functions{
        function(u"Plug_Join", 1, 3), function(u"Plug_Any", 0, -1), function(u"Plug_Straße", 0, 1)};
    static const FunctionTable made(functions);
    return made;
}

struct Symbol {
    std::u16string_view text;
    int strength;
};

constexpr int weakest = 0;
constexpr int signStrength = 6;
constexpr int strongest = 7;

Symbol symbolOf(Operator operation)
{
    static constexpr Symbol symbols[] = {{u" or ", 0}, {u" xor ", 0}, {u" and ", 1}, {u"=", 2}, {u"≠", 2},
                                         {u"<", 2},    {u">", 2},     {u"≤", 2},     {u"≥", 2}, {u"&", 3},
                                         {u"+", 4},    {u"-", 4},     {u"*", 5},     {u"/", 5}};
    return symbols[static_cast<std::size_t>(operation)];
}

enum class Parentheses { few, all };

// Writes a calculation out.
class Writer {
public:
    Writer(Parentheses parentheses, std::size_t sourceSize) : m_parentheses(parentheses), m_sourceSize(sourceSize) {}

    std::u16string written(const Calculation& calculation)
    {
        const std::u16string text = part(*calculation.expression, weakest);
        return calculation.assignedVariable ? *calculation.assignedVariable + u"=" + text : text;
    }

    int deepest() const { return m_deepest; }

    // Whether values can't grow much: nothing is used twice or put into a text over and over.
    bool isModest() const { return m_isModest; }

private:
    // A part of an expression, where what binds weaker than `strength` needs parentheses.
    std::u16string part(const Expression& expression, int strength)
    {
        FUZZ_CHECK(expression.span.length > 0 && expression.span.offset + expression.span.length <= m_sourceSize);
        m_deepest = std::max(m_deepest, ++m_depth);
        std::u16string text = std::visit([&](const auto& form) { return written(form); }, expression.form);
        --m_depth;
        const int own = strengthOf(expression);
        const bool encloses = m_parentheses == Parentheses::all ? own < strongest : own < strength;
        return encloses ? u"(" + text + u")" : text;
    }

    static int strengthOf(const Expression& expression)
    {
        if (const auto* chain = std::get_if<OperatorChain>(&expression.form)) {
            return symbolOf(chain->links.front().operation).strength;
        }
        return std::holds_alternative<UnaryOperation>(expression.form) ? signStrength : strongest;
    }

    static std::u16string written(const Literal& literal)
    {
        if (literal.value.type() == ValueType::number) {
            return literal.value.text();
        }
        std::u16string text = u"\"";
        for (const char16_t unit : literal.value.text()) {
            if (unit == u'"' || unit == u'\\' || unit == u'¶') {
                text += u'\\';
            }
            text += unit == u'\r' ? u'¶' : unit;
        }
        return text + u'"';
    }

    std::u16string written(const VariableReference& reference)
    {
        m_isModest = false;
        return reference.name;
    }
    static std::u16string written(const LocalReference& reference) { return reference.name; }

    std::u16string written(const Call& call)
    {
        m_isModest = m_isModest && nameOf(call.function) != u"Substitute";
        std::u16string text(nameOf(call.function));
        text += u'(';
        for (const ExpressionPtr& argument : call.arguments) {
            text += (&argument == call.arguments.data() ? u"" : u";") + part(*argument, weakest);
        }
        return text + u')';
    }

    std::u16string written(const OperatorChain& chain)
    {
        const int strength = symbolOf(chain.links.front().operation).strength;
        std::u16string text = part(*chain.first, strength + 1);
        for (const OperatorChain::Link& link : chain.links) {
            FUZZ_CHECK(symbolOf(link.operation).strength == strength);
            text.append(symbolOf(link.operation).text).append(part(*link.operand, strength + 1));
        }
        return text;
    }

    std::u16string written(const UnaryOperation& unary)
    {
        static constexpr std::u16string_view signs[] = {u"+", u"-", u"not "};
        return std::u16string(signs[static_cast<std::size_t>(unary.operation)]) + part(*unary.operand, signStrength);
    }

    std::u16string written(const Let& let)
    {
        m_isModest = false;
        std::u16string text = u"Let([";
        for (const Binding& binding : let.bindings) {
            text +=
                (&binding == let.bindings.data() ? u"" : u";") + binding.name + u"=" + part(*binding.value, weakest);
        }
        return text + u"];" + part(*let.body, weakest) + u')';
    }

    std::u16string written(const Choice& choice)
    {
        std::u16string text = u"Case(";
        for (const auto& [condition, result] : choice.branches) {
            text += (text.ends_with(u'(') ? u"" : u";") + part(*condition, weakest);
            text += u";" + part(*result, weakest);
        }
        return (choice.otherwise ? text + u";" + part(*choice.otherwise, weakest) : text) + u')';
    }

    Parentheses m_parentheses;
    std::size_t m_sourceSize;
    int m_depth = 0;
    int m_deepest = 0;
    bool m_isModest = true;
};

void checkError(std::u16string_view source, const CalculationError& error)
{
    const Span span = error.span();
    FUZZ_CHECK(span.offset <= source.size() && span.length <= source.size() - span.offset);
    FUZZ_CHECK(fuzz::referenceUtf8(fuzz::referenceUtf16(error.what())) == error.what() && *error.what() != '\0');

    const Place place = placeOf(source, span.offset);
    FUZZ_CHECK(place.line >= 1 && place.column >= 1 && place.line + place.column <= span.offset + 2);
    const std::string shown = pointAt(source, span);
    const std::size_t lineEnd = shown.find('\n');
    const std::size_t caret = shown.find('^', lineEnd);
    FUZZ_CHECK(lineEnd != std::string::npos && caret != std::string::npos);
    FUZZ_CHECK(shown.find_first_not_of(' ', lineEnd + 1) == caret);
    FUZZ_CHECK(shown.find_first_not_of('~', caret + 1) == std::string::npos);
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

void check(std::u16string_view source)
{
    const Calculation calculation = parse(source, table());
    Writer few(Parentheses::few, source.size());
    Writer all(Parentheses::all, source.size());
    std::u16string shortText = few.written(calculation);
    if (!calculation.assignedVariable && parse(shortText, table()).assignedVariable) {
        shortText = u"(" + shortText + u")"; // where it says so, "$x = 1" compares
    }
    const std::u16string longText = all.written(calculation);
    FUZZ_CHECK(Writer(Parentheses::all, shortText.size()).written(parse(shortText, table())) == longText);
    // A sign or a chain and its parentheses are two levels.
    if (all.deepest() <= maximumNesting / 2 - 1) {
        FUZZ_CHECK(Writer(Parentheses::all, longText.size()).written(parse(longText, table())) == longText);
    }
    if (few.isModest()) {
        FUZZ_CHECK(valueOf(source) == valueOf(shortText));
    }
}

} // namespace

void fuzz::test(std::string_view input)
{
    const std::u16string source = anyUnits(input);
    try {
        check(source);
    } catch (const CalculationError& error) {
        checkError(source, error);
    }
}
