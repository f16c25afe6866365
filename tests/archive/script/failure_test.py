"""Every way to fail has its status, leaves nothing, and what stood there before is intact."""

import glob
import os
import pty
import re
import shutil
import signal
import subprocess
import time
import unittest

from support import (AS_ROOT, DAMAGED, DESTINATION, DONE, FULL, MISSING_TOOL, NEEDS_PASSWORD, NOT_WRITTEN, SCRIPT, SHELLS, SOURCE,
                     USAGE, ScratchCase)


class Failure(ScratchCase):
    def test_usage(self):
        for argument in ("", "|", "zip", "zip|", "zip|/a/|/b/|c", "zip|/a/|/b/|c|d|e", "unzip|/a/|/b/|c", "unzip|/a/|/b/|c|other",
                         "decrypt|/a/|/b/|c|d", "ZIP|/a/|/b/|c|d", "clean_up|/a/|/b/|c|d", "unzipdecrypt|/a/|/b/|c|exp|pw"):
            for shell in SHELLS:
                self.run_verb(*argument.split("|"), expect=USAGE, shell=shell)
        for arguments in ([], ["zip|/a/|/b/|c|d", "more"]):
            self.assertEqual(subprocess.run([*self.command("")[:-1], *arguments], check=False).returncode, USAGE)

    def test_unusable_sources_and_destinations(self):
        base = self.path("")
        self.write("file")
        self.write("folder/inner")
        os.symlink("folder", self.path("link"))
        os.mkfifo(self.path("pipe"))
        self.zip("file", "a.zip")
        self.pack("encrypt", "file", "sealed", "pw")
        before = self.snapshot()
        for verb, good in (("zip", "file"), ("zipencrypt", "file"), ("encrypt", "file"), ("decrypt", "sealed")):
            last = () if verb == "zip" else ("pw",)
            for folder, name in ((base, "missing"), (base, ""), (base, "."), (base, ".."), ("", good), ("rel/", good),
                                 (base, "folder/inner"), (base, "pipe"), ("/dev/", "zero")):
                self.run_verb(verb, folder, base, name, "out", *last, expect=SOURCE)
            for folder, name in ((base + "missing/", "out"), (base + "file/", "out"), ("", "out"), ("rel/", "out"), (base, ""),
                                 (base, ".."), (base, "a/b"), (base, "folder"), (base, "link"), (base, "pipe"), ("/dev/", "null")):
                self.run_verb(verb, base, folder, good, name, *last, expect=DESTINATION)
        for verb in ("encrypt", "decrypt"):
            self.pack(verb, "folder", "out", "pw", expect=SOURCE)
        for source in ("missing", "folder", "pipe"):
            self.unzip(source, "out", expect=SOURCE)
        for destination in ("", "rel/", base + "file/", base + "file/sub/", base + "pipe/", "/proc/none/"):
            self.run_verb("unzip", base, destination, "a.zip", "expand", expect=DESTINATION)
        self.zip("file", "aes.zip", "pw")
        self.unzip("aes.zip", "out", expect=NEEDS_PASSWORD)
        self.pack("decrypt", "a.zip", "out", "pw", expect=DAMAGED)
        os.remove(self.path("aes.zip"))
        self.assertEqual(self.snapshot(), before)

    @unittest.skipUnless(AS_ROOT, "needs root: setpriv")
    def test_what_another_user_may_not_touch(self):
        nobody = {"prefix": ["setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"]}
        os.chmod(self.folder("open"), 0o777)
        self.write("tree/dir/file")
        self.write("secret")
        self.zip("tree", "a.zip")
        self.write("open/tree/dir/file", b"older")
        os.chmod(self.path("secret"), 0o600)
        os.chmod(self.path("tree/dir/file"), 0o600)
        before = self.snapshot()
        self.pack("encrypt", "secret", "open/out", "pw", expect=SOURCE, **nobody)
        for password in (None, "pw"):
            self.zip("tree", "open/out", password, expect=SOURCE, **nobody)
        self.pack("encrypt", "a.zip", "sealed", "pw", expect=DESTINATION, **nobody)
        self.zip("a.zip", "out", expect=DESTINATION, **nobody)
        self.unzip("a.zip", "out", expect=DESTINATION, **nobody)
        self.unzip("a.zip", "open", expect=DESTINATION, **nobody)
        self.assertEqual(self.snapshot(), before)

    @unittest.skipUnless(AS_ROOT, "needs root: mount name space")
    def test_missing_tools(self):
        self.write("file")
        for tool, verbs in (("bsdtar", ("zip", "zipencrypt")), ("openssl", ("encrypt", "decrypt"))):
            hidden = ["unshare", "-m", "sh", "-c", f'mount --bind /dev/null {shutil.which(tool)} && exec "$@"', "sh"]
            for verb in verbs:
                password = None if verb == "zip" else "pw"
                self.pack(verb, "file", "out", password, expect=MISSING_TOOL, prefix=hidden)
        self.assertEqual(os.listdir(self.base), ["file"])

    def test_failing_tools_never_read_as_a_wrong_password(self):
        self.write("file", bytes(100_000))
        self.zip("file", "a.zip", "pw")
        self.pack("encrypt", "file", "sealed", "pw")
        before = self.snapshot()
        for tool in ("openssl", "bsdtar", "tee", "mkfifo", "od", "awk", "dd", "mktemp", "mv", "tr", "sed"):
            for status in (1, 82):
                self.write(f"bin/{tool}", b"#!/bin/sh\nexit %d\n" % status)
                os.chmod(self.path("bin", tool), 0o755)
                environment = {**os.environ, "PATH": self.path("bin") + ":" + os.environ["PATH"]}
                for shell in SHELLS if tool == "openssl" else ["dash"]:
                    seen = [self.pack("decrypt", "sealed", "out", "pw", expect=None, shell=shell, env=environment),
                            self.unzip("a.zip", "new", "pw", expect=None, shell=shell, env=environment)]
                    self.assertNotIn(seen[0], (1, 82), tool)
                    self.assertNotIn(seen[1], (1, 82), tool)
            if DONE not in seen:
                self.assertFalse(os.path.exists(self.path("out")) or os.path.exists(self.path("new")), tool)
            shutil.rmtree(self.path("bin"))
            for left in ("out", "new"):
                subprocess.run(["rm", "-rf", self.path(left)], check=True)
        self.assertEqual(self.snapshot(), before)

    @unittest.skipUnless(AS_ROOT, "needs root: tmpfs")
    def test_full_disk(self):
        self.random_file("big", 6)
        self.zip("big", "a.zip")
        self.zip("big", "aes.zip", "pw")
        self.pack("encrypt", "big", "sealed", "pw")
        disk = self.folder("disk")
        subprocess.run(["mount", "-t", "tmpfs", "-o", "size=4m", "tmpfs", disk], check=True)
        self.addCleanup(lambda: subprocess.run(["umount", disk], check=True))
        self.write("disk/out", b"earlier")
        self.write("disk/folder/big", b"earlier")
        before = self.snapshot()
        for shell in SHELLS:
            for verb, source in (("zip", "big"), ("zipencrypt", "big"), ("encrypt", "big"), ("decrypt", "sealed")):
                self.pack(verb, source, "disk/out", None if verb == "zip" else "pw", expect=NOT_WRITTEN, shell=shell)
            for destination in ("disk/folder", "disk/new/one"):
                self.unzip("a.zip", destination, expect=NOT_WRITTEN, shell=shell)
                self.unzip("aes.zip", destination, "pw", expect=NOT_WRITTEN, shell=shell)
                self.unzip("aes.zip", destination, "wrong", expect=82, shell=shell)
        self.assertEqual(self.snapshot(), before)

    @unittest.skipUnless(AS_ROOT, "needs root: mount name space")
    def test_a_mount_point_in_the_way_is_not_merged_through(self):
        self.write("tree/mounted/file")
        self.zip("tree", "a.zip")
        self.write("out/tree/first", b"earlier")
        mounted = self.folder("out/tree/mounted")
        self.unzip("a.zip", "out", expect=DESTINATION,
                   prefix=["unshare", "-m", "sh", "-c", f'mount -t tmpfs tmpfs "{mounted}" && exec "$@"', "sh"])
        self.assertEqual(os.listdir(mounted), [])

    def test_signals_leave_nothing(self):
        self.random_file("big/data", 40)
        for number in range(300):
            self.write(f"big/small/{number}", b"x" * number)
        self.write("text", self.read("big/data"))
        self.zip("big", "a.zip")
        self.zip("big", "aes.zip", "pw")
        self.pack("encrypt", "text", "sealed", "pw")
        self.write("out/target", b"earlier")
        self.write("out/big/small/7", b"earlier")
        before = self.snapshot()
        commands = {verb: self.command(verb, self.path(""), self.path("out/"), source, "target", *last, shell=shell)
                    for verb, source, last, shell in (("zip", "big", (), "dash"), ("zipencrypt", "big", ("pw",), "bash"),
                                                      ("encrypt", "text", ("pw",), "busybox"), ("decrypt", "sealed", ("pw",), "dash"))}
        commands["unzip"] = self.command("unzip", self.path(""), self.path("out/"), "a.zip", "expand", shell="bash")
        commands["unzipdecrypt"] = self.command("unzipdecrypt", self.path(""), self.path("out/new/er/"), "aes.zip", "expand", "pw")
        delays = [0.02, 0.1, 0.25, 0.5] + ([0.04 * step for step in range(30)] if FULL else [])
        interrupted = 0
        for verb, command in commands.items():
            for number, delay in enumerate(delays):
                sent = (signal.SIGTERM, signal.SIGHUP, signal.SIGINT)[number % 3]
                with self.subTest(verb=verb, delay=delay):
                    running = subprocess.Popen(command)
                    time.sleep(delay)
                    running.send_signal(sent)
                    started = time.monotonic()
                    status = running.wait(timeout=60)
                    if status == DONE:
                        before = self.snapshot()
                        break
                    interrupted += 1
                    self.assertLess(time.monotonic() - started, 10)
                    # A signal before the first line, or after the last, ends the shell itself.
                    self.assertIn(status, (128 + sent, -sent))
                    self.assertEqual(self.snapshot(), before)
                    self.assertEqual(self.processes(), [])
        self.assertGreaterEqual(interrupted, len(commands))

    def test_signals_find_children_that_have_just_been_started(self):
        self.random_file("text", 1)
        self.zip("text", "aes.zip", "pw")
        self.pack("encrypt", "text", "sealed", "pw")
        with open(SCRIPT, encoding="utf-8") as file:
            slowed, pauses = re.subn(r"^( *\w+=\$!)$", r"\1; sleep 0.3", file.read(), flags=re.MULTILINE)
        self.assertGreater(pauses, 8)
        self.write("slowed.sh", slowed.encode())
        before = self.snapshot()
        for verb, source, last, shell in (("encrypt", "text", "target", "busybox"), ("decrypt", "sealed", "target", "dash"),
                                          ("unzipdecrypt", "aes.zip", "expand", "bash")):
            command = [*SHELLS[shell], self.path("slowed.sh"), "|".join((verb, self.path(""), self.path("out/"), source, last, "pw"))]
            for delay in (0.2, 0.35, 0.5, 0.65):
                with self.subTest(verb=verb, delay=delay):
                    os.makedirs(self.path("out"), exist_ok=True)
                    running = subprocess.Popen(command, start_new_session=True)
                    time.sleep(delay)
                    running.terminate()
                    try:
                        self.assertEqual(running.wait(timeout=20), 128 + signal.SIGTERM)
                    finally:
                        if running.returncode is None:
                            os.killpg(running.pid, signal.SIGKILL)
                            running.wait()
                    self.assertEqual(os.listdir(self.path("out")), [])
                    os.rmdir(self.path("out"))
                    self.assertEqual(self.snapshot(), before)
                    self.assertEqual(self.processes(), [])

    def processes(self):
        """Processes that still work on the scratch folder."""
        found = []
        for line in glob.glob("/proc/[0-9]*/cmdline"):
            try:
                with open(line, "rb") as file:
                    if self.base.encode() in file.read():
                        found.append(line)
            except OSError:
                pass
        return found

    def test_killed_outright_it_leaves_the_target_alone(self):
        self.random_file("text", 30)
        self.write("target", b"earlier")
        for delay in (0.1, 0.3, 0.6):
            running = subprocess.Popen(self.command("encrypt", self.path(""), self.path(""), "text", "target", "pw"))
            time.sleep(delay)
            running.kill()
            if running.wait() == DONE:
                break
            self.assertEqual(self.read("target"), b"earlier")
        deadline = time.monotonic() + 30
        while self.processes() and time.monotonic() < deadline:
            time.sleep(0.1)
        self.assertEqual(self.processes(), [])

    def test_a_terminal_changes_nothing(self):
        self.write("file")
        self.zip("file", "aes.zip", "pw")
        self.pack("encrypt", "file", "sealed", "pw")
        cases = [(("zip", "file", "z"), DONE), (("zipencrypt", "file", "z", "pw"), DONE), (("encrypt", "file", "e", "pw"), DONE),
                 (("decrypt", "sealed", "d", "wrong"), 1), (("unzip", "aes.zip", "expand"), NEEDS_PASSWORD),
                 (("unzipdecrypt", "aes.zip", "expand", "wrong"), 82)]
        for (verb, source, *rest), expected in cases:
            command = self.command(verb, self.path(""), self.path(""), source, *rest)
            child, terminal = pty.fork()
            if child == 0:
                os.execvp(command[0], command)
            # A question would wait here for ever: nothing is ever typed.
            deadline = time.monotonic() + 60
            ended, status = os.waitpid(child, os.WNOHANG)
            while not ended and time.monotonic() < deadline:
                time.sleep(0.05)
                ended, status = os.waitpid(child, os.WNOHANG)
            if not ended:
                os.kill(child, signal.SIGTERM)
                os.waitpid(child, 0)
            os.close(terminal)
            self.assertTrue(ended, verb)
            self.assertEqual(os.waitstatus_to_exitcode(status), expected, verb)

    def test_a_host_that_ignores_or_closes_things(self):
        self.write("file", bytes(300_000))
        self.addCleanup(SHELLS.pop, "bare", None)
        for prefix in (["sh", "-c", 'trap "" PIPE CHLD TERM HUP; exec "$@"', "sh"],
                       ["sh", "-c", 'exec "$@" 3<&- 0<&- 1>&- 2>&-', "sh"],
                       ["env", "-i", "PATH=", "LC_ALL=C", "TMPDIR=/nowhere", "ZIPOPT=-0", "CDPATH=/", "IFS=|", "POSIXLY_CORRECT=1"],
                       ["sh", "-c", 'umask 0777; exec "$@"', "sh"] if AS_ROOT else []):
            for shell, path in (("dash", "/bin/dash"), ("bash", "/bin/bash"), ("busybox", "/bin/busybox")):
                options = {"prefix": prefix, "shell": shell}
                if prefix[:1] == ["env"]:
                    options["prefix"] = [*prefix, path]
                    SHELLS["bare"], options["shell"] = {"dash": [], "bash": ["--posix"], "busybox": ["sh"]}[shell], "bare"
                for verb, source, target in (("zip", "file", "z"), ("encrypt", "file", "e"), ("decrypt", "e", "d")):
                    self.pack(verb, source, target, None if verb == "zip" else "pw", **options)
                self.pack("decrypt", "e", "x", "wrong", expect=1, **options)
                self.unzip("z", "out", **options)
                self.assertEqual(self.read("d"), self.read("out/file"))
                for left in ("z", "e", "d", "out/file"):
                    os.remove(self.path(left))
        self.assertEqual(sorted(os.listdir(self.base)), ["file", "out"])


if __name__ == "__main__":
    unittest.main(verbosity=2)
