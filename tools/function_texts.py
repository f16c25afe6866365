"""Reads the texts of the function reference: docs/reference/<function>.md, Markdown of a fixed structure.

    What the function does, in any number of paragraphs.

    ## Chapter                             one of those in docs/reference/index.md
    ## Parameters                          left out when there are none
    - name (type): meaning
    - name (type, optional): meaning

    ## Result
    ## Errors
    - -8000: when; the message has no extended text
    - -8014 "extended text": when; \\n stands for a line end
    - -8010 …: when; the extended text is the system's own
    and paragraphs, such as "None."

    ## Platforms                           left out when there are no differences

    ## Example
    An optional paragraph, an optional block ```sh that prepares the folder /data, and a block of calculations, each
    with its result below it after "→": a text in quotes, a number as digits, a timestamp as YYYY-MM-DDTHH:MM:SS.

An item goes on in lines that begin with blanks.
"""

import re
from dataclasses import dataclass, field
from pathlib import Path

PARAMETER = re.compile(r"- (?P<name>\w+) \((?P<type>[^)]*?)(?P<optional>, optional)?\): (?P<meaning>.+)")
ERROR = re.compile(r'- (?P<code>-\d+)(?P<extension> "(?P<extended>[^"]*)"| …)?: (?P<when>.+)')
BLOCK = re.compile(r"^```(?P<language>\w*)\n(?P<content>.*?)^```$", re.M | re.S)
SECTIONS = ("Chapter", "Parameters", "Result", "Errors", "Platforms", "Example")


class TextError(Exception):
    """A text that breaks the structure; the message names it."""


@dataclass
class ErrorCase:
    code: int
    extended: str | None  # "…": the system's own
    when: str

    @property
    def occurs(self):
        return not self.when.startswith("doesn't occur")


@dataclass
class Example:
    note: str = ""
    setup: str = ""  # commands for sh
    steps: list = field(default_factory=list)  # (calculation, result as written after the arrow)


@dataclass
class FunctionText:
    name: str
    purpose: str
    chapter: str
    parameters: list  # matches of PARAMETER
    result: str
    errors: list
    error_note: str
    platforms: str
    example: Example


def sections_of(text, mark="## "):
    """[(heading, content)], first what stands before any heading."""
    headings = list(re.finditer(rf"^{mark}(.*)$", text, re.M))
    ends = [heading.start() for heading in headings] + [len(text)]
    found = [("", text[: ends[0]].strip())]
    return found + [(head[1], text[head.end() : end].strip()) for head, end in zip(headings, ends[1:])]


def items_of(name, section, pattern, form):
    """The matches of the section's list items, and its other paragraphs."""
    joined = re.sub(r"\n +", " ", section)
    items, rest = [], []
    for line in joined.splitlines():
        if not line.startswith("- "):
            rest.append(line)
        elif match := pattern.fullmatch(line):
            items.append(match)
        else:
            raise TextError(f"{name}: written as {form} must be: {line}")
    return items, "\n".join(rest).strip()


def example_of(name, section):
    example = Example(note=BLOCK.sub("", section).strip())
    lines = []
    for block in BLOCK.finditer(section):
        if block["language"] == "sh":
            example.setup = block["content"]
        else:
            lines += block["content"].splitlines()
    results = [line.removeprefix("→ ") for line in lines[1::2] if line.startswith("→ ")]
    example.steps = list(zip(lines[::2], results))
    if not lines or 2 * len(results) != len(lines) or any(line.startswith("→") for line in lines[::2]):
        raise TextError(f"{name}: in an example, calculations and results alternate")
    return example


def parse(name, text):
    found = sections_of(text)
    sections = dict(found)
    unknown = [heading for heading in sections if heading and heading not in SECTIONS]
    if unknown or len(sections) != len(found):
        raise TextError(f"{name}: a section is unknown or stands twice: {', '.join(unknown) or 'twice'}")
    parameters, stray = items_of(name, sections.get("Parameters", ""), PARAMETER, '"- name (type): meaning"')
    cases, note = items_of(name, sections.get("Errors", ""), ERROR, '"- code: when"')
    errors = []
    for case in cases:
        extended = "…" if case["extension"] == " …" else case["extended"]
        errors.append(ErrorCase(int(case["code"]), extended, case["when"]))
    if stray or not (sections[""] and sections.get("Chapter") and sections.get("Result") and (errors or note)):
        raise TextError(f"{name}: purpose, chapter, result or errors are missing, or parameters are no list")
    return FunctionText(name, sections[""], sections["Chapter"], parameters, sections["Result"], errors, note,
                        sections.get("Platforms") or "The same on macOS and Linux.",
                        example_of(name, sections.get("Example", "")))


def read(folder):
    """{name: text} of every function described in the folder."""
    return {path.stem: parse(path.stem, path.read_text("utf-8")) for path in sorted(Path(folder).glob("KORB_*.md"))}
