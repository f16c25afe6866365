"""fmxhost as scripts use it: what it prints, what it says on standard error, its exit status.

Arguments: fmxhost, Folidex.fmx, the folder of the sample plug-ins, the build's sanitizers if any.
"""

import json
import os
import pathlib
import subprocess
import sys
import tempfile
import unittest

HOST, FOLIDEX, PLUGINS = sys.argv[1:4]
SANITIZERS = sys.argv[4] if len(sys.argv) > 4 else ""
SAMPLE = os.path.join(PLUGINS, "sample.fmx")


def host(*arguments, plugin=SAMPLE, stdin=b"", environment=None, **options):
    variables = {name: value for name, value in os.environ.items() if name not in ("FMXHOST_PLUGIN", "LANG", "LC_ALL")}
    variables.update(environment or {})
    named = ["--plugin", plugin] if plugin else []
    return subprocess.run([HOST, *named, *arguments], input=stdin, capture_output=True, env=variables, timeout=60,
                          **options)


def evaluated(*calculations, options=()):
    """The JSON objects for the calculations."""
    arguments = [part for calculation in calculations for part in ("-e", calculation)]
    result = host("--json", *options, *arguments)
    assert result.returncode == 0, result.stderr
    return [json.loads(line) for line in result.stdout.decode().splitlines()]


class Results(unittest.TestCase):
    def test_json_objects(self):
        objects = evaluated('Smpl_Echo("a¶\\"b\\\\")', "1/8", "Smpl_Moment", "Smpl_Pause(0)", "smpl_errorcode(12)", '""',
                            '"[1,2]"', "-1 * 2")
        self.assertEqual([(o["type"], o["value"], o["error"]) for o in objects],
                         [("text", 'a\r"b\\', 0), ("number", ".125", 0), ("timestamp", "2024-02-29T13:05:09", 0),
                          ("empty", "", 0), ("text", "?", 12), ("text", "", 0), ("text", "[1,2]", 0),
                          ("number", "-2", 0)])
        self.assertEqual(list(objects[0]), ["calculation", "type", "value", "error", "seconds"])
        self.assertEqual(objects[0]["calculation"], 'Smpl_Echo("a¶\\"b\\\\")')
        self.assertGreater(evaluated("Smpl_Pause(.05)")[0]["seconds"], 0.05)

    def test_json_is_valid_whatever_a_text_holds(self):
        texts = evaluated('Char(55357) & "a" & Char(56832)', "Char(55357) & Char(56832)", "Char(1) & Char(10) & Char(127)")
        self.assertEqual([o["value"] for o in texts], ["\ufffda\ufffd", "\U0001f600", "\x01\n\x7f"])

    def test_plain_results(self):
        result = host("-e", '"a¶b" & Char(10) & "c" & ¶ & Char(10) & "d"', "-e", "$x = 2", "-e", "$x / 4", "-e", "Smpl_Moment",
                      "-e", "Smpl_ErrorCode(3)", "-e", "Char(55357)")
        self.assertEqual(result.stdout.decode(), "a\nb\nc\nd\n2\n.5\n2/29/2024 1:05:09 PM\n?\n\ufffd\n")

    @unittest.skipIf(SANITIZERS, "sanitizers need memory of their own")
    def test_long_texts_are_not_held_twice(self):
        def peak(units):
            with subprocess.Popen([HOST, "--plugin", SAMPLE, "--json", "-e", f"Smpl_LongText({units})"],
                                  stdout=subprocess.PIPE) as process:
                length = len(json.load(process.stdout)["value"])
                _, status, usage = os.wait4(process.pid, 0)
                process.returncode = os.waitstatus_to_exitcode(status)
            self.assertEqual((length, process.returncode), (units, 0))
            return usage.ru_maxrss * 1024

        units = 17 * 1024 * 1024
        size = 2 * units
        # The plug-in itself holds the text twice for a moment.
        self.assertLess(peak(units) - peak(1), 2.3 * size)

    def test_time_goes_to_standard_error(self):
        result = host("--time", "-e", "Smpl_Pause(.02)")
        self.assertEqual(result.stdout, b"\n")
        self.assertRegex(result.stderr.decode(), r"^\d+\.\d ms\n$")


