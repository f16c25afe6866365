#!/usr/bin/env python3
"""Makes the reference of the functions, as Markdown and as one web page, and the recipes as script steps to paste.

The functions come from the plug-in, what they do from docs/reference/, the recipes from docs/recipes.md, and the errors'
texts from the plug-in's own table. Needs markdown-it-py (Debian: python3-markdown-it).

Called as: reference.py FMXHOST PLUGIN ERROR-TEXTS DOCS [DESTINATION]; without a destination it is DOCS.
"""

import json
import re
import subprocess
import sys
from collections import defaultdict
from html import escape
from pathlib import Path

from markdown_it import MarkdownIt

import function_texts
import snippets
import strings_table

ORIGIN = "<!-- Made by tools/reference.py from the plug-in and the texts in docs/reference/; changes belong there. -->"
LOWEST_CODE = -9999
ERRORS = """## Error codes

Each code with its message, as `KORB_GetLastError` returns it when nothing is added, and the
functions that give it."""
UNUSED = """These have messages too, but no function gives them today."""


class Plugin:
    """What the plug-in registers, and what it says of errors."""

    def __init__(self, fmxhost, plugin, error_texts):
        self.error_texts = error_texts
        self.version, listed = (
            subprocess.run([fmxhost, "--plugin", plugin, *words], check=True, capture_output=True, text=True).stdout
            for words in (["-e", 'KORB_Version("short")'], ["--json", "list"])
        )
        self.functions = [json.loads(line) for line in listed.splitlines()]

    def last_error_texts(self, cases):
        """The answers of KORB_GetLastError after errors, given as (code, extended text or None)."""
        asked = "".join(str(code) + ("" if extended is None else " " + extended.replace("…", "")) + "\n" for code, extended in cases)
        answers = subprocess.run([self.error_texts], input=asked, check=True, capture_output=True, text=True).stdout.splitlines()
        return [answer + "…" * (extended == "…") for answer, (_, extended) in zip(answers, cases)]


def slug(heading):
    """What a heading is reached by, in Markdown's usual way."""
    return re.sub(r"[^a-z0-9_ -]", "", heading.lower()).replace(" ", "-")


def require_same_parameters(function, text):
    names = re.findall(r"\w+", function["prototype"].partition("(")[2])
    required = len(re.findall(r"\w+", function["prototype"].partition("(")[2].partition("{")[0]))
    described = [(p["name"], bool(p["optional"])) for p in text.parameters]
    if described != [(name, at >= required) for at, name in enumerate(names)] or (required, len(names)) != (
        function["min"], function["max"]):
        raise function_texts.TextError(f"{text.name}: text, prototype and registry disagree about the parameters")


def cell(text):
    """Inside a table "|" would end the cell."""
    return text.replace("|", "\\|")


def code(text):
    return f"`{text}`"


def table(heading, rows):
    lines = [heading, ["---"] * len(heading), *rows]
    return "\n".join("| " + " | ".join(line) + " |" for line in lines)


def block(content, language=""):
    return f"```{language}\n{content.rstrip()}\n```"


