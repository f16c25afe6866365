"""Reads a table of the plug-in's strings: resources/<language>.lproj/KORBFolidex.strings."""

import re
from pathlib import Path

ENTRY = re.compile(r'"((?:\\.|[^"\\])*)"\s*=\s*"((?:\\.|[^"\\])*)"\s*;')
COMMENT = re.compile(r"/\*.*?\*/", re.DOTALL)
DESCRIPTION_OFFSET = 200  # a description's number less its prototype's


def read_table(path):
    """The table as a dictionary, "KORB n" as n; fails on anything that is neither a comment nor an entry, and on a repeated key."""
    text = COMMENT.sub("", Path(path).read_text(encoding="utf-8"))
    entries = [(int(key.removeprefix("KORB ")), re.sub(r"\\(.)", r"\1", value)) for key, value in ENTRY.findall(text)]
    rest = ENTRY.sub("", text).strip()
    if rest or len(dict(entries)) != len(entries):
        raise ValueError(f"{path}: unreadable near {rest[:60]!r}, or a key stands twice")
    return dict(entries)


def read_tables(resources):
    """{language: table}"""
    return {path.parent.stem: read_table(path) for path in sorted(Path(resources).glob("*.lproj/*.strings"))}