class Errors(unittest.TestCase):
    def check(self, result, status, *parts):
        self.assertEqual(result.returncode, status, result.stderr)
        for part in parts:
            self.assertIn(part, result.stderr.decode())

    def test_the_place_is_pointed_at(self):
        result = host("-e", "1", "-e", '"ä日" & Smpl_Ehco("x")', "-e", "2")
        self.assertEqual(result.stdout, b"1\n")
        self.check(result, 1)
        self.assertEqual(result.stderr.decode(),
                         "fmxhost: -e 2: There is no function called Smpl_Ehco. Did you mean Smpl_Echo?\n"
                         '  "ä日" & Smpl_Ehco("x")\n'
                         "          ^~~~~~~~~\n")

    def test_counts_in_filemakers_words(self):
        self.check(host("-e", "Smpl_Echo"), 1, "There are too few parameters in this function.\n")
        self.check(host("-e", "Smpl_Echo(1;2)"), 1, "There are too many parameters in this function.\n")
        self.assertEqual(host("--no-arity-check", "-e", "Smpl_Echo(1;2)").stdout, b"1\n")

    def test_exceptions_of_the_plugin(self):
        self.check(host("-e", "1 & Smpl_Fail(1)"), 4, "Smpl_Fail", "std::runtime_error (broken on purpose)", "\n      ^~")
        self.check(host("list", plugin=os.path.join(PLUGINS, "sample_throws_at_start.fmx")), 4, "no start today")

    def test_plugins_that_cannot_be_used(self):
        self.check(host("-e", "1", plugin="/nothing.fmx"), 3, "/nothing.fmx")
        self.check(host("-e", "1", plugin=__file__), 3, os.path.basename(__file__))
        self.check(host("-e", "1", plugin=os.path.join(PLUGINS, "sample_refuses.fmx")), 3, "refuses")
        for version in ("49", "256"):
            self.check(host("--api", version, "list", plugin=FOLIDEX), 3, version)
        for version in ("50", "255"):
            self.check(host("--api", version, "list", plugin=FOLIDEX), 0)

    def test_wrong_use(self):
        with tempfile.TemporaryDirectory() as folder:
            for arguments in ([], ["--nothing"], ["-e"], ["--api", "x", "list"], ["--api", "99999", "list"], ["run"],
                              ["run", folder], ["run", folder + "/none"], ["-e", "1", "list"], ["list", "steps"], ["lsit"],
                              ["help", "Smpl_Ehco"]):
                result = host(*arguments)
                self.assertEqual((result.returncode, result.stdout), (2, b""), arguments)
                self.assertTrue(result.stderr.startswith(b"fmxhost: "), arguments)

    def test_unknown_words_get_a_suggestion(self):
        for arguments, said in ((["lsit"], "no command lsit. Did you mean list?"), (["zzzzz"], "no command zzzzz.\n"),
                                (["list", "--josn"], "no option --josn. Did you mean --json?"),
                                (["check", "--alow"], "Did you mean --allow?"), (["list", "x"], "x is one too many."),
                                (["Len(1)"], "A calculation is given with -e.")):
            self.check(host(*arguments), 2, said)

    def test_standard_input_that_cannot_be_read(self):
        command = 'exec "$0" --plugin "$1" run - </'
        self.check(subprocess.run(["sh", "-c", command, HOST, SAMPLE], capture_output=True), 2, "standard input: ")

    def test_bytes_that_are_not_utf8(self):
        self.check(host("-e", b'"\xff"'), 1, "UTF-8")


