"""ZipFuncs.sh and its program, run as the plug-in runs them: what goes in comes out, nothing else is touched, failures say
why; and the plug-in that brings them.

Called as: script_test.py SCRIPT HOST PLUGIN SANITIZERS [unittest's words]. FOLIDEX_FULL=1 adds large trees and many more
interruptions.
"""

import itertools
import os
import random
import re
import resource
import shutil
import signal
import socket
import stat
import struct
import subprocess
import sys
import tempfile
import time
import unittest
import zipfile
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "tests"))
from support import surroundings  # noqa: E402
# CMake passes no empty argument.
SCRIPT, HOST, PLUGIN, SANITIZERS = (os.path.abspath(word) if "/" in word else word for word in [*sys.argv[1:], ""][:4])
FULL = os.environ.get("FOLIDEX_FULL") == "1"
AS_ROOT = os.geteuid() == 0
LOCAL = sys.platform == "linux" and not SANITIZERS  # what strange surroundings don't break
NOBODY = "exec setpriv --reuid=65534 --regid=65534 --clear-groups"
ODD = ["-dash", "@at", "-C", "star*[x]?{y}", " blanks ", "new\nline", "end\n",
       "%s%n", "$HOME", "ünïcödé–日本", "u\u0308 decomposed", "quote\"s", "..dots", ".hidden", "latin\udce9"]  # the last one is for no zip


def access_list(*entries):
    """As acl(5) has it in an extended attribute: (tag, rights, ID) each."""
    return struct.pack("<I", 2) + b"".join(struct.pack("<HHI", *entry) for entry in entries)


NO_ID = 0xffffffff
OPEN_TO_USER_1 = access_list((1, 7, NO_ID), (2, 7, 1), (4, 0, NO_ID), (0x10, 7, NO_ID), (0x20, 0, NO_ID))


class ScratchCase(unittest.TestCase):
    def setUp(self):
        memory = "/dev/shm" if os.path.isdir("/dev/shm") and not FULL else None  # where flushing takes no time
        self.base = tempfile.mkdtemp(prefix="archive-", dir=memory)
        self.addCleanup(self.sh, 'chmod -R u+rwx "$PWD" 2>/dev/null; rm -rf "$PWD"')
        os.chmod(self.base, 0o755)

    def path(self, *parts):
        return Path(self.base, *parts)

    def write(self, name, data=b"content\n", mode=0o644):
        path = self.path(name)
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_bytes(data)
        path.chmod(mode)
        return path

    def read(self, name):
        return self.path(name).read_bytes()

    def sh(self, commands):
        subprocess.run(["sh", "-ec", commands], cwd=self.base, check=True)

    def mode(self, name):
        return stat.S_IMODE(self.path(name).lstat().st_mode)

    def tree(self, top="", times=False):
        """Everything below: kinds, modes, contents, on demand the times of files."""
        found, top = {}, self.path(top)
        for path in top.rglob("*"):
            status = path.lstat()
            is_file = stat.S_ISREG(status.st_mode)
            content = path.read_bytes() if is_file else path.is_symlink() and os.readlink(path)
            found[str(path.relative_to(top))] = (status.st_mode, content, times and is_file and int(status.st_mtime))
        return found

    def assert_same(self, tree, expected, why=None):
        """Names what differs: contents can be long."""
        self.assertEqual({path for path, _ in tree.items() ^ expected.items()}, set(), why)

    def argument(self, verb, source, target, password=None):
        (folder, name), (to_folder, to_name) = (os.path.split(f"{self.base}/{place}") for place in (source, target))
        with_password = {"zip": "zipencrypt", "unzip": "unzipdecrypt"}.get(verb, verb)
        fields = [with_password if password else verb, folder + "/", to_folder + "/", name, to_name or "expand"]
        return "|".join(fields + ([password] if password else []))

    def run_verb(self, verb, source, target, password=None, expect=0, prefix="", **options):
        """Fails unless it says how it ended, ends as expected, leaves nothing of its own, and after a failure all as it
        was. The prefix is for the shell that starts it. Returns what it said."""
        before = self.tree() if expect else None
        earlier = set(self.path().rglob(".folidex-*"))
        command = ["sh", "-c", prefix + ' "$@"', "sh", "sh", SCRIPT, self.argument(verb, source, target, password)]
        done = subprocess.run(command, capture_output=True, stdin=subprocess.PIPE, timeout=600, check=False, **options)
        self.assertEqual((done.returncode, done.stderr), (expect, b""), (command, done.stdout))
        self.assertRegex(done.stdout, b"^%d [a-z]+: [^\n]%s\n$" % (expect, b"+" if expect else b"*"))
        self.assertLessEqual(set(self.path().rglob(".folidex-*")), earlier, command)
        if before is not None:
            self.assert_same(self.tree(), before, command)
        return done.stdout.decode()


