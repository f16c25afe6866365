"""The reference as it is committed: what "fmxhost reference" writes now, and a page that stands alone.

Called as: pages_test.py SOURCE-FOLDER FMXHOST PLUGIN
"""

import json
import re
import subprocess
import sys
import unittest
from html.parser import HTMLParser
from pathlib import Path

SOURCE, FMXHOST, PLUGIN = sys.argv[1:4]
VOID = {"meta", "input", "br", "hr", "link"}


def fmxhost(*arguments):
    command = [FMXHOST, "--plugin", PLUGIN, *arguments]
    return subprocess.run(command, check=True, capture_output=True, text=True, cwd=SOURCE).stdout


class Page(HTMLParser):
    """Open elements, places and links of a page; fails on an element that is closed out of turn."""

    def __init__(self, text):
        super().__init__()
        self.open, self.places, self.targets = [], [], []
        self.feed(text)

    def handle_starttag(self, tag, attrs):
        if tag not in VOID:
            self.open.append(tag)
        attributes = dict(attrs)
        if "id" in attributes:
            self.places.append(attributes["id"])
        self.targets += [attributes[name] for name in ("href", "src") if name in attributes]

    def handle_endtag(self, tag):
        if not self.open or self.open.pop() != tag:
            raise ValueError(f"</{tag}> at {self.getpos()} closes nothing")


class Pages(unittest.TestCase):
    maxDiff = 2000

    def test_markdown_is_current(self):
        committed = Path(SOURCE, "docs/functions.md").read_text(encoding="utf-8")
        self.assertEqual(committed, fmxhost("reference"), "write it anew: cmake --build --preset release --target reference")

    def test_html_is_current(self):
        committed = Path(SOURCE, "docs/functions.html").read_text(encoding="utf-8")
        self.assertEqual(committed, fmxhost("reference", "--html"), "as above")

    def test_html_is_well_formed_and_needs_no_network(self):
        text = Path(SOURCE, "docs/functions.html").read_text(encoding="utf-8")
        page = Page(text)
        self.assertEqual(page.open, [])
        self.assertEqual(len(page.places), len(set(page.places)))
        self.assertLessEqual({function["name"] for function in map(json.loads, fmxhost("list", "--json").splitlines())}, set(page.places))
        for target in page.targets:
            self.assertTrue(target.startswith("#") and target[1:] in page.places, target)
        self.assertNotRegex(text, r"https?:|url\(|@import|\{\{")

    def test_links_of_the_markdown_lead_somewhere(self):
        text = Path(SOURCE, "docs/functions.md").read_text(encoding="utf-8")
        headings = {re.sub(r"[^a-z0-9_ -]", "", line.lower()).replace(" ", "-") for line in re.findall(r"^#+ (.*)$", text, re.M)}
        for target in re.findall(r"\]\(#([^)]*)\)", text):
            self.assertIn(target, headings)

    def test_a_folder_without_texts_is_refused(self):
        command = [FMXHOST, "--plugin", PLUGIN, "reference", "--texts", "docs"]
        refused = subprocess.run(command, capture_output=True, text=True, cwd=SOURCE)
        self.assertEqual(refused.returncode, 2)
        self.assertIn("index.md", refused.stderr)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
