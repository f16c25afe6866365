#include "host/calculation/source.h"

#include "host/base/unicode.h"

#include <unicode/uchar.h>
#include <unicode/ustring.h>
#include <unicode/utf16.h>

#include <algorithm>
#include <cstdint>
#include <utility>

namespace fmxhost {
namespace {

constexpr std::u16string_view lineEnds = u"\r\n";
constexpr std::u16string_view digits = u"0123456789";
constexpr char16_t paragraphSign = u'¶';
constexpr char16_t carriageReturn = u'\r'; // what the paragraph sign stands for

// Symbols that have a second spelling, and the others.
constexpr std::pair<std::u16string_view, std::u16string_view> spellings[] = {
    {u"<>", u"≠"}, {u"<=", u"≤"}, {u">=", u"≥"}};
constexpr std::u16string_view symbols = u"&+-*/^=≠<>≤≥();[]";
constexpr std::u16string_view operatorWords[] = {u"and", u"or", u"xor", u"not"};

// What people mean by characters that calculations don't know.
constexpr std::pair<std::u16string_view, const char*> mistakes[] = {
    {u",", "Arguments are separated by \";\" and decimals by \".\"."},
    {u"'‘’‚“”„«»`", "A text stands between straight double quotation marks: \"text\"."},
    {u"{}", "Braces only show in descriptions what may be left out."},
    {u"!", "\"Not equal\" is written ≠ or <>."},
    {u":", "fmxhost has neither fields nor script steps: set a variable, $name = …"},
    {u"|", "\"Or\" is written or; in a text a bar needs quotation marks."},
};

class Lexer {
public:
    explicit Lexer(std::u16string_view source) : source_(source) {}

    std::vector<Token> run()
    {
        std::vector<Token> tokens;
        for (skipBlanks(); position_ < source_.size(); skipBlanks()) {
            tokens.push_back(next());
        }
        tokens.push_back({TokenKind::end, {}, {source_.size(), 0}});
        return tokens;
    }

private:
    char16_t at(std::size_t ahead = 0) const
    {
        return position_ + ahead < source_.size() ? source_[position_ + ahead] : u'\0';
    }
    bool startsWith(std::u16string_view text) const { return source_.substr(position_).starts_with(text); }
    bool isAtDigit() const { return startsWith(u".") ? isDigit(at(1)) : isDigit(at()); }
    static bool isDigit(char16_t unit) { return digits.find(unit) != std::u16string_view::npos; }

    Token tokenFrom(std::size_t start, TokenKind kind) const
    {
        const Span span{start, position_ - start};
        return {kind, std::u16string(source_.substr(start, span.length)), span};
    }

    void skipBlanks()
    {
        while (position_ < source_.size()) {
            const Character character = characterAt(source_, position_);
            if (startsWith(u"//")) {
                position_ = std::min(source_.find_first_of(lineEnds, position_), source_.size());
            } else if (startsWith(u"/*")) {
                const std::size_t end = source_.find(u"*/", position_ + 2);
                if (end == std::u16string_view::npos) {
                    throw CalculationError({position_, 2}, "This comment has no end: \"*/\" is missing.");
                }
                position_ = end + 2;
            } else if (u_isUWhiteSpace(static_cast<UChar32>(character.value)) != 0) {
                position_ += character.length;
            } else {
                return;
            }
        }
    }

    Token next()
    {
        const std::size_t start = position_;
        if (startsWith(u"\"")) {
            return textLiteral();
        }
        if (at() == paragraphSign) {
            ++position_;
            return {TokenKind::text, {carriageReturn}, {start, 1}};
        }
        if (isAtDigit()) {
            skip(digits);
            position_ += startsWith(u".") ? 1U : 0U;
            skip(digits);
            return tokenFrom(start, TokenKind::number);
        }
        for (const auto& [spelling, meaning] : spellings) {
            if (startsWith(spelling)) {
                position_ += spelling.size();
                return {TokenKind::symbol, std::u16string(meaning), {start, spelling.size()}};
            }
        }
        if (symbols.find(at()) != std::u16string_view::npos) {
            ++position_;
            return tokenFrom(start, TokenKind::symbol);
        }
        return word();
    }

    void skip(std::u16string_view units)
    {
        position_ = std::min(source_.find_first_not_of(units, position_), source_.size());
    }

    Token textLiteral()
    {
        const std::size_t start = position_;
        std::u16string text;
        for (++position_; position_ < source_.size(); ++position_) {
            if (at() == u'"') {
                ++position_;
                return {TokenKind::text, std::move(text), {start, position_ - start}};
            }
            const bool escapes = at() == u'\\' && (at(1) == u'"' || at(1) == u'\\' || at(1) == paragraphSign);
            if (escapes) {
                text.push_back(at(1));
                ++position_;
            } else if (!startsWith(u"\r\n")) { // FileMaker's line end, also where one was typed
                text.push_back(at() == paragraphSign || at() == u'\n' ? carriageReturn : at());
            }
        }
        throw CalculationError({start, 1}, "This text has no end: a closing quotation mark is missing.");
    }