class RoundTrip(ScratchCase):
    def test_trees(self):
        for number, entry in enumerate(ODD[:-1]):
            self.write(f"in/-tree/deep/{entry}/{entry}")
            os.utime(self.write(f"in/-tree/{entry}", b"%d\n" % number * (number + 1)), (1e9, 1e9 + 2 * number))
        os.makedirs(self.path("in/-tree", *["level"] * 200, "empty"))
        self.write("in/-tree/nothing", b"")
        self.write("in/-tree/locked/file", mode=0o444)
        self.write("in/-tree/large", random.Random(1).randbytes(3_000_000) + bytes(3_000_000))
        self.sh("cd in/-tree; ln nothing 'hard link'; ln -s deep link; ln -s ../../elsewhere up;"
                "ln -s /etc/passwd absolute; ln -s 'no\nwhere' gone; chmod 555 locked")
        for number, password in enumerate((None, "p w|\"$")):
            self.run_verb("zip", "in/-tree", "x.zip", password)
            self.run_verb("unzip", "x.zip", f"{number}/out/", password)
            self.assert_same(self.tree(f"{number}/out/-tree", True), self.tree("in/-tree", True))
        # Merged into what is there, files and links are replaced.
        self.write("0/out/-tree/-dash", b"older")
        self.write("victim", b"untouched")
        self.sh("cd 0/out/-tree; chmod 755 locked; rm -r locked; echo >mine; ln -sf ../../../victim nothing")
        self.run_verb("unzip", "x.zip", "0/out/", password)
        self.sh("rm 0/out/-tree/mine")
        self.assert_same(self.tree("0/out/-tree", True), self.tree("in/-tree", True))
        self.assertEqual(self.read("victim"), b"untouched")

    def test_encrypted_files(self):
        code = (ROOT / "docs/encrypted-files.md").read_text("utf-8").split("```python\n")[1].split("```")[0]
        exec(code, page := {})
        block = 1 << 20
        sizes = (0, 1, 16, 9999, block - 72, block - 1, block, block + 1, 2 * block, 5 * block + 7)
        for size, name in itertools.zip_longest(sizes, ODD[:len(sizes)]):
            data = random.Random(size).randbytes(size)
            self.write(f"in/{name}", data)
            self.run_verb("encrypt", f"in/{name}", "x.enc", "pä|2")
            self.run_verb("decrypt", "x.enc", "back", "pä|2")
            self.assertTrue(self.read("back") == data, size)
            if shutil.which("openssl"):
                self.assertTrue(page["decrypt"](self.read("x.enc"), "pä|2") == data, size)
        first = self.read("x.enc")
        self.run_verb("encrypt", f"in/{name}", "x.enc", "pä|2")
        self.assertFalse(set(first[i:i + 16] for i in range(8, 4096, 16)) & set(
            self.read("x.enc")[i:i + 16] for i in range(8, 4096, 16)), "no two files have keys in common")

    @unittest.skipUnless(FULL, "FOLIDEX_FULL=1 packs 9 GiB and 100,000 files")
    def test_sizes(self):
        os.truncate(self.write("in/tree/big"), 5 << 30)
        with open(self.write("in/tree/noise"), "wb") as file:
            for _ in range(4097):
                file.write(os.urandom(1 << 20))
        for number in range(100_000):
            self.write(f"in/tree/{number % 300}/{number}", b"%d" % number)
        for password in (None, "pw"):
            self.run_verb("zip", "in/tree", "x.zip", password)
            if not password:
                self.assertIsNone(zipfile.ZipFile(self.path("x.zip")).testzip())
            self.run_verb("unzip", "x.zip", "out/", password)
            self.sh("diff -r in/tree out/tree; rm -r out")


