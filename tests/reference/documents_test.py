"""What the documents show, run against the plug-in: examples, commands and short scripts.

Called as: documents_test.py FMXHOST PLUGIN SOURCE-FOLDER
"""

import re
import shutil
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

FMXHOST, PLUGIN, SOURCE = sys.argv[1:4]
sys.path.insert(0, f"{SOURCE}/tools")
import function_texts  # noqa: E402
import script_runner  # noqa: E402

INDEX = "docs/reference/index.md"


def text_of(name):
    return Path(SOURCE, name).read_text("utf-8")


def blocks(name, language):
    return [block["content"] for block in function_texts.BLOCK.finditer(text_of(name)) if block["language"] == language]


class Documents(unittest.TestCase):
    def setUp(self):
        self.data = Path(tempfile.mkdtemp())
        self.addCleanup(shutil.rmtree, self.data)

    def shell(self, commands, folder=None):
        done = subprocess.run(["sh", "-ec", commands.replace("/data", f"{self.data}")], cwd=folder, capture_output=True, text=True)
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        return done.stdout

    def test_examples_of_the_reference(self):
        examples = {name: text.example for name, text in function_texts.read(f"{SOURCE}/docs/reference").items()}
        for heading, content in function_texts.sections_of(text_of(INDEX)):
            if "\n→ " in content:
                examples[heading] = function_texts.example_of(heading, content)
        for name, example in examples.items():
            self.doCleanups()  # a folder of its own for each
            self.setUp()
            with self.subTest(name), script_runner.Calculator(FMXHOST, PLUGIN, self.data) as calculator:
                self.shell(example.setup)
                for calculation, expected in example.steps:
                    answer = calculator.answer(calculation)
                    quote = '"' * (answer["type"] == "text")
                    self.assertEqual(f"{quote}{answer['value']}{quote}", expected.replace("/data", str(self.data)), calculation)

    def test_commands(self):
        self.shell("mkdir -p /data/letters /data/backup")
        # The line for the log, and the status.
        self.assertRegex(self.shell(blocks(INDEX, "sh")[-1], Path(FMXHOST).parent / "shipped"), r"^0 zip: *\n0\n$")
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
            with script_runner.Calculator(FMXHOST, PLUGIN, self.data) as calculator:
                filemaker = script_runner.FileMaker(calculator, {})
                self.assertEqual([filemaker.run(script, "it's") or None for script in blocks(name, "filemaker")], results)
        self.assertEqual(self.shell("ls /data/inbox; ls /data/archive"), "order 4711.pdf\n")


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
