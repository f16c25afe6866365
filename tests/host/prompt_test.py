"""fmxhost at a terminal: line editing, completion, history, Ctrl-C, colours, the spinner.

Arguments: fmxhost, Folidex.fmx, the folder of the sample plug-ins.
"""

import os
import pty
import select
import signal
import stat
import sys
import tempfile
import time
import unittest

HOST = sys.argv[1]
SAMPLE = os.path.join(sys.argv[3], "sample.fmx")
PROMPT = b"fmxhost> "
ESCAPE = b"\x1b"


class Terminal:
    """A host at a pseudo-terminal of its own."""

    def __init__(self, state, arguments=(), **variables):
        environment = {"PATH": os.environ["PATH"], "TERM": "xterm", "XDG_STATE_HOME": state, "NO_COLOR": "1", **variables}
        self.process, self.descriptor = pty.fork()
        if self.process == 0:
            try:
                os.execve(HOST, [HOST, "--plugin", SAMPLE, *arguments], environment)
            finally:
                os._exit(127)
        self.output = b""
        self.ended = None

    def __enter__(self):
        return self

    def __exit__(self, *_):
        if self.ended is None:
            os.kill(self.process, signal.SIGKILL)
            os.waitpid(self.process, 0)
        os.close(self.descriptor)

    def expect(self, text, timeout=20):
        """Reads up to and with the text; answers all that was read."""
        text = text.encode() if isinstance(text, str) else text
        deadline = time.monotonic() + timeout
        while text not in self.output:
            if not select.select([self.descriptor], [], [], max(0, deadline - time.monotonic()))[0]:
                raise AssertionError(f"{text!r} doesn't come: {self.output!r}")
            try:
                self.output += os.read(self.descriptor, 65536)
            except OSError as error:
                raise AssertionError(f"it has ended before {text!r}: {self.output!r}") from error
        end = self.output.index(text) + len(text)
        read, self.output = self.output[:end], self.output[end:]
        return read

    def type(self, text):
        os.write(self.descriptor, text.encode() if isinstance(text, str) else text)

    def answer(self, line):
        """Types a line at a prompt; answers what comes up to the next prompt."""
        self.type(line + "\r")
        return self.expect(PROMPT).decode()

    def status(self):
        """Waits for the end; answers the exit status."""
        while select.select([self.descriptor], [], [], 20)[0]:
            try:
                if not os.read(self.descriptor, 65536):
                    break
            except OSError:
                break
        else:
            raise AssertionError("it doesn't end")
        self.ended = os.waitstatus_to_exitcode(os.waitpid(self.process, 0)[1])
        return self.ended


