"""fmxhost at a terminal: line editing, completion, history, Ctrl-C, colours.

Arguments: fmxhost, Folidex.fmx, the sample plug-in.
"""

import os
import pty
import select
import stat
import sys
import tempfile
import unittest

HOST, _, SAMPLE = sys.argv[1:4]
PROMPT = "fmxhost> "
LIMIT = 300  # seconds; only for what hangs


class Terminal:
    """A host at a pseudo-terminal of its own."""

    def __init__(self, state, arguments, variables):
        environment = {"PATH": os.environ["PATH"], "TERM": "xterm", "XDG_STATE_HOME": state, "NO_COLOR": "1", **variables}
        self.process, self.descriptor = pty.fork()
        if self.process == 0:
            try:
                os.execve(HOST, [HOST, "--plugin", SAMPLE, *arguments], environment)
            finally:
                os._exit(127)
        self.output = b""

    def close(self):
        os.close(self.descriptor)  # which ends it, if it hasn't
        if self.process:
            os.waitpid(self.process, 0)

    def more(self):
        """Whether there was more to read."""
        if not select.select([self.descriptor], [], [], LIMIT)[0]:
            raise AssertionError(f"it hangs after {self.output!r}")
        try:
            read = os.read(self.descriptor, 65536)
        except OSError:  # it has ended (Linux)
            return False
        self.output += read
        return bool(read)

    def expect(self, text):
        """Reads up to and with the text; returns all that was read."""
        while text.encode() not in self.output:
            if not self.more():
                raise AssertionError(f"it has ended before {text!r}: {self.output!r}")
        read, found, self.output = self.output.partition(text.encode())
        return (read + found).decode()

    def type(self, text):
        os.write(self.descriptor, text.encode())

    def answer(self, line):
        """Types a line at a prompt; returns what comes up to the next prompt."""
        self.type(line + "\r")
        return self.expect(PROMPT)

    def status(self):
        """Waits for the end; returns the exit status."""
        while self.more():
            pass
        process, self.process = self.process, 0
        return os.waitstatus_to_exitcode(os.waitpid(process, 0)[1])


class Prompt(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.state = folder.name

    def terminal(self, *arguments, **variables):
        terminal = Terminal(self.state, arguments, variables)
        self.addCleanup(terminal.close)
        if not arguments:
            terminal.expect(PROMPT)
        return terminal

    def test_evaluates_until_control_d(self):
        terminal = self.terminal()
        self.assertIn("\r\n42\r\n", terminal.answer("$a = 6 * 7"))
        self.assertIn("Did you mean Smpl_Echo?", terminal.answer("Smpl_Ehco($a)"))
        self.assertIn("\r\n日本42\r\n", terminal.answer('smpl_echo("日本" & $a)'))
        self.assertIn("broken on purpose", terminal.answer("Smpl_Fail(1)"))
        self.assertIn("Smpl_Count", terminal.answer("list"))
        terminal.type('Let ( [ b = "\r')  # goes on
        terminal.expect(" ... ")
        terminal.type('" ] ;\r')
        terminal.expect(" ... ")
        self.assertIn("\r\n[\r\n]\r\n", terminal.answer('"[" & b & "]" )'))
        # Typed ahead: it counts once the calculation is done.
        terminal.type("Smpl_Pause(.3)\r")
        terminal.expect("pausing")
        terminal.type("\x04")
        self.assertEqual(terminal.status(), 0)

    def test_control_c_gives_up_what_is_typed(self):
        terminal = self.terminal()
        for begun in ("1 + ", "Let ( a =\r", '"text\r'):
            terminal.type(begun)
            terminal.expect(" ... " if begun.endswith("\r") else begun)
            terminal.type("\x03")
            terminal.expect(PROMPT)
            self.assertIn("\r\n3\r\n", terminal.answer("1 + 2"))
        terminal.type("quit\r")
        self.assertEqual(terminal.status(), 0)

    def test_control_c_during_a_call_ends_what_the_call_has_started_only(self):
        terminal = self.terminal()
        terminal.type("Smpl_Pause(1) & \"done\"\r")
        terminal.expect("pausing")
        terminal.type("\x03")
        terminal.expect("Ctrl-\\ ends fmxhost")
        terminal.expect("done\r\n")
        terminal.expect(PROMPT)
        self.assertIn("\r\n3\r\n", terminal.answer("1 + 2"))

    def test_completes(self):
        folder = os.path.join(self.state, "a folder")
        os.makedirs(os.path.join(folder, "größe"))
        open(os.path.join(folder, "file 1"), "w").close()
        open(os.path.join(folder, "file 2"), "w").close()
        terminal = self.terminal()
        # A name gets its own letter case and its parenthesis.
        self.assertIn("\r\n2\r\n", terminal.answer("smpl_co\t1;2)"))
        terminal.type("smpl_e\t\t")  # two candidates and nothing to add
        listed = terminal.expect(PROMPT)
        self.assertIn("Smpl_Echo", listed)
        self.assertIn("Smpl_ErrorCode", listed)
        self.assertIn("\r\nx\r\n", terminal.answer('cho("x")'))
        self.assertIn("\r\n5\r\n", terminal.answer("$variable = 5"))
        self.assertIn("\r\n6\r\n", terminal.answer("1+$VA\t"))
        self.assertIn("Arguments: 0 or more", terminal.answer("help Smpl_Cou\t"))
        # In a text, also in one that began on the line before, paths.
        self.assertIn(f"\r\n{folder}/größe/\r\n", terminal.answer(f'"" & "{self.state}/a f\tgr\t"'))
        terminal.type('"[\r')
        terminal.expect(" ... ")
        self.assertIn(f"\r\n{folder}/file 2\r\n", terminal.answer(f'{folder}/f\t2"'))

    def test_history_is_kept_for_the_owner(self):
        terminal = self.terminal()
        terminal.answer("1000 + 1")
        terminal.answer(" 2000 + 2")  # begins with a blank: not kept, nor what goes on from it
        terminal.type(" Smpl_Echo(\r")
        terminal.expect(" ... ")
        terminal.answer('"secret")')
        terminal.type("\x04")
        self.assertEqual(terminal.status(), 0)
        file = os.path.join(self.state, "fmxhost", "history")
        self.assertEqual(stat.S_IMODE(os.stat(file).st_mode), 0o600)
        self.assertEqual(stat.S_IMODE(os.stat(os.path.dirname(file)).st_mode), 0o700)
        terminal = self.terminal()
        terminal.type("\x1b[A")
        terminal.expect("1000 + 1")
        terminal.type("\r")
        terminal.expect("\r\n1001\r\n")

    def test_colours_and_controls(self):
        for variables, coloured in (({}, False), ({"NO_COLOR": ""}, True), ({"NO_COLOR": "", "TERM": "dumb"}, False)):
            terminal = self.terminal("-e", "nothing", **variables)
            output = terminal.expect("^") + terminal.expect("~~~~~~")
            self.assertEqual("\x1b" in output, coloured, (variables, output))
            self.assertEqual(terminal.status(), 1)
        terminal = self.terminal("-e", 'Char(27) & "[31mred" & Char(7) & ¶ & "end"')
        self.assertEqual(terminal.expect("end"), "\ufffd[31mred\ufffd\r\nend")


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
