"""fmxhost check: one plug-in, told by an environment variable which rule to break, fails the test for that rule and no
other; told nothing, it passes, as Folidex does with what it keeps on purpose.

Arguments: fmxhost, Folidex.fmx, its deviations, the plug-in, the file that breaks the rules for files, the build's
sanitizers if any, whether Folidex is built over GNUstep.
"""

import concurrent.futures
import json
import os
import platform
import re
import subprocess
import sys
import tempfile
import time
import unittest
from pathlib import Path

HOST, FOLIDEX, DEVIATIONS, PLUGIN, FILE, COCOA = sys.argv[1:7]
SANITIZERS = "".join(sys.argv[7:])  # CMake passes no empty argument
LINUX = sys.platform == "linux"

def check(plugin, *arguments, told="", **variables):
    environment = {**os.environ, "SAMPLE": told, **variables}
    return subprocess.run([HOST, "--plugin", plugin, "check", *arguments], capture_output=True, text=True, timeout=300,
                          env=environment)


def results(plugin, *arguments, told=""):
    """The parsed JSON and the exit status."""
    result = check(plugin, "--json", *arguments, told=told)
    assert result.stdout.count("\n") == 1 and result.stderr == "", result
    return json.loads(result.stdout), result.returncode


def failures(document):
    return {test["name"]: test["verdict"] for test in document["tests"] if test["verdict"] not in ("pass", "note", "skipped")}


def reasons(document, name):
    return [reason for test in document["tests"] if test["name"] == name for reason in test["reasons"]]


def temporary(text):
    file = tempfile.NamedTemporaryFile("w", suffix=".txt")
    file.write(text)
    file.flush()
    return file


# What a plug-in of such a build needs, and no server has. Debian 12's glibc is the newest whose plug-ins run on all servers.
IS_NEWER = LINUX and [int(number) for number in platform.libc_ver()[1].split(".")] > [2, 36]
ALLOWED = temporary(("libraries: it needs lib*san.so.*\n" if SANITIZERS else "") +
                    ("libraries: it needs * of lib*; a plain server has *\n" if IS_NEWER else "") +
                    ("libraries: it needs libgnustep-*.so.*\nlibraries: it needs libobjc.so.*\n" if COCOA == "1" else ""))


