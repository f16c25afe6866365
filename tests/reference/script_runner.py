"""Runs what the documentation shows: calculations and scripts, with one plug-in instance behind `fmxhost run -`.

Every calculation is done by fmxhost; steps that are FileMaker's own, such as importing, are handed to the caller. A field is a
variable: `Orders::Document` is $Orders_Document, and so is the error of the last such step, $LastError.
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

# FileMaker's steps as Python's statements; all others are the caller's.
STATEMENTS = {"If": "if is_true({0!r}):", "Else": "else:", "End If": "pass", "Loop": "while True:", "End Loop": "pass",
              "Exit Loop If": "if is_true({0!r}): break", "Exit Script": "return value({0!r})", "#": "pass",
              "Set Variable": "assign({0!r}, {1!r})", "Set Field": "assign({0!r}, {1!r})", "Set Error Capture": "pass"}
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

    def written(self, calculation):
        """The result as the documentation writes it."""
        answer = self.answer(calculation)
        quote = '"' if answer["type"] == "text" else ""
        return f"{quote}{answer['value']}{quote}"


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