class Reference:
    def __init__(self, plugin, docs):
        self.plugin = plugin
        texts = function_texts.read(docs / "reference")
        names = [function["name"] for function in plugin.functions]
        if set(names) != set(texts):
            raise function_texts.TextError(f"registered or described alone: {', '.join(sorted(set(names) ^ set(texts)))}")
        (_, opening), *self.chapters = function_texts.sections_of((docs / "reference/index.md").read_text("utf-8"))
        self.title = opening.splitlines()[0].removeprefix("# ").replace("VERSION", plugin.version.strip())
        self.introduction = opening.partition("\n")[2].strip()
        self.by_chapter = defaultdict(list)
        for function in plugin.functions:
            text = texts[function["name"]]
            require_same_parameters(function, text)
            self.by_chapter[text.chapter].append((function, text))
        if unknown := set(self.by_chapter) - {title for title, _ in self.chapters}:
            raise function_texts.TextError(f"index.md has no chapter {', '.join(unknown)}")
        self.recipes_text = (docs / "recipes.md").read_text("utf-8")
        self.recipes = [recipe for recipe in function_texts.sections_of(self.recipes_text) if "```filemaker" in recipe[1]]
        self.read_translations(docs.parent / "resources")
        self.ask_for_error_texts(texts.values())

    def read_translations(self, resources):
        """{prototype: {language: words to find the function by and what it does}}"""
        self.translations = defaultdict(dict)
        for language, table in strings_table.read_tables(resources).items():
            for number, prototype in table.items():
                if description := table.get(number + strings_table.DESCRIPTION_OFFSET):
                    self.translations[prototype][language] = description

    def ask_for_error_texts(self, texts):
        cases = [(case.code, case.extended) for text in texts for case in text.errors]
        codes = [(number, None) for number in range(-1, LOWEST_CODE - 1, -1)]
        answers = self.plugin.last_error_texts(cases + codes)
        self.message_of = dict(zip(cases + codes, answers))
        unknown = answers[-1]
        self.messages = {number: text for (number, _), text in zip(codes, answers[len(cases) :]) if text != unknown}
        self.given_by = defaultdict(list)
        for chapter, _ in self.chapters:
            for _, text in self.by_chapter[chapter]:
                for number in dict.fromkeys(case.code for case in text.errors if case.occurs):
                    self.given_by[number].append(text.name)

    def overview(self):
        """The functions by subject, each on a line."""
        parts = ["## Overview"]
        for title, _ in self.chapters:
            if functions := self.by_chapter[title]:
                rows = [(f"[{code(text.name)}](#{slug(text.name)})", cell(self.summary(function))) for function, text in functions]
                parts += [f"**[{title}](#{slug(title)})**", table(("Function", "What it does"), rows)]
        return "\n\n".join(parts)

    @staticmethod
    def summary(function):
        """The first clause of "words to find it by|what it does"."""
        return re.split(r"(?<=[.]) |(?<=[^:]): |; ", function["description"].partition("|")[2])[0].rstrip(".") + "."

    def function(self, function, text):
        parts = [f"### {text.name}", block(function["prototype"]), text.purpose]
        if text.parameters:
            rows = [(code(p["name"]), p["type"] + (p["optional"] or ""), cell(p["meaning"])) for p in text.parameters]
            parts += ["#### Parameters", table(("Name", "Type", "Meaning"), rows)]
        parts += ["#### Result", text.result, "#### Errors"]
        if text.errors:
            rows = [(f"[{case.code}](#{case.code})", code(f'"{self.message_of[case.code, case.extended]}"'), cell(case.when))
                    for case in text.errors]
            parts.append(table(("Code", "`KORB_GetLastError`", "When"), rows))
        parts += [text.error_note, "#### Platforms", text.platforms, "#### Example", text.example.note]
        if text.example.setup:
            parts.append(block(text.example.setup, "sh"))
        parts.append(block("".join(f"{calculation}\n→ {result}\n" for calculation, result in text.example.steps)))
        uses = [f"[{title}](recipes.md#{slug(title)})" for title, recipe in self.recipes if re.search(rf"\b{text.name}\b", recipe)]
        places = [f"[{title}](#{slug(title)})" for title in self.general(text)]
        parts.append("**See also:** " + ", ".join(places + uses))
        return "\n\n".join(part for part in parts if part)

    def general(self, text):
        """The chapters that whoever calls the function should know."""
        takes_path = any(re.search(r"\b(path|drive|volume)\b", p["meaning"]) for p in text.parameters)
        archive = text.chapter == "Compression and encryption"
        return (["Paths"] * takes_path + ["Quotes and bars"] * archive + ["Where a call runs"])

    def givers(self, number):
        """The functions that give the code, or, where they are most, those that don't."""
        others = [function["name"] for function in self.plugin.functions if function["name"] not in self.given_by[number]]
        all_but = len(others) < len(self.given_by[number])
        links = ", ".join(f"[{name}](#{slug(name)})" for name in (others if all_but else self.given_by[number]))
        return "all but " * all_but + links

    def error_row(self, number):
        return f'<a id="{number}"></a>{number}', code(f'"{self.messages[number]}"')

    def errors(self):
        given = [(*self.error_row(number), self.givers(number)) for number in self.messages if self.given_by[number]]
        unused = [self.error_row(number) for number in self.messages if not self.given_by[number]]
        return "\n\n".join([ERRORS, table(("Code", "Message", "Given by"), given), UNUSED, table(("Code", "Message"), unused)])

    def markdown(self):
        parts = [f"# {self.title}", ORIGIN, self.introduction, self.overview()]
        for title, text in self.chapters:
            parts += [f"## {title}", text, *(self.function(*entry) for entry in self.by_chapter[title])]
        return "\n\n".join(part for part in [*parts, self.errors()] if part) + "\n"

    def html(self, page_template):
        page = Page(set(re.findall(r"^#+ (.*)$", "\n".join([self.markdown(), self.recipes_text]), re.M)) | {"Recipes", "content"},
                    {str(number) for number in self.messages})
        content = [page.chapter("Overview", self.overview().partition("\n")[2])]
        groups = [("", ["Overview"])]
        for title, text in self.chapters:
            functions = [page.function(function, self.function(function, text), self.translations[function["prototype"]])
                         for function, text in self.by_chapter[title]]
            content.append(page.chapter(title, text, functions))
            if functions:
                groups.append((title, [text.name for _, text in self.by_chapter[title]]))
            else:
                groups[0][1].append(title)
        recipes = [page.recipe(title, text) for title, text in self.recipes]
        opening = function_texts.sections_of(self.recipes_text)[0][1].partition("\n")[2]
        content += [page.chapter("Recipes", opening, recipes), page.chapter("Error codes", self.errors().partition("\n")[2])]
        groups[0][1].append("Error codes")
        groups.append(("Recipes", [title for title, _ in self.recipes]))
        parts = {"title": escape(self.title), "opening": page.render(self.introduction), "navigation": navigation(groups), "content": "".join(content)}
        return re.sub(r"\{\{(\w+)\}\}", lambda mark: parts[mark[1]], page_template)


