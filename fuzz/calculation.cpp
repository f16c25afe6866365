// The host's reader of calculations: an error points into the text, and can be shown; what is open at the end is an
// error as long as it is.
#include "fuzz/target.h"

#include "host/base/unicode.h"
#include "host/calculation/evaluate.h"

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

} // namespace

void fuzz::test(std::string_view input)
{
    const std::u16string source = anyUnits(input);
    try {
        parse(source, table(), {});
        FUZZ_CHECK(openAtEnd(source) == Open::nothing);
    } catch (const CalculationError& error) {
        checkError(source, error);
    }
}
