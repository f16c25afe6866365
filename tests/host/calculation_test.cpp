#include "host/calculation/evaluator.h"
#include "host/unicode.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace fmxhost {
namespace {

fmx::errcode joinArguments(short, const fmx::ExprEnv&, const fmx::DataVect& arguments, fmx::Data& result)
{
    const fmx::TextUniquePtr text;
    for (fmx::uint32 index = 0; index < arguments.Size(); ++index) {
        text->AppendText(arguments.AtAsText(index));
        const fmx::TextUniquePtr bar;
        bar->Assign("|");
        text->AppendText(*bar);
    }
    result.SetAsText(*text, *fmx::LocaleUniquePtr());
    return 0;
}

int calls = 0;
fmx::errcode countCalls(short, const fmx::ExprEnv&, const fmx::DataVect& arguments, fmx::Data&)
{
    ++calls;
    return static_cast<fmx::errcode>(arguments.AtAsNumber(0).AsLong());
}

fmxkit::ExternalFunction function(const char16_t* name, short minimum, short maximum, fmx::ExtPluginType handler)
{
    fmxkit::ExternalFunction entry;
    entry.name = name;
    entry.minimumArguments = minimum;
    entry.maximumArguments = maximum;
    entry.handler = handler;
    return entry;
}

class Calculations : public testing::Test {
protected:
    Value evaluate(std::string_view calculation) { return evaluator_.evaluate(toUtf16(calculation)).value; }
    std::string text(std::string_view calculation) { return evaluate(calculation).utf8(); }

