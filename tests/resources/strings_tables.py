"""The strings tables: complete, alike in every language, and in step with what the plug-in registers.

Called as: strings_tables.py RESOURCES-FOLDER FMXHOST PLUGIN
"""

import json
import re
import subprocess
import sys
import unittest
from pathlib import Path

RESOURCES, FMXHOST, PLUGIN = sys.argv[1:4]
ENTRY = re.compile(r'"((?:\\.|[^"\\])*)"\s*=\s*"((?:\\.|[^"\\])*)"\s*;')
COMMENT = re.compile(r"/\*.*?\*/", re.DOTALL)
UNTRANSLATED = ["KORB 1", "KORB 128", "KORB 132"]
DESCRIPTION_OFFSET = 200


def read_table(path):
    """The table as a dictionary; fails on anything that is neither a comment nor an entry, and on a repeated key."""
    text = COMMENT.sub("", path.read_text(encoding="utf-8"))
    entries = [(key, re.sub(r"\\(.)", r"\1", value)) for key, value in ENTRY.findall(text)]
    rest = ENTRY.sub("", text).strip()
    if rest or len(dict(entries)) != len(entries):
        raise ValueError(f"{path}: unreadable near {rest[:60]!r}, or a key stands twice")
    return dict(entries)


def numbered(table, first, last):
    numbers = (int(key.removeprefix("KORB ")) for key in table)
    return {number: table[f"KORB {number}"] for number in numbers if first <= number <= last}


def parameter_counts(prototype):
    """The fewest and the most parameters that a prototype such as "F( a {; b } )" allows."""
    if "(" not in prototype:
        return 0, 0
    inside = prototype[prototype.index("(") + 1 : prototype.rindex(")")]

    def names(text):
        return len(re.findall(r"[A-Za-z]+", text))

    return names(re.sub(r"\{.*\}", "", inside)), names(inside)


class StringsTables(unittest.TestCase):
    maxDiff = None

    @classmethod
    def setUpClass(cls):
        cls.tables = {path.parent.stem: read_table(path) for path in Path(RESOURCES).glob("*.lproj/*.strings")}
        cls.english = cls.tables["en"]
        listing = subprocess.run(
            [FMXHOST, "--plugin", PLUGIN, "list", "--json"], check=True, capture_output=True, text=True
        )
        cls.registered = [json.loads(line) for line in listing.stdout.splitlines()]

    def test_languages(self):
        self.assertEqual(set(self.tables), {"en", "de", "fr", "es", "ja"})

    def test_options_string(self):
        # Plug-in ID, "1", not configurable, new functions, start-up messages, no idle, no session messages, "n".
        self.assertEqual(self.english["KORB 1"], "KORB" + "1" + "n" + "n" + "Y" + "n" + "n" + "n")

    def test_every_table_has_the_same_keys_names_and_prototypes(self):
        for language, table in self.tables.items():
            with self.subTest(language=language):
                self.assertEqual(set(table), set(self.english))
                self.assertEqual(numbered(table, 150, 201), numbered(self.english, 150, 201))
                for key in UNTRANSLATED:
                    self.assertEqual(table[key], self.english[key])

    def test_translations_are_translated(self):
        for language, table in self.tables.items():
            if language == "en":
                continue
            for key in ["KORB 129", *(f"KORB {number}" for number in numbered(table, 350, 401))]:
                self.assertNotEqual(table[key], self.english[key], f"{language}: {key}")

    def test_translations_keep_names_and_values(self):
        for number, description in numbered(self.english, 350, 401).items():
            prototype = self.english[f"KORB {number - DESCRIPTION_OFFSET}"]
            # A calculation of FileMaker's stands in English only, and some parameters' names are words of English, too.
            text = description.partition("|")[2].replace('"¶"', "")
            names = [name for name in re.findall(r"[A-Za-z]+", prototype.partition("(")[2]) if re.search(rf"\b{name}\b", text)]
            kept = [name for name in names if name not in ("path", "on", "password")] + re.findall(r'KORB_\w+|!!ERROR!!|"[^"]*"', text)
            for language, table in self.tables.items():
                for word in kept:
                    self.assertIn(word, table[f"KORB {number}"], f"{language}: {number}")

    def test_values_fit_the_buffer(self):
        for language, table in self.tables.items():
            for key, value in table.items():
                self.assertLess(len(value.encode("utf-16-le")) // 2, 1000, f"{language}: {key}")

    def test_descriptions_have_words_and_text(self):
        for language, table in self.tables.items():
            self.assertEqual(
                set(numbered(table, 350, 401)), {number + DESCRIPTION_OFFSET for number in numbered(table, 150, 201)}
            )
            for number, value in numbered(table, 350, 401).items():
                words, bar, text = value.partition("|")
                self.assertTrue(words.strip() and bar and text[-1] in ".。", f"{language}: KORB {number}")

    def test_error_codes_are_the_same_in_every_language(self):
        for language, table in self.tables.items():
            for number, value in numbered(table, 350, 401).items():
                english = self.english[f"KORB {number}"]
                self.assertEqual(
                    sorted(re.findall(r"-8\d{3}", value)), sorted(re.findall(r"-8\d{3}", english)), f"{language}: {number}"
                )

    def test_prototypes_match_what_is_registered(self):
        prototypes = {text.split("(")[0]: text for text in numbered(self.english, 150, 201).values()}
        self.assertEqual({function["name"] for function in self.registered}, set(prototypes))
        for function in self.registered:
            with self.subTest(function=function["name"]):
                prototype = prototypes[function["name"]]
                self.assertEqual(function["prototype"], prototype)
                self.assertEqual(parameter_counts(prototype), (function["min"], function["max"]))


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
