// The host's reader of calculations: an error points into the text; what was read has the same value when its tokens
// are spelled and separated otherwise; what is open at the end is an error as long as it is.
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

// The same tokens with something else between them.
std::u16string respelled(const std::vector<Token>& tokens)
{
    std::u16string text;
    for (const Token& token : tokens) {
        text += u" /**/\n";
        if (token.kind != TokenKind::text) {
            text += token.text;
            continue;
        }
        text += u'"';
        for (const char16_t unit : token.text) {
            text += unit == u'"' || unit == u'\\' || unit == u'¶' ? u"\\" : u"";
            text += unit == u'\r' ? u'¶' : unit;
        }
        text += u'"';
    }
    return text;
}

// Whether the value is the same every time and can't grow much: nothing is used twice or tells time.
bool isModest(const std::vector<Token>& tokens)
{
    static constexpr std::u16string_view others[] = {u"let", u"while", u"substitute", u"evaluate", u"get"};
    return std::none_of(tokens.begin(), tokens.end(), [](const Token& token) {
        return token.kind == TokenKind::variable ||
               std::find(std::begin(others), std::end(others), foldCase(token.text)) != std::end(others);
    });
}

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

bool isRead(std::u16string_view source)
{
    try {
        parse(source, table(), {});
        return true;
    } catch (const CalculationError&) {
        return false;
    }
}

} // namespace

void fuzz::test(std::string_view input)
{
    const std::u16string source = anyUnits(input);
    try {
        parse(source, table(), {});
        FUZZ_CHECK(!openAtEnd(source).isOpen);
        const std::vector<Token> tokens = tokenize(source);
        for (const Token& token : tokens) {
            FUZZ_CHECK(token.span.offset + token.span.length <= source.size());
        }
        const std::u16string text = respelled(tokens);
        FUZZ_CHECK(isRead(text));
        FUZZ_CHECK(!isModest(tokens) || valueOf(source) == valueOf(text));
    } catch (const CalculationError& error) {
        checkError(source, error);
    }
}
