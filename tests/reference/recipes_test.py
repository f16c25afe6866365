"""Every recipe of docs/recipes.md, run step by step. The folder /data of the texts is a scratch folder.

Called as: recipes_test.py SOURCE-FOLDER FMXHOST PLUGIN
"""

import os
import re
import shutil
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

from filemaker_script import Calculator, Script

SOURCE, FMXHOST, PLUGIN = sys.argv[1:4]
RECIPE = re.compile(r"^## (?P<title>[^\n]*)\n.*?^```filemaker\n(?P<script>.*?)^```$", re.M | re.S)
RECIPES = {match["title"]: match["script"] for match in RECIPE.finditer(Path(SOURCE, "docs/recipes.md").read_text("utf-8"))}


class Recipes(unittest.TestCase):
    def setUp(self):
        self.data = Path(tempfile.mkdtemp())
        self.addCleanup(shutil.rmtree, self.data)
        self.performed = []

    def write(self, name, content="content"):
        path = self.data / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(content, encoding="utf-8")

    def names(self, folder):
        return sorted(path.name for path in (self.data / folder).iterdir())

    def run_recipe(self, title, answers=None, perform=None):
        text = RECIPES[title].replace("/data", str(self.data))
        hidden = {"DISPLAY", "WAYLAND_DISPLAY"}
        environment = {name: value for name, value in os.environ.items() if name not in hidden}
        perform = perform or (lambda name, values: self.performed.append((name, *values)))
        with Calculator(FMXHOST, PLUGIN, environment) as calculator:
            return Script(text, calculator, answers or {}, perform).run()

    def test_all_recipes_are_run_here(self):
        tested = " ".join(name.replace("_", " ") for name in dir(self) if name.startswith("test_"))
        for title in RECIPES:
            self.assertIn(title.lower(), tested)

    def test_nightly_backup_of_a_folder_with_encryption(self):
        self.write("documents/letters/1.txt", "Dear")
        self.write("backups/tonight.zip", "cut short")
        self.write("backups/documents-5.zip", "last week's")
        answers = {"Get ( ScriptParameter )": '"correct horse"', "DayOfWeek ( Get ( CurrentDate ) )": "5"}
        title = "Nightly backup of a folder with encryption"
        self.assertRegex(self.run_recipe(title, answers), r"^Backup: documents-5.zip, \d+ bytes$")
        self.assertEqual(self.names("backups"), ["documents-5.zip"])
        command = ["7z", "x", "-pcorrect horse", f"-o{self.data}", self.data / "backups/documents-5.zip", "-y", "-aoa"]
        shutil.rmtree(self.data / "documents")
        subprocess.run(command, check=True, capture_output=True)
        self.assertEqual((self.data / "documents/letters/1.txt").read_text(), "Dear")

        answers["KORB_GetDriveSizeFree( $backups )"] = "1"
        self.assertEqual(self.run_recipe(title, answers), "Backup: too little space")
        del answers["KORB_GetDriveSizeFree( $backups )"]
        shutil.rmtree(self.data / "documents")
        self.assertEqual(self.run_recipe(title, answers), "Backup: Source path not found")
        shutil.rmtree(self.data / "backups")
        self.assertEqual(self.run_recipe(title, answers), "Backup: Drive does not exist")

    def test_import_every_file_of_a_folder(self):
        for name in ("in/a.csv", "in/b.CSV", "in/Ü.csv", "in/.hidden.csv", "in/readme.txt", "in/c.csv", "done/c.csv"):
            self.write(name)
        # A function of FileMaker's own that fmxhost hasn't.
        answers = {'ConvertToFileMakerPath ( $in & "/" & $file ; PosixPath )': '"file:" & $in & "/" & $file'}
        self.assertEqual(self.run_recipe("Import every file of a folder", answers), "c.csv: seen before\r")
        imported = sorted(step[-1] for step in self.performed if step[0] == "Import Records")
        self.assertEqual(imported, [f"file:{self.data}/in/{name}" for name in ("a.csv", "b.CSV", "Ü.csv")])
        self.assertEqual(self.names("done"), ["a.csv", "b.CSV", "c.csv", "Ü.csv"])
        self.assertEqual(self.names("in"), [".hidden.csv", "c.csv", "readme.txt"])
        shutil.rmtree(self.data / "in")
        self.assertEqual(self.run_recipe("Import every file of a folder"), "Source path not found")

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
            self.write("in/order.xml", next(growing))

        path = str(self.data / "in/order.xml")
        self.assertEqual(self.run_recipe("Wait for a file", perform=pause), path)
        self.assertEqual(looks, [("Pause/Resume Script", "5")] * 4)

        os.remove(path)
        self.assertEqual(self.run_recipe("Wait for a file"), "")
        self.assertEqual(len(self.performed), 60)

    def test_pick_and_archive(self):
        self.write("project/plan.txt")
        self.write("it's/plan.txt")

        def chosen(folder):
            return {'KORB_GetFolderPath( "" )': f'"{folder}"'}

        archive = f"{self.data}/project.zip"
        self.assertEqual(self.run_recipe("Pick and archive", chosen("")), "")
        self.assertEqual(self.performed, [])
        self.assertEqual(self.run_recipe("Pick and archive", chosen(self.data / "project")), archive)
        subprocess.run(["unzip", "-tq", archive], check=True, capture_output=True)

        self.run_recipe("Pick and archive", chosen(self.data / "project"))
        self.run_recipe("Pick and archive", chosen(self.data / "it's"))
        self.run_recipe("Pick and archive")  # there is no display to choose on
        dialogs = [
            "There is an archive of this folder already.",
            "A path with a single quote or a bar can't be archived.",
            "Unable to complete operation -  Unable to get folder path",
        ]
        self.assertEqual(self.performed, [("Show Custom Dialog", "Archive", text) for text in dialogs])


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