class Files(unittest.TestCase):
    def test_one_calculation_a_line(self):
        lines = "\ufeff# comment\r\n\r\n  # another\n$a = 2\r\n$a & \"#\"\n   \n$a * 3".encode()
        result = host("run", "-", stdin=lines)
        self.assertEqual(result.stdout, b"2\n2#\n6\n")
        with tempfile.TemporaryDirectory() as folder:
            file = pathlib.Path(folder, "calculations")
            file.write_bytes(lines + b"\n$a + bad\n$a")
            result = host("run", str(file))
            self.assertEqual((result.returncode, result.stdout), (1, b"2\n2#\n6\n"))
            self.assertIn(f"{file}:8:6: ", result.stderr.decode())


class Descriptions(unittest.TestCase):
    def test_list(self):
        functions = json.loads(host("--json", "list").stdout)
        self.assertEqual([f["name"] for f in functions][:3] + [functions[-1]["id"]],
                         ["Smpl_Echo", "Smpl_Count", "Smpl_Fail", 99])
        self.assertEqual(functions[1], {"id": 2, "name": "Smpl_Count", "prototype": "Smpl_Count",
                                        "description": "Smpl_Count", "min": 0, "max": -1, "flags": 0xFF01})
        self.assertIn("Smpl_Größe", host("list").stdout.decode())

    def test_steps(self):
        # Options are understood after a command too.
        self.assertEqual(json.loads(host("steps", "--json").stdout),
                         [{"id": 1, "name": "Step", "definition": "Step", "description": "Step", "flags": 0xFF01}])
        self.assertIn(b"Step", host("steps").stdout)

    def test_strings(self):
        self.assertEqual(json.loads(host("--json", "strings").stdout),
                         {"128": "Sample", "129": "Sample", "131": "SMPL1nnYnnn", "132": "Sample"})
        self.assertIn(b"SMPL1nnYnnn", host("strings").stdout)

    def test_help(self):
        self.assertIn("Arguments: 0 or more", host("help", "SMPL_count").stdout.decode())
        self.assertIn("Arguments: 4", host("help", "position").stdout.decode())
        self.assertIn("Smpl_Echo", host("help").stdout.decode())
        self.assertEqual(json.loads(host("--json", "help", "smpl_count").stdout)["id"], 2)


class Surroundings(unittest.TestCase):
    def test_which_plugin(self):
        self.assertEqual(host("-e", "Smpl_Count(1)", plugin=None, environment={"FMXHOST_PLUGIN": SAMPLE}).stdout, b"1\n")
        # Both stand in the build's folder.
        self.assertEqual(host("-e", 'KORB_Version("short")', plugin=None).stdout, b"5.0.2.1\n")

    def test_a_full_disk_is_reported(self):
        with open("/dev/full", "wb") as full:
            for arguments in (["-e", "1"], ["list"], ["--help"]):
                result = subprocess.run([HOST, "--plugin", SAMPLE, *arguments], stdout=full, stderr=subprocess.PIPE,
                                        timeout=60)
                self.assertEqual(result.returncode, 5, arguments)
                self.assertIn(b"No space left on device", result.stderr)

    def test_a_closed_output_is_reported(self):
        result = subprocess.run(f'"{HOST}" --plugin "{SAMPLE}" -e 1 >&-', shell=True, stderr=subprocess.PIPE, timeout=60)
        self.assertEqual(result.returncode, 5)
        self.assertIn(b"Bad file descriptor", result.stderr)

    def test_a_reader_that_leaves_is_no_matter(self):
        command = f'"{HOST}" --plugin "{SAMPLE}" -e "Smpl_LongText(1000000)" -e 1'
        for prefix in ("", "trap '' PIPE; "):
            result = subprocess.run(f"({prefix}{command}) | head -c 1", shell=True, capture_output=True, timeout=60)
            self.assertEqual((len(result.stdout), result.stderr), (1, b""))


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