class Rules(unittest.TestCase):
    maxDiff = None

    def test_each_fault_fails_its_test_and_no_other(self):
        lines = Path(__file__).with_name("faults.txt").read_text().splitlines()
        cases = [[*line.split(" => "), None][:4] for line in lines if line and not line.startswith("#")]
        names = [line.split()[0] for line in check("", "list-tests").stdout.splitlines()]
        # What is wrong with what is registered, or only when it is loaded again, is no matter of the slow ones.
        registered = names[names.index("function-names"):names.index("script-steps") + 1]

        def run(case):
            told, (test, verdict), _, obstacle = case[0], case[1].split(), case[2], case[3]
            others = registered if test in registered else [name for name in names if name != "reload" or obstacle]
            return results(PLUGIN, "--allow", ALLOWED.name, "--timeout", "1" if verdict == "timeout" else "100",
                           *sorted({test, *others}), told=told.replace("\\n", "\n"))
        with concurrent.futures.ThreadPoolExecutor(2) as pool:
            for (told, verdict, reason, obstacle), (document, status) in zip(cases, pool.map(run, cases)):
                with self.subTest(told):
                    self.assertEqual((failures(document), status), (dict([verdict.split()]), 1))
                    self.assertIn(reason, "\n".join(reasons(document, verdict.split()[0])))
                    skipped = {text for test in document["tests"] if test["verdict"] == "skipped" for text in test["reasons"]}
                    self.assertEqual({text for text in skipped if ": see " in text}, {obstacle} if obstacle else set())

    def test_what_keeps_the_rules_passes(self):
        for told in ("", "start=write", "parameters=( a ; b ; c ; d ; e ; f ; g ; h ; i… )"):
            document, status = results(PLUGIN, "--allow", ALLOWED.name, told=told)
            self.assertEqual((failures(document), document["passed"], status), ({}, True, 0))
            self.assertEqual({test["verdict"] for test in document["tests"] if test["name"] not in ("exports", "libraries")},
                             {"pass"})

    def test_folidex_passes_with_what_it_keeps_on_purpose(self):
        with temporary(Path(DEVIATIONS).read_text() + Path(ALLOWED.name).read_text()) as allowed:
            document, status = results(FOLIDEX, "--allow", allowed.name)
        self.assertEqual((failures(document), status), ({}, 0))
        notes = {test["name"]: [re.match(r"(function|script step|string) \d+", note)[0] for note in test["notes"]]
                 for test in document["tests"] if test["notes"] and test["name"] != "libraries"}
        # In a bundle there is a page that helps.
        self.assertEqual(notes, {**({"strings": ["string 132"]} if LINUX else {}),
                                 "script-steps": ["script step 194", "script step 200", "script step 201"],
                                 "shut-down": ["function 201", "script step 201"]})
        self.assertEqual(failures(results(FOLIDEX, "shut-down", "script-steps")[0]),
                         {"shut-down": "fail", "script-steps": "fail"})

    @unittest.skipUnless(LINUX, "the rules for files are examined in ELF files")
    def test_files(self):
        def found(*arguments, file=FILE):
            document, _ = results(file, *arguments)
            return {test["name"]: test["reasons"] for test in document["tests"]}
        everything = found()
        self.assertIn("libcheck_other_library.so", everything["load"][0])
        with temporary("") as cut:
            Path(cut.name).write_bytes(Path(FILE).read_bytes()[:9000])
            self.assertEqual(found("exports", "libraries", file=cut.name),
                             dict.fromkeys(("exports", "libraries"), ["it is cut short, or damaged"]))
        other = found("load", file=str(Path(FILE).parent / "libcheck_other_library.so"))
        self.assertIn("no entry point FMExternCallProc", other["load"][0])
        self.assertEqual(everything["exports"][:2], ["it doesn't export FMExternCallProc", "it exports exportedBesides, "
                                                     "which may take the place of another plug-in's"])
        libraries = [reason for reason in everything["libraries"] if "san.so" not in reason]
        self.assertEqual(libraries, [
            "it needs libcheck_other_library.so, which no plain server has",
            *(f'it looks for libraries in "{folder}" (RPATH), which no plain server has'
              for folder in (".", "/home/me/build", "/opt/FileMaker/lib/other"))])
        for versions, reason in (("GLIBC_2.1", "a plain server has GLIBC_2.1"), ("OTHER_9", "a plain server has OTHER_9"),
                                 ("GLIBC_2.100", ""), ("", "")):
            with temporary(f"libc.so.6 {versions} # a comment\n") as server:
                texts = found("libraries", "--libraries", server.name, file=PLUGIN)["libraries"]
            self.assertEqual([reason], [text.partition(" of libc.so.6; ")[2] for text in texts if "libc.so.6" in text][:1] or [""])

    @unittest.skipUnless(LINUX, "the rules for files are examined in ELF files")
    def test_damaged_files(self):
        good = Path(PLUGIN).read_bytes()
        for size in (0, 3, 64, 4096, len(good) // 2, len(good) - 64):
            with tempfile.NamedTemporaryFile() as file:
                file.write(good[:size])
                file.flush()
                self.assertEqual(failures(results(file.name, "exports")[0]), {"exports": "fail"}, size)

    def test_processes_that_it_leaves_are_ended(self):
        with tempfile.TemporaryDirectory() as folder:
            pipe = Path(folder, "pipe")
            os.mkfifo(pipe)
            reading = os.open(pipe, os.O_RDONLY | os.O_NONBLOCK)
            for start, limit in (("leave a process", "100"), ("leave a process\ncrash=message 200", "100")):
                begin = time.monotonic()
                results(PLUGIN, "unknown-messages", "--timeout", limit, told=f"start={start}\npipe={pipe}")
                self.assertLess(time.monotonic() - begin, 90)
                self.assertEqual(os.read(reading, 1), b"x")
                while True:  # it was killed; its end may take a moment
                    try:
                        self.assertEqual(os.read(reading, 1), b"")
                        break
                    except BlockingIOError:
                        self.assertLess(time.monotonic() - begin, 200)
                        time.sleep(0.01)
            os.close(reading)


class CommandLine(unittest.TestCase):
    def test_json(self):
        document, _ = results(PLUGIN, "start-up", "load", "reload", told="start=abort")
        self.assertEqual(list(document), ["plugin", "api", "passed", "counts", "tests"])
        self.assertEqual((document["plugin"], document["api"], document["passed"]), (PLUGIN, 62, False))
        self.assertEqual(document["counts"], {"pass": 1, "note": 0, "skipped": 1, "fail": 0, "crash": 1, "timeout": 0})
        load, start, _ = document["tests"]
        self.assertEqual(list(load), ["name", "verdict", "reasons", "notes", "seconds"])
        self.assertEqual(list(start), ["name", "verdict", "reasons", "notes", "seconds", "output"])
        self.assertEqual(start["output"].splitlines()[0], "going")  # an emulator adds words of its own

    def test_text(self):
        fault = "script step 1 Step has the ID of script step 1 Step\n"
        failed = f"fail      unique-ids\n          {fault}"
        for options, expected in (((), f"pass      load\n{failed}"), (("--only-failed",), failed)):
            result = check(PLUGIN, *options, "load", "unique-ids", told="step=1")
            self.assertEqual((result.stdout, result.returncode, result.stderr), (expected + "2 tests: 1 pass, 1 fail\n", 1, ""))
        self.assertIn("\n          | going\n", check(PLUGIN, "start-up", told="start=abort").stdout)
        self.assertEqual(check(PLUGIN, "load", "start-up", told="start=write").stdout,
                         "pass      load\npass      start-up\n2 tests: 2 pass\n")

    def test_allowed_findings_are_notes(self):
        for pattern, verdict, status in (("script step 1 *", "note", 0), ("script step 2 *", "fail", 1)):
            with temporary(f"# on purpose\n\nunique-ids: {pattern}\nload: *\n") as allowed:
                document, found = results(PLUGIN, "unique-ids", "--allow", allowed.name, told="step=1")
            self.assertEqual((document["tests"][0]["verdict"], found), (verdict, status))

    def test_older_hosts(self):
        document, status = results(PLUGIN, "--api", "55", "descriptions", "script-steps", "prototypes")
        self.assertEqual([(test["name"], test["verdict"]) for test in document["tests"]],
                         [("prototypes", "pass"), ("descriptions", "skipped"), ("script-steps", "skipped")])
        self.assertEqual((status, document["api"]), (0, 55))

    def test_list(self):
        listed = check("", "list-tests", "--json").stdout.splitlines()
        names = [json.loads(line)["name"] for line in listed]
        self.assertEqual((len(names), names[0], names[-1]), (16, "load", "reload"))
        self.assertEqual([line.split()[0] for line in check("", "list-tests").stdout.splitlines()], names)

    def test_wrong_use(self):
        with temporary("# said\nload: *\nnosuch: *\n") as senseless:
            for arguments, text in ((["nothing"], "no test called nothing"), (["--timeout", "0"], "--timeout"),
                                    (["--api", "49"], "50 to 255"), (["--allow", "/no/such"], "/no/such"),
                                    (["--libraries", "/no/such"], "/no/such"), (["--allow", senseless.name], senseless.name + ":3:")):
                result = check(PLUGIN, *arguments)
                self.assertEqual((result.returncode, result.stdout), (2, ""))
                self.assertIn(text, result.stderr)
        self.assertEqual(check("/no/such.fmx").returncode, 3)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
