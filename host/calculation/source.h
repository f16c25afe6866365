// The text of a calculation: the tokens in it, and places in it as people are shown them.
#pragma once

#include <cstddef>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace fmxhost {

// A part of a calculation's source, in UTF-16 units.
struct Span {
    std::size_t offset = 0;
    std::size_t length = 0;
};

// A calculation that can't be parsed or evaluated. what() is the message, in UTF-8.
class CalculationError : public std::runtime_error {
public:
    CalculationError(Span span, const std::string& message) : std::runtime_error(message), span_(span) {}
    Span span() const { return span_; }

private:
    Span span_;
};

// Line and column of an offset, both from 1; columns count characters. Lines end with LF, CR or CR LF.
struct Place {
    std::size_t line = 1;
    std::size_t column = 1;
};
Place placeOf(std::u16string_view source, std::size_t offset);

// Two lines of UTF-8 with a line feed between them and none at the end: the line of the source that the span begins in,
// and below it "^" under the span's first character and "~" under the rest of it. Columns are those of a terminal; a
// long line is cut to the surroundings of the place.
std::string pointAt(std::u16string_view source, Span span);

enum class TokenKind {
    text,     // a text literal; `text` is what it stands for
    number,   // `text` is the literal as written
    name,     // of a function or of a Let name
    variable, // with its $ or $$
    symbol,   // an operator or punctuation; `text` in one spelling: "≠" for "<>", "and" for "AND"
    end,
};

struct Token {
    TokenKind kind = TokenKind::end;
    std::u16string text;
    Span span;

    bool is(std::u16string_view symbol) const { return kind == TokenKind::symbol && text == symbol; }
};

// The tokens, with one of kind `end` last. Blanks and comments ("//" to the end of the line, "/*" to "*/") separate
// tokens.
// Errors: CalculationError.
std::vector<Token> tokenize(std::u16string_view source);

// Whether there are only blanks and comments, all of them closed.
bool isBlank(std::u16string_view source);

// What is open where the source ends, so that the calculation goes on.
enum class Open { nothing, bracketOrComment, text };
Open openAtEnd(std::u16string_view source);

} // namespace fmxhost
