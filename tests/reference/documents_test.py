"""What the documents show, run against the plug-in: examples, commands, and scripts step by step, the recipes among them.

Every calculation is done by fmxhost; FileMaker's own steps, such as importing, are imitated. A field is a variable,
`Orders::Document` is $Orders_Document, and so is the error of the last such step, $LastError.

Called as: documents_test.py FMXHOST PLUGIN SOURCE-FOLDER
"""

import datetime
import json
import os
import re
import shutil
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path
from urllib.parse import unquote, urlsplit

FMXHOST, PLUGIN, SOURCE = sys.argv[1:4]
sys.path.insert(0, f"{SOURCE}/tools")
import filemaker_script  # noqa: E402
import function_texts  # noqa: E402

INDEX = "docs/reference/index.md"

# FileMaker's steps as Python's statements; all others are the caller's.
STATEMENTS = {"If": "if is_true({0!r}):", "Else": "else:", "End If": "pass", "Loop": "while True:", "End Loop": "pass",
              "Exit Loop If": "if is_true({0!r}): break", "Exit Script": "return value({0!r})", "#": "pass",
              "Set Variable": "assign({0!r}, {1!r})", "Set Field": "assign({0!r}, {1!r})", "Set Error Capture": "pass"}
FIELD = re.compile(r"\b(\w+)::(\w+)\b")


class Calculator:
    """One plug-in instance behind `fmxhost run -`, without a display. `data` stands for the folder /data and is the home folder."""

    def __init__(self, data, **gets):
        environment = {name: value for name, value in os.environ.items() if name not in ("DISPLAY", "WAYLAND_DISPLAY")}
        given = [word for name, value in gets.items() for word in ("--get", f"{name}={value}")]
        self.process = subprocess.Popen([FMXHOST, "--plugin", PLUGIN, "--json", *given, "run", "-"], text=True, bufsize=1,
                                        stdin=subprocess.PIPE, stdout=subprocess.PIPE, env=environment | {"HOME": str(data)})
        self.data = str(data)

    def __enter__(self):
        self.evaluate("$LastError = 0")
        return self

    def __exit__(self, *_):
        self.process.stdin.close()
        self.process.stdout.close()
        self.process.wait()

    def answer(self, calculation):
        """fmxhost's object: type, value, error."""
        calculation = calculation.replace("/data", self.data).replace("Get ( LastError )", "$LastError")
        self.process.stdin.write(FIELD.sub(r"$\1_\2", calculation) + "\n")
        answer = self.process.stdout.readline()
        if not answer:
            raise ValueError(f"fmxhost refuses {calculation}")
        return json.loads(answer)

    def evaluate(self, calculation):
        return self.answer(calculation)["value"]


def run_script(text, calculator, perform):
    """The script's result. `perform(name, values)`: FileMaker's own steps, with fields as the names of variables."""

    def value(option):
        is_name = FIELD.fullmatch(option) or option in ("Off", "Select")
        # A whole calculation "$name = …" would assign.
        return FIELD.sub(r"$\1_\2", option) if is_name else calculator.evaluate(f"( {option} )")

    lines, depth = ["def script():"], 1
    for name, options in filemaker_script.parse(text):
        depth -= name in ("Else", "End If", "End Loop")
        statement = STATEMENTS.get(name, "perform({name!r}, [value(option) for option in {options!r}])")
        lines.append("    " * depth + statement.format(*options, name=name, options=options))
        depth += name in ("If", "Else", "Loop")
    scope = {"is_true": lambda calculation: value(calculation) not in ("", "0"), "value": value, "perform": perform,
             "assign": lambda name, calculation: calculator.evaluate(f"{name} = {calculation}")}
    exec("\n".join(lines), scope)
    return scope["script"]()


def text_of(name):
    return Path(SOURCE, name).read_text("utf-8")


def blocks(name, language):
    return [block["content"] for block in function_texts.BLOCK.finditer(text_of(name)) if block["language"] == language]


RECIPES = {title: re.search(r"^```filemaker\n(.*?)^```$", text, re.M | re.S)[1]
           for title, text in function_texts.sections_of(text_of("docs/recipes.md")) if "```filemaker" in text}


