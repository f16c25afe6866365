"""Runs scripts in FileMaker's notation: control steps here, every calculation in one fmxhost process.

Steps that this module doesn't know are handed to the caller as (name, values). Of FileMaker's own functions, fmxhost
knows those that need no FileMaker; the few others below are given fixed answers.
"""

import json
import re
import subprocess

STEP = re.compile(r"(?P<name>[^\[]*?)\s*(?:\[(?P<options>.*)\])?")
OPTION_LABEL = re.compile(r"^(?:Value|Text Result|Duration \(seconds\)|Source):\s*")
OPENING = {"If": "End If", "Loop": "End Loop"}


class Calculator:
    """One plug-in instance behind `fmxhost run -`; answers are (type, value)."""

    def __init__(self, fmxhost, plugin, environment):
        command = [fmxhost, "--plugin", plugin, "--json", "run", "-"]
        self.process = subprocess.Popen(
            command, stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True, bufsize=1, env=environment
        )

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.process.stdin.close()
        self.process.stdout.close()
        self.process.wait()

    def evaluate(self, calculation):
        self.process.stdin.write(calculation + "\n")
        answer = self.process.stdout.readline()
        if not answer:
            raise ValueError(f"fmxhost refuses {calculation}")
        return json.loads(answer)["value"]


def split_options(text):
    """The options of a step, separated by ";" outside of parentheses and texts, without their labels."""
    parts, depth, quoted = [""], 0, False
    for character in text:
        quoted ^= character == '"'
        depth += not quoted and (character == "(") - (character == ")")
        if character == ";" and depth == 0 and not quoted:
            parts.append("")
        else:
            parts[-1] += character
    return [OPTION_LABEL.sub("", part.strip()) for part in parts]


class Script:
    def __init__(self, text, calculator, answers, perform):
        """`answers`: calculations by the expressions that they stand in for. `perform(name, values)`: other steps."""
        self.steps = [self.parse(line.strip()) for line in text.splitlines() if line.strip() and line.strip()[0] != "#"]
        self.calculator, self.answers, self.perform = calculator, answers, perform

    @staticmethod
    def parse(line):
        match = STEP.fullmatch(line)
        return match["name"], split_options((match["options"] or "").strip())

    def evaluate(self, calculation, variable=None):
        for expression, answer in self.answers.items():
            calculation = calculation.replace(expression, answer)
        # A whole calculation "$name = …" would assign.
        return self.calculator.evaluate(f"{variable} = {calculation}" if variable else f"( {calculation} )")

    def is_true(self, calculation):
        return self.evaluate(calculation) not in ("", "0")

    def after(self, index, *names):
        """The index of the next step of one of these names at this depth."""
        depth = 0
        while depth > 0 or self.steps[index][0] not in names:
            name = self.steps[index][0]
            depth += (name in OPENING) - (name in OPENING.values())
            index += 1
        return index

    def run(self):
        """The script's result."""
        loops, index = [], 0
        while index < len(self.steps):
            name, options = self.steps[index]
            index += 1
            if name == "Set Variable":
                self.evaluate(options[1], variable=options[0])
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
                return self.evaluate(options[0])
            elif name != "End If":
                self.perform(name, [option if ":" in option else self.evaluate(option) for option in options])
        return None
