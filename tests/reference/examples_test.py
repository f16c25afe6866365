"""Every example, command and script that the documents show outside of the recipes, run against the plug-in.

Called as: examples_test.py FMXHOST PLUGIN SOURCE-FOLDER
"""

import re
import subprocess
import tempfile
import unittest
from pathlib import Path

from script_runner import FMXHOST, PLUGIN, SOURCE, Calculator, run_script

import function_texts

INDEX = "docs/reference/index.md"


def text_of(name):
    return Path(SOURCE, name).read_text("utf-8")


def blocks(name, language):
    return [block["content"] for block in function_texts.BLOCK.finditer(text_of(name)) if block["language"] == language]


class Examples(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.data = folder.name

    def shell(self, commands, folder=None):
        done = subprocess.run(["sh", "-ec", commands.replace("/data", self.data)], cwd=folder, capture_output=True, text=True)
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        return done.stdout

    def test_examples_of_the_reference(self):
        examples = {name: text.example for name, text in function_texts.read(f"{SOURCE}/docs/reference").items()}
        for heading, content in function_texts.sections_of(text_of(INDEX)):
            if "\n→ " in content:
                examples[heading] = function_texts.example_of(heading, content)
        for name, example in examples.items():
            with self.subTest(name), tempfile.TemporaryDirectory() as self.data, Calculator(self.data) as calculator:
                self.shell(example.setup)
                for calculation, expected in example.steps:
                    self.assertEqual(calculator.written(calculation), expected.replace("/data", self.data), calculation)

    def test_commands(self):
        self.shell("mkdir -p /data/letters /data/backup")
        self.assertEqual(self.shell(blocks(INDEX, "sh")[-1], f"{SOURCE}/resources"), "0\n")
        self.assertEqual(self.shell(blocks("docs/guarantees.md", "sh")[0]), "")

    def test_prompt_of_readme(self):
        self.shell('mkdir /data/inbox /data/archive /data/backup; head -c 48213 /dev/urandom > "/data/inbox/order 4711.pdf"')
        shown = re.search(r"\$ build/release/fmxhost\n(.*)", blocks("README.md", "")[0], re.S)[1]
        typed = "".join(line.removeprefix("fmxhost> ") for line in shown.splitlines(True) if line.startswith("fmxhost> "))
        answers = subprocess.run([FMXHOST, "--plugin", PLUGIN], input=typed.replace("/data", self.data), capture_output=True, text=True)
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


if __name__ == "__main__":
    unittest.main(argv=["examples_test.py"])