class Prompt(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.state = folder.name

    def test_evaluates_until_control_d(self):
        with Terminal(self.state) as terminal:
            terminal.expect(PROMPT)
            self.assertIn("\r\n42\r\n", terminal.answer("$a = 6 * 7"))
            self.assertIn("Did you mean Smpl_Echo?", terminal.answer("Smpl_Ehco($a)"))
            self.assertIn("\r\n日本42\r\n", terminal.answer('smpl_echo("日本" & $a)'))
            self.assertIn("broken on purpose", terminal.answer("Smpl_Fail(1)"))
            # Typed ahead: it counts once the calculation is done.
            terminal.type("Smpl_Pause(.3)\r")
            terminal.expect("\r\n")
            terminal.type("\x04")
            self.assertEqual(terminal.status(), 0)

    def test_control_c_gives_up_the_line_only(self):
        with Terminal(self.state) as terminal:
            terminal.expect(PROMPT)
            terminal.type("1 + ")
            terminal.expect("1 + ")
            terminal.type("\x03")
            terminal.expect(PROMPT)
            self.assertIn("\r\n3\r\n", terminal.answer("1 + 2"))
            terminal.type("\x03")
            terminal.expect(PROMPT)
            terminal.type("quit\r")
            self.assertEqual(terminal.status(), 0)

    def test_control_c_during_a_call_ends_what_the_call_has_started_only(self):
        with Terminal(self.state) as terminal:
            terminal.expect(PROMPT)
            terminal.type("Smpl_Pause(2.5) & \"done\"\r")
            terminal.expect(" 1.2 s")
            terminal.type("\x03")
            terminal.expect("Ctrl-\\ ends fmxhost")
            terminal.expect("done\r\n")
            terminal.expect(PROMPT)
            self.assertNotIn("ends fmxhost", terminal.answer("Smpl_Pause(1.3)"))
            self.assertIn("\r\n3\r\n", terminal.answer("1 + 2"))

    def test_completes_names(self):
        with Terminal(self.state) as terminal:
            terminal.expect(PROMPT)
            terminal.type("smpl_co\t")  # one candidate, in its own letter case, with its parenthesis
            terminal.expect("Smpl_Count(")
            self.assertIn("\r\n2\r\n", terminal.answer("1;2)"))
            terminal.type("smpl_e\t")  # two candidates and nothing to add
            listed = terminal.expect(PROMPT)
            self.assertIn(b"Smpl_Echo", listed)
            self.assertIn(b"Smpl_ErrorCode", listed)
            self.assertIn("\r\nx\r\n", terminal.answer('cho("x")'))
            self.assertIn("\r\n5\r\n", terminal.answer("$variable = 5"))
            self.assertIn("\r\n6\r\n", terminal.answer("$va\t + 1"))
            self.assertIn("Arguments: 0 or more", terminal.answer("help Smpl_Cou\t"))
            self.assertIn("Did you mean Smpl_Count?", terminal.answer("help smpl_cuont"))

    def test_history_is_kept_for_the_owner(self):
        with Terminal(self.state) as terminal:
            terminal.expect(PROMPT)
            terminal.answer("1000 + 1")
            terminal.answer(" 2000 + 2")  # begins with a blank: not kept
            terminal.type("\x04")
            self.assertEqual(terminal.status(), 0)
        file = os.path.join(self.state, "fmxhost", "history")
        self.assertEqual(stat.S_IMODE(os.stat(file).st_mode), 0o600)
        self.assertEqual(stat.S_IMODE(os.stat(os.path.dirname(file)).st_mode), 0o700)
        with Terminal(self.state) as terminal:
            terminal.expect(PROMPT)
            terminal.type("\x1b[A")
            terminal.expect("1000 + 1")
            terminal.type("\r")
            terminal.expect("\r\n1001\r\n")

    def test_colours(self):
        for variables, coloured in (({}, False), ({"NO_COLOR": ""}, True), ({"NO_COLOR": "", "TERM": "dumb"}, False)):
            with Terminal(self.state, ["-e", "nothing"], **variables) as terminal:
                output = terminal.expect("^") + terminal.expect("~~~~~~")
                self.assertEqual(ESCAPE in output, coloured, (variables, output))
                self.assertEqual(terminal.status(), 1)

    def test_controls_in_results_do_not_reach_the_terminal(self):
        with Terminal(self.state, ["-e", 'Char(27) & "[31mred" & Char(7) & ¶ & "end"']) as terminal:
            self.assertEqual(terminal.expect("end").decode(), "\ufffd[31mred\ufffd\r\nend")

    def test_a_spinner_shows_for_long_calls(self):
        with Terminal(self.state, ["-e", "Smpl_Pause(1.4) & \"done\""]) as terminal:
            output = terminal.expect("done").decode()
            self.assertRegex(output, r"\r\x1b\[K. 1\.\d s")
            self.assertTrue(output.endswith("\r\x1b[Kdone"), output)
        with Terminal(self.state, ["-e", "Smpl_Pause(1.4) & \"done\""], TERM="dumb") as terminal:
            self.assertEqual(terminal.expect("done"), b"done")


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
