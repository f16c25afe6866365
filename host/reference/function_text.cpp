#include "host/reference/function_text.h"

#include <charconv>
#include <map>
#include <optional>
#include <utility>

namespace fmxhost::reference {

namespace {

constexpr std::string_view sectionMark = "## ";
constexpr std::string_view itemMark = "- ";
constexpr std::string_view fence = "```";
constexpr std::string_view resultMark = "→ ";
constexpr std::string_view systemMark = "…";

class Parser {
public:
    Parser(std::string_view name, std::string_view source) : m_name(name), m_source(source) {}

    FunctionText run()
    {
        splitIntoSections();
        FunctionText text;
        text.name = m_name;
        text.purpose = take("");
        text.chapter = take("Chapter");
        text.parameters = parameters(take("Parameters"));
        text.result = take("Result");
        text.errorNote = errors(take("Errors"), text.errors);
        text.platforms = take("Platforms");
        text.example = example(take("Example"));
        if (!m_sections.empty()) {
            fail("unknown section \"" + m_sections.begin()->first + "\"");
        }
        if (text.purpose.empty() || text.result.empty() || (text.errors.empty() && text.errorNote.empty())) {
            fail("purpose, result or errors are missing");
        }
        return text;
    }

private:
    [[noreturn]] void fail(const std::string& reason) const { throw TextError(std::string(m_name) + ": " + reason); }

    void splitIntoSections()
    {
        std::string heading;
        std::map<std::string, std::string> sections;
        for (const std::string_view line : linesOf(m_source)) {
            if (line.starts_with(sectionMark)) {
                heading = line.substr(sectionMark.size());
                if (sections.contains(heading)) {
                    fail("section \"" + heading + "\" stands twice");
                }
                sections[heading];
            } else {
                sections[heading].append(line).append("\n");
            }
        }
        m_sections = std::move(sections);
    }

    std::string take(const std::string& heading)
    {
        const auto node = m_sections.extract(heading);
        return node.empty() ? std::string() : trimmed(node.mapped());
    }

    std::vector<Parameter> parameters(const std::string& section) const
    {
        std::vector<Parameter> list;
        for (const std::string_view line : linesOf(section)) {
            const std::size_t open = line.find(" (");
            const std::size_t close = line.find("): ");
            if (!line.starts_with(itemMark) || open == line.npos || close == line.npos || close < open) {
                fail("a parameter is written \"- name (type): meaning\"");
            }
            constexpr std::string_view optional = ", optional";
            Parameter parameter;
            parameter.name = line.substr(itemMark.size(), open - itemMark.size());
            parameter.type = line.substr(open + 2, close - open - 2);
            parameter.meaning = line.substr(close + 3);
            parameter.optional = parameter.type.ends_with(optional);
            if (parameter.optional) {
                parameter.type.resize(parameter.type.size() - optional.size());
            }
            list.push_back(std::move(parameter));
        }
        return list;
    }

    // Fills the list and answers the section's other paragraphs.
    std::string errors(const std::string& section, std::vector<ErrorCase>& list) const
    {
        std::string note;
        for (const std::string_view line : linesOf(section)) {
            if (line.starts_with(itemMark)) {
                list.push_back(errorCase(line.substr(itemMark.size())));
            } else {
                note.append(line).append("\n");
            }
        }
        return trimmed(note);
    }

    ErrorCase errorCase(std::string_view item) const
    {
        ErrorCase error;
        const auto [end, failure] = std::from_chars(item.data(), item.data() + item.size(), error.code);
        item.remove_prefix(static_cast<std::size_t>(end - item.data()));
        if (failure != std::errc()) {
            fail("an error begins with its code");
        }
        if (item.starts_with(" \"")) {
            const std::size_t close = item.find('"', 2);
            if (close == item.npos) {
                fail("an extended text has no end");
            }
            error.extension = ExtendedText::given;
            error.extended = withLineEnds(item.substr(2, close - 2));
            item.remove_prefix(close + 1);
        } else if (item.starts_with(" ") && item.substr(1).starts_with(systemMark)) {
            error.extension = ExtendedText::system;
            item.remove_prefix(1 + systemMark.size());
        }
        if (!item.starts_with(": ")) {
            fail("an error is written \"- code: when\"");
        }
        error.when = item.substr(2);
        return error;
    }

    static std::string withLineEnds(std::string_view text)
    {
        std::string answer;
        for (std::size_t mark = text.find("\\n"); mark != text.npos; mark = text.find("\\n")) {
            answer.append(text.substr(0, mark)).append("\n");
            text.remove_prefix(mark + 2);
        }
        return answer.append(text);
    }

    Example example(const std::string& section) const
    {
        Example answer;
        std::string* block = &answer.note;
        std::string calculations;
        for (const std::string_view line : linesOf(section)) {
            if (line.starts_with(fence)) {
                const bool opens = block == &answer.note;
                std::string* const opened = line == "```sh" ? &answer.setup : &calculations;
                block = opens ? opened : &answer.note;
            } else {
                block->append(line).append("\n");
            }
        }
        answer.note = trimmed(answer.note);
        answer.setup = trimmed(answer.setup);
        answer.steps = steps(calculations);
        return answer;
    }

    std::vector<ExampleStep> steps(const std::string& block) const
    {
        std::vector<ExampleStep> list;
        std::optional<std::string> calculation;
        for (const std::string_view line : linesOf(block)) {
            if (line.starts_with(resultMark) != calculation.has_value()) {
                fail("in an example, calculations and results alternate");
            }
            if (calculation) {
                list.push_back({*calculation, std::string(line.substr(resultMark.size()))});
                calculation.reset();
            } else {
                calculation = line;
            }
        }
        if (list.empty() || calculation) {
            fail("the example has no calculation, or its last one no result");
        }
        return list;
    }

    std::string_view m_name;
    std::string_view m_source;
    std::map<std::string, std::string> m_sections; // by heading; what stands before the first one has none
};

} // namespace

FunctionText parseFunctionText(std::string_view name, std::string_view source)
{
    return Parser(name, source).run();
}

std::vector<std::string_view> linesOf(std::string_view text)
{
    std::vector<std::string_view> lines;
    while (!text.empty()) {
        const std::size_t end = text.find('\n');
        lines.push_back(text.substr(0, end));
        text.remove_prefix(end == text.npos ? text.size() : end + 1);
    }
    return lines;
}

std::string trimmed(std::string_view text)
{
    const std::size_t first = text.find_first_not_of('\n');
    if (first == text.npos) {
        return {};
    }
    return std::string(text.substr(first, text.find_last_not_of('\n') - first + 1));
}

} // namespace fmxhost::reference