    // The name of a function, an operator that is a word, or a variable.
    Token word()
    {
        const std::size_t start = position_;
        const bool isVariable = at() == u'$';
        position_ += startsWith(u"$$") ? 2U : isVariable ? 1U : 0U;
        const std::size_t name = position_;
        skipNameCharacters();
        if (position_ == name) {
            failAt(start);
        }
        Token token = tokenFrom(start, isVariable ? TokenKind::variable : TokenKind::name);
        const std::u16string folded = foldCase(token.text);
        if (std::find(std::begin(operatorWords), std::end(operatorWords), folded) != std::end(operatorWords)) {
            token = {TokenKind::symbol, folded, token.span};
        }
        return token;
    }

    // Letters, digits, marks, "_" and "." make a name.
    void skipNameCharacters()
    {
        while (position_ < source_.size()) {
            const Character found = characterAt(source_, position_);
            const auto category = U_MASK(u_charType(static_cast<UChar32>(found.value)));
            if (found.value != U'_' && found.value != U'.' &&
                (category & (U_GC_L_MASK | U_GC_N_MASK | U_GC_M_MASK)) == 0) {
                return;
            }
            position_ += found.length;
        }
    }

    [[noreturn]] void failAt(std::size_t start) const
    {
        if (position_ > start) {
            throw CalculationError({start, position_ - start}, "A variable's name is expected after \"$\".");
        }
        const Span span{start, characterAt(source_, start).length};
        for (const auto& [characters, message] : mistakes) {
            if (characters.find(source_[start]) != std::u16string_view::npos) {
                throw CalculationError(span, message);
            }
        }
        throw CalculationError(span, "This character means nothing here.");
    }

    std::u16string_view source_;
    std::size_t position_ = 0;
};

std::size_t lineStart(std::u16string_view source, std::size_t offset)
{
    return source.substr(0, offset).find_last_of(lineEnds) + 1; // npos + 1: 0
}

} // namespace

Place placeOf(std::u16string_view source, std::size_t offset)
{
    const std::size_t start = lineStart(source, offset);
    Place place;
    for (std::size_t index = 0; index < start; ++index) {
        const bool isFirstOfTwo = source.substr(index).starts_with(u"\r\n");
        place.line += lineEnds.find(source[index]) != std::u16string_view::npos && !isFirstOfTwo ? 1U : 0U;
    }
    const std::u16string_view before = source.substr(start, offset - start);
    place.column += static_cast<std::size_t>(u_countChar32(before.data(), static_cast<std::int32_t>(before.size())));
    return place;
}

std::string pointAt(std::u16string_view source, Span span)
{
    constexpr std::size_t shownAround = 50; // of a line, before the place and behind it, in UTF-16 units
    const std::size_t start = lineStart(source, span.offset);
    const std::u16string_view line = source.substr(start, source.find_first_of(lineEnds, span.offset) - start);
    const std::size_t at = span.offset - start;
    const std::size_t size = line.size();
    std::size_t from = at - std::min(at, shownAround);
    std::size_t to = std::min(size, at + shownAround);
    U16_SET_CP_START(line, 0, from);
    U16_SET_CP_LIMIT(line, 0, to, size);

    const std::u16string before = (from > 0 ? u"…" : u"") + withoutControls(line.substr(from, at - from), u' ');
    const std::u16string after = withoutControls(line.substr(at, to - at), u' ');
    const std::size_t marked = displayWidth(after.substr(0, span.length));
    return toUtf8(before + after) + (to < size ? "…" : "") + "\n" + std::string(displayWidth(before), ' ') + "^" +
           std::string(marked > 0 ? marked - 1 : 0, '~');
}

std::vector<Token> tokenize(std::u16string_view source)
{
    return Lexer(source).run();
}

bool isBlank(std::u16string_view source)
{
    try {
        return tokenize(source).size() == 1;
    } catch (const CalculationError&) {
        return false;
    }
}

Open openAtEnd(std::u16string_view source)
{
    try {
        int depth = 0;
        for (const Token& token : tokenize(source)) {
            depth += token.is(u"(") || token.is(u"[") ? 1 : 0;
            depth -= token.is(u")") || token.is(u"]") ? 1 : 0;
        }
        return depth > 0 ? Open::bracketOrComment : Open::nothing;
    } catch (const CalculationError& error) {
        // With a quotation mark or a slash nothing is wrong but that the text or the comment has no end.
        const char16_t unit = source[error.span().offset];
        return unit == u'"' ? Open::text : unit == u'/' ? Open::bracketOrComment : Open::nothing;
    }
}

} // namespace fmxhost
