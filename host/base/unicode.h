// Text conversions of the host: FileMaker's values are UTF-16, everything outside (arguments, files, terminal) is
// UTF-8.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace fmxhost {

// UTF-8 of a UTF-16 text. Each lone surrogate becomes U+FFFD, so the result is always valid UTF-8.
std::string toUtf8(std::u16string_view text);

// UTF-16 of a UTF-8 text. Each ill-formed sequence becomes U+FFFD.
std::u16string toUtf16(std::string_view text);

// Whether the bytes are well-formed UTF-8.
bool isValidUtf8(std::string_view text);

// The text without its letter case, by Unicode's full case folding: two names that FileMaker takes for the same
// function have the same folded form.
std::u16string foldCase(std::u16string_view text);

// The text with the replacement for each control character but those that are kept: nothing in it moves a terminal's
// cursor or changes its colours.
std::u16string withoutControls(std::u16string_view text, char16_t replacement, std::u16string_view kept = {});

// The character at a position inside a text; a lone surrogate counts as one.
struct Character {
    char32_t value;
    std::size_t length; // in UTF-16 units: 1 or 2
};
Character characterAt(std::u16string_view text, std::size_t position);

// Columns that a terminal needs for the text: 2 for wide characters, 0 for combining ones and other invisible ones.
// The locale must be one of UTF-8.
std::size_t displayWidth(std::u16string_view text);

} // namespace fmxhost