def navigation(groups):
    """Lists of links, a heading over each but the first."""
    html = ""
    for title, entries in groups:
        heading = f'<h2><a href="#{slug(title)}">{escape(title)}</a></h2>\n' if title else ""
        items = "".join(f'<li><a href="#{slug(entry)}">{escape(entry)}</a></li>\n' for entry in entries)
        html += f"{heading}<ul>\n{items}</ul>\n"
    return html


class Page:
    """Markdown as parts of the web page, which is one file: of a link that leads out of it the file's name is left."""

    def __init__(self, headings, codes):
        self.places = {slug(heading) for heading in headings} | codes
        self.names = {heading for heading in headings if heading.startswith("KORB_")}
        self.markdown = MarkdownIt("commonmark", {"html": True}).enable("table")
        self.markdown.renderer.rules |= {
            "code_inline": self.code, "fence": self.fence, "link_open": self.link, "link_close": self.link_end}
        self.closing = []

    def render(self, text):
        return self.markdown.render(text)

    def link(self, tokens, index, *_):
        pages = {"functions.md": "#content", "recipes.md": "#recipes"}
        target = re.sub(r"^(functions|recipes)\.md#", "#", tokens[index].attrGet("href"))
        target = pages.get(target, target)
        inside = target.startswith("#") and target[1:] in self.places
        file = Path(target.partition("#")[0]).name
        self.closing.append("</a>" if inside else "" if file == tokens[index + 1].content else f" (<code>{file}</code>)")
        return f'<a href="{target}">' if inside else ""

    def link_end(self, *_):
        return self.closing.pop()

    def code(self, tokens, index, *_):
        text = tokens[index].content
        html = f"<code>{escape(text)}</code>"
        inside_link = any(token.type == "link_open" for token in tokens[:index]) and tokens[index - 1].type == "link_open"
        return f'<a href="#{slug(text)}">{html}</a>' if text in self.names and not inside_link else html

    def fence(self, tokens, index, *_):
        text = re.sub(r"^(→ .*)$", r'<span class="result">\1</span>', escape(tokens[index].content.rstrip()), flags=re.M)
        kind = f' class="{tokens[index].info}"' if tokens[index].info else ""
        return f'<pre{kind} tabindex="0"><code>{text}</code></pre>\n'

    def chapter(self, title, text, parts=()):
        return f'<section class="chapter" id="{slug(title)}">\n<h2>{escape(title)}</h2>\n{self.render(text)}{"".join(parts)}</section>\n'

    def part(self, kind, title, text, words="", anchor=""):
        return (f'<section class="part {kind}" id="{slug(title)}">\n{anchor}<h3><a href="#{slug(title)}">{escape(title)}</a></h3>\n'
                f"{words}{self.render(text)}</section>\n")

    def function(self, function, text, descriptions):
        # The name as a place too, in its own spelling. English descriptions say what the text does.
        anchor = f'<a id="{function["name"]}"></a>'
        words = descriptions | {"en": descriptions["en"].partition("|")[0]}
        found = [f'<p class="words" lang="{language}">{escape(description.replace("|", ": "))}</p>\n' for language, description in words.items()]
        return self.part("function", function["name"], text.partition("\n")[2], "".join(found), anchor)

    def recipe(self, title, text):
        return self.part("recipe", title, text)


def main(fmxhost, plugin, error_texts, docs, destination=None):
    docs = Path(docs)
    destination = Path(destination or docs)
    reference = Reference(Plugin(fmxhost, plugin, error_texts), docs)
    (destination / "functions.md").write_text(reference.markdown(), "utf-8")
    page_template = (docs / "reference/page.html").read_text("utf-8")
    (destination / "functions.html").write_text(reference.html(page_template), "utf-8")
    (destination / "recipes").mkdir(exist_ok=True)
    for title, text in reference.recipes:
        script = re.search(r"^```filemaker\n(.*?)^```$", text, re.M | re.S)[1]
        (destination / f"recipes/{slug(title)}.xml").write_text(snippets.snippet(script), "utf-8")


if __name__ == "__main__":
    try:
        main(*sys.argv[1:])
    except function_texts.TextError as error:
        sys.exit(f"reference: {error}")
