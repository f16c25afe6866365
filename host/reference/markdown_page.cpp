#include "host/reference/joined.h"
#include "host/reference/markup.h"
#include "host/reference/reference.h"

namespace fmxhost::reference {

namespace {

constexpr std::string_view origin =
    "<!-- Made by \"fmxhost reference\" from the plug-in and the texts in docs/reference/; changes belong there. -->";

// Inside a table "|" would end the cell.
std::string cell(std::string_view text)
{
    std::string answer;
    for (const char letter : text) {
        answer.append(letter == '|' ? "\\" : "").push_back(letter);
    }
    return answer;
}

std::string code(const std::string& text)
{
    return joined("`", text, "`");
}

std::string quotedCode(const std::string& text)
{
    return joined("`\"", text, "\"`");
}

std::string block(std::string_view language, const std::string& text)
{
    return joined("```", language, "\n", text, "\n```\n\n");
}

std::string paragraph(std::string_view text)
{
    return text.empty() ? std::string() : joined(text, "\n\n");
}

std::string parameterTable(const std::vector<Parameter>& parameters)
{
    if (parameters.empty()) {
        return {};
    }
    std::string table = "**Parameters**\n\n| Name | Type | Meaning |\n|---|---|---|\n";
    for (const Parameter& parameter : parameters) {
        table += joined("| ", code(parameter.name), " | ", parameter.type, parameter.optional ? ", optional" : "",
                        " | ", cell(parameter.meaning), " |\n");
    }
    return table + "\n";
}

std::string errorTable(const FunctionText& text)
{
    std::string table = "**Errors**\n\n";
    if (!text.errors.empty()) {
        table += "| Code | `KORB_GetLastError` | When |\n|---|---|---|\n";
    }
    for (const ErrorCase& error : text.errors) {
        table += joined("| ", std::to_string(error.code), " | ", quotedCode(lastErrorText(error)), " | ",
                        cell(error.when), " |\n");
    }
    return joined(table, text.errors.empty() ? "" : "\n", paragraph(text.errorNote));
}

std::string exampleBlock(const Example& example)
{
    std::string text = joined("**Example**\n\n", paragraph(example.note));
    if (!example.setup.empty()) {
        text += block("sh", example.setup);
    }
    std::string calculations;
    for (const ExampleStep& step : example.steps) {
        calculations += joined(step.calculation, "\n→ ", step.result, "\n");
    }
    calculations.pop_back();
    return text + block("", calculations);
}

std::string functionSection(const Entry& entry)
{
    const FunctionText& text = entry.text;
    return joined("### ", text.name, "\n\n", block("", entry.prototype), paragraph(text.purpose),
                  parameterTable(text.parameters), "**Result**\n\n", paragraph(text.result), errorTable(text),
                  "**Platforms**\n\n", paragraph(platformsOf(text)), exampleBlock(text.example));
}

std::string functionTable(const std::vector<Entry>& functions)
{
    if (functions.empty()) {
        return {};
    }
    std::string table = "| Function | |\n|---|---|\n";
    for (const Entry& entry : functions) {
        table +=
            joined("| [", code(entry.text.name), "](#", slug(entry.text.name), ") | ", cell(entry.summary), " |\n");
    }
    return table + "\n";
}

} // namespace

std::string markdownPage(const Reference& reference)
{
    std::string page = joined("# ", reference.title, "\n\n", origin, "\n\n", paragraph(reference.introduction));
    for (const Chapter& chapter : reference.chapters) {
        page += joined("## ", chapter.title, "\n\n", paragraph(chapter.text), functionTable(chapter.functions));
        for (const Entry& entry : chapter.functions) {
            page += functionSection(entry);
        }
    }
    page += joined("## ", messagesTitle, "\n\n", paragraph(messagesIntroduction), "| Code | Message |\n|---|---|\n");
    for (const Message& message : reference.messages) {
        page += joined("| ", std::to_string(message.code), " | ", quotedCode(message.text), " |\n");
    }
    return page;
}

} // namespace fmxhost::reference
