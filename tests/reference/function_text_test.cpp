#include "host/reference/function_text.h"
#include "host/reference/markup.h"

#include <gtest/gtest.h>

namespace {

using namespace fmxhost::reference;

constexpr std::string_view rest = "\n## Result\nText.\n\n## Errors\nNone.\n\n## Example\n```\nF\n→ 1\n```\n";

std::string refusal(const std::string& source)
{
    try {
        parseFunctionText("F", source);
        return "accepted";
    } catch (const TextError& error) {
        return error.what();
    }
}

TEST(FunctionText, WhatBreaksTheStructureIsNamed)
{
    const std::string purpose = "Does it.\n";
    EXPECT_EQ(refusal(purpose + std::string(rest)), "accepted");
    const std::pair<std::string, std::string> cases[] = {
        {std::string(rest), "F: purpose, result or errors are missing"},
        {purpose + "## Resutl\nText.\n" + std::string(rest), "F: unknown section \"Resutl\""},
        {purpose + "## Result\nText.\n" + std::string(rest), "F: section \"Result\" stands twice"},
        {purpose + "## Parameters\n- path text: it\n" + std::string(rest),
         "F: a parameter is written \"- name (type): meaning\""},
        {purpose + "## Result\n0\n## Errors\n- missing: it\n", "F: an error begins with its code"},
        {purpose + "## Result\n0\n## Errors\n- -3 it\n", "F: an error is written \"- code: when\""},
        {purpose + "## Result\n0\n## Errors\n- -3 \"it\n", "F: an extended text has no end"},
        {purpose + "## Result\n0\n## Errors\nNone.\n## Example\n```\nF\nF\n→ 1\n```\n",
         "F: in an example, calculations and results alternate"},
        {purpose + "## Result\n0\n## Errors\nNone.\n", "F: the example has no calculation, or its last one no result"},
    };
    for (const auto& [source, message] : cases) {
        EXPECT_EQ(refusal(source), message) << source;
    }
}

TEST(FunctionText, ErrorsKeepTheirExtendedTexts)
{
    const auto text =
        parseFunctionText("F", "Does it.\n## Result\n0\n## Errors\n- -1: a\n- -2 \"\": b\n- -3 \"x\\ny\": c\n"
                               "- -4 …: d\n\nAnd more.\n## Example\n```\nF\n→ 1\n```\n");
    ASSERT_EQ(text.errors.size(), 4U);
    EXPECT_EQ(text.errors[0].extension, ExtendedText::none);
    EXPECT_EQ(text.errors[1].extension, ExtendedText::given);
    EXPECT_EQ(text.errors[1].extended, "");
    EXPECT_EQ(text.errors[2].extended, "x\ny");
    EXPECT_EQ(text.errors[3].extension, ExtendedText::system);
    EXPECT_EQ(text.errors[3].when, "d");
    EXPECT_EQ(text.errorNote, "And more.");
}

TEST(Markup, MarksBecomeElementsAndTheRestIsEscaped)
{
    const std::pair<std::string_view, std::string_view> cases[] = {
        {"a < b & `c > \"d\"`", "a &lt; b &amp; <code>c &gt; &quot;d&quot;</code>"},
        {"**b** `KORB_Version`", "<strong>b</strong> <a href=\"#KORB_Version\"><code>KORB_Version</code></a>"},
        {"[here](#there) [ a ; b ]", "<a href=\"#there\">here</a> [ a ; b ]"},
        {"an open ` stays", "an open ` stays"},
    };
    for (const auto& [source, html] : cases) {
        EXPECT_EQ(inlineHtml(source), html);
    }
    EXPECT_EQ(blockHtml("a\nb\n\n```\nx < y\n\nz\n```\nc"),
              "<p>a\nb</p>\n<pre tabindex=\"0\"><code>x &lt; y\n\nz</code></pre>\n<p>c</p>\n");
}

TEST(Markup, TablesHaveAHeadingRow)
{
    EXPECT_EQ(blockHtml("| A | B |\n|---|---|\n| `x` | y < z |\n"),
              "<table>\n<tr><th scope=\"col\">A</th><th scope=\"col\">B</th></tr>\n"
              "<tr><td><code>x</code></td><td>y &lt; z</td></tr>\n</table>\n");
}

} // namespace
