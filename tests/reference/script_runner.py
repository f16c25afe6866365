"""Runs what the documentation shows: calculations and scripts, with one plug-in instance behind `fmxhost run -`.

Control steps are done here and every calculation by fmxhost. Steps that are FileMaker's own, such as importing, are handed
to the caller. A field is a variable: `Orders::Document` is $Orders_Document.
"""

import json
import os
import re
import subprocess
import sys
from pathlib import Path

FMXHOST, PLUGIN, SOURCE = sys.argv[1:4]
sys.path.insert(0, f"{SOURCE}/tools")
import filemaker_script  # noqa: E402

OPENING = {"If": "End If", "Loop": "End Loop"}
FIELD = re.compile(r"\b(\w+)::(\w+)\b")


class Calculator:
    """`data` stands for the folder /data and is the user's home; there is no display."""

    def __init__(self, data, **gets):
        environment = {name: value for name, value in os.environ.items() if name not in ("DISPLAY", "WAYLAND_DISPLAY")}
        given = [word for name, value in gets.items() for word in ("--get", f"{name}={value}")]
        self.process = subprocess.Popen([FMXHOST, "--plugin", PLUGIN, "--json", *given, "run", "-"], text=True, bufsize=1,
                                        stdin=subprocess.PIPE, stdout=subprocess.PIPE, env=environment | {"HOME": str(data)})
        self.data = str(data)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.process.stdin.close()
        self.process.stdout.close()
        self.process.wait()

    def answer(self, calculation):
        """fmxhost's object: type, value, error."""
        self.process.stdin.write(FIELD.sub(r"$\1_\2", calculation.replace("/data", self.data)) + "\n")
        answer = self.process.stdout.readline()
        if not answer:
            raise ValueError(f"fmxhost refuses {calculation}")
        return json.loads(answer)

    def evaluate(self, calculation):
        return self.answer(calculation)["value"]

    def written(self, calculation):
        """The result as the documentation writes it."""
        answer = self.answer(calculation)
        quote = '"' if answer["type"] == "text" else ""
        return f"{quote}{answer['value']}{quote}"


class Script:
    def __init__(self, text, calculator, perform):
        """`perform(name, values)`: FileMaker's own steps, with fields as the names of variables."""
        self.steps = [step for step in filemaker_script.parse(text) if step.name != "#"]
        self.calculator, self.perform = calculator, perform

    def is_true(self, calculation):
        # A whole calculation "$name = …" would assign.
        return self.calculator.evaluate(f"( {calculation} )") not in ("", "0")

    def after(self, index, *names):
        """The index of the next step of one of these names at this depth."""
        depth = 0
        while depth > 0 or self.steps[index].name not in names:
            name = self.steps[index].name
            depth += (name in OPENING) - (name in OPENING.values())
            index += 1
        return index

    def value(self, option):
        is_name = FIELD.fullmatch(option) or option in ("Off", "Select")
        return FIELD.sub(r"$\1_\2", option) if is_name else self.calculator.evaluate(f"( {option} )")

    def run(self):
        """The script's result."""
        loops, index = [], 0
        while index < len(self.steps):
            name, options = self.steps[index]
            index += 1
            if name in ("Set Variable", "Set Field"):
                self.calculator.evaluate(f"{options[0]} = {options[1]}")
            elif name == "If":
                if not self.is_true(options[0]):
                    index = self.after(index, "Else", "End If") + 1
            elif name == "Else":
                index = self.after(index, "End If") + 1
            elif name == "Loop":
                loops.append(index)
            elif name == "End Loop":
                index = loops[-1]
            elif name == "Exit Loop If":
                if self.is_true(options[0]):
                    loops.pop()
                    index = self.after(index, "End Loop") + 1
            elif name == "Exit Script":
                return self.calculator.evaluate(f"( {options[0]} )")
            elif name not in ("End If", "Set Error Capture"):
                self.perform(name, [self.value(option) for option in options])
        return None
