// The way of a calculation: Lexer cuts the text into tokens, Parser makes the tree of them by recursive descent, one
// level of precedence (`levels`) calling the next stronger one. A chain of operators of one level is one node, so that
// only nesting, which is limited, needs the stack. Whatever is wrong ends as a CalculationError with the span it is at;
// pointAt() shows it under the line.
#include "host/calculation/parse.h"

#include "host/base/unicode.h"

#include <unicode/uchar.h>
#include <unicode/utf16.h>

#include <algorithm>
#include <array>
#include <utility>

namespace fmxhost {
namespace {

// How much of a line is shown around the place, in UTF-16 units.
constexpr std::size_t unitsBefore = 50;
constexpr std::size_t unitsAfter = 50;

constexpr std::u16string_view lineEnds = u"\r\n";

// What a terminal shows in the text's place: a tab and other controls would break the alignment.
std::u16string printable(std::u16string_view text)
{
    std::u16string result(text);
    std::replace_if(
        result.begin(), result.end(), [](char16_t unit) { return unit < 0x20 || (unit >= 0x7F && unit < 0xA0); }, u' ');
    return result;
}

constexpr std::u16string_view singleSymbols = u"&+-*/=≠<>≤≥();[]";
constexpr std::array<std::u16string_view, 4> operatorWords{u"and", u"or", u"xor", u"not"};
constexpr char16_t paragraphSign = u'¶';
constexpr std::u16string_view carriageReturn = u"\r"; // what the paragraph sign stands for

// What people mean by characters that calculations don't know.
struct Mistake {
    std::u16string_view characters;
    const char* message;
};
constexpr std::array<Mistake, 6> mistakes{{
    {u",", "Arguments are separated by \";\" and decimals by \".\"."},
    {u"'‘’‚“”„«»`", "A text stands between straight double quotation marks: \"text\"."},
    {u"^", "fmxhost lacks the operator ^ (to the power of)."},
    {u"{}", "Braces only show in descriptions what may be left out."},
    {u"!", "\"Not equal\" is written ≠ or <>."},
    {u"|", "\"Or\" is written or; in a text a bar needs quotation marks."},
}};

// A text or a comment that isn't closed.
class UnclosedError : public CalculationError {
public:
    using CalculationError::CalculationError;
};

bool isDigit(char16_t unit)
{
    return unit >= u'0' && unit <= u'9';
}

class Lexer {
public:
    explicit Lexer(std::u16string_view source) : source_(source) {}

    std::vector<Token> run()
    {
        for (skipBlanks(); position_ < source_.size(); skipBlanks()) {
            tokens_.push_back(next());
        }
        tokens_.push_back({TokenKind::end, {}, {source_.size(), 0}});
        return std::move(tokens_);
    }

private:
    char16_t at(std::size_t ahead = 0) const
    {
        return position_ + ahead < source_.size() ? source_[position_ + ahead] : u'\0';
    }
    bool startsWith(std::u16string_view text) const { return source_.substr(position_).starts_with(text); }
    Span spanFrom(std::size_t start) const { return {start, position_ - start}; }

    Character character() const { return characterAt(source_, position_); }

    void skipBlanks()
    {
        while (position_ < source_.size()) {
            if (startsWith(u"//")) {
                position_ = std::min(source_.find_first_of(u"\r\n", position_), source_.size());
            } else if (startsWith(u"/*")) {
                skipBlockComment();
            } else if (u_isUWhiteSpace(static_cast<UChar32>(character().value)) != 0) {
                position_ += character().length;
            } else {
                return;
            }
        }
    }

    void skipBlockComment()
    {
        const std::size_t end = source_.find(u"*/", position_ + 2);
        if (end == std::u16string_view::npos) {
            throw UnclosedError({position_, 2}, "This comment has no end: \"*/\" is missing.");
        }
        position_ = end + 2;
    }

    Token next()
    {
        const char16_t unit = at();
        if (unit == u'"') {
            return textLiteral();
        }
        if (unit == paragraphSign) {
            ++position_;
            return {TokenKind::text, std::u16string(carriageReturn), spanFrom(position_ - 1)};
        }
        if (isDigit(unit) || (unit == u'.' && isDigit(at(1)))) {
            return number();
        }
        if (unit == u'$') {
            return variable();
        }
        if (singleSymbols.find(unit) != std::u16string_view::npos) {
            return symbol();
        }
        return name();
    }