class Failure(ScratchCase):
    VERBS = [("zip", "file", None), ("zip", "file", "pw"), ("encrypt", "file", "pw"), ("decrypt", "x.enc", "pw")]

    def setUp(self):
        super().setUp()
        self.write("file", random.Random(2).randbytes(3_000_000))
        self.run_verb("encrypt", "file", "x.enc", "pw")
        self.run_verb("zip", "file", "plain.zip")
        self.run_verb("zip", "file", "aes.zip", "pw")

    def test_refusals(self):
        for fields in ("", "|", "zip|/|/|c", "zip|/|/|c|d|e", "decrypt|/|/|c|d", "decrypt|/|/|c|d|", "no|/|/|c|d",
                       "unzip|/|/|c|d"):
            done = subprocess.run(["sh", SCRIPT, fields], check=False, capture_output=True)
            self.assertEqual(done.returncode, 64, (fields, done.stdout))
        self.assertEqual(subprocess.run(["sh", SCRIPT, "zip|/|/|a|b", "more"], check=False, capture_output=True).returncode, 64)
        # Without its program, and beside one that may not run.
        shutil.copy(SCRIPT, self.base)
        for _ in range(2):
            done = subprocess.run(["sh", "ZipFuncs.sh", "zip|/|/|a|b"], cwd=self.base, check=False, capture_output=True)
            self.assertEqual((done.returncode, done.stdout[:3], done.stdout.count(b"\n")), (69, b"69 ", 1))
            self.write("folidex-archive")
        self.sh("rm ZipFuncs.sh folidex-archive; mkdir folder; ln -s folder link; ln file 'hard link'; mkfifo folder/pipe")
        for verb, good, password in self.VERBS:
            for source in ("missing", "folder/pipe", "folder/.", "folder/.."):
                self.run_verb(verb, source, "out", password, expect=66)
            for target in ("missing/out", "file/out", "folder", "link", "folder/pipe", "folder/..", good) + (
                    ("hard link",) if good == "file" else ()):
                self.run_verb(verb, good, target, password, expect=73)
        for status, verb, source, target, password in (
                (66, "zip", "folder", "out", None), (66, "unzip", "folder", "out/", None),
                (66, "encrypt", "folder", "out", "pw"), (65, "unzip", "file", "out/", None),
                (73, "unzip", "aes.zip", "file/out/", "pw"), (77, "unzip", "aes.zip", "new/", None),
                (82, "unzip", "aes.zip", "new/", "PW"), (1, "decrypt", "x.enc", "new", "PW"),
                (65, "decrypt", "file", "new", "pw")):
            self.run_verb(verb, source, target, password, expect=status)

    def test_changed_encrypted_files_are_damaged_whatever_the_password(self):
        self.write("small", b"content")
        self.run_verb("encrypt", "small", "x.enc", "pw")
        data = self.read("x.enc")
        self.assertEqual(len(data), 72 + len(b"content"))
        for at in range(len(data) if FULL else 48):
            self.write("changed", data[:at] + bytes([data[at] ^ 1]) + data[at + 1:])
            self.run_verb("decrypt", "changed", "new", "pw", expect=65)
        for content in (b"", data[:40], data[:71], data[:-1], data + b"x", data[:-1] + b"x"):
            self.write("changed", content)
            self.run_verb("decrypt", "changed", "new", "pw", expect=65)

    @surroundings.case_needs("root", "setpriv")
    def test_what_another_user_may_not_touch(self):
        self.write("tree/shut/file")
        self.sh("chown 1 tree; chmod 555 tree")
        self.run_verb("zip", "tree", "x.zip")
        self.run_verb("unzip", "x.zip", "own/")
        self.assertEqual(self.path("own/tree").stat().st_uid, 0)
        self.sh("mkdir -m 777 open open/new; chmod 700 own; chmod 600 file")
        self.run_verb("unzip", "x.zip", "open/new/", prefix=NOBODY, cwd=self.path("own"))
        for folder_mode, file_mode in ((755, 600), (700, 644)):
            self.sh(f"chmod {folder_mode} tree/shut; chmod {file_mode} tree/shut/file")
            self.run_verb("zip", "tree", "open/out", expect=66, prefix=NOBODY)
        self.run_verb("encrypt", "file", "open/out", "pw", expect=66, prefix=NOBODY)
        self.write("open/tree/shut/file")
        for folder in ("open/", "new/"):
            self.run_verb("unzip", "x.zip", folder, expect=73, prefix=NOBODY)

    def test_results_are_as_private_as_what_they_come_from(self):
        self.sh("umask 022; mkdir shut seen partly fine odd; echo | tee shut/file seen/file partly/file fine/file odd/file old.zip old;"
                "chmod 2755 .; chmod 711 shut; chmod 744 seen; chmod 640 partly/file; chmod 600 file old.zip; chmod 604 odd/file; ln -s old.zip link")
        for verb, source, target, mode in (
                ("zip", "shut", "1.zip", 0o600), ("zip", "seen", "0.zip", 0o600), ("zip", "partly", "2.zip", 0o640), ("zip", "file", "3.zip", 0o600),
                ("zip", "fine", "old.zip", 0o600), ("zip", "fine", "4.zip", 0o644), ("zip", "fine", "link", 0o600),
                ("zip", "odd", "7.zip", 0o604), ("encrypt", "file", "5", 0o600), ("encrypt", "fine/file", "old", 0o644), ("decrypt", "5", "9", 0o600)):
            self.run_verb(verb, source, target, "pw", prefix="umask 022;")
            self.assertEqual(self.mode(target), mode, (source, target))
        self.assertFalse(self.path("link").is_symlink())
        self.run_verb("encrypt", "fine/file", "6", "pw", prefix="umask 027;")
        self.assertEqual(self.mode("6"), 0o640)
        if AS_ROOT:
            self.sh("cp -p partly/file partly/other; chown 0:2 partly/other; chmod 640 partly/other")
            for source, target in (("partly/other", "8"), ("partly", "10")):
                self.run_verb("zip", source, target, prefix="umask 022;")
                self.assertEqual(self.mode(target), 0o600, "another group than the result's")

    @surroundings.case_needs("access-lists")
    def test_access_lists_let_nobody_in(self):
        self.sh("umask 022; mkdir out; echo >listed")
        os.setxattr(self.path("listed"), "system.posix_acl_access", OPEN_TO_USER_1)
        os.setxattr(self.path("out"), "system.posix_acl_default", OPEN_TO_USER_1)
        self.run_verb("encrypt", "listed", "1", "pw")
        self.assertEqual(self.mode("1"), 0o600)
        self.write("secret", mode=0o600)
        for verb, source, target in (("encrypt", "secret", "out/1"), ("zip", "secret", "out/2"), ("unzip", "aes.zip", "out/new/")):
            self.run_verb(verb, source, target, "pw")
        for made in self.path("out").rglob("*"):
            self.assertFalse({"system.posix_acl_access", "system.posix_acl_default"} & {*os.listxattr(made)}, made)
        self.assertEqual((self.mode("out/1"), self.mode("out/2")), (0o600, 0o600))

    @surroundings.case_needs("mounts")
    def test_full_disk(self):
        self.sh("mkdir disk; mount -t tmpfs -o size=2m tmpfs disk")
        self.addCleanup(self.sh, "umount disk")
        self.write("disk/out", b"earlier")
        self.write("disk/folder/file", b"earlier")
        for verb, source, password in self.VERBS:
            self.run_verb(verb, source, "disk/out", password, expect=74)
        for folder, password in itertools.product(("disk/folder/", "disk/new/one/"), (None, "pw")):
            self.run_verb("unzip", "aes.zip" if password else "plain.zip", folder, password, expect=74)

    def test_limit_on_file_sizes(self):
        limit = {"preexec_fn": lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (1 << 20, 1 << 20))}
        for verb, source, password in self.VERBS + [("unzip", "plain.zip", None)]:
            self.run_verb(verb, source, "new/" if verb == "unzip" else "out", password, expect=74, **limit)

    def test_a_host_that_ignores_or_closes_things(self):
        self.write("lib/libz.so.1", b"no library")
        self.write("lib/libcrypto.so.3", b"no library")
        self.write("lib/no.ciphers", b"openssl_conf = a\n[a]\nproviders = b\n[b]\nbase = c\n[c]\nactivate = 1\n")
        for host in ('trap "" PIPE CHLD TERM HUP;', "exec 3<&- 0<&- 2>&-;", "umask 0777; exec setsid env -i",
                     f'IFS="|" LD_LIBRARY_PATH={self.base}/lib OPENSSL_CONF={self.base}/lib/no.ciphers TZ=Nowhere'):
            for verb, source, password in self.VERBS:
                self.run_verb(verb, source, "out", password, prefix=host)
            os.chmod(self.path("out"), 0o600)
            self.assertEqual(self.read("out"), self.read("file"))
            os.remove(self.path("out"))
        silent = subprocess.run(f'exec >&-; exec sh {SCRIPT} "{self.argument("encrypt", "file", "out", "pw")}"', shell=True,
                                check=False)
        self.assertEqual(silent.returncode, 0)
        self.run_verb("decrypt", "out", "back", "pw")
        self.assertEqual(self.read("back"), self.read("file"))

    @unittest.skipUnless(LOCAL, "not with a sanitizer, and on Linux only")
    @surroundings.case_needs("mounts")
    def test_failures_go_to_the_system_log(self):
        with tempfile.TemporaryDirectory() as folder, socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as log:
            log.bind(f"{folder}/log")
            log.settimeout(60)
            devices = "set -e; mount -t tmpfs dev /dev; mknod -m 666 /dev/null c 1 3; ln -s $0/log /dev/log; exec \"$@\""
            argument = self.argument("zip", "missing\n", "out")
            subprocess.run(["unshare", "-m", "sh", "-c", devices, folder, "sh", SCRIPT, argument], check=False,
                           stdout=subprocess.DEVNULL)
            said = log.recv(4096).decode()
        self.assertRegex(said, r"^<11>.* Folidex: ZipFuncs.sh: 66 zip: the source can't be opened: No such file or directory$")

    @unittest.skipUnless(LOCAL, "not with a sanitizer, and on Linux only")
    @surroundings.case_needs("strace")
    def test_one_process_that_opens_its_source_once(self):
        for verb, source, target, password in (("zip", "file", "1.zip", None), ("zip", "file", "2.zip", "secret"),
                                               ("encrypt", "file", "3", "secret"), ("unzip", "plain.zip", "4/", None),
                                               ("unzip", "aes.zip", "5/", "pw"), ("decrypt", "x.enc", "6", "pw")):
            argument = self.argument(verb, source, target, password)
            subprocess.run(["strace", "-f", "-o", f"{self.base}/trace", "-e", "trace=execve,openat,open,clone,fork,vfork,clone3",
                            "sh", SCRIPT, argument], check=True, stdout=subprocess.DEVNULL)
            trace = self.read("trace").decode()
            self.assertEqual(len(re.findall(r"execve\(.* = 0$", trace, re.M)), 2, trace)
            self.assertEqual(re.findall(r"^.*\bv?fork\(.*$", trace, re.M), [])
            self.assertEqual(len(re.findall(rf"open(?:at)?\([^)]*/?{re.escape(source)}\"", trace)), 1, trace)

    @unittest.skipUnless(LOCAL, "needs Linux's /proc")
    def test_the_password_goes_from_the_list_of_processes(self):
        os.truncate(self.write("large"), 1 << 30)
        # With signals blocked, as a server's threads have them.
        running = subprocess.Popen(["sh", SCRIPT, self.argument("encrypt", "large", "out", "secret")], stdout=subprocess.DEVNULL,
                                   preexec_fn=lambda: signal.pthread_sigmask(signal.SIG_BLOCK, [signal.SIGTERM]))
        seen = b""
        while running.poll() is None and (b"|out|" not in seen or b"secret" in seen):
            seen = Path(f"/proc/{running.pid}/cmdline").read_bytes()
        self.assertRegex(seen, rb"\|out\|\0+$")
        running.terminate()
        self.assertEqual((running.wait(60), self.path("out").exists()), (143, False))

    # By TERM it leaves nothing; by KILL what the next call removes. The target is as it was, or whole.
    def test_ended_at_any_moment(self):
        self.sh("mkdir -p big/small; seq 200 | split -a 3 -l 1 - big/small/; head -c 20000000 /dev/urandom >big/data")
        self.run_verb("zip", "big", "x.zip")
        self.run_verb("zip", "big", "aes.zip", "pw")
        self.run_verb("encrypt", "big/data", "x.enc", "pw")
        pick = random.Random(1)

        def leftovers():
            return set(self.path("out").glob(".folidex-*"))

        def state():
            """Of the destination, or of what its archive holds."""
            found = set(self.path("out").glob("[!.]*")), self.tree("out/big"), self.read("out/x")
            if not undone_by or found[2] == b"earlier":
                return found
            self.sh("rm -rf back; mkdir back")
            self.run_verb(undone_by, "out/x", "back/x" if verb == "encrypt" else "back/", password)
            return self.tree("back")

        for verb, source, target, password, undone_by in (
                ("zip", "big", "x", None, "unzip"), ("zip", "big", "x", "pw", "unzip"),
                ("encrypt", "big/data", "x", "pw", "decrypt"), ("decrypt", "x.enc", "x", "pw", None),
                ("unzip", "x.zip", "", None, None), ("unzip", "aes.zip", "", "pw", None)):
            reset = "mkdir -p out; cd out; rm -rf big; printf earlier >x"
            self.sh(reset)
            old = state()
            began = time.monotonic()
            self.run_verb(verb, source, "out/" + target, password)
            takes = time.monotonic() - began
            whole = state()
            for number in range(400 if FULL else 8):
                self.sh(reset)
                sent = (signal.SIGKILL, signal.SIGTERM, signal.SIGINT, signal.SIGHUP)[number % 4]
                earlier = leftovers()
                running = subprocess.Popen(["sh", SCRIPT, self.argument(verb, source, "out/" + target, password)],
                                           stdout=subprocess.DEVNULL)
                time.sleep(pick.random() * takes)
                running.send_signal(sent)
                status = running.wait(300)
                # A signal may come before the program has asked for it, or after its last deed.
                allowed = {0: [whole], 128 + sent: [old], -sent: [old, whole] if sent == signal.SIGKILL else [old]}
                self.assertIn(status, allowed)
                self.assertTrue(state() in allowed[status], (verb, sent))
                if sent != signal.SIGKILL:
                    self.assertLessEqual(leftovers(), earlier)
            self.run_verb(*(("unzip", "plain.zip", "out/") if password else ("zip", "file", "out/file")))
            self.assertEqual(leftovers(), set())
            self.sh("rm -r out; mkdir out")

    def test_what_is_worked_on_is_no_leftover(self):
        os.mkdir(self.path("out"))
        self.sh("mkdir big; head -c 200000000 /dev/zero >big/data")
        self.run_verb("zip", "big", "x.zip")
        running = subprocess.Popen(["sh", SCRIPT, self.argument("unzip", "x.zip", "out/")], stdout=subprocess.DEVNULL,
                                   preexec_fn=lambda: signal.signal(signal.SIGTERM, signal.SIG_IGN))
        self.addCleanup(running.kill)
        while running.poll() is None and not list(self.path("out").glob(".folidex-*")):
            pass
        running.send_signal(signal.SIGSTOP)
        running.send_signal(signal.SIGTERM)
        used = next(self.path("out").glob(".folidex-*"))
        own, other = (used.with_name(used.name[:-1] + end) for end in "+-")
        self.sh(f"chmod 777 out; mkdir -p '{own}/locked'; touch '{own}/locked/file'; chmod 500 '{own}/locked'")
        users, left = [{}], {used}
        if AS_ROOT:
            self.sh(f"chown -R 65534 '{own}'; mkdir '{other}'; chown 1 '{other}'")
            users, left = [{}, {"user": 65534, "group": 65534, "extra_groups": []}], {used, other}
        for user in users:
            subprocess.run(["sh", SCRIPT, self.argument("zip", "file", "out/other")], check=True, stdout=subprocess.DEVNULL, **user)
        self.assertEqual(set(self.path("out").glob(".folidex-*")), left)
        running.send_signal(signal.SIGCONT)
        self.assertEqual((running.wait(300), {*os.listdir(self.path("out"))} - {other.name}), (0, {"big", "other"}))


