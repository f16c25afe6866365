"""Every recipe of docs/recipes.md, run step by step. The folder /data of the texts is a scratch folder.

Called as: recipes_test.py FMXHOST PLUGIN SOURCE-FOLDER
"""

import datetime
import os
import re
import shutil
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path
from urllib.parse import unquote

from script_runner import SOURCE, Calculator, run_script

import function_texts

SECTIONS = dict(function_texts.sections_of(Path(SOURCE, "docs/recipes.md").read_text("utf-8")))
RECIPES = {title: re.search(r"^```filemaker\n(.*?)^```$", text, re.M | re.S)[1] for title, text in SECTIONS.items() if "```filemaker" in text}
BACKUP = "Nightly backup of a folder with encryption"


class Recipes(unittest.TestCase):
    def setUp(self):
        self.data = Path(tempfile.mkdtemp())
        self.addCleanup(shutil.rmtree, self.data)
        self.documents = self.data / "Documents"
        self.documents.mkdir()
        self.performed = []

    def write(self, name, content="content"):
        path = self.data / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(content, encoding="utf-8")

    def names(self, folder):
        return sorted(path.name for path in (self.data / folder).iterdir())

    def run_recipe(self, title, perform=None, chosen=None, **gets):
        """`chosen`: what the user chooses, in the place of a dialog."""
        text = RECIPES[title] if chosen is None else RECIPES[title].replace('KORB_GetFolderPath( "" )', f'"{chosen}"')
        perform = perform or (lambda name, values: self.performed.append((name, *values)))
        with Calculator(self.data, DocumentsPath=f"{self.documents}/", TemporaryPath=f"{self.data}/T/", **gets) as calculator:
            self.calculator = calculator
            return run_script(text, calculator, perform)

    def test_all_recipes_are_run_here(self):
        used = Path(__file__).read_text("utf-8")
        for title in RECIPES:
            self.assertIn(f'"{title}"', used)

    def test_backup(self):
        today = datetime.date.today().isoweekday() % 7 + 1
        self.write("Documents/letters/1.txt", "Dear")
        self.write("Documents/backups/tonight.zip", "cut short")
        self.write(f"Documents/backups/letters-{today}.zip", "last week's")
        self.assertRegex(self.run_recipe(BACKUP, ScriptParameter="correct horse"), rf"^Backup: letters-{today}.zip, \d+ bytes$")
        archive = self.documents / f"backups/letters-{today}.zip"
        self.assertEqual(self.names("Documents/backups"), [archive.name])
        shutil.rmtree(self.documents / "letters")
        subprocess.run(["7z", "x", "-pcorrect horse", f"-o{self.documents}", archive], check=True, capture_output=True)
        self.assertEqual((self.documents / "letters/1.txt").read_text(), "Dear")

    def test_backup_refuses(self):
        def refusal(password="word"):
            return self.run_recipe(BACKUP, ScriptParameter=password).removeprefix("Backup: ")

        self.assertEqual(refusal(), "Drive does not exist")
        self.write("Documents/backups/a")
        self.assertEqual(refusal(), "Source path not found")
        self.write("Documents/letters/1.txt")
        marker = self.data / "F"
        self.assertEqual(refusal(f"x'; touch {marker}; echo '"), "no path and no password may contain a single quote or a vertical bar")
        self.assertEqual(refusal("a|b"), "no path and no password may contain a single quote or a vertical bar")
        self.assertFalse(marker.exists())
        self.assertEqual(self.names("Documents/backups"), ["a"])
        # Sparse: larger than what is free, by what the folder's size says.
        os.truncate(self.documents / "letters/1.txt", 4 * 2**40)
        self.assertEqual(refusal(), "too little space")

    def test_import(self):
        title = "Import every file of a folder"
        self.assertEqual(self.run_recipe(title), "Source path not found")
        for name in ("in/a.csv", "in/b.CSV", "in/Ü.csv", "in/.hidden.csv", "in/readme.txt", "in/c.csv", "done/c.csv"):
            self.write(f"Documents/{name}")
        self.assertEqual(self.run_recipe(title), "c.csv: seen before\r")
        imported = [step[-1].rpartition(str(self.data))[2] for step in self.performed if step[0] == "Import Records"]
        self.assertEqual(imported, [f"/Documents/in/{name}" for name in ("a.csv", "b.CSV", "Ü.csv")])
        self.assertEqual(self.names("Documents/done"), ["a.csv", "b.CSV", "c.csv", "Ü.csv"])
        self.assertEqual(self.names("Documents/in"), [".hidden.csv", "c.csv", "readme.txt"])

    def test_container_to_folder(self):
        def export(name, values):
            self.assertEqual((name, values[0]), ("Export Field Contents", "$Orders_Document"))
            self.write(values[1])

        title = "Put a container's file into a folder"
        (self.data / "outbox").mkdir()
        self.assertEqual(self.run_recipe(title, export, ScriptParameter="order 4711.pdf"), "")
        self.assertEqual((self.names("outbox"), self.names("T")), (["order 4711.pdf"], []))
        self.assertEqual(self.run_recipe(title, export, ScriptParameter="order 4711.pdf"), "File already exists")
        self.assertEqual(self.run_recipe(title, lambda *_: None, ScriptParameter="other.pdf"), "Source path not found")

    def test_folder_to_records(self):
        records = []

        def perform(name, values):
            if name == "New Record/Request":
                self.calculator.evaluate('$Scans_Document = ""')
            elif name == "Insert from URL":
                path = Path(unquote(values[3].removeprefix("file://")))
                content = path.read_text() if path.name != "b.pdf" else ""  # one that can't be inserted
                self.calculator.evaluate(f'{values[2]} = "{content}"')
            elif name == "Commit Records/Requests":
                records.append(tuple(self.calculator.evaluate(f"$Scans_{field}") for field in ("Name", "Document")))

        for name in ("a 100%.pdf", "b.pdf", "c#1?.pdf", ".hidden"):
            self.write(f"Documents/scans/{name}", f"content of {name}")
        self.write("Documents/scans taken in/c#1?.pdf")
        log = self.run_recipe("Take a folder of files into records", perform)
        self.assertEqual(log, "b.pdf: not inserted\rc#1?.pdf: File already exists\r")
        self.assertEqual(records, [("a 100%.pdf", "content of a 100%.pdf"), ("b.pdf", ""), ("c#1?.pdf", "content of c#1?.pdf")])
        self.assertEqual(self.names("Documents/scans"), [".hidden", "b.pdf", "c#1?.pdf"])

    def test_rotate_logs(self):
        large = 1_000_000
        self.assertEqual(self.run_recipe("Rotate logs"), "0")
        for turn in range(1, 6):
            self.write("logs/import.log", str(turn) * (large - 1))
            self.assertEqual(self.run_recipe("Rotate logs"), "0")
            self.write("logs/import.log", str(turn) * large)
            self.assertEqual(self.run_recipe("Rotate logs"), "1")
        self.assertEqual(self.names("logs"), ["import.1.log", "import.2.log", "import.3.log"])
        kept = "".join((self.data / "logs" / name).read_text()[0] for name in self.names("logs"))
        self.assertEqual(kept, "543")

    def test_wait_for_a_file(self):
        growing = iter(["", "half", "half of it", "half of it"])
        looks = []

        def pause(name, values):
            looks.append((name, *values))
            self.write("Documents/in/order.xml", next(growing))

        path = self.documents / "in/order.xml"
        self.assertEqual(self.run_recipe("Wait for a file", pause), str(path))
        self.assertEqual(looks, [("Pause/Resume Script", "5")] * 4)
        path.unlink()
        self.assertEqual(self.run_recipe("Wait for a file"), "")
        self.assertEqual(len(self.performed), 60)

    def test_pick_and_archive(self):
        title = "Pick and archive"
        self.write("project/plan.txt")
        self.write("it's/plan.txt")
        archive = f"{self.data}/project.zip"
        self.assertEqual(self.run_recipe(title, chosen=""), "")
        self.assertEqual(self.performed, [])
        self.assertEqual(self.run_recipe(title, chosen=f"{self.data}/project"), archive)
        subprocess.run(["unzip", "-tq", archive], check=True, capture_output=True)

        self.run_recipe(title, chosen=f"{self.data}/project")
        self.run_recipe(title, chosen=f"{self.data}/it's")
        self.run_recipe(title)  # there is no display to choose on
        dialogs = [
            "There is an archive of this folder already.",
            "A folder with a single quote or a vertical bar in its path can't be archived.",
            "Unable to complete operation -  Unable to get folder path",
        ]
        self.assertEqual(self.performed, [("Show Custom Dialog", "Archive", text) for text in dialogs])

    def test_install(self):
        title = "Install or update the plug-in"

        def run(listed):
            self.performed.clear()
            return self.run_recipe(title, InstalledFMPlugins=listed.replace("|", "\r"))

        for version in ("5.0.2.1", "5.0.10", "6"):
            self.assertEqual(run(f"Other;1;Enabled|Folidex;{version};Enabled"), f"Folidex {version} is installed")
            self.assertEqual(self.performed, [])
        for listed in ("", "Other;9.9.9.9;Enabled", "Folidex;5.0.2;Enabled", "Folidex;4.9.9.9;Enabled|Other;1;Disabled"):
            self.assertEqual(run(listed), "Folidex 5.0.2.1 could not be installed")
            self.assertEqual(self.performed, [("Install Plug-In File", "$Plugins_Folidex")])


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