    Token textLiteral()
    {
        const std::size_t start = position_;
        std::u16string text;
        for (++position_; position_ < source_.size(); ++position_) {
            char16_t unit = at();
            if (unit == u'"') {
                ++position_;
                return {TokenKind::text, std::move(text), spanFrom(start)};
            }
            if (unit == u'\r' && at(1) == u'\n') {
                continue;
            }
            const bool escapes = unit == u'\\' && (at(1) == u'"' || at(1) == u'\\' || at(1) == paragraphSign);
            if (escapes) {
                ++position_;
                unit = at();
            } else if (unit == paragraphSign || unit == u'\n') { // FileMaker's line end, also where one was typed
                unit = carriageReturn.front();
            }
            text.push_back(unit);
        }
        throw UnclosedError({start, 1}, "This text has no end: a closing quotation mark is missing.");
    }

    void skipDigits()
    {
        while (isDigit(at())) {
            ++position_;
        }
    }

    Token number()
    {
        const std::size_t start = position_;
        skipDigits();
        if (at() == u'.') {
            ++position_;
            skipDigits();
        }
        return {TokenKind::number, std::u16string(source_.substr(start, position_ - start)), spanFrom(start)};
    }

    // Letters, digits, marks, "_" and "." make a name.
    void skipNameCharacters()
    {
        while (position_ < source_.size()) {
            const Character found = character();
            const auto category = U_MASK(u_charType(static_cast<UChar32>(found.value)));
            if (found.value != U'_' && found.value != U'.' &&
                (category & (U_GC_L_MASK | U_GC_N_MASK | U_GC_M_MASK)) == 0) {
                return;
            }
            position_ += found.length;
        }
    }

    Token variable()
    {
        const std::size_t start = position_;
        position_ += startsWith(u"$$") ? 2U : 1U;
        const std::size_t name = position_;
        skipNameCharacters();
        if (position_ == name) {
            throw CalculationError(spanFrom(start), "A variable's name is expected after \"$\".");
        }
        return {TokenKind::variable, std::u16string(source_.substr(start, position_ - start)), spanFrom(start)};
    }

    Token symbol()
    {
        constexpr std::array<std::pair<std::u16string_view, std::u16string_view>, 3> spellings{
            {{u"<>", u"≠"}, {u"<=", u"≤"}, {u">=", u"≥"}}};
        const std::size_t start = position_;
        for (const auto& [spelling, meaning] : spellings) {
            if (startsWith(spelling)) {
                position_ += spelling.size();
                return {TokenKind::symbol, std::u16string(meaning), spanFrom(start)};
            }
        }
        ++position_;
        return {TokenKind::symbol, std::u16string(1, source_[start]), spanFrom(start)};
    }

    Token name()
    {
        const std::size_t start = position_;
        skipNameCharacters();
        if (position_ == start) {
            failAtCharacter();
        }
        const std::u16string_view text = source_.substr(start, position_ - start);
        const std::u16string folded = foldCase(text);
        for (const std::u16string_view word : operatorWords) {
            if (folded == word) {
                return {TokenKind::operatorWord, folded, spanFrom(start)};
            }
        }
        return {TokenKind::name, std::u16string(text), spanFrom(start)};
    }

    [[noreturn]] void failAtCharacter() const
    {
        const Span span{position_, character().length};
        for (const Mistake& mistake : mistakes) {
            if (mistake.characters.find(source_[position_]) != std::u16string_view::npos) {
                throw CalculationError(span, mistake.message);
            }
        }
        throw CalculationError(span, "This character means nothing here.");
    }

    std::u16string_view source_;
    std::size_t position_ = 0;
    std::vector<Token> tokens_;
};

struct OperatorSymbol {
    std::u16string_view symbol;
    Operator operation;
    int level; // weakest first
};
constexpr std::array<OperatorSymbol, 14> operators{{{u"or", Operator::logicalOr, 0},
                                                    {u"xor", Operator::logicalXor, 0},
                                                    {u"and", Operator::logicalAnd, 1},
                                                    {u"=", Operator::equal, 2},
                                                    {u"≠", Operator::notEqual, 2},
                                                    {u"<", Operator::less, 2},
                                                    {u">", Operator::greater, 2},
                                                    {u"≤", Operator::lessOrEqual, 2},
                                                    {u"≥", Operator::greaterOrEqual, 2},
                                                    {u"&", Operator::concatenate, 3},
                                                    {u"+", Operator::add, 4},
                                                    {u"-", Operator::subtract, 4},
                                                    {u"*", Operator::multiply, 5},
                                                    {u"/", Operator::divide, 5}}};
constexpr int strongestLevel = 5;

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
        if (symbol == u"(" || symbol == u"[") {
            open_.push_back(position_);
        } else if ((symbol == u")" || symbol == u"]") && !open_.empty()) {
            open_.pop_back();
        }
        ++position_;
        return true;
    }

