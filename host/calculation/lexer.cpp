#include "host/calculation/lexer.h"

#include "host/unicode.h"

#include <unicode/uchar.h>

#include <algorithm>
#include <array>
#include <utility>

namespace fmxhost {
namespace {

constexpr std::u16string_view singleSymbols = u"&+-*/=≠<>≤≥();[]";
constexpr std::array<std::u16string_view, 4> operatorWords{u"and", u"or", u"xor", u"not"};
constexpr char16_t paragraphSign = u'¶';
constexpr std::u16string_view carriageReturn = u"\r"; // what the paragraph sign stands for

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
            throw CalculationError({position_, 2}, "This comment has no end: \"*/\" is missing.");
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
            const bool escapes = unit == u'\\' && (at(1) == u'"' || at(1) == u'\\' || at(1) == paragraphSign);
            if (escapes) {
                ++position_;
                unit = at();
            } else if (unit == paragraphSign) {
                unit = carriageReturn.front();
            }
            text.push_back(unit);
        }
        throw CalculationError({start, 1}, "This text has no end: a closing quotation mark is missing.");
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
            throw CalculationError({start, character().length}, "This character means nothing here.");
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

    std::u16string_view source_;
    std::size_t position_ = 0;
    std::vector<Token> tokens_;
};

} // namespace

std::vector<Token> tokenize(std::u16string_view source)
{
    return Lexer(source).run();
}

} // namespace fmxhost
