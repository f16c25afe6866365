"""Man page and completions know the options and commands that "fmxhost --help" shows, and the version.

Called as: command_line_words.py SOURCE-FOLDER FMXHOST PLUGIN
"""

import os
import re
import subprocess
import sys
import unittest
from pathlib import Path

SOURCE, FMXHOST, PLUGIN = sys.argv[1:4]
PACKAGING = Path(SOURCE, "packaging")
COMPLETE = """
source "$1"; shift
COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1))
_fmxhost fmxhost "${COMP_WORDS[COMP_CWORD]}" "${COMP_WORDS[COMP_CWORD - 1]}"
printf '%s\\n' "${COMPREPLY[@]}"
"""


def run(*arguments):
    return subprocess.run([FMXHOST, *arguments], check=True, capture_output=True, text=True).stdout


def words_of_help():
    options = re.findall(r"^  (?:-\w,)?(-[-\w]+)", run("--help"), re.M)
    commands = re.findall(r"^  ([a-z]+) ", run("--help").partition("Subcommands:")[2], re.M)
    options += re.findall(r"^  (--[-\w]+)", run("check", "--help"), re.M)
    commands += re.findall(r"^  ([-a-z]+) ", run("check", "--help").partition("Subcommands:")[2], re.M)
    return options, commands


class CommandLineWords(unittest.TestCase):
    def test_every_word_is_documented_and_completed(self):
        options, commands = words_of_help()
        self.assertTrue({"-e", "--plugin", "--only-failed"} <= set(options) and {"run", "help", "list-tests"} <= set(commands))
        for name in ("fmxhost.1", "completion/fmxhost.bash", "completion/_fmxhost"):
            text = re.sub(r"\\f[BIR]|\\(?=-)", "", (PACKAGING / name).read_text(encoding="utf-8"))
            unknown = [word for word in options + commands if not re.search(rf"(?<![-\w]){re.escape(word)}(?![-\w])", text)]
            self.assertEqual(unknown, [], name)

    def test_man_page_names_the_version(self):
        heading = (PACKAGING / "fmxhost.1").read_text(encoding="utf-8").splitlines()[0]
        self.assertIn(run("--version").split()[-1], heading)

    def test_bash_completes_commands_options_and_functions(self):
        environment = {**os.environ, "PATH": f"{Path(FMXHOST).parent}:{os.environ['PATH']}"}
        cases = {
            ("fmxhost", "che"): ["check"],
            ("fmxhost", "--no"): ["--no-arity-check"],
            ("fmxhost", "--plugin", PLUGIN, "help", "KORB_GetLastE"): ["KORB_GetLastError"],
            ("fmxhost", "--plugin", PLUGIN, "help", "korb_filec"): ["KORB_FileCopy"],
            ("fmxhost", "--plugin", "=", f"{PLUGIN[:-4]}"): [PLUGIN],
            ("fmxhost", "check", "start"): ["start-up"],
            ("fmxhost", "-e", "1", "st"): ["steps", "strings"],
        }
        for line, expected in cases.items():
            command = ["bash", "-c", COMPLETE, "bash", PACKAGING / "completion/fmxhost.bash", *line]
            completed = subprocess.run(command, check=True, capture_output=True, text=True, env=environment)
            self.assertEqual(completed.stdout.split(), expected, line)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
