"""Runs the documents' scripts step by step: fmxhost calculates, a FileMaker of a few lines keeps records and layouts.

A run can be cut short after any step, as a server does that stops: what wasn't committed is gone with it.
"""

import itertools
import json
import os
import re
import subprocess
import uuid
from collections import defaultdict
from pathlib import Path
from urllib.parse import unquote, urlsplit

import filemaker_script

# Control steps as Python's statements; all others are performed.
STATEMENTS = {"If": "if is_true({0!r}):", "Else": "else:", "Else If": "elif is_true({0!r}):", "End If": "pass", "Loop": "while True:", "End Loop": "pass",
              "Exit Loop If": "if is_true({0!r}): break", "Exit Script": "return calculate('( ' + {0!r} + ' )')", "#": "pass",
              "Set Variable": "calculate('{0} = ' + {1!r})", "Set Error Capture": "pass",
              "Perform Script": "perform_script({1!r}, {2!r})"}
FIELD = re.compile(r"\b(\w+)::(\w+)\b")
SETTING = re.compile(FIELD.pattern + r"|Off|On|Select|First|Next|Exit after last: On|Do not automatically encode URL")
LOCAL_VARIABLE = re.compile(r"(?<!\$)\$(\w+)")


def quoted(value):
    text = str(value).replace("\\", "\\\\").replace('"', '\\"').replace("\r", '" & ¶ & "').replace("\n", '" & Char ( 10 ) & "')
    return str(value) if isinstance(value, int) else f'( "{text}" )'


class Cut(Exception):
    """The run ended here."""


class Calculator:
    """One plug-in instance behind `fmxhost run -`, without a display. `data` stands for the folder /data and is the home folder."""

    def __init__(self, fmxhost, plugin, data, **gets):
        environment = {name: value for name, value in os.environ.items() if name not in ("DISPLAY", "WAYLAND_DISPLAY")}
        given = [word for name, value in gets.items() for word in ("--get", f"{name}={value}")]
        self.process = subprocess.Popen([fmxhost, "--plugin", plugin, "--json", *given, "run", "-"], text=True, bufsize=1,
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
        self.process.stdin.write(calculation.replace("/data", self.data) + "\n")
        answer = self.process.stdout.readline()
        if not answer:
            raise ValueError(f"fmxhost refuses {calculation}")
        return json.loads(answer)

    def evaluate(self, calculation):
        return self.answer(calculation)["value"]


class FileMaker:
    """Layouts, records and finds. A layout is a table; all tables are there.

    `steps`: called before every step, and before every record that an import makes; may raise Cut.
    `chosen`: the folder that a user chooses, in the place of a dialog.
    `later`: seconds by which the clock is ahead.
    """

    def __init__(self, calculator, scripts, steps=lambda: None, tables=None, chosen=None, later=0):
        self.calculator, self.scripts, self.steps, self.chosen, self.later = calculator, scripts, steps, chosen, later
        self.tables = defaultdict(list) if tables is None else tables
        self.gets = {"LastError": 0, "ScriptResult": ""}
        self.calls = itertools.count()
        self.table, self.found, self.record, self.criteria = None, [], None, None

    def run(self, text, parameter=""):
        """The script's result. Each call has variables of its own."""
        call = next(self.calls)

        def calculate(calculation):
            calculation = LOCAL_VARIABLE.sub(rf"$call{call}_\1", calculation)
            if self.chosen is not None:
                calculation = calculation.replace('KORB_GetFolderPath( "" )', f'"{self.chosen}"')
            gets = self.gets | {"FoundCount": len(self.found), "ScriptParameter": parameter, "UUID": str(uuid.uuid4()).upper()}
            for name, value in gets.items():
                calculation = calculation.replace(f"Get ( {name} )", quoted(value))
            calculation = calculation.replace("Get ( CurrentTimestamp )", f"( Get ( CurrentTimestamp ) + {self.later} )")
            calculation = re.sub(r'GetContainerAttribute \( (\w+::)\w+ ; "(\w+)" \)', r"\1\2", calculation)
            return self.calculator.evaluate(FIELD.sub(lambda field: quoted((self.record or {}).get(field[2], "")), calculation))

        def perform(name, options):
            values = [option if SETTING.fullmatch(option) else calculate(f"( {option} )") for option in options]
            return getattr(self, re.sub(r"\W+", "_", name.lower()))(*values)

        def perform_script(name, parameter):
            name, parameter = calculate(name), calculate(parameter)
            self.gets["LastError"] = 0 if name in self.scripts else 104
            if name in self.scripts:
                self.gets["ScriptResult"] = self.run(self.scripts[name], parameter) or ""

        lines, depth = ["def script():"], 1
        for name, options in filemaker_script.parse(text):
            depth -= name in ("Else", "Else If", "End If", "End Loop")
            statement = STATEMENTS.get(name, "perform({name!r}, {options!r})").format(*options, name=name, options=options)
            if any(option.startswith("Exit after last") for option in options):
                statement = f"if {statement}: break"
            if name not in ("Else", "Else If", "End If", "End Loop", "#"):
                lines.append("    " * depth + "steps()")
            lines.append("    " * depth + statement)
            depth += name in ("If", "Else", "Else If", "Loop")
        # A whole calculation "$name = …" would assign.
        scope = {"is_true": lambda calculation: calculate(f"( {calculation} )") not in ("", "0"), "calculate": calculate,
                 "perform": perform, "perform_script": perform_script, "steps": self.steps}
        exec("\n".join(lines), scope)
        return scope["script"]()

    def go_to_layout(self, name):
        self.table = self.tables[name]
        self.show_all_records()

    def show_all_records(self):
        self.found, self.criteria = list(self.table), None
        self.go_to_record_request_page("First")

    def go_to_record_request_page(self, which, *_):
        """Whether there is no such record."""
        place = 0 if which == "First" else [record is self.record for record in self.found].index(True) + 1
        if place < len(self.found):
            self.record = self.found[place]
        return place >= len(self.found)

    def enter_find_mode(self, _):
        self.criteria = {}

    def perform_find(self):
        wanted, self.criteria = self.criteria, None
        self.found = [record for record in self.table if all(f"=={record.get(name)}" == text for name, text in wanted.items())]
        self.gets["LastError"] = 400 if not wanted else 0 if self.found else 401

    def set_field(self, field, value):
        (self.record if self.criteria is None else self.criteria)[field.partition("::")[2]] = value

    def new_record_request(self):
        self.record = {}

    def revert_record_request(self, _):
        self.record = None

    def commit_records_requests(self, _):
        self.table.append(self.record)
        self.gets["LastError"] = 0

    def delete_all_records(self, _):
        self.table[:] = [record for record in self.table if record not in self.found]
        self.gets["LastError"] = 0

    def import_records(self, _, path):
        """A record for each line, with what the global variable says of its source; a line "broken" ends the import."""
        rows = Path(path.removeprefix("file:")).read_text("utf-8").split()
        self.gets["LastError"] = 0
        for row in rows:
            self.steps()
            if row == "broken":
                self.gets["LastError"] = 720
                break
            self.table.append({"Row": row, "Source": self.calculator.evaluate("$$source")})

    def insert_from_url(self, select, dialog, target, url, encoding):
        self.set_field(target, Path(unquote(urlsplit(url).path)).read_text("utf-8"))

    def pause_resume_script(self, seconds):
        self.later += float(seconds)
