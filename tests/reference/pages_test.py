"""The reference and the pasteable recipes as they are committed: what tools/reference.py writes now, and a page that stands alone.

Called as: pages_test.py FMXHOST PLUGIN SOURCE-FOLDER ERROR-TEXTS
"""

import filecmp
import re
import sys
import tempfile
import unittest
import xml.etree.ElementTree as ElementTree
from pathlib import Path

FMXHOST, PLUGIN, SOURCE, ERROR_TEXTS = sys.argv[1:5]
sys.path.insert(0, f"{SOURCE}/tools")
try:
    import reference
except ModuleNotFoundError as missing:
    print(f"skipped: {missing} (Debian: python3-markdown-it)")
    sys.exit(77)
import filemaker_script
import function_texts

DOCS = Path(SOURCE, "docs")

class Pages(unittest.TestCase):
    def test_committed_files_are_current(self):
        with tempfile.TemporaryDirectory() as made:
            reference.main(FMXHOST, PLUGIN, ERROR_TEXTS, DOCS, made)
            files = sorted(str(path.relative_to(made)) for path in Path(made).rglob("*.*"))
            self.assertEqual(files[:2], ["functions.html", "functions.md"])
            self.assertEqual(filecmp.cmpfiles(DOCS, made, files, shallow=False)[1:], ([], []), "make them: cmake --build build/release --target reference")
            self.assertEqual({path.name for path in (DOCS / "recipes").iterdir()}, {Path(file).name for file in files[2:]})

    def test_page_stands_alone(self):
        text = (DOCS / "functions.html").read_text("utf-8").partition("<script>")[0]
        places = re.findall(r'\bid="([^"]*)"', text)
        self.assertEqual(len(places), len(set(places)))
        self.assertLessEqual({"korb_filecopy", "KORB_FileCopy", "-8008", "paths", "rotate-logs"}, set(places))
        self.assertEqual(set(re.findall(r'\b(?:href|src)="([^"]*)"', text)) - {f"#{place}" for place in places}, set())
        self.assertEqual(text.count("<section"), text.count("</section>"))
        self.assertNotRegex(text, r"https?:|url\(|@import|\{\{")

    def test_links_of_the_documents_lead_somewhere(self):
        for document in [DOCS / "functions.md", DOCS / "recipes.md", DOCS / "install.md", *map(Path(SOURCE).joinpath, ("README.md", "SECURITY.md"))]:
            for file, place in re.findall(r"\]\((?!http)([^)#\s]*)#?([^)\s]*)\)", document.read_text("utf-8")):
                target = document.parent / file if file else document
                self.assertTrue(target.exists(), f"{document.name}: {file}")
                if place:
                    text = target.read_text("utf-8")
                    places = {reference.slug(heading) for heading in re.findall(r"^#+ (.*)$", text, re.M)} | set(re.findall(r'<a id="([^"]*)"', text))
                    self.assertIn(place, places, f"{document.name}: {file}")

    def test_files_that_the_documents_name_exist(self):
        rooms = r"(?<![\w/.…])(?:\.ci|archive|bench|cmake|docs|fmx|frame|fuzz|host|log|operations|packaging|platform|queries|resources|scripts|tests|tools)"
        for document in [*Path(SOURCE).glob("*.md"), *DOCS.rglob("*.md")]:
            for name in re.findall(rf"{rooms}/[\w./-]*\w", document.read_text("utf-8")):
                self.assertTrue(Path(SOURCE, name).exists(), f"{document.name}: {name}")

    def test_recipes_to_paste_have_the_steps(self):
        for title, text in function_texts.sections_of((DOCS / "recipes.md").read_text("utf-8")):
            if match := re.search(r"^```filemaker\n(.*?)^```$", text, re.M | re.S):
                root = ElementTree.parse(DOCS / f"recipes/{reference.slug(title)}.xml").getroot()
                names = [step.get("name").partition(" (comment)")[0] for step in root]
                self.assertEqual(names, [step.name for step in filemaker_script.parse(match[1])], title)
                shown = "\n".join(filter(None, map(str.strip, root.itertext())))
                for calculation in re.findall(r"^ *(?:If|Exit Loop If) \[ (.*) \]$", match[1], re.M):
                    self.assertIn(calculation, shown)

    def test_texts_that_break_the_structure_are_refused(self):
        good = "Does it.\n## Chapter\nFiles\n## Result\n0\n## Errors\n- -3: it\n## Example\n```\nF\n→ 1\n```\n"
        self.assertEqual(function_texts.parse("F", good).errors[0].when, "it")
        for old, new in [("Does it.", ""), ("## Result", "## Resutl"), ("- -3: it", "- it"), ("- -3: it", "- -3 it"), ("→ 1", "1"),
                         ("F\n→ 1\n", ""), ("## Errors", "## Parameters\n- path text: it\n## Errors"), ("## Errors", "## Result\n0\n## Errors")]:
            with self.subTest(new), self.assertRaises(function_texts.TextError):
                function_texts.parse("F", good.replace(old, new))


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
