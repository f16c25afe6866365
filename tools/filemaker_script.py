"""Reads scripts in the notation that FileMaker prints them in, as the documentation uses it."""

import re
from typing import NamedTuple

STEP = re.compile(r"(?P<name>[^\[]*?)\s*(?:\[ ((?P<options>.*) )?\])?")
LABEL = re.compile(r"^(Value|Text Result|Duration \(seconds\)|Source|With dialog|Target|URL|Pause|Specified|Parameter): +")


class Step(NamedTuple):
    name: str  # "#" for a comment
    options: list = []  # as they are written, without their labels; a comment's text


def split_options(text):
    """The options of a step, separated by ";" outside of brackets and texts, without their labels."""
    parts, depth, quoted = [""], 0, False
    for before, character in zip(" " + text, text):
        quoted ^= character == '"' and before != "\\"
        depth += not quoted and (character in "([") - (character in ")]")
        if character == ";" and depth == 0 and not quoted:
            parts.append("")
        else:
            parts[-1] += character
    return [LABEL.sub("", part.strip()) for part in parts]


def parse(script):
    steps = []
    for line in filter(None, map(str.strip, script.splitlines())):
        if line.startswith("#"):
            steps.append(Step("#", [line[1:].strip()]))
        elif match := STEP.fullmatch(line):
            steps.append(Step(match["name"], split_options(match["options"]) if match["options"] else []))
        else:
            raise ValueError(f"not a script step: {line}")
    return steps
