"""Every recipe of docs/recipes.md, run step by step. The folder /data of the texts is a scratch folder.

Called as: recipes_test.py FMXHOST PLUGIN SOURCE-FOLDER
"""

import datetime
import os
import re
import shutil
import subprocess
import tempfile
import unittest
from pathlib import Path
from urllib.parse import unquote, urlsplit

from script_runner import SOURCE, Calculator, run_script

import function_texts

SECTIONS = function_texts.sections_of(Path(SOURCE, "docs/recipes.md").read_text("utf-8"))
RECIPES = {title: re.search(r"^```filemaker\n(.*?)^```$", text, re.M | re.S)[1] for title, text in SECTIONS if "```filemaker" in text}


class Recipes(unittest.TestCase):
    def setUp(self):
        self.data = Path(tempfile.mkdtemp())
        self.addCleanup(shutil.rmtree, self.data)
        (self.data / "Documents").mkdir()
        self.performed = []

    def write(self, *names, content="content"):
        for name in names:
            path = self.data / name
            path.parent.mkdir(parents=True, exist_ok=True)
            path.write_text(content, encoding="utf-8")

    def names(self, folder):
        return sorted(path.name for path in (self.data / folder).iterdir())

    def run_recipe(self, title, perform=None, chosen=None, **gets):
        """`chosen`: what the user chooses, in the place of a dialog."""
        text = RECIPES[title] if chosen is None else RECIPES[title].replace('KORB_GetFolderPath( "" )', f'"{chosen}"')
        perform = perform or (lambda name, values: self.performed.append((name, *values)))
        with Calculator(self.data, DocumentsPath=f"{self.data}/Documents/", TemporaryPath=f"{self.data}/T/", **gets) as self.calculator:
            return run_script(text, self.calculator, perform)

    def test_all_recipes_are_run_here(self):
        for title in RECIPES:
            self.assertIn(f'"{title}"', Path(__file__).read_text("utf-8"))

    def test_nightly_backup(self):
        def backup(password="correct horse"):
            return self.run_recipe("Nightly backup of a folder with encryption", ScriptParameter=password).removeprefix("Backup: ")

        self.assertEqual(backup(), "Drive does not exist")
        archive = f"letters-{datetime.date.today().isoweekday() % 7 + 1}.zip"
        self.write("Documents/backups/tonight.zip", f"Documents/backups/{archive}", content="cut short, or last week's")
        self.assertEqual(backup(), "Source path not found")
        self.write("Documents/letters/1.txt", content="Dear")
        for password in (f"x'; touch {self.data}/F; echo '", "a|b"):
            self.assertEqual(backup(password), "no path and no password may contain a single quote or a vertical bar")
        self.assertEqual(self.names("."), ["Documents"])

        self.assertRegex(backup(), rf"^{archive}, \d+ bytes$")
        self.assertEqual(self.names("Documents/backups"), [archive])
        subprocess.run(["7z", "x", "-pcorrect horse", f"-o{self.data}", self.data / "Documents/backups" / archive], check=True, capture_output=True)
        self.assertEqual((self.data / "letters/1.txt").read_text(), "Dear")
        # Sparse, and by its size larger than what is free.
        os.truncate(self.data / "Documents/letters/1.txt", shutil.disk_usage(self.data).free + 2**30)
        self.assertEqual(backup(), "too little space")

    def test_import(self):
        title = "Import every file of a folder"
        self.assertEqual(self.run_recipe(title), "Source path not found")
        self.write(*(f"Documents/in/{name}" for name in ("a.csv", "b.CSV", "Ü.csv", ".hidden.csv", "readme.txt", "c.csv")), "Documents/done/c.csv")
        imported = []

        def perform(_, values):
            imported.append(values[-1].rpartition("/")[2])
            self.calculator.evaluate(f"$LastError = {404 if imported[-1] == 'b.CSV' else 0}")

        self.assertEqual(self.run_recipe(title, perform), "b.CSV: not imported, error 404\rc.csv: seen before\r")
        self.assertEqual(imported, ["a.csv", "b.CSV", "Ü.csv"])
        self.assertEqual(self.names("Documents/done"), ["a.csv", "c.csv", "Ü.csv"])
        self.assertEqual(self.names("Documents/in"), [".hidden.csv", "b.CSV", "c.csv", "readme.txt"])

    def test_container_to_folder(self):
        def export(_, values):
            self.assertEqual(values[0], "$Orders_Document")
            self.write(values[1])

        def run(perform):
            return self.run_recipe("Put a container's file into a folder", perform, ScriptParameter="order 4711.pdf")

        (self.data / "outbox").mkdir()
        self.assertEqual(run(lambda *_: None), "Source path not found")
        self.assertEqual([run(export), self.names("outbox"), self.names("T")], ["", ["order 4711.pdf"], []])
        self.assertEqual(run(export), "File already exists")

    def test_folder_to_records(self):
        records = []

        def perform(name, values):
            if name == "New Record/Request":
                self.calculator.evaluate('$Scans_Document = ""')
            elif name == "Insert from URL" and not values[3].endswith("b.pdf"):  # which can't be inserted
                content = Path(unquote(urlsplit(values[3]).path)).read_text()
                self.calculator.evaluate(f'{values[2]} = "{content}"')
            elif name == "Commit Records/Requests":
                records.append([self.calculator.evaluate(f"$Scans_{field}") for field in ("Name", "Document")])
            elif name == "Delete Record/Request":
                records.pop()

        for name in ("a 100%.pdf", "b.pdf", "c#1?.pdf", ".hidden"):
            self.write(f"Documents/scans/{name}", content=f"content of {name}")
        self.write("Documents/scans taken in/c#1?.pdf")
        log = self.run_recipe("Take a folder of files into records", perform)
        self.assertEqual(log, "b.pdf: not inserted\rc#1?.pdf: File already exists\r")
        self.assertEqual(records, [["a 100%.pdf", "content of a 100%.pdf"], ["c#1?.pdf", "content of c#1?.pdf"]])
        self.assertEqual(self.names("Documents/scans"), [".hidden", "b.pdf", "c#1?.pdf"])

    def test_rotate_logs(self):
        for turn in range(1, 6):
            for size, result in ((999_999, "0"), (1_000_000, "1")):
                self.write("logs/import.log", content=str(turn) * size)
                self.assertEqual(self.run_recipe("Rotate logs"), result)
        self.assertEqual(self.run_recipe("Rotate logs"), "0")
        kept = {path.name: path.read_text()[0] for path in (self.data / "logs").iterdir()}
        self.assertEqual(kept, {"import.1.log": "5", "import.2.log": "4", "import.3.log": "3"})

    def test_wait_for_a_file(self):
        growing = iter(["", "half", "half of it", "half of it"])
        path = f"{self.data}/Documents/in/order.xml"
        self.assertEqual(self.run_recipe("Wait for a file", lambda *_: self.write(path, content=next(growing))), path)
        os.remove(path)
        self.assertEqual(self.run_recipe("Wait for a file"), "")
        self.assertEqual(self.performed, [("Pause/Resume Script", "5")] * 60)

    def test_pick_and_archive(self):
        self.write("project/plan.txt", "it's/plan.txt")
        archive = f"{self.data}/project.zip"
        results = [self.run_recipe("Pick and archive", chosen=chosen)
                   for chosen in ("", f"{self.data}/project", f"{self.data}/project", f"{self.data}/it's", None)]  # None: there is no display
        self.assertEqual(results, ["", archive, "", "", ""])
        subprocess.run(["unzip", "-tq", archive], check=True, capture_output=True)
        self.assertEqual([values[-1] for values in self.performed], [
            "There is an archive of this folder already.",
            "A folder with a single quote or a vertical bar in its path can't be archived.",
            "Unable to complete operation -  Unable to get folder path"])

    def test_install(self):
        def run(listed):
            return self.run_recipe("Install or update the plug-in", InstalledFMPlugins=listed.replace("|", "\r"))

        for version in ("5.0.2.1", "5.0.10", "6"):
            self.assertEqual(run(f"Other;1;Enabled|Folidex;{version};Enabled"), f"Folidex {version} is installed")
        self.assertEqual(self.performed, [])
        for listed in ("", "Other;9.9.9.9;Enabled", "Folidex;5.0.2;Enabled", "Folidex;4.9.9.9;Enabled|Other;1;Disabled"):
            self.assertEqual(run(listed), "Folidex 5.0.2.1 could not be installed")
        self.assertEqual(self.performed, [("Install Plug-In File", "$Plugins_Folidex")] * 4)


if __name__ == "__main__":
    unittest.main(argv=["recipes_test.py"])