    // What is missing at the end is first of all the bracket that is open.
    [[noreturn]] void fail(const std::string& message) const
    {
        if (current().kind == TokenKind::end && !open_.empty()) {
            const Token& bracket = tokens_[open_.back()];
            throw CalculationError(bracket.span, bracket.is(u"(") ? "There is no \")\" for this \"(\"."
                                                                  : "There is no \"]\" for this \"[\".");
        }
        throw CalculationError(current().span, message);
    }

    [[noreturn]] void failAfterOperand() const
    {
        if (current().is(u")") || current().is(u"]")) {
            fail(current().is(u")") ? "There is no \"(\" for this \")\"." : "There is no \"[\" for this \"]\".");
        }
        fail("An operator (such as + - * / & =) is expected here.");
    }

    template <typename Form>
    ExpressionPtr make(std::size_t offset, Form form) const
    {
        const Span& last = tokens_[position_ - 1].span;
        const Span span{offset, last.offset + last.length - offset};
        return std::make_unique<const Expression>(Expression{span, std::move(form)});
    }

    ExpressionPtr expression(int level = 0)
    {
        if (level > strongestLevel) {
            return operand();
        }
        const std::size_t offset = current().span.offset;
        OperatorChain chain{expression(level + 1), {}};
        for (;;) {
            const auto* found = std::find_if(operators.begin(), operators.end(), [&](const OperatorSymbol& entry) {
                return entry.level == level && current().is(entry.symbol);
            });
            if (found == operators.end()) {
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
        const auto form =
            std::find_if(forms.begin(), forms.end(), [&folded](const Form& entry) { return folded == entry.name; });
        if (isCall && form != forms.end()) {
            take();
            takeIf(u"(");
            return (this->*form->read)(offset);
        }
        const std::optional<Function> function = functions_.find(current().text);
        if (!function) {
            failUnknown(isCall);
        }
        return call(*function);
    }

    [[noreturn]] void failUnknown(bool isCall) const
    {
        const std::string name = toUtf8(current().text);
        if (isFileMakersFunction(current().text)) {
            fail(name + " is a function of FileMaker that fmxhost lacks.");
        }
        fail("There is no function" + std::string(isCall ? "" : " or Let name") + " called " + name + "." +
             didYouMean(functions_.suggestionFor(current().text)));
    }

    ExpressionPtr call(const Function& function)
    {
        const Span name = take().span;
        std::vector<ExpressionPtr> arguments;
        if (takeIf(u"(") && !takeIf(u")")) {
            do {
                if (current().is(u"[") && nameOf(function) == u"Substitute" && arguments.size() % 2 == 1) {
                    pair(arguments);
                    continue;
                }
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

    // [ searchString ; replaceString ]
    void pair(std::vector<ExpressionPtr>& arguments)
    {
        takeIf(u"[");
        arguments.push_back(expression());
        separator();
        arguments.push_back(expression());
        if (!takeIf(u"]")) {
            failInList("\"]\" is expected here.");
        }
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
    ExpressionPtr let(std::size_t offset)
    {
        const std::size_t outerLocals = locals_.size();
        Let form;
        form.bindings = bindings();
        separator();
        form.body = expression();
        closeForm();
        locals_.resize(outerLocals);
        return make(offset, std::move(form));
    }

    // While ( [ name = … ] ; condition ; [ name = … ] ; result )
    ExpressionPtr loop(std::size_t offset)
    {
        const std::size_t outerLocals = locals_.size();
        While form;
        form.bindings = bindings();
        separator();
        form.condition = expression();
        separator();
        form.logic = bindings();
        separator();
        form.result = expression();
        closeForm();
        locals_.resize(outerLocals);
        return make(offset, std::move(form));
    }

    // Get ( flag ): the flag is a word, no expression.
    ExpressionPtr get(std::size_t offset)
    {
        if (current().kind != TokenKind::name) {
            fail("The name of what is asked for is expected here, such as CurrentDate.");
        }
        const Token flag = take();
        const auto answer = options_.getAnswers.find(foldCase(flag.text));
        const BuiltIn* function = getFunction(flag.text);
        if (answer == options_.getAnswers.end() && function == nullptr) {
            throw CalculationError(flag.span, "What Get ( " + toUtf8(flag.text) +
                                                  " ) answers is said by the option --get " + toUtf8(flag.text) +
                                                  "=….");
        }
        closeForm();
        return answer != options_.getAnswers.end() ? make(offset, Literal{answer->second})
                                                   : make(offset, Call{function, {}});
    }

    ExpressionPtr evaluated(std::size_t offset)
    {
        ExpressionPtr text = expression();
        closeForm();
        return make(offset, Evaluated{std::move(text)});
    }

    // The ";" before a part that must be there.
    void separator()
    {
        if (current().is(u")")) {
            fail(tooFewParameters);
        }
        if (!takeIf(u";")) {
            failInList("\";\" is expected here.");
        }
    }

    void closeForm()
    {
        if (current().is(u";")) {
            fail(tooManyParameters);
        }
        if (!takeIf(u")")) {
            failInList("\")\" is expected here.");
        }
    }

    std::vector<Binding> bindings()
    {
        std::vector<Binding> result;
        if (!takeIf(u"[")) {
            result.push_back(binding());
            return result;
        }
        while (!takeIf(u"]")) {
            result.push_back(binding());
            if (!takeIf(u";") && !current().is(u"]")) {
                failInList("\";\" or \"]\" is expected here.");
            }
        }
        return result;
    }

    Binding binding()
    {
        if (current().kind != TokenKind::name && current().kind != TokenKind::variable) {
            fail("A name or a $variable is expected here.");
        }
        Binding result;
        result.isVariable = current().kind == TokenKind::variable;
        result.name = foldCase(take().text);
        if (!takeIf(u"=")) {
            fail("\"=\" is expected here.");
        }
        result.value = expression();
        if (!result.isVariable) {
            locals_.push_back(result.name);
        }
        return result;
    }

    // What looks like a call and is more than one.
    struct Form {
        std::u16string_view name; // case-folded
        ExpressionPtr (Parser::*read)(std::size_t offset);
    };
    static constexpr std::array<Form, 4> forms{
        {{u"let", &Parser::let}, {u"while", &Parser::loop}, {u"get", &Parser::get}, {u"evaluate", &Parser::evaluated}}};

    std::vector<Token> tokens_;
    const FunctionTable& functions_;
    const ParserOptions& options_;
    std::size_t position_ = 0;
    int nesting_ = 0;
    std::vector<std::size_t> open_;      // positions of the brackets that are open
    std::vector<std::u16string> locals_; // names that Let and While have defined here, case-folded
};

} // namespace

Place placeOf(std::u16string_view source, std::size_t offset)
{
    Place place;
    for (std::size_t index = 0; index < std::min(offset, source.size()); ++index) {
        const char16_t unit = source[index];
        const bool firstOfCrLf = unit == u'\r' && index + 1 < source.size() && source[index + 1] == u'\n';
        if ((unit == u'\n' || unit == u'\r') && !firstOfCrLf) {
            ++place.line;
            place.column = 1;
        } else if (index == 0 || !U16_IS_TRAIL(unit) || !U16_IS_LEAD(source[index - 1])) {
            ++place.column;
        }
    }
    return place;
}

std::string pointAt(std::u16string_view source, Span span)
{
    const std::size_t offset = std::min(span.offset, source.size());
    const std::size_t start = source.substr(0, offset).find_last_of(lineEnds) + 1; // 0 on the first line
    const std::u16string_view line = source.substr(start, source.find_first_of(lineEnds, offset) - start);
    const std::size_t at = offset - start;
    std::size_t from = at - std::min(at, unitsBefore);
    std::size_t to = std::min(line.size(), at + unitsAfter);
    U16_SET_CP_START(line, 0, from);
    U16_SET_CP_LIMIT(line, 0, to, line.size());

    const std::u16string before = (from > 0 ? u"…" : u"") + printable(line.substr(from, at - from));
    const std::u16string after = printable(line.substr(at, to - at));
    const std::size_t marked = displayWidth(after.substr(0, span.length));
    const std::string text = toUtf8(before) + toUtf8(after) + (to < line.size() ? "…" : "") + "\n";
    return text + std::string(displayWidth(before), ' ') + "^" + std::string(marked > 0 ? marked - 1 : 0, '~');
}

std::vector<Token> tokenize(std::u16string_view source)
{
    return Lexer(source).run();
}

OpenEnd openAtEnd(std::u16string_view source)
{
    try {
        int depth = 0;
        for (const Token& token : tokenize(source)) {
            depth += token.is(u"(") || token.is(u"[") ? 1 : 0;
            depth -= token.is(u")") || token.is(u"]") ? 1 : 0;
        }
        return {depth > 0, std::nullopt};
    } catch (const UnclosedError& error) {
        const std::size_t start = error.span().offset;
        return {true, source[start] == u'"' ? std::optional(start + 1) : std::nullopt};
    } catch (const CalculationError&) {
        return {};
    }
}

Calculation parse(std::u16string_view source, const FunctionTable& functions, const ParserOptions& options)
{
    return Parser(source, functions, options).run();
}

} // namespace fmxhost
