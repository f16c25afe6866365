"""The strings tables: complete, alike in every language, and in step with what the plug-in registers.

Called as: strings_tables.py RESOURCES-FOLDER FMXHOST PLUGIN
"""

import json
import re
import subprocess
import sys
import unittest

RESOURCES, FMXHOST, PLUGIN = sys.argv[1:4]
sys.path.insert(0, f"{RESOURCES}/../tools")
from strings_table import DESCRIPTION_OFFSET, read_tables  # noqa: E402


class StringsTables(unittest.TestCase):
    maxDiff = None

    @classmethod
    def setUpClass(cls):
        cls.tables = read_tables(RESOURCES)
        cls.english = cls.tables["en"]
        cls.prototypes = {number: text for number, text in cls.english.items() if 150 <= number <= 201}
        listing = subprocess.run([FMXHOST, "--plugin", PLUGIN, "list", "--json"], check=True, capture_output=True, text=True)
        cls.registered = [json.loads(line) for line in listing.stdout.splitlines()]

    def test_prototypes_are_those_registered(self):
        self.assertEqual(sorted(self.prototypes.values()), sorted(function["prototype"] for function in self.registered))
        for function in self.registered:
            required, brace, optional = function["prototype"].partition("(")[2].partition("{")
            counts = [len(re.findall(r"[A-Za-z]+", text)) for text in (required, required + optional)]
            self.assertEqual(counts, [function["min"], function["max"]], function["name"])

    def test_languages_have_the_same_keys_names_and_prototypes(self):
        self.assertEqual(set(self.tables), {"en", "de", "fr", "es", "ja"})
        # Plug-in ID, "1", not configurable, new functions, start-up messages, no idle, no session messages, "n".
        self.assertEqual(self.english[1], "KORB1nnYnnn")
        described = {number + DESCRIPTION_OFFSET for number in self.prototypes}
        self.assertEqual(set(self.english), {1, 128, 129, 132} | set(self.prototypes) | described)
        for language, table in self.tables.items():
            self.assertEqual(set(table), set(self.english), language)
            for number in {1, 128, 132} | set(self.prototypes):
                self.assertEqual(table[number], self.english[number], language)
            # What doesn't fit into FileMaker's buffer of 256 units, its end and one unit more, isn't shown at all.
            self.assertLess(len(table[129].encode("utf-16-le")) // 2, 255, language)

    def test_descriptions_say_the_same_in_every_language(self):
        for prototype in self.prototypes:
            number = prototype + DESCRIPTION_OFFSET
            english = self.english[number].partition("|")[2]
            # Some parameters' names are words of English too.
            names = set(re.findall(r"[A-Za-z]+", self.prototypes[prototype].partition("(")[2])) - {"path", "on", "password"}
            kept = [name for name in names if re.search(rf"\b{name}\b", english)] + re.findall(r'KORB_\w+|!!ERROR!!|"[^"]*"|-8\d{3}', english)
            for language, table in self.tables.items():
                with self.subTest(f"{language}: {number}"):
                    self.assertLess(len(table[number].encode("utf-16-le")) // 2, 1000)
                    self.assertRegex(table[number], r"^[^|]+\|[^|]+[.。]$")  # words to find it by, and what it does
                    for word in kept:
                        self.assertIn(word, table[number])
                    if language != "en":
                        self.assertNotEqual(table[number], self.english[number])


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
