"""The recipes, run step by step as they stand in docs/recipes.md: with files that grow, names that are taken, folders that
are missing, links, and runs that are cut short after any step (every third one, all with FOLIDEX_FULL=1).

Called as: recipes_test.py FMXHOST PLUGIN SOURCE-FOLDER
"""

import datetime
import itertools
import os
import re
import shutil
import subprocess
import sys
import tempfile
import time
import unittest
from collections import defaultdict
from pathlib import Path

FMXHOST, PLUGIN, SOURCE = sys.argv[1:4]
sys.path.insert(0, f"{SOURCE}/tools")
import function_texts  # noqa: E402
import script_runner  # noqa: E402

RECIPES = {title: re.search(r"^```filemaker\n(.*?)^```$", text, re.M | re.S)[1]
           for title, text in function_texts.sections_of(Path(SOURCE, "docs/recipes.md").read_text("utf-8")) if "```filemaker" in text}
TAKE_IN = "Take in what arrives in a folder"
WORK = "Documents/box/work"  # its folder of what is being taken in
HOUR = 3600


class Recipes(unittest.TestCase):
    def setUp(self):
        self.data = Path(tempfile.mkdtemp())
        self.addCleanup(shutil.rmtree, self.data)
        self.tables = defaultdict(list)

    def write(self, *names, content="content", age=0):
        for name in names:
            path = self.data / name
            path.parent.mkdir(parents=True, exist_ok=True)
            path.write_text(content, encoding="utf-8")
            os.utime(path, (time.time() - age,) * 2)

    def names(self, folder):
        return sorted(path.name for path in (self.data / folder).iterdir())

    def run_recipe(self, title, parameter="", gets=None, performing=None, **options):
        """`performing`: what FileMaker does in some steps, by the step's name as a method's."""
        folders = {"DocumentsPath": f"{self.data}/Documents/", "TemporaryPath": f"{self.data}/T/"}
        with script_runner.Calculator(FMXHOST, PLUGIN, self.data, **folders | (gets or {})) as calculator:
            self.filemaker = script_runner.FileMaker(calculator, RECIPES, tables=self.tables, **options)
            vars(self.filemaker).update(performing or {})
            return self.filemaker.run(RECIPES[title], parameter)

    def cut_after(self, last, title, parameter="", **options):
        """Ends a run after that many steps; whether it had no more."""
        steps = itertools.count(1)

        def step():
            if next(steps) > last:
                raise script_runner.Cut

        try:
            self.run_recipe(title, parameter, steps=step, **options)
        except script_runner.Cut:
            return False
        return True

    def test_all_recipes_are_run_here(self):
        for title in RECIPES:
            self.assertRegex(Path(__file__).read_text("utf-8"), f'"{title}["-]|{title} = "')

    # ---- Files that arrive

    def take_in(self, script="Import every file of a folder", **options):
        return self.run_recipe(TAKE_IN, f"box,{script}", **options)

    def state(self):
        """What is in the four folders, without date, time and key, and the rows of the table."""
        box = self.data / "Documents/box"
        return ({folder.name: sorted(re.sub(r"^(\d{8}-\d{6}|\d{11}) [0-9A-F]{12} ", "", file.name) for file in folder.iterdir())
                 for folder in box.iterdir() if any(folder.iterdir())}, sorted(record["Row"] for record in self.tables["Orders"]))

    def test_files_that_arrive_are_imported_once(self):
        self.assertEqual([self.take_in(), self.names("Documents/box")], ["", ["done", "failed", "in", "work"]])
        self.write("Documents/box/in/a.csv", "Documents/box/in/Ü 1.CSV", content="1\n2", age=90)
        self.write("Documents/box/in/bad.csv", content="3\nbroken\n4", age=90)
        self.write("Documents/box/in/x.txt", "Documents/box/in/part", age=90)
        staying = [".b.csv", "b.csv.part", "fresh.csv", "~$b.csv"]
        self.write(*(f"Documents/box/in/{name}" for name in staying), content="9", age=90)
        self.write("Documents/box/in/empty.csv", content="", age=90)
        os.utime(self.data / "Documents/box/in/fresh.csv")
        # One that grows between the two looks, by a writer that sets the date back.
        self.write("Documents/box/in/grows.csv", content="9", age=90)
        content = iter(["9\n9", "9\n9\n9", "9\n9\n9\n9", "9\n9\n9\n9\n9"])
        growing = {"pause_resume_script": lambda _: self.write("Documents/box/in/grows.csv", content=next(content), age=90)}
        expected = ({"in": sorted([*staying, "empty.csv", "grows.csv"]), "done": ["a.csv", "Ü 1.CSV"], "failed": ["bad.csv", "part", "x.txt"]},
                    ["1", "1", "2", "2"])
        self.assertEqual(self.take_in(performing=growing), "bad.csv: failed, not imported, error 720\rpart: failed, not a CSV file\rx.txt: failed, not a CSV file\r")
        self.assertEqual(self.state(), expected)
        self.assertEqual([record["Line"] for record in self.tables["Log"]], ["bad.csv: failed, not imported, error 720", "part: failed, not a CSV file", "x.txt: failed, not a CSV file"])
        self.assertEqual(self.take_in(performing=growing), "")
        self.assertEqual(self.state(), expected)
        # The same name arrives again, and a script that doesn't exist takes in nothing.
        self.write("Documents/box/in/a.csv", content="5", age=90)
        self.assertEqual(self.take_in("None", performing=growing), "a.csv: failed, there is no script None\r")
        self.write("Documents/box/in/a.csv", content="5", age=90)
        self.assertEqual([self.take_in(performing=growing), self.state()[1]], ["", ["1", "1", "2", "2", "5"]])
        self.assertRegex(self.names("Documents/box/done")[0], r"^\d{8}-\d{6} [0-9A-F]{12} ")

    def test_missing_rights_and_files_in_the_way(self):
        self.write("Documents/box/in")  # a file
        self.assertRegex(self.take_in(), "/box/in: Folder already exists$")
        self.write(f"{WORK}/notes.txt", "Documents/box2/in/" + "n" * 240 + ".csv", age=2 * HOUR)
        result = self.run_recipe(TAKE_IN, "box2,Import every file of a folder")
        self.assertRegex(result, r"^n+\.csv: Unable to copy .*File name too long\r$")
        self.run_recipe("Write a line to the log", "another line")
        self.assertEqual([record["Line"] for record in self.tables["Log"]], [result.removesuffix("\r"), "another line"])
        self.assertEqual([len(self.names("Documents/box2/in")), self.tables["Orders"]], [1, []])

    def check_cut_short(self, script, fill, expected):
        """Cuts a run short after its steps. The next run, at once, and one that comes after an hour set all right."""
        stride = 1 if os.environ.get("FOLIDEX_FULL") else 3
        for last in itertools.count(1, stride):
            for run in (self.doCleanups, self.setUp, fill):
                run()
            if self.cut_after(last, TAKE_IN, f"box,{script}"):
                break
            work = self.data / WORK
            claimed = sorted(work.iterdir()) if work.exists() else []
            self.assertEqual(self.take_in(script), "", f"after {last} steps")
            self.assertEqual(sorted(work.iterdir()), claimed)  # another run may be at work on it
            kept = self.state()[0]
            self.assertEqual(sorted(sum(kept.values(), [])), ["a.csv", "b.csv"], f"after {last} steps")
            self.take_in(script, later=2 * HOUR)
            self.assertEqual(expected(), ["1", "2", "3"], f"after {last} steps")
            self.assertEqual(self.state()[0], {"done": ["a.csv", "b.csv"]})
        self.assertGreater(last, 100)
        if stride > 1:
            print(f"sample: {last // stride} of {last} steps after which a recipe is cut short")

    def test_an_import_that_is_cut_short_neither_loses_nor_repeats(self):
        def fill():
            self.write("Documents/box/in/a.csv", content="1\n2", age=90)
            self.write("Documents/box/in/b.csv", content="3", age=90)

        self.check_cut_short("Import every file of a folder", fill, lambda: self.state()[1])

    def test_files_become_records_once(self):
        def fill():
            self.write("Documents/box/in/a.csv", content="1", age=90)
            self.write("Documents/box/in/b.csv", content="2", age=90)

        documents = lambda: sorted(record["Document"] for record in self.tables["Scans"])  # noqa: E731
        self.check_cut_short("Take a folder of files into records", fill, lambda: [*documents(), "3"])
        self.write("Documents/box/in/c#1? 100%.pdf", "Documents/box/in/half.pdf", content="whole", age=90)

        def insert(select, dialog, target, url, encoding):
            type(self.filemaker).insert_from_url(self.filemaker, select, dialog, target, url, encoding)
            if url.endswith("half.pdf"):
                self.filemaker.set_field(target, "half")

        self.assertEqual(self.take_in("Take a folder of files into records", performing={"insert_from_url": insert}),
                         "half.pdf: failed, not inserted as a whole\r")
        self.assertEqual([documents(), self.tables["Scans"][-1]["Name"]], [["1", "2", "whole"], "c#1? 100%.pdf"])

    def test_wait_for_a_file(self):
        growing = iter(["", "half", "half of it"])
        path = f"{self.data}/Documents/in/order.xml"

        def pause(seconds):
            self.filemaker.later += float(seconds)
            content = next(growing, None)
            if content is not None:
                self.write(path, content=content)

        self.assertEqual(self.run_recipe("Wait for a file", performing={"pause_resume_script": pause}), path)
        self.assertGreaterEqual(self.filemaker.later, 60)  # a stall isn't the end
        os.remove(path)
        self.assertEqual(self.run_recipe("Wait for a file"), "")
        self.assertEqual(self.filemaker.later, 600)

    # ---- Files that leave

    def exported(self, field, path):
        self.assertEqual(field, "Orders::Document")
        self.write(path.removeprefix("file:"))
        self.filemaker.gets["LastError"] = 0

    def test_container_to_folder(self):
        def run(perform):
            return self.run_recipe("Put a container's file into a folder", "order 4711.pdf", performing={"export_field_contents": perform})

        (self.data / "outbox").mkdir()
        self.assertEqual(run(lambda *_: None), "Source path not found")
        self.assertEqual([run(self.exported), self.names("outbox"), self.names("T")], ["", ["order 4711.pdf"], []])
        self.assertEqual(run(self.exported), "File already exists")

    def test_folder_for_each_customer(self):
        def made(name, number="17", date="3/1/2026"):
            result = self.run_recipe("A folder for each customer, year and month", f"{name}\r{number}\r{date}")
            return result.removeprefix(f"{self.data}/archive/").removesuffix("/2026/03")

        for name, expected in (("Miller", "Miller 17"), ("Miller", "Miller 17"), ("AC/DC", "AC-DC 17"), ("../../etc", "-..-etc 17"),
                               (" .hidden. ", "hidden 17"), ('a\\b:c*d?e"f<g>h|i\'j', "a-b-c-d-e-f-g-h-i’j 17"),
                               ("ü" * 300, "ü" * 80 + " 17"), ("日" * 300, "日" * 80 + " 17")):
            self.assertEqual(made(name), expected)
        for refused in ((".",), ("..",), ("",), ("  ",), ("Miller", ""), ("Miller", "../1"), ("Miller", "17", "soon")):
            self.assertEqual(made(*refused), "!!ERROR!!\rno name for a folder", refused)
        self.assertEqual(self.names("."), ["archive"])
        self.write("archive/Miller 18")
        self.assertRegex(made("Miller", "18"), "^!!ERROR!!\r.*Not a directory$")

    def test_encrypt_before_sending(self):
        title, password = "Encrypt before sending", "correct horse battery"
        self.tables["Orders"].append({"Number": "47/11"})

        def run(parameter=password, perform=self.exported):
            return self.run_recipe(title, parameter, performing={"export_field_contents": perform, "record": self.tables["Orders"][0]})

        for refused in ("short", "it's much too open", f"x'; touch {self.data}/F; echo '"):
            self.assertRegex(run(refused), "^!!ERROR!!\rthe password")
        self.assertEqual(list(self.data.iterdir()), [])
        archives = [run(), run()]
        self.assertEqual(len(set(archives)), 2)
        for archive in archives:
            listed = subprocess.run(["7z", "x", "-so", f"-p{password}", archive], capture_output=True, text=True)
            self.assertEqual(listed.stdout, "content")
        self.assertEqual(self.names("T"), [])
        self.assertEqual(run(perform=lambda *_: self.filemaker.gets.update(LastError=800)), "!!ERROR!!\rnot exported, error 800")

    def test_network_share(self):
        title, marker = "Move files to a network share", self.data / "share/.this-is-the-share"
        self.write("outbox/a.pdf", "outbox/b.pdf", "outbox/.hidden", "share/b.pdf")
        self.assertRegex(self.run_recipe(title), "/share: not mounted\r$")
        self.assertEqual([self.names("outbox"), self.names("share")], [[".hidden", "a.pdf", "b.pdf"], ["b.pdf"]])
        marker.touch()
        self.assertEqual(self.run_recipe(title), "b.pdf: File already exists\r")
        self.assertEqual([self.names("outbox"), self.names("share")], [[".hidden", "b.pdf"], [marker.name, "a.pdf", "b.pdf"]])

    # ---- Order

    def test_nightly_backup(self):
        def backup(password="correct horse"):
            return self.run_recipe("Nightly backup of a folder with encryption", password).removeprefix("Backup: ")

        (self.data / "Documents").mkdir()
        self.assertRegex(backup(), "/letters: Source path not found$")
        archive = f"letters-{datetime.date.today().isoweekday() % 7 + 1}.zip"
        self.write("Documents/backups/tonight.zip", f"Documents/backups/{archive}", content="cut short, or last week's")
        self.write("Documents/letters/1.txt", content="Dear")
        for password in (f"x'; touch {self.data}/F; echo '", "a|b"):
            self.assertEqual(backup(password), "no path and no password may contain a single quote or a vertical bar")
        self.assertEqual(self.names("."), ["Documents"])

        self.assertRegex(backup(), rf"^{archive}, \d+ bytes$")
        self.assertEqual(self.names("Documents/backups"), [archive])
        subprocess.run(["7z", "x", "-pcorrect horse", f"-o{self.data}", f"{self.data}/Documents/backups/{archive}"], check=True, stdout=subprocess.DEVNULL)
        self.assertEqual((self.data / "letters/1.txt").read_text(), "Dear")
        # Sparse, and by its size larger than what is free.
        os.truncate(self.data / "Documents/letters/1.txt", shutil.disk_usage(self.data).free + 2**30)
        self.assertEqual(backup(), "too little space")

    def test_retention(self):
        title, day = "Delete what is older than 14 days", 24 * HOUR
        self.assertRegex(self.run_recipe(title, "mail-"), "/backups: Source path not found$")
        self.write(*(f"Documents/backups/{name}" for name in ("mail-1.zip", "mail-2.zip", "mail-2.txt", "letters-1.zip")), age=15 * day)
        self.assertEqual(self.run_recipe(title, "mail-"), "nothing is newer than 14 days: nothing was deleted")
        self.write("Documents/backups/mail-3.zip", age=13 * day)
        self.assertEqual(self.run_recipe(title), "the parameter must be what the names begin with")
        self.assertEqual(self.run_recipe(title, "mail-"), "mail-1.zip: deleted\rmail-2.zip: deleted\r")
        self.assertEqual(self.names("Documents/backups"), ["letters-1.zip", "mail-2.txt", "mail-3.zip"])

    def test_rotate_logs(self):
        for turn in range(1, 6):
            for size, result in ((999_999, "0"), (1_000_000, "1")):
                self.write("logs/import.log", content=str(turn) * size)
                self.assertEqual(self.run_recipe("Rotate logs"), result)
        self.assertEqual(self.run_recipe("Rotate logs"), "0")
        logs = lambda: {path.name: path.read_text()[0] for path in (self.data / "logs").iterdir()}  # noqa: E731
        self.assertEqual(logs(), {"import.1.log": "5", "import.2.log": "4", "import.3.log": "3"})
        for last in itertools.count(1):
            self.write(*(f"logs/import.{number}.log" for number in (1, 2, 3)), content="7" * 1_000_000)
            self.write("logs/import.log", content="8" * 1_000_000)
            if self.cut_after(last, "Rotate logs"):
                break
            self.run_recipe("Rotate logs")
            self.assertEqual(logs(), {"import.1.log": "8", "import.2.log": "7", "import.3.log": "7"}, f"after {last} steps")

    def listed(self, folder):
        return self.run_recipe("List a tree", f"{self.data}/{folder}").removesuffix("\r").split("\r")

    def test_tree_is_listed_once_in_spite_of_links(self):
        self.write("tree/1.txt", "tree/a/2.txt", "tree/a/b/3.txt", "tree/c/4.txt", "outside/5.txt", "outside/6/7.txt")
        for link, target in (("tree/parent", "."), ("tree/a/b/up", "../.."), ("tree/out", f"{self.data}/outside"), ("tree/c/etc", "/etc"),
                             ("tree/a/a", ".")):
            os.symlink(target, self.data / link)
        expected = ["/1.txt", "/a/2.txt", "/a/b/3.txt", "/c/4.txt"]
        self.assertEqual(self.listed("tree"), expected)
        time.sleep(max(0, int(time.time()) + 1.01 - time.time()))  # a link beside its folder is known by its dates
        os.symlink("c", self.data / "tree/beside")
        self.assertEqual(self.listed("tree"), expected)
        self.assertEqual(self.listed("nowhere")[0], "!!ERROR!!")
        (self.data / ("deep" + "/d" * 60)).mkdir(parents=True)
        self.assertRegex(self.listed("deep")[1], "too many folders, or too deep$")

    def test_orphans(self):
        base = f"{self.data}/Files"
        self.write("Files/2026/a.pdf", "Files/2026/b.pdf", "Files/old.pdf", "Files/c.pdf", age=48 * HOUR)
        self.write("Files/new.pdf")
        find = "Find orphans of external containers"
        self.assertRegex(self.run_recipe(find, base), "^!!ERROR!!\rno record names a file")
        self.tables["Documents"] += [{"externalFiles": f"filelinux:{base}/2026/a.pdf\r"}, {}, {"externalFiles": f"filelinux:{base}/c.pdf"}]
        self.assertEqual(self.run_recipe(find, base), "/old.pdf\r/2026/b.pdf\r")
        self.tables["Documents"].append({"externalFiles": f"filelinux:{base}/old.pdf"})  # meanwhile
        self.assertEqual(self.run_recipe("Remove orphans of external containers", f"{base}\r/old.pdf\r/2026/b.pdf\r/2026/a.pdf"),
                         "/old.pdf: no orphan\r/2026/b.pdf: moved\r/2026/a.pdf: no orphan\r")
        self.assertEqual([self.names("Files/2026"), self.names("Files orphans")[0][13:]], [["a.pdf"], "b.pdf"])

    def test_others_that_are_cut_short_come_to_the_same(self):
        day = 24 * HOUR
        for title, parameter, files in (
                ("Move files to a network share", "", {"outbox/a": 0, "outbox/b": 0, "share/b": 0, "share/.this-is-the-share": 0}),
                ("Delete what is older than 14 days", "letters-", {f"Documents/backups/letters-{age}.zip": age * day for age in (1, 15, 16)}),
                ("A folder for each customer, year and month", "Miller\r17\r3/1/2026", {}),
                ("Put a container's file into a folder", "order.pdf", {"outbox/a": 0})):
            ends = []
            for last in itertools.count(0):
                self.doCleanups()
                self.setUp()
                for name, age in files.items():
                    self.write(name, content=name, age=age)
                performing = {"export_field_contents": self.exported}
                if last > 0 and self.cut_after(last, title, parameter, performing=performing):
                    break
                self.run_recipe(title, parameter, performing=performing)
                # FileMaker empties its temporary folder itself.
                ends.append(sorted((str(path.relative_to(self.data)), path.is_dir() or path.read_text())
                                   for path in self.data.rglob("[!T]*") if path.parent.name != "T"))
                self.assertEqual(ends[-1], ends[0], f"{title}, after {last} steps")
            self.assertGreater(last, 5, title)

    # ---- On the screen

    def test_pick_and_archive(self):
        self.write("project/plan.txt", "it's/plan.txt")
        archive, shown = f"{self.data}/project.zip", []
        performing = {"show_custom_dialog": lambda _, message: shown.append(message)}
        results = [self.run_recipe("Pick and archive", chosen=chosen, performing=performing)
                   for chosen in ("", f"{self.data}/project", f"{self.data}/project", f"{self.data}/it's", None)]  # None: there is no display
        self.assertEqual(results, ["", archive, "", "", ""])
        subprocess.run(["unzip", "-tq", archive], check=True, stdout=subprocess.DEVNULL)
        self.assertEqual(shown, [
            "There is an archive of this folder already.",
            "A folder with a single quote or a vertical bar in its path can't be archived.",
            "Unable to complete operation -  Unable to get folder path"])

    def test_install(self):
        installed = []

        def run(listed):
            performing = {"install_plug_in_file": installed.append}
            return self.run_recipe("Install or update the plug-in", gets={"InstalledFMPlugins": listed.replace("|", "\r")}, performing=performing)

        for version in ("5.0.2.1", "5.0.10", "6"):
            self.assertEqual(run(f"Other;1;Enabled|Folidex;{version};Enabled"), f"Folidex {version} is installed")
        for state in ("Ignored", "Disabled"):
            self.assertEqual(run(f"Folidex;5.0.2.1;{state}"), f"Folidex 5.0.2.1 is there, but {state.lower()}")
        self.assertEqual(installed, [])
        for listed in ("", "Other;9.9.9.9;Enabled", "Folidex;5.0.2;Enabled", "Folidex;4.9.9.9;Ignored|Other;1;Disabled"):
            self.assertRegex(run(listed), "^Folidex 5.0.2.1 could not be installed")
        self.assertEqual(installed, ["Plugins::Folidex"] * 4)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
