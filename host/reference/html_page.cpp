#include "host/reference/joined.h"
#include "host/reference/markup.h"
#include "host/reference/reference.h"

namespace fmxhost::reference {

namespace {

std::string parameterTable(const std::vector<Parameter>& parameters)
{
    if (parameters.empty()) {
        return {};
    }
    std::string html = "<h4>Parameters</h4>\n<dl class=\"parameters\">\n";
    for (const Parameter& parameter : parameters) {
        html += joined("<dt><code>", escaped(parameter.name), "</code> <span class=\"type\">", escaped(parameter.type),
                       parameter.optional ? ", optional" : "", "</span></dt>\n<dd>", inlineHtml(parameter.meaning),
                       "</dd>\n");
    }
    return html + "</dl>\n";
}

std::string messageHtml(const std::string& message)
{
    return joined("<span class=\"message\">&quot;", escaped(message), "&quot;</span>");
}

std::string errorTable(const FunctionText& text)
{
    std::string html = "<h4>Errors</h4>\n";
    if (!text.errors.empty()) {
        html += "<table class=\"errors\">\n<thead><tr><th scope=\"col\">Code</th><th scope=\"col\">Message and cause"
                "</th></tr></thead>\n<tbody>\n";
        for (const ErrorCase& error : text.errors) {
            html += joined("<tr><td class=\"number\">", std::to_string(error.code), "</td><td>",
                           messageHtml(lastErrorText(error)), " ", inlineHtml(error.when), "</td></tr>\n");
        }
        html += "</tbody>\n</table>\n";
    }
    return html + blockHtml(text.errorNote);
}

std::string exampleBlock(const Example& example)
{
    std::string html = joined("<h4>Example</h4>\n", blockHtml(example.note));
    if (!example.setup.empty()) {
        html += joined("<pre class=\"setup\" tabindex=\"0\" aria-label=\"Preparation\"><code>", escaped(example.setup),
                       "</code></pre>\n");
    }
    html += "<pre tabindex=\"0\" aria-label=\"Calculations and results\"><code>";
    for (const ExampleStep& step : example.steps) {
        html += joined(escaped(step.calculation), "\n<span class=\"result\">→ ", escaped(step.result), "</span>\n");
    }
    html.pop_back();
    return html + "</code></pre>\n";
}

std::string functionSection(const Entry& entry)
{
    const FunctionText& text = entry.text;
    return joined("<section class=\"function\" id=\"", text.name, "\" data-words=\"", escaped(entry.words),
                  "\">\n<a id=\"id=", std::to_string(entry.id), "\"></a><h3><a href=\"#", text.name, "\">", text.name,
                  "</a></h3>\n<pre class=\"prototype\" tabindex=\"0\"><code>", escaped(entry.prototype),
                  "</code></pre>\n", blockHtml(text.purpose), parameterTable(text.parameters), "<h4>Result</h4>\n",
                  blockHtml(text.result), errorTable(text), "<h4>Platforms</h4>\n", blockHtml(platformsOf(text)),
                  exampleBlock(text.example), "</section>\n");
}

std::string messageTable(const std::vector<Message>& messages)
{
    std::string html = "<table class=\"errors\">\n<thead><tr><th scope=\"col\">Code</th><th scope=\"col\">Message</th>"
                       "</tr></thead>\n<tbody>\n";
    for (const Message& message : messages) {
        html += joined("<tr><td class=\"number\">", std::to_string(message.code), "</td><td>",
                       messageHtml(message.text), "</td></tr>\n");
    }
    return html + "</tbody>\n</table>\n";
}

std::string chapterOpening(std::string_view title)
{
    return joined("<section class=\"chapter\" id=\"", slug(title), "\">\n<h2>", escaped(title), "</h2>\n");
}

std::string content(const Reference& reference)
{
    std::string html = blockHtml(reference.introduction);
    for (const Chapter& chapter : reference.chapters) {
        html += joined(chapterOpening(chapter.title), blockHtml(chapter.text));
        for (const Entry& entry : chapter.functions) {
            html += functionSection(entry);
        }
        html += "</section>\n";
    }
    return joined(html, chapterOpening(messagesTitle), blockHtml(messagesIntroduction),
                  messageTable(reference.messages), "</section>\n");
}

std::string listItem(std::string_view target, std::string_view text)
{
    return joined("<li><a href=\"#", target, "\">", escaped(text), "</a></li>\n");
}

std::string navigation(const Reference& reference)
{
    std::string pages;
    std::string groups;
    for (const Chapter& chapter : reference.chapters) {
        if (chapter.functions.empty()) {
            pages += listItem(slug(chapter.title), chapter.title);
            continue;
        }
        groups += joined("<h2><a href=\"#", slug(chapter.title), "\">", escaped(chapter.title), "</a></h2>\n<ul>\n");
        for (const Entry& entry : chapter.functions) {
            groups += listItem(entry.text.name, entry.text.name);
        }
        groups += "</ul>\n";
    }
    return joined("<ul>\n", pages, listItem(slug(messagesTitle), messagesTitle), "</ul>\n", groups);
}

} // namespace

std::string htmlPage(const Reference& reference, std::string_view pageTemplate)
{
    std::string page(pageTemplate);
    const auto fill = [&page](const std::string& mark, const std::string& text) {
        for (std::size_t at = 0; (at = page.find(mark, at)) != std::string::npos; at += text.size()) {
            page.replace(at, mark.size(), text);
        }
    };
    fill("{{title}}", escaped(reference.title));
    fill("{{navigation}}", navigation(reference));
    fill("{{content}}", content(reference));
    return page;
}

} // namespace fmxhost::reference
