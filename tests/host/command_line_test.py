"""fmxhost as scripts use it: what it prints, what it says on standard error, its exit status.

Arguments: fmxhost, Folidex.fmx, the sample plug-in.
"""

import json
import os
import pathlib
import subprocess
import sys
import tempfile
import unittest

HOST, FOLIDEX, SAMPLE = sys.argv[1:4]


def host(*arguments, plugin=SAMPLE, variant="", stdin=b"", environment=None, **options):
    variables = {name: value for name, value in os.environ.items() if name not in ("FMXHOST_PLUGIN", "LANG", "LC_ALL")}
    named = ["--plugin", plugin] if plugin else []
    return subprocess.run([HOST, *named, *arguments], input=stdin, capture_output=True,
                          env={**variables, "SAMPLE": variant, **(environment or {})}, **options)


def objects(result):
    return [json.loads(line) for line in result.stdout.decode().splitlines()]


class Results(unittest.TestCase):
    def test_json(self):
        calculations = ['Smpl_Echo("a¶\\"b\\\\")', "1/8", "Smpl_Moment", "Smpl_Pause(0)", "smpl_errorcode(12)", '"[1,2]"',
                        'Char(55357) & "a" & Char(56832)', "Char(55357) & Char(56832) & Char(1) & Char(127)",
                        "Get ( CurrentTime ) > 0 & \n1", "// none"]
        lines = objects(host("--json", *(part for calculation in calculations for part in ("-e", calculation))))
        self.assertEqual([(o["calculation"], o["type"], o["value"], o["error"]) for o in lines],
                         list(zip(calculations,
                                  ["text", "number", "timestamp", "empty", "text", "text", "text", "text", "number", "empty"],
                                  ['a\r"b\\', ".125", "2024-02-29T13:05:09", "", "?", "[1,2]", "\ufffda\ufffd",
                                   "\U0001f600\x01\x7f", "1", ""], [0, 0, 0, 0, 12, 0, 0, 0, 0, 0])))
        self.assertEqual(list(lines[0]), ["calculation", "type", "value", "error", "seconds"])
        result = host("--json", "--time", "-e", "Smpl_Pause(.02)")
        self.assertGreater(objects(result)[0]["seconds"], 0.02)
        self.assertRegex(result.stderr.decode(), r"^pausing\n\d+\.\d+ m?s\n$")

    def test_json_of_what_fails(self):
        failure = objects(host("--json", "run", "-", stdin=b'(1;\n"a" & 2 3)'))[0]
        self.assertEqual({**failure, "message": failure["message"][:11]},
                         {"calculation": '(1;\n"a" & 2 3)', "type": "error", "value": "", "error": 1200, "seconds": 0,
                          "message": "\")\" is expe", "line": 1, "column": 3})
        failure = objects(host("--json", "-e", "1 & Smpl_Fail(1)"))[0]
        self.assertEqual((failure["type"], failure["column"]), ("error", 5))

    def test_plain(self):
        result = host("-e", '"a¶b" & Char(10) & "c" & ¶ & Char(10) & "d"', "-e", "$x = 2", "-e", "$x / 4", "-e",
                      "Smpl_Moment", "-e", "Smpl_ErrorCode(3)", "-e", "Char(55357)")
        self.assertEqual(result.stdout.decode(), "a\nb\nc\nd\n2\n.5\n2/29/2024 1:05:09 PM\n?\n\ufffd\n")

    def test_results_come_at_once(self):
        with subprocess.Popen([HOST, "--plugin", SAMPLE], stdin=subprocess.PIPE, stdout=subprocess.PIPE) as process:
            for calculation, printed in ((b"$a = 1\n", b"1\n"), (b"$a +\n", b""), (b"(\n$a + 1)\n", b"2\n")):
                process.stdin.write(calculation)
                process.stdin.flush()
                self.assertEqual(process.stdout.readline() if printed else b"", printed)
            process.stdin.close()
            self.assertEqual(process.wait(), 1)  # of the one that failed


