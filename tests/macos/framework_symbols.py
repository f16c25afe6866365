"""Every class, selector, function and constant of Apple's that platform/macos and fmxhost's files for macOS use is in
macOS 13, by the list beside this.

framework_symbols.txt says for each one since when it is there and, where it is, since when deprecated. What is under
GNUSTEP isn't looked at. A name that the list lacks fails, and so does one that nobody uses any more.

Called as: framework_symbols.py SOURCE-FOLDER
"""

import re
import sys
import unittest
from pathlib import Path

SOURCE = Path(sys.argv[1])
LIST = Path(__file__).with_suffix(".txt")
FRAMEWORK_NAME = re.compile(r"\b(?:NS|CF|kCF|CG|kCG)[A-Z]\w*")
SYSTEM_CALL = re.compile(r"(?<![\w>:])::(\w+)\s*\(")
SYSTEM_CONSTANT = re.compile(r"\b(?:MNT_|RENAME_|SYNC_VOLUME_|PROC_P)[A-Z_]+\b|\bst_(?:[amc]|birth)timespec\b")
DECLARED_METHOD = re.compile(r"^[-+] \([^)]*\)(.*?)[;{]?$", re.MULTILINE)
TARGET = (13, 0)


def for_apple(text):
    """The lines that a Mac's compiler sees: __APPLE__ defined, GNUSTEP not, with ARC."""
    shown, conditions = [], []
    for line in text.splitlines():
        word = re.match(r"\s*#\s*(ifdef|ifndef|if|else|endif)\b\s*(.*)", line)
        if not word:
            if all(conditions):
                shown.append(line)
        elif word[1] == "endif":
            conditions.pop()
        elif word[1] == "else":
            conditions[-1] = not conditions[-1]
        else:
            known = {"ifdef __APPLE__": True, "ifdef GNUSTEP": False, "ifndef GNUSTEP": True,
                     "if !__has_feature(objc_arc)": False, "if __has_feature(address_sanitizer)": False}
            conditions.append(known[f"{word[1]} {word[2]}".strip()])
    return "\n".join(shown)


def without_comments_and_texts(text):
    return re.sub(r'//[^\n]*|@?"(?:\\.|[^"\\\n])*"|\'(?:\\.|[^\'\\\n])*\'', '""', text)


def keywords(declaration):
    """ "setA:(int)a b:(int)b" gives "setA:b:"."""
    parts = re.findall(r"(\w+):", declaration)
    return "".join(part + ":" for part in parts) or declaration.strip()


def message_selectors(text):
    """The selectors of all messages "[receiver selector]", the inner ones too."""
    found = set()
    opened = []
    for position, letter in enumerate(text):
        if letter == "[":
            opened.append(position)
        elif letter == "]" and opened:
            start = opened.pop()
            word = re.search(r"(\w*)\W?$", text[:start].rstrip())[0]
            before, after = word[-1:], text[position + 1 :].lstrip()[:1]
            if (re.fullmatch(r"\w+", word) and word not in {"return", "in"}) or after == "{" or (after == "(" and before in "(,={"):
                continue  # a subscript or a lambda
            content = re.sub(r"\s+", " ", text[start + 1 : position]).strip()
            previous = None
            while previous != content:  # what is in brackets is one operand
                previous = content
                content = re.sub(r"\[[^\[\]]*\]|\([^()]*\)|\{[^{}]*\}", "X", content)
            content = re.sub(r"^X(?=\w)", "", content)
            match = re.match(r"[\w.:>-]+ (\w+.*)$", content)
            if match:
                rest = re.sub(r"\?[^:]*:(?!:)|\w+::|::", " ", match[1])
                found.add(keywords(rest) if ":" in rest else rest.split()[0])
    return found


def used():
    names, own = set(), set()
    for file in [*sorted((SOURCE / "platform/macos").iterdir()), *sorted((SOURCE / "host").rglob("*_macos.cpp"))]:
        if file.suffix not in {".mm", ".cpp", ".h"} or "gnustep" in file.name:
            continue
        text = without_comments_and_texts(for_apple(file.read_text(encoding="utf-8")))
        own |= {keywords(re.sub(r"\([^)]*\)\w+", "", declared)) for declared in DECLARED_METHOD.findall(text)}
        names |= set(FRAMEWORK_NAME.findall(text)) | set(SYSTEM_CALL.findall(text)) | set(SYSTEM_CONSTANT.findall(text))
        if file.suffix == ".mm":
            names |= message_selectors(text)
    return names - own


def listed():
    entries = {}
    for line in LIST.read_text(encoding="utf-8").splitlines():
        if line.strip() and not line.startswith("#"):
            name, introduced, deprecated, _ = re.split(r"\s{2,}", line.strip(), maxsplit=3)
            entries[name] = (introduced, deprecated)
    return entries


def version(text):
    return tuple(int(part) for part in text.split("."))


class FrameworkSymbols(unittest.TestCase):
    def test_every_one_is_listed_and_used(self):
        self.assertEqual(sorted(used() - listed().keys()), [], "used but not in the list")
        self.assertEqual(sorted(listed().keys() - used()), [], "in the list but not used")

    def test_they_are_in_the_oldest_macos(self):
        for name, (introduced, deprecated) in listed().items():
            with self.subTest(name):
                self.assertLessEqual(version(introduced), TARGET)
                if deprecated != "-":
                    self.assertGreater(version(deprecated), TARGET, "deprecated in the oldest macOS already")

    def test_the_reader_sees_what_it_looks_for(self):
        text = '[[NSFileManager defaultManager] copyItemAtPath:[a b:c] toPath:x ? d : e error:&error]; list[3]; f([&] {}); return [g h];'
        self.assertEqual(message_selectors(text), {"defaultManager", "b:", "copyItemAtPath:toPath:error:", "h"})


if __name__ == "__main__":
    if "--used" in sys.argv:
        print("\n".join(sorted(used())))
        sys.exit()
    unittest.main(argv=sys.argv[:1], verbosity=2)