class Documents(unittest.TestCase):
    def setUp(self):
        self.data = Path(tempfile.mkdtemp())
        self.addCleanup(shutil.rmtree, self.data)
        self.performed = []

    def shell(self, commands, folder=None):
        done = subprocess.run(["sh", "-ec", commands.replace("/data", f"{self.data}")], cwd=folder, capture_output=True, text=True)
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        return done.stdout

    def write(self, *names, content="content"):
        for name in names:
            path = self.data / name
            path.parent.mkdir(parents=True, exist_ok=True)
            path.write_text(content, encoding="utf-8")

    def names(self, folder):
        return sorted(path.name for path in (self.data / folder).iterdir())

    def test_examples_of_the_reference(self):
        examples = {name: text.example for name, text in function_texts.read(f"{SOURCE}/docs/reference").items()}
        for heading, content in function_texts.sections_of(text_of(INDEX)):
            if "\n→ " in content:
                examples[heading] = function_texts.example_of(heading, content)
        for name, example in examples.items():
            self.doCleanups()  # a folder of its own for each
            self.setUp()
            with self.subTest(name), Calculator(self.data) as calculator:
                self.shell(example.setup)
                for calculation, expected in example.steps:
                    answer = calculator.answer(calculation)
                    quote = '"' * (answer["type"] == "text")
                    self.assertEqual(f"{quote}{answer['value']}{quote}", expected.replace("/data", str(self.data)), calculation)

    def test_commands(self):
        self.shell("mkdir -p /data/letters /data/backup")
        self.assertEqual(self.shell(blocks(INDEX, "sh")[-1], f"{SOURCE}/resources"), "0\n")
        self.assertEqual(self.shell(blocks("docs/guarantees.md", "sh")[0]), "")

    def test_prompt_of_readme(self):
        self.shell('mkdir /data/inbox /data/archive /data/backup; head -c 48213 /dev/urandom > "/data/inbox/order 4711.pdf"')
        shown = re.search(r"\$ build/release/fmxhost\n(.*)", blocks("README.md", "")[0], re.S)[1]
        typed = "".join(line.removeprefix("fmxhost> ") for line in shown.splitlines(True) if line.startswith("fmxhost> "))
        typed = typed.replace("/data", str(self.data))
        answers = subprocess.run([FMXHOST, "--plugin", PLUGIN], input=typed, stdout=subprocess.PIPE, text=True)
        self.assertEqual(answers.stdout, re.sub(r"^fmxhost> .*\n", "", shown, flags=re.M))

    def test_scripts(self):
        expected = {
            "README.md": [None],
            "docs/install.md": ["Folidex 5.0.2.1"],
            INDEX: ["Not deleted: Source path not found", "A single quote or a vertical bar isn't allowed here."],
        }
        self.shell('mkdir /data/inbox /data/archive; touch "/data/inbox/order 4711.pdf"')
        for name, results in expected.items():
            with Calculator(self.data, ScriptParameter="it's") as calculator:
                self.assertEqual([run_script(script, calculator, self.fail) for script in blocks(name, "filemaker")], results)
        self.assertEqual(self.shell("ls /data/inbox; ls /data/archive"), "order 4711.pdf\n")

    def run_recipe(self, title, perform=None, chosen=None, **gets):
        """`chosen`: what the user chooses, in the place of a dialog."""
        text = RECIPES[title] if chosen is None else RECIPES[title].replace('KORB_GetFolderPath( "" )', f'"{chosen}"')
        perform = perform or (lambda name, values: self.performed.append((name, *values)))
        gets |= {"DocumentsPath": f"{self.data}/Documents/", "TemporaryPath": f"{self.data}/T/"}
        with Calculator(self.data, **gets) as self.calculator:
            return run_script(text, self.calculator, perform)

    def test_all_recipes_are_run_here(self):
        for title in RECIPES:
            self.assertIn(f'"{title}"', Path(__file__).read_text("utf-8"))

    def test_nightly_backup(self):
        def backup(password="correct horse"):
            result = self.run_recipe("Nightly backup of a folder with encryption", ScriptParameter=password)
            return result.removeprefix("Backup: ")

        (self.data / "Documents").mkdir()
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
        self.shell(f"7z x -p'correct horse' -o/data /data/Documents/backups/{archive}")
        self.assertEqual((self.data / "letters/1.txt").read_text(), "Dear")
        # Sparse, and by its size larger than what is free.
        os.truncate(self.data / "Documents/letters/1.txt", shutil.disk_usage(self.data).free + 2**30)
        self.assertEqual(backup(), "too little space")

    def test_import(self):
        title = "Import every file of a folder"
        self.assertEqual(self.run_recipe(title), "Source path not found")
        for name in ("a.csv", "b.CSV", "Ü.csv", ".hidden.csv", "readme.txt", "c.csv", "../done/c.csv"):
            self.write(f"Documents/in/{name}")
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
        self.shell("unzip -tq /data/project.zip")
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
    unittest.main(argv=sys.argv[:1])
