"""The reference and the pasteable recipes as they are committed, and what the documents point to.

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
sys.path[:0] = [f"{SOURCE}/tools", f"{SOURCE}/tests"]
from support import surroundings
try:
    import reference
except ModuleNotFoundError as missing:
    surroundings.skip(f"{missing} (python3-markdown-it)")
import filemaker_script
import function_texts

DOCS = Path(SOURCE, "docs")
LINK = re.compile(r"\]\((?!http)([^)#\s]*)#?([^)\s]*)\)")
PATH = re.compile(r"(?<![\w/.…])(?:\.ci|archive|bench|cmake|docs|fmx|frame|fuzz|host|log|operations|packaging|platform|queries"
                  r"|resources|scripts|tests|tools)/[\w./-]*\w")


# What a step holds on FileMaker's clipboard: step, path, how often, and where that is publicly said. "Help" is Claris FileMaker Pro
# Help, a page a step; "samples" are published copies of the clipboard, such as those of github.com/mrwatson-de/fmCheckMate-XSLT.
SNIPPET_FACTS = (
    ("any", ".//Field[@id='0']", 0, "samples: a field is found by table and name; number 0 is a missing one"),
    ("any", ".//Layout[@id='0']", 0, "samples, as for fields"),
    ("Enter Find Mode", "Pause[@state='False']", 1, "Help: Pause is an option, and a server can't pause for a user"),
    ("Export Field Contents", "UniversalPathList", 1, "samples: a path is a variable or a text, no calculation"),
    ("Go to Layout", "LayoutDestination[@value='SelectedLayout']", 1, "samples"),
    ("Import Records", "DataSourceType[@value='File']", 1, "Help: the source is a file, folder, XML or ODBC"),
    ("Import Records", "NoInteract[@state='True']", 1, "Help: With dialog is off on a server"),
    ("Insert from URL", "DontEncodeURL[@state='True']", 1, "Help: Do not automatically encode URL"),
    ("Insert from URL", "NoInteract[@state='True']", 1, "Help: With dialog is off on a server"),
    ("Pause/Resume Script", "PauseTime[@value='ForDuration']", 1, "Help: Indefinitely or For duration"),
    ("Perform Script", "Calculated/Calculation", 1, "Help: Specified By name takes a calculation"),
    ("Set Error Capture", "Set[@state='True']", 1, "Help: On or Off"),
    ("Show Custom Dialog", "Buttons/Button", 3, "Help: three buttons, those without a label aren't shown"),
)


def places_of(file):
    text = file.read_text("utf-8")
    headings = re.findall(r"^#+ (.*)$", text, re.M)
    return {*map(reference.slug, headings), *re.findall(r'<a id="([^"]*)"', text)}


class Pages(unittest.TestCase):
    def test_committed_files_are_current(self):
        with tempfile.TemporaryDirectory() as made:
            reference.main(FMXHOST, PLUGIN, ERROR_TEXTS, DOCS, made)
            files = sorted(str(path.relative_to(made)) for path in Path(made).rglob("*.*"))
            self.assertEqual(files[:2], ["functions.html", "functions.md"])
            make = "make them: cmake --build --preset release --target reference"
            self.assertEqual(filecmp.cmpfiles(DOCS, made, files, shallow=False)[1:], ([], []), make)
            self.assertEqual({path.name for path in (DOCS / "recipes").iterdir()}, {Path(file).name for file in files[2:]})

    def test_page_stands_alone(self):
        text = (DOCS / "functions.html").read_text("utf-8").partition("<script>")[0]
        places = re.findall(r'\bid="([^"]*)"', text)
        self.assertEqual(len(places), len(set(places)))
        self.assertLessEqual({"korb_filecopy", "KORB_FileCopy", "-8008", "paths", "rotate-logs"}, set(places))
        self.assertEqual(set(re.findall(r'\b(?:href|src)="([^"]*)"', text)) - {f"#{place}" for place in places}, set())
        self.assertEqual(text.count("<section"), text.count("</section>"))
        # Functions are found by words of every language.
        languages = re.findall(r'<p class="words" lang="(\w+)">', text)
        self.assertEqual({language: languages.count(language) for language in languages}, dict.fromkeys(("de", "en", "es", "fr", "ja"), 41))
        self.assertNotRegex(text, r"https?:|url\(|@import|\{\{")

    def test_what_documents_point_to_is_there(self):
        for document in [*Path(SOURCE).glob("*.md"), *DOCS.glob("*.md")]:
            text = document.read_text("utf-8")
            missing = [name for name in PATH.findall(text) if not Path(SOURCE, name).exists()]
            for file, place in LINK.findall(text):
                target = document.parent / file if file else document
                if not target.exists() or place and place not in places_of(target):
                    missing.append(f"{file}#{place}")
            self.assertEqual(missing, [], document.name)

    def test_packaged_documents_link_to_what_is_packaged(self):
        packages = Path(SOURCE, "cmake/Packages.cmake").read_text("utf-8")
        installed = re.search(r"install\(FILES (docs/functions.html.*?)DESTINATION", packages, re.S)
        packaged = {Path(file).name for file in installed[1].split()}
        for name in sorted(name for name in packaged if name.endswith(".md")):
            linked = {file for file, _ in LINK.findall((DOCS / name).read_text("utf-8")) if file and not file.startswith("recipes/")}
            self.assertLessEqual(linked, packaged, name)

    def test_recipes_to_paste_are_what_filemaker_takes(self):
        for title, text in function_texts.sections_of((DOCS / "recipes.md").read_text("utf-8")):
            for script in re.findall(r"^```filemaker\n(.*?)^```$", text, re.M | re.S):
                root = ElementTree.parse(DOCS / f"recipes/{reference.slug(title)}.xml").getroot()
                self.assertEqual((root.tag, root.get("type")), ("fmxmlsnippet", "FMObjectList"))
                names = [step.get("name").partition(" (comment)")[0] for step in root]
                self.assertEqual(names, [step.name for step in filemaker_script.parse(script)], title)
                for step in root:
                    for name, path, count, source in SNIPPET_FACTS:
                        if name in ("any", step.get("name")):
                            self.assertEqual(len(step.findall(path)), count, f"{title}, {step.get('name')}: {path} ({source})")


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