    std::vector<fmxkit::ExternalFunction> functions_{
        function(u"Plug_Join", 1, 3, joinArguments), function(u"Plug_Any", 0, -1, joinArguments),
        function(u"Plug_Straße", 0, 1, joinArguments), function(u"Plug_Count", 0, 1, countCalls)};
    FunctionTable table_{functions_};
    Evaluator evaluator_{table_};
};

TEST_F(Calculations, HaveResults)
{
    struct Case {
        const char* calculation;
        const char* result;
    };
    const Case cases[] = {
        // literals
        {R"("a\"b\\c\d")", R"(a"b\c\d)"},
        {R"("a¶b\¶")", "a\rb¶"},
        {R"("a"&¶&"b")", "a\rb"},
        {"12.50", "12.5"},
        {".5", ".5"},
        {"  1  ", "1"},
        {"\"ä😀日\"", "ä😀日"},
        // numbers are decimals
        {"0.1 + 0.2", ".3"},
        {"2 + 3 * 4", "14"},
        {"(2 + 3) * 4", "20"},
        {"10 - 3 - 2", "5"},
        {"100 / 10 / 5", "2"},
        {"-2 - -3", "1"},
        {"+\"7x\"", "7"},
        {"123456789012345678 + 1", "123456789012345679"},
        // precedence: & below +, above comparison; not binds like a sign
        {"1 + 2 & 3 + 4", "37"},
        {"\"a\" & 1 = \"A1\"", "1"},
        {"not 0 + 1", "2"},
        {"1 or 0 and 0", "1"},
        {"(1 or 0) and 0", "0"},
        {"1 xor 1", "0"},
        // comparison
        {"\"ABC\" = \"abc\"", "1"},
        {"\"straße\" = \"STRASSE\"", "1"},
        {"\"10\" < \"9\"", "1"},
        {"10 < 9", "0"},
        {"10 = \"10\"", "1"},
        {"0 = \"!!ERROR!!\"", "0"},
        {"0 ≠ \"!!ERROR!!\"", "1"},
        {"1 <> 2", "1"},
        {"2 ≤ 2", "1"},
        {"2 <= 1", "0"},
        {"2 ≥ 3", "0"},
        {"2 >= 2", "1"},
        // comments
        {"1 // one\n+ /* two * / */ 2", "3"},
        {"\"//\" & \"/*\"", "///*"},
        // calls
        {"plug_join(1;\"b\" & \"c\";2+1)", "1|bc|3|"},
        {"PLUG_JOIN ( Plug_Join ( 1 ) ; 2 )", "1||2|"},
        {"PLUG_STRASSE", ""},
        {"Plug_Any()", ""},
        {"plug_any(1;2;3;4)", "1|2|3|4|"},
        // Let, If, Case
        {"Let ( [ a = 1 ; b = a + 1 ] ; a & b )", "12"},
        {"Let(x=1;Let(x=2;x)&x)", "21"},
        {"Let ( [ ] ; 5 )", "5"},
        {"If ( 2 > 1 ; \"yes\" )", "yes"},
        {"If ( 0 ; 1/0 )", ""},
        {"Case ( 0 ; 1 ; 1 ; 2 ; 3 )", "2"},
        {"Case ( 0 ; 1 ; 0 ; 2 ; 3 )", "3"},
        {"0 and 1/0", "0"},
        {"1 or 1/0", "1"},
        // built-in functions
        {"Char(65) & Code(Char(128512)) & Length(Char(128512))", "A1285122"},
        {"Left(\"abc\";2) & Right(\"abc\";2) & Middle(\"abc\";2;1) & Left(\"abc\";-1)", "abbcb"},
        {"Middle(\"abc\";9;1) & Right(\"abc\";9) & Middle(\"abc\";2;9)", "abcbc"},
        {"Position(\"aXbx\";\"x\";1;2) & Position(\"aXbx\";\"q\";1;1) & Position(\"ab\";\"b\";9;1)", "400"},
        {"ValueCount(\"a¶b¶\") & ValueCount(\"a¶¶b\") & ValueCount(\"\")", "230"},
        {"GetValue(\"a¶b¶c\";2) & GetValue(\"a¶b¶c\";3) & GetValue(\"a\";2) & GetValue(\"a\";0)", "bc"},
        {"Substitute(\"a-b-c\";\"-\";\"\") & Upper(\"ß\") & Lower(\"Ä\")", "abcSSä"},
        {"GetAsNumber(\"a1b2\") + 1 & IsEmpty(\"\") & IsEmpty(0) & True & False", "131010"},
    };
    for (const Case& test : cases) {
        EXPECT_EQ(text(test.calculation), test.result) << test.calculation;
    }
}

TEST_F(Calculations, PointAtWhatIsWrong)
{
    struct Case {
        const char* calculation;
        std::size_t offset;
        std::size_t length;
        const char* message; // its beginning
    };
    const char* few = "There are too few parameters in this function.";
    const char* many = "There are too many parameters in this function.";
    const Case cases[] = {
        {"", 0, 0, "There is nothing to calculate."},
        {"// only", 7, 0, "There is nothing to calculate."},
        {"1 +", 3, 0, "A number, a text,"},
        {"1 2", 2, 1, "An operator"},
        {"(1", 2, 0, "\")\" is expected"},
        {"1)", 1, 1, "There is no \"(\""},
        {"\"abc", 0, 1, "This text has no end"},
        {"1 /* x", 2, 2, "This comment has no end"},
        {"1 # 2", 2, 1, "This character means nothing"},
        {"$ + 1", 0, 1, "A variable's name"},
        {"Plug_Join", 0, 9, few},
        {"1 & Plug_Join()", 4, 9, few},
        {"Plug_Join(1;2;3;\"four\")", 16, 6, many},
        {"Plug_Straße ( 1 ; 2 )", 18, 1, many},
        {"If(1)", 0, 2, few},
        {"If(1;2;3;4)", 9, 1, many},
        {"Let(a=1)", 7, 1, few},
        {"Let(1;2)", 4, 1, "A name or a $variable"},
        {"Let([a=1;b=2;a+b)", 14, 1, "\"=\" is expected"},
        {"Plug_Join(1;", 12, 0, "A number, a text,"},
        {"Plug_Join(1 2)", 12, 1, "An operator"},
        {"Plug_Jion(1)", 0, 9, "There is no function called Plug_Jion. Did you mean Plug_Join?"},
        {"lenght(1)", 0, 6, "There is no function called lenght. Did you mean Length?"},
        {"Join(1)", 0, 4, "There is no function called Join. Did you mean Plug_Join?"},
        {"Plug_Zzzzzz(1)", 0, 11, "There is no function called Plug_Zzzzzz."},
        {"Let(a=1;a)&a", 11, 1, "There is no function or Let name called a."},
        {"6/(3-3)", 1, 1, "A number can't be divided by zero."},
    };
    for (const Case& test : cases) {
        try {
            evaluate(test.calculation);
            ADD_FAILURE() << test.calculation << " was evaluated";
        } catch (const CalculationError& error) {
            EXPECT_EQ(error.span().offset, test.offset) << test.calculation;
            EXPECT_EQ(error.span().length, test.length) << test.calculation;
            EXPECT_TRUE(std::string(error.what()).starts_with(test.message))
                << test.calculation << ": " << error.what();
        }
    }
}

TEST_F(Calculations, ShareVariablesWithTheNextOnes)
{
    EXPECT_EQ(text("$unset"), "");
    EXPECT_EQ(evaluate("$unset").type(), ValueType::empty);
    EXPECT_EQ(text("$a = 1 + 1"), "2");
    EXPECT_EQ(text("$A"), "2");
    EXPECT_EQ(text("($a = 3)"), "0"); // in parentheses a comparison
    EXPECT_EQ(text("Let ( [ $b = $a * 10 ; c = 1 ] ; $b + c )"), "21");
    EXPECT_EQ(text("$b & $$b"), "20");
}

TEST_F(Calculations, CallNothingWhenAnythingInThemIsWrong)
{
    calls = 0;
    EXPECT_THROW(evaluate("Plug_Count & Unknown(1)"), CalculationError);
    EXPECT_THROW(evaluate("Plug_Count & Plug_Count(1;2)"), CalculationError);
    EXPECT_EQ(calls, 0);
    evaluate("Plug_Count & If(1; Plug_Count; Plug_Count)");
    EXPECT_EQ(calls, 2);
}

TEST_F(Calculations, StopAtTheFirstErrorCode)
{
    calls = 0;
    const Evaluation evaluation = evaluator_.evaluate(u"Plug_Count(0) & Plug_Count(7) & Plug_Count(8)");
    EXPECT_EQ(evaluation.error, 7);
    EXPECT_EQ(evaluation.value.text(), u"?");
    EXPECT_EQ(calls, 2);
}

TEST_F(Calculations, LetAnyCountThroughWhenAskedTo)
{
    Evaluator lenient(table_, ParserOptions{false});
    EXPECT_EQ(lenient.evaluate(u"Plug_Join(1;2;3;4)").value.text(), u"1|2|3|4|");
    EXPECT_EQ(lenient.evaluate(u"Plug_Join").value.text(), u"");
    EXPECT_THROW(lenient.evaluate(u"Left(1)"), CalculationError);
}

TEST_F(Calculations, AreNeitherTooDeepNorTooLong)
{
    const auto nested = [](int depth, const std::string& open, const std::string& close) {
        std::string calculation;
        for (int level = 0; level < depth; ++level) {
            calculation += open;
        }
        calculation += "1";
        for (int level = 0; level < depth; ++level) {
            calculation += close;
        }
        return calculation;
    };
    EXPECT_EQ(text(nested(maximumNesting - 1, "(", ")")), "1");
    for (const auto& [open, close] :
         {std::pair("(", ")"), {"Plug_Any(", ")"}, {"-", ""}, {"not ", ""}, {"Let(a=", ";a)"}}) {
        EXPECT_THROW(evaluate(nested(100000, open, close)), CalculationError) << open;
    }
    EXPECT_EQ(text(nested(100000, "1+", "")), "100001"); // as long as one likes
}

TEST_F(Calculations, SayThatAValueIsTooLarge)
{
    evaluate("$n = " + std::string(300, '9'));
    EXPECT_THROW(evaluate("$n * $n"), CalculationError);
}

} // namespace
} // namespace fmxhost
