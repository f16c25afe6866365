"""Calculations and what fmxhost prints for them: calculations/*.txt, where "→ " begins a line of output.

Arguments: fmxhost, Folidex.fmx, the sample plug-in.
"""

import os
import pathlib
import re
import subprocess
import sys
import unittest

HOST, _, SAMPLE = sys.argv[1:4]
ARROW = "→ "


class Calculations(unittest.TestCase):
    maxDiff = None


def add_test(file):
    def test(self):
        lines = file.read_text(encoding="utf-8").splitlines()
        calculations = [line for line in lines if not line.startswith(ARROW)]
        result = subprocess.run([HOST, "--plugin", SAMPLE, "--get", "ScriptParameter=a=b", "--get", "Café=au lait"],
                                input="\n".join(calculations).encode(), stdout=subprocess.PIPE,
                                stderr=subprocess.STDOUT, env={**os.environ, "HOME": "/home/me", "TMPDIR": "/scratch/", "SAMPLE": "definition=<PluginStep/>"})
        # Standard error too; lines are other ones here.
        printed = re.sub(r"standard input:\d+:", "", result.stdout.decode()).splitlines()
        self.assertEqual("\n".join(printed), "\n".join(line[len(ARROW):] for line in lines if line.startswith(ARROW)))

    setattr(Calculations, f"test_{file.stem}", test)


for script in sorted(pathlib.Path(__file__).with_name("calculations").glob("*.txt")):
    add_test(script)

if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