class Errors(unittest.TestCase):
    def check(self, result, status, *parts):
        self.assertEqual(result.returncode, status, result.stderr)
        for part in parts:
            self.assertIn(part, result.stderr.decode())

    def test_the_first_error_ends_the_run(self):
        result = host("-e", "1", "-e", '"ä日" & Smpl_Ehco("x")', "-e", "2")
        self.assertEqual(result.stdout, b"1\n")
        self.check(result, 1, "fmxhost: -e 2: There is no function called Smpl_Ehco.", '\n  "ä日" & Smpl_Ehco("x")\n')
        with tempfile.TemporaryDirectory() as folder:
            file = pathlib.Path(folder, "calculations")
            file.write_bytes("\ufeff# comment\r\n\r\n  # another\n$a = 2\r\n\"#\n\" & (\n$a * bad)\n$a".encode())
            result = host("run", str(file))
            self.assertEqual(result.stdout, b"2\n")
            self.check(result, 1, f"{file}:7:6: ", "\n  $a * bad)\n")

    def test_the_plugin(self):
        self.check(host("-e", "1 & Smpl_Fail(1)"), 4, "Smpl_Fail", "std::runtime_error (broken on purpose)")
        self.check(host("list", variant="start=throw"), 4, "no start today")
        self.check(host("-e", "1", variant="answer=-2"), 3, "refuses")
        self.check(host("-e", "1", plugin="/nothing.fmx"), 3, "/nothing.fmx")
        self.check(host("-e", "1", plugin=__file__), 3, os.path.basename(__file__))
        for version, status in (("49", 3), ("50", 0), ("255", 0), ("256", 3)):
            self.check(host("--api", version, "list", plugin=FOLIDEX), status)
        self.assertEqual(host("--no-arity-check", "-e", "Smpl_Echo(1;2)").stdout, b"1\n")
        self.check(host("--no-arity-check", "-e", "Left(1)"), 1, "too few")

    def test_wrong_use(self):
        with tempfile.TemporaryDirectory() as folder:
            for arguments, said in (([], "nothing to do"), (["-e"], "-e"), (["--api", "x", "list"], "api"),
                                    (["--api", "99999", "list"], "api"), (["run"], "FILE"), (["run", folder], "directory"),
                                    (["run", folder + "/none"], "none"), (["-e", "1", "list"], "can't be combined"),
                                    (["--get", "x", "list"], "--get"), (["list", "steps"], "steps"),
                                    (["help", "Smpl_Ehco"], "Smpl_Echo"),
                                    (["lsit"], "no command lsit. Did you mean list?"), (["zzzzz"], "no command zzzzz.\n"),
                                    (["list", "--josn"], "no option --josn. Did you mean --json?"),
                                    (["check", "--timout"], "Did you mean --timeout?"), (["list", "x"], "Unexpected argument x."),
                                    (["Len(1)"], "A calculation is given with -e.")):
                result = host(*arguments)
                self.check(result, 2, said)
                self.assertEqual((result.stdout, result.stderr[:9]), (b"", b"fmxhost: "), arguments)
        self.check(host("-e", b'"\xff"'), 1, "UTF-8")
        command = 'exec "$0" --plugin "$1" run - </'
        self.check(subprocess.run(["sh", "-c", command, HOST, SAMPLE], capture_output=True), 2, "standard input: ")


class Descriptions(unittest.TestCase):
    def test_json(self):
        functions = objects(host("--json", "list"))
        self.assertEqual([f["name"] for f in functions][:3] + [functions[-1]["id"]],
                         ["Smpl_Echo", "Smpl_Count", "Smpl_Fail", 99])
        count = {"id": 2, "name": "Smpl_Count", "prototype": "Smpl_Count( {values…} )",
                 "description": "words|Does nothing.", "min": 0, "max": -1, "flags": 0xFF01}
        self.assertEqual(functions[1], count)
        self.assertEqual(objects(host("help", "--json", "smpl_count")), [count])  # options are understood after a command
        self.assertEqual([f["prototype"] for f in objects(host("--json", "help", "left"))], ["Left ( text ; numberOfCharacters )"])
        self.assertEqual(objects(host("--json", "steps", variant="definition=<PluginStep/>"))[0],
                         {"id": 1, "name": "Step", "definition": "<PluginStep/>", "description": "Does nothing.",
                          "flags": 0xFF01})
        self.assertEqual(objects(host("--json", "strings")),
                         [{"128": "Sample", "129": "Does nothing, and that well.", "131": "SMPL1nnYnnn",
                           "132": "https://example.com/help?function="}])

    def test_plain(self):
        for command, line in (("list", "   99  none        Smpl_Größe"), ("strings", "131  options      SMPL1nnYnnn"),
                              ("help", "  Smpl_Echo Smpl_Count Smpl_Fail"), ("--version", "fmxhost 5")):
            self.assertIn("\n" + line, "\n" + host(command).stdout.decode())


class Surroundings(unittest.TestCase):
    def test_which_plugin(self):
        self.assertEqual(host("-e", "Smpl_Count(1)", plugin=None, environment={"FMXHOST_PLUGIN": SAMPLE}).stdout, b"1\n")
        # Both stand in the build's folder.
        self.assertEqual(host("-e", 'KORB_Version("short")', plugin=None).stdout, b"5.0.2.1\n")

    def test_output_that_cannot_be_written(self):
        for command, said in (('-e 1 >/dev/full', b"No space left on device"), ("list >/dev/full", b"No space left"),
                              ("--help >/dev/full", b"No space left"), ("-e 1 >&-", b"Bad file descriptor")):
            result = subprocess.run(f'"{HOST}" --plugin "{SAMPLE}" {command}', shell=True, stderr=subprocess.PIPE)
            self.assertEqual(result.returncode, 5, command)
            self.assertIn(said, result.stderr)
        # A reader that has seen enough is no failure worth a message.
        for prefix in ("", "trap '' PIPE; "):
            long = "While ( [ t = 1 ; i = 0 ] ; i < 20 ; [ t = t & t ; i = i + 1 ] ; t )"
            command = f'({prefix}"{HOST}" --plugin "{SAMPLE}" -e "{long}" -e 1) | head -c 1'
            result = subprocess.run(command, shell=True, capture_output=True)
            self.assertEqual((len(result.stdout), result.stderr), (1, b""))


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
