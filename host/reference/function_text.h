// One function's text for the reference: a Markdown file of fixed structure, docs/reference/<function>.md.
//
//     What the function does, in any number of paragraphs.
//
//     ## Chapter                             one of those in docs/reference/index.md
//     ## Parameters                          left out when there are none
//     - name (type): meaning
//     - name (type, optional): meaning
//
//     ## Result
//     ## Errors
//     - -8000: when; the message has no extended text
//     - -8014 "extended text": when; \n stands for a line end
//     - -8010 …: when; the extended text is the system's own
//     and paragraphs, such as "None."
//
//     ## Platforms                           left out when there are no differences
//
//     ## Example
//     An optional paragraph, an optional block ```sh that prepares the folder /data, and a block of calculations, each
//     with its result below it after "→": a text in quotes, a number as digits, a timestamp as YYYY-MM-DDTHH:MM:SS.
#pragma once

#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace fmxhost::reference {

// A text that breaks the structure. what() is one line of UTF-8 that names the text.
class TextError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// All texts are UTF-8; those of several paragraphs are Markdown.
struct Parameter {
    std::string name;
    std::string type;
    bool optional = false;
    std::string meaning;
};

enum class ExtendedText { none, given, system };

struct ErrorCase {
    int code = 0;
    ExtendedText extension = ExtendedText::none;
    std::string extended; // for ExtendedText::given
    std::string when;
};

struct ExampleStep {
    std::string calculation;
    std::string result; // as written after the arrow
};

struct Example {
    std::string note;
    std::string setup; // commands for sh
    std::vector<ExampleStep> steps;
};

struct FunctionText {
    std::string name;
    std::string purpose;
    std::string chapter; // its title
    std::vector<Parameter> parameters;
    std::string result;
    std::vector<ErrorCase> errors;
    std::string errorNote; // what stands beside the list of errors
    std::string platforms; // empty: no differences
    Example example;
};

// `name` of the function whose text `source` is.
// Errors: TextError.
FunctionText parseFunctionText(std::string_view name, std::string_view source);

// The text's lines without their line ends, and the text without blank lines around it.
std::vector<std::string_view> linesOf(std::string_view text);
std::string trimmed(std::string_view text);

} // namespace fmxhost::reference
