// Cuts a calculation into tokens.
#pragma once

#include "host/calculation/diagnostic.h"

#include <string>
#include <string_view>
#include <vector>

namespace fmxhost {

enum class TokenKind {
    text,         // a text literal; `text` is what it stands for
    number,       // `text` is the literal as written
    name,         // of a function or of a Let name
    variable,     // with its $ or $$
    symbol,       // an operator or punctuation; `text` in one spelling: "≠" for "<>", "≤" for "<=", "≥" for ">="
    operatorWord, // and, or, xor, not; `text` in lower case
    end,
};

struct Token {
    TokenKind kind = TokenKind::end;
    std::u16string text;
    Span span;

    bool is(std::u16string_view symbol) const
    {
        return (kind == TokenKind::symbol || kind == TokenKind::operatorWord) && text == symbol;
    }
};

// The tokens, with one of kind `end` last. Blanks and comments ("//" to the end of the line, "/*" to "*/") separate
// tokens.
// Errors: CalculationError.
std::vector<Token> tokenize(std::u16string_view source);

} // namespace fmxhost
