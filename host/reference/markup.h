// The few marks of Markdown that the reference's texts use, as HTML: paragraphs, blocks between ``` lines, tables,
// `code`,
// **strong** and [links](#to-a-place).
#pragma once

#include <string>
#include <string_view>

namespace fmxhost::reference {

// With &, <, > and quotes as entities.
std::string escaped(std::string_view text);

// Marks within a paragraph. Code that is a function's name becomes a link to the function.
std::string inlineHtml(std::string_view text);

// Paragraphs, tables and blocks, each on lines of its own.
std::string blockHtml(std::string_view text);

// What a heading is reached by, as readers of Markdown have it too: lower-case letters, digits, "_" and "-".
std::string slug(std::string_view heading);

} // namespace fmxhost::reference