class Plugin(ScratchCase):
    """The plug-in file alone, in whatever surroundings its host has."""

    SIX = ['KORB_CompressFile("@/in/a.txt"; "@/a.zip")', 'KORB_ExpandFile("@/a.zip"; "@/1/")',
           'KORB_EncryptFile("@/in/a.txt"; "@/a.enc"; "pw")', 'KORB_DecryptFile("@/a.enc"; "@/1/b.txt"; "pw")',
           'KORB_CompressAndEncrypt("@/in/a.txt"; "@/b.zip"; "pw")', 'KORB_DecryptAndExpand("@/b.zip"; "@/2/"; "pw")',
           'KORB_DecryptFile("@/a.enc"; "@/1/c.txt"; "PW")']

    def setUp(self):
        super().setUp()
        self.write("in/a.txt", b"text\n")
        self.write("home/Desktop/.keep")
        # What is mounted may hide the build folder.
        self.build = self.path("build")
        shutil.copytree(os.path.dirname(SCRIPT), self.build)
        for file in (HOST, PLUGIN, *Path(HOST).parent.glob("libFMWrapper.*")):
            (shutil.copytree if os.path.isdir(file) else shutil.copy)(file, self.build / os.path.basename(file))

    def calculate(self, calculations, prefix="", **options):
        words = [word for text in calculations for word in ("-e", text.replace("@", self.base))]
        host, plugin = (self.build / os.path.basename(file) for file in (HOST, PLUGIN))
        command = ["sh", "-c", prefix + ' "$@"', "sh", host, "--plugin", plugin, *words]
        done = subprocess.run(command, capture_output=True, text=True, check=False, timeout=600, **options)
        self.assertEqual((done.returncode, done.stderr), (0, ""), command)
        return done.stdout.split("\n")[:-1]

    def assert_all_six(self, **options):
        self.sh("rm -rf a.zip b.zip a.enc 1 2; mkdir 1")
        self.assertEqual(self.calculate(self.SIX, **options), ["0"] * 6 + ["!!ERROR!!"])
        self.assertEqual({self.read(name) for name in ("1/a.txt", "1/b.txt", "2/a.txt")}, {b"text\n"})

    def script_used(self, prefix="", **options):
        """Where the script is that a call starts, by the log."""
        self.sh("rm -rf home/Desktop/HALVIK a.zip")
        lines = ['KORB_LogSet("1")', 'KORB_CompressFile("@/in/a.txt"; "@/a.zip")']
        env = {**os.environ, "HOME": f"{self.base}/home"}
        self.assertEqual(self.calculate(lines, prefix, env=env, **options), ["0", "0"])
        log = self.read("home/Desktop/HALVIK/FOLIDEX/LogFile.txt").decode()
        return re.search(r"sh '([^']*)' 'zip\|", log)[1]

    def test_needs_no_program_but_the_shell(self):
        os.mkdir(self.path("bin"))
        os.symlink(shutil.which("sh"), self.path("bin/sh"))
        self.assert_all_six(env={**os.environ, "PATH": f"{self.base}/bin"})

    def test_where_the_host_ignores_its_children(self):
        self.assert_all_six(prefix='trap "" CHLD;')

    @unittest.skipUnless(LOCAL, "not with a sanitizer, and on Linux only")
    @surroundings.case_needs("mounts")
    def test_what_runs_is_nobody_elses(self):
        package = "/usr/libexec/folidex-server"
        private = "mount -t tmpfs home /root; mount -t tmpfs tmp /var/tmp; chmod 1777 /var/tmp;"
        # The package's folder is made anew each time, for the mount alone.
        installed = f"{private} mount -t tmpfs libexec /usr/libexec; mkdir {package}; cp {self.build}/* {package};"
        noexec = private.replace("-t tmpfs", "-t tmpfs -o noexec")
        for mounts, expected in (
                (installed, rf"{package}/ZipFuncs.sh"),
                (installed + f"echo >>{package}/folidex-archive;", r"/root/.cache/folidex/[0-9a-f]{16}/ZipFuncs.sh"),
                (installed + f"chmod 775 {package};", r"/root/.cache/folidex/.*"),
                (installed + f"chown 1 {package}/ZipFuncs.sh;", r"/root/.cache/folidex/.*"),
                (private + "mkdir -m 755 /root/.cache /root/elsewhere; ln -s ../elsewhere /root/.cache/folidex;", r"/var/tmp/folidex-0/.*"),
                (private + "mkdir /root/.cache; chmod 777 /root/.cache;", r"/var/tmp/folidex-0/.*"),
                (private + "mkdir /root/.cache; chmod 777 /root/.cache; mkdir /var/tmp/folidex-0; chown 1 /var/tmp/folidex-0;",
                 r"/proc/\d+/fd/\d+"),
                (noexec, r"/proc/\d+/fd/\d+")):
            self.sh("rm -f seen")
            script = f"unshare -m sh -ec '{mounts} exec \"$@\"' sh"
            self.assertRegex(self.script_used(prefix="exec " + script + " env --"), rf"^{expected}$", mounts)

    @unittest.skipUnless(LOCAL, "not with a sanitizer, and on Linux only")
    @surroundings.case_needs("mounts")
    def test_private_files_are_compared_before_each_use(self):
        change = "for f in /root/.cache/folidex/*/*; do echo exit 3 >$f; done"
        first = f'KORB_EncryptFile("{self.base}/in/a.txt"; "{self.base}/a.enc"; "pw")'
        run = f"unshare -m sh -ec 'mount -t tmpfs home /root; \"$@\"; {change}; exec \"$@\"' sh"
        self.assertEqual(self.calculate([first], prefix="exec " + run), ["0", "0"])


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1] + sys.argv[5:], verbosity=2)
