"""Man page and completions know every option and command that "fmxhost --help" shows; bash completes them.

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


def output(*command, **options):
    return subprocess.run(command, check=True, capture_output=True, text=True, **options).stdout


class CommandLineWords(unittest.TestCase):
    def test_every_word_is_documented_and_completed(self):
        words = re.findall(r"^  (?:-\w,)?(-?[-a-z]+) ", output(FMXHOST, "--help") + output(FMXHOST, "check", "--help"), re.M)
        self.assertLessEqual({"-e", "--plugin", "--only-failed", "run", "help", "list-tests"}, set(words))
        for name in ("fmxhost.1", "completion/fmxhost.bash", "completion/_fmxhost"):
            text = re.sub(r"\\f[BIR]|\\(?=-)", "", (PACKAGING / name).read_text(encoding="utf-8"))
            unknown = [word for word in words if not re.search(rf"(?<![-\w]){re.escape(word)}(?![-\w])", text)]
            self.assertEqual(unknown, [], name)
        heading = (PACKAGING / "fmxhost.1").read_text(encoding="utf-8").splitlines()[0]
        self.assertIn(output(FMXHOST, "--version").split()[-1], heading)

    def test_bash_completes_commands_options_and_functions(self):
        environment = {**os.environ, "PATH": f"{Path(FMXHOST).parent}:{os.environ['PATH']}"}
        cases = {
            ("che",): ["check"],
            ("--no",): ["--no-arity-check"],
            ("--plugin", PLUGIN, "help", "KORB_GetLastE"): ["KORB_GetLastError"],
            ("--plugin", PLUGIN, "help", "korb_filec"): ["KORB_FileCopy"],
            ("--plugin", PLUGIN, "help", "["): [],
            ("--plugin", "=", f"{PLUGIN[:-4]}"): [PLUGIN],
            ("check", "start"): ["start-up"],
            ("-e", "1", "st"): ["steps", "strings"],
        }
        for line, expected in cases.items():
            words = ("bash", PACKAGING / "completion/fmxhost.bash", "fmxhost", *line)
            self.assertEqual(output("bash", "-c", COMPLETE, *words, env=environment).split(), expected, line)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
