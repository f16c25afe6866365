"""Every example of the reference, and what README shows at the prompt, run against the plug-in.

Called as: examples_test.py FMXHOST PLUGIN SOURCE-FOLDER
"""

import re
import subprocess
import tempfile
import unittest
from pathlib import Path

from script_runner import SOURCE, Calculator, run_script

import function_texts


def text_of(name):
    return Path(SOURCE, name).read_text("utf-8")


class Examples(unittest.TestCase):
    def check(self, setup, steps, result=lambda text: text):
        with tempfile.TemporaryDirectory() as data:
            subprocess.run(["sh", "-ec", setup.replace("/data", data)], check=True)
            with Calculator(data) as calculator:
                for calculation, expected in steps:
                    self.assertEqual(result(calculator.written(calculation)), expected.replace("/data", data), calculation)

    def test_functions(self):
        for name, text in function_texts.read(f"{SOURCE}/docs/reference").items():
            with self.subTest(name):
                self.check(text.example.setup, text.example.steps)

    def test_chapters(self):
        for heading, content in function_texts.sections_of(text_of("docs/reference/index.md")):
            if "\n→ " in content:
                example = function_texts.example_of(heading, "".join(block[0] + "\n" for block in function_texts.BLOCK.finditer(content)))
                with self.subTest(heading):
                    self.check(example.setup, example.steps)

    def test_commands(self):
        for name, setup, printed in [("docs/reference/index.md", "mkdir -p /data/letters /data/backup", "0\n"), ("docs/guarantees.md", "", "")]:
            blocks = [block for block in function_texts.BLOCK.finditer(text_of(name)) if block["language"] == "sh"]
            with tempfile.TemporaryDirectory() as data:
                commands = f"{setup}\n{blocks[-1]['content']}".replace("/data", data)
                done = subprocess.run(["sh", "-ec", commands], cwd=f"{SOURCE}/resources", capture_output=True, text=True)
                self.assertEqual((done.returncode, done.stdout), (0, printed), done.stderr)

    def test_prompt_of_readme(self):
        lines = re.search(r"^```\n\$ build/release/fmxhost\n(.*?)^```", text_of("README.md"), re.M | re.S)[1].splitlines()
        steps = list(zip((line.removeprefix("fmxhost> ") for line in lines[::2]), lines[1::2]))
        setup = 'mkdir /data/inbox /data/archive /data/backup; head -c 48213 /dev/urandom > "/data/inbox/order 4711.pdf"'
        self.check(setup, steps, lambda text: text.strip('"'))

    def test_scripts_outside_of_recipes(self):
        expected = {
            "README.md": [None],
            "docs/install.md": ["Folidex 5.0.2.1"],
            "docs/reference/index.md": ["Not deleted: Source path not found", "A single quote or a vertical bar isn't allowed here."],
        }
        for name, results in expected.items():
            scripts = [block["content"] for block in function_texts.BLOCK.finditer(text_of(name)) if block["language"] == "filemaker"]
            with tempfile.TemporaryDirectory() as data, Calculator(data, ScriptParameter="it's") as calculator:
                for folder in ("inbox", "archive"):
                    Path(data, folder).mkdir()
                order = Path(data, "inbox/order 4711.pdf")
                order.touch()
                self.assertEqual([run_script(script, calculator, self.fail) for script in scripts], results, name)
                self.assertEqual(order.exists(), name != "README.md")


if __name__ == "__main__":
    unittest.main(argv=["examples_test.py"])
