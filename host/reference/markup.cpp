#include "host/reference/markup.h"

#include "host/reference/function_text.h"
#include "host/reference/joined.h"

#include <algorithm>
#include <utility>

namespace fmxhost::reference {

namespace {

constexpr std::string_view fence = "```";

std::string codeHtml(std::string_view code)
{
    const bool isFunction = code.starts_with("KORB_") && code.find_first_of(" (") == code.npos;
    const std::string html = joined("<code>", escaped(code), "</code>");
    return isFunction ? joined("<a href=\"#", code, "\">", html, "</a>") : html;
}

// "[text](target)" at the start of `text`: its length, 0 when there is none.
std::size_t linkLength(std::string_view text)
{
    const std::size_t middle = text.find("](");
    const std::size_t end = text.find(')', middle == text.npos ? middle : middle + 2);
    const bool isLink = text.starts_with("[") && middle != text.npos && end != text.npos &&
                        text.substr(0, middle).find_first_of("\n;") == text.npos;
    return isLink ? end + 1 : 0;
}

std::string linkHtml(std::string_view link)
{
    const std::size_t middle = link.find("](");
    return joined("<a href=\"", escaped(link.substr(middle + 2, link.size() - middle - 3)), "\">",
                  escaped(link.substr(1, middle - 1)), "</a>");
}

// "| a | b |" as a row of a table.
std::string rowHtml(std::string_view line, std::string_view tag)
{
    std::string html = "<tr>";
    for (line.remove_prefix(2); !line.empty();) {
        const std::size_t end = std::min(line.find(" |"), line.size());
        html += joined("<", tag, ">", inlineHtml(line.substr(0, end)), "</", tag.substr(0, 2), ">");
        line.remove_prefix(std::min(end + 3, line.size()));
    }
    return html + "</tr>\n";
}

class BlockWriter {
public:
    std::string run(std::string_view text)
    {
        for (const std::string_view line : linesOf(text)) {
            if (line.starts_with(fence)) {
                endBlock();
                m_inCode = !m_inCode;
            } else if (m_inCode) {
                m_code.append(line).append("\n");
            } else if (line.empty()) {
                endBlock();
            } else if (line.starts_with("|")) {
                addRow(line);
            } else {
                m_paragraph.append(line).append("\n");
            }
        }
        endBlock();
        return std::move(m_html);
    }

private:
    void addRow(std::string_view line)
    {
        if (!line.starts_with("|-")) {
            m_rows += rowHtml(line, m_rows.empty() ? "th scope=\"col\"" : "td");
        }
    }

    void endBlock()
    {
        if (!m_paragraph.empty()) {
            m_html += joined("<p>", inlineHtml(trimmed(m_paragraph)), "</p>\n");
        }
        if (!m_rows.empty()) {
            m_html += joined("<table>\n", m_rows, "</table>\n");
        }
        if (!m_code.empty()) {
            m_html += joined("<pre tabindex=\"0\"><code>", escaped(trimmed(m_code)), "</code></pre>\n");
        }
        m_paragraph.clear();
        m_rows.clear();
        m_code.clear();
    }

    std::string m_html;
    std::string m_paragraph;
    std::string m_rows;
    std::string m_code;
    bool m_inCode = false;
};

} // namespace

std::string escaped(std::string_view text)
{
    std::string html;
    for (const char letter : text) {
        switch (letter) {
        case '&':
            html += "&amp;";
            break;
        case '<':
            html += "&lt;";
            break;
        case '>':
            html += "&gt;";
            break;
        case '"':
            html += "&quot;";
            break;
        default:
            html.push_back(letter);
        }
    }
    return html;
}

std::string inlineHtml(std::string_view text)
{
    std::string html;
    bool strong = false;
    while (!text.empty()) {
        const std::size_t codeEnd = text.starts_with("`") ? text.find('`', 1) : text.npos;
        const std::size_t link = linkLength(text);
        std::size_t used = 1;
        if (codeEnd != text.npos) {
            html += codeHtml(text.substr(1, codeEnd - 1));
            used = codeEnd + 1;
        } else if (text.starts_with("**")) {
            html += strong ? "</strong>" : "<strong>";
            strong = !strong;
            used = 2;
        } else if (link != 0) {
            html += linkHtml(text.substr(0, link));
            used = link;
        } else {
            html += escaped(text.substr(0, 1));
        }
        text.remove_prefix(used);
    }
    return html;
}

std::string blockHtml(std::string_view text)
{
    return BlockWriter().run(text);
}

std::string slug(std::string_view heading)
{
    std::string answer;
    for (const char letter : heading) {
        if (letter >= 'A' && letter <= 'Z') {
            answer.push_back(static_cast<char>(letter - 'A' + 'a'));
        } else if ((letter >= 'a' && letter <= 'z') || (letter >= '0' && letter <= '9') || letter == '_') {
            answer.push_back(letter);
        } else if (letter == ' ' || letter == '-') {
            answer.push_back('-');
        }
    }
    return answer;
}

} // namespace fmxhost::reference
