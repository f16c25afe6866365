"""resources/ZipFuncs.sh, run as the plug-in runs it: what goes in comes out, nothing else is touched, failures say why.

The shells take turns, call by call. FOLIDEX_FULL=1 adds large trees and many more interruptions. Damage at random goes
on for FOLIDEX_SECONDS; FOLIDEX_SEED repeats a case.
"""

import io
import itertools
import os
import random
import shutil
import signal
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
SCRIPT = os.environ.get("FOLIDEX_ZIPFUNCS", f"{ROOT}/resources/ZipFuncs.sh")
SEEDS = {path.name: path.read_bytes() for path in (ROOT / "fuzz/corpus/zipfuncs").iterdir()}
FULL = os.environ.get("FOLIDEX_FULL") == "1"
AS_ROOT = os.geteuid() == 0
SHELLS = [words for words in (["dash"], ["bash", "--posix"], ["busybox", "sh"]) if shutil.which(words[0])]
NOBODY = "exec setpriv --reuid=65534 --regid=65534 --clear-groups"
LINK, DEVICE, PASSPHRASE = 0o120777, 0o20666, "a: Incorrect passphrase"
ODD = ["-dash", "@at", "-C", "back\\slash", "\\lead", "c:drive", "star*[x]?{y}", " blanks ", "new\nline", "end\n",
       "%s%n", "$HOME", "ünïcödé–日本", "quote\"s", "latin\udce9", "..dots", ".hidden", PASSPHRASE]


class ScratchCase(unittest.TestCase):
    def setUp(self):
        self.base, self.shells = tempfile.mkdtemp(prefix="zipfuncs-"), itertools.cycle(SHELLS)
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

    def modes(self, *names):
        return [stat.S_IMODE(self.path(name).lstat().st_mode) for name in names]

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

    def command(self, verb, source, target, password=None):
        (folder, name), (to_folder, to_name) = (os.path.split(f"{self.base}/{place}") for place in (source, target))
        with_password = {"zip": "zipencrypt", "unzip": "unzipdecrypt"}.get(verb, verb)
        fields = [with_password if password else verb, folder + "/", to_folder + "/", name, to_name or "expand"]
        return [*next(self.shells), SCRIPT, "|".join(fields + ([password] if password else []))]

    def run_verb(self, verb, source, target, password=None, expect=0, prefix="", others=False, **options):
        """Fails unless it's silent, ends as expected and, where no others write, leaves no work folder, and after a
        failure all as it was. The prefix is for the shell that starts it."""
        before = expect != 0 and not others and self.tree()
        work_folders = set(self.path().rglob(".ZipFuncs.*"))
        command = ["sh", "-c", prefix + ' "$@"', "sh", *self.command(verb, source, target, password)]
        done = subprocess.run(command, capture_output=True, stdin=subprocess.PIPE, timeout=3000, check=False, **options)
        self.assertEqual((done.stdout, done.stderr), (b"", b""), command)
        self.assertIn(done.returncode, [expect] if isinstance(expect, int) else expect, command)
        self.assertTrue(others or work_folders.issuperset(self.path().rglob(".ZipFuncs.*")), command)
        if done.returncode and before:
            self.assert_same(self.tree(), before, command)
        return done.returncode


def zipped(*entries):
    """An archive. Entries are (name, data) or (name, data, Unix mode)."""
    data = io.BytesIO()
    with zipfile.ZipFile(data, "w", zipfile.ZIP_DEFLATED) as archive:
        for name, content, *mode in entries:
            info = zipfile.ZipInfo(name, (2020, 2, 3, 4, 5, 6))
            info.create_system, info.external_attr = 3, (mode[0] if mode else 0o100644) << 16
            archive.writestr(info, content)
    return data.getvalue()


def end_record(count, length, start):
    return struct.pack("<4s4x2H2I2x", b"PK\5\6", count, count, length, start)


class RoundTrip(ScratchCase):
    def test_trees(self):
        for number, entry in enumerate(ODD):
            self.write(f"in/-tree/deep/{entry}/{entry}")
            os.utime(self.write(f"in/-tree/{entry}", b"%d\n" % number * (number + 1)), (1e9, 1e9 + 2 * number))
        os.makedirs(self.path("in/-tree", *["level"] * 200, "empty"))
        self.write("in/-tree/nothing", b"")
        self.write("in/-tree/locked/file", mode=0o444)
        self.sh("cd in/-tree; ln nothing 'hard link'; ln -s deep link; ln -s ../../elsewhere up;"
                "ln -s /etc/passwd absolute; ln -s 'no\nwhere' gone; chmod 555 locked")
        for number, password in enumerate([None, "p w|'\"$"] * 3):
            self.run_verb("zip", "in/-tree", "x.zip", password)
            self.run_verb("unzip", "x.zip", f"{number}/out/", password)
            self.assert_same(self.tree(f"{number}/out/-tree", True), self.tree("in/-tree", True))
        with zipfile.ZipFile(self.path("x.zip"), metadata_encoding="latin-1") as archive:
            flags = {info.orig_filename: info.flag_bits for info in archive.infolist()}
        self.assertTrue(flags["-tree/ünïcödé–日本"] & 0x800, "one name that isn't UTF-8 spoils no other's mark")
        # Merged into what is there, files and links are replaced.
        self.write("0/out/-tree/-dash", b"older")
        self.write("victim", b"untouched")
        self.sh("cd 0/out/-tree; chmod 755 locked; rm -r locked; echo >mine; ln -sf ../../../victim nothing")
        self.run_verb("unzip", "x.zip", "0/out/", password)
        self.sh("rm 0/out/-tree/mine")
        self.assert_same(self.tree("0/out/-tree", True), self.tree("in/-tree", True))
        self.assertEqual(self.read("victim"), b"untouched")

    def test_single_files(self):
        code = (ROOT / "docs/encrypted-files.md").read_text("utf-8").split("```python\n")[1].split("```")[0]
        exec(code, page := {})
        for number, name in enumerate(ODD):
            data = random.Random(number).randbytes(number * 9999)
            self.write(f"in/{name}", data)
            self.run_verb("zip", f"in/{name}", "x.zip")
            self.run_verb("unzip", "x.zip", "out/")
            self.run_verb("encrypt", f"in/{name}", "x.enc", "pä|2")
            self.run_verb("decrypt", "x.enc", "back", "pä|2")
            self.assertTrue(self.read(f"out/{name}") == self.read("back") == data, name)
        self.assertTrue(page["decrypt"](self.read("x.enc"), "pä|2") == data)
        self.sh("ln -s ./-dash in/link")
        self.run_verb("zip", "in/link", "x.zip")
        self.run_verb("unzip", "x.zip", "out/")
        self.assertFalse(self.path("out/link").is_symlink())

    def test_an_archive_in_its_own_source_leaves_itself_and_leftovers_out(self):
        self.write("s[x]/sub/file")
        owner = self.write("s[x]/sub/.ZipFuncs.0123456789/owner", b"another host")
        for _ in range(2):
            self.run_verb("zip", "s[x]", "s[x]/sub/a[1]*.zip")
        self.assertTrue(owner.exists())
        with zipfile.ZipFile(self.path("s[x]/sub/a[1]*.zip")) as archive:
            self.assertEqual(sorted(archive.namelist()), ["s[x]/", "s[x]/sub/", "s[x]/sub/file"])

    def test_times_that_zip_cannot_hold_are_clamped(self):
        for name, at in (("a b", 5e9), ("ü", -3e8)):
            os.utime(self.write(f"in/new line/{name}", name.encode()), (at, at))
        self.run_verb("zip", "in/new line", "x.zip")
        self.run_verb("unzip", "x.zip", "out/")
        clamped = {(name, at) for name, (_, _, at) in self.tree("out/new line", True).items()}
        self.assertEqual((clamped, self.read("out/new line/ü")), ({("a b", 2**31 - 1), ("ü", 0)}, "ü".encode()))

    @unittest.skipUnless(FULL, "FOLIDEX_FULL=1 packs 5 GiB and 100,000 files")
    def test_sizes(self):
        os.truncate(self.write("in/tree/big"), 5 << 30)
        for number in range(100_000):
            self.write(f"in/tree/{number % 300}/{number}", b"%d" % number)
        for password in (None, "pw"):
            self.run_verb("zip", "in/tree", "x.zip", password)
            self.run_verb("unzip", "x.zip", "out/", password)
            self.sh("diff -r in/tree out/tree; rm -r out")


class ArchivesOfOthers(ScratchCase):
    def expand(self, data, folder, expect=0, password=None):
        self.write("x.zip", data)
        self.run_verb("unzip", "x.zip", folder + "/", password, expect=expect)

    def test_valid_ones(self):
        plain = zipped(("d/f", "x" * 99, 0o100755), ("a", "1"), ("./d/./a", "2"), ("__MACOSX/d/._f", "x"), ("d//g", ""))
        comments = [plain[:-2] + struct.pack("<H", 4 * marks) + b"PK\5\6" * marks for marks in (9, 9999)]
        for number, data in enumerate((plain + b"\n", plain + bytes(30_000), bytes(5000) + plain, *comments)):
            self.expand(data, f"{number}")
            self.assertEqual((self.read(f"{number}/d/f"), self.modes(f"{number}/d/f")), (b"x" * 99, [0o755]))
        self.expand(zipped(), "none")
        self.expand(random.Random(1).randbytes(5000) + SEEDS["encrypted.zip"], "aes", password="pass word|é")

    def test_many_entries_and_a_wrapped_count(self):
        data = zipped(*[(f"{number % 50}/{number}", "") for number in range(65_600)])
        central, end = data.index(b"PK\1\2"), data.index(b"PK\6\6")
        for name, content in (("zip64", data), ("wrapped", data[:end] + end_record(64, end - central, central))):
            self.expand(content, name)
            self.assertEqual(sum(len(files) for _, _, files in os.walk(self.path(name))), 65_600)

    def test_damaged_and_hostile_ones(self):
        os.mkdir(outside := f"{self.base}/outside")
        bad = [zipped(*entries) for entries in (
            [("ok", "x"), ("../victim", "x")], [("a/../../victim", "x")], [(outside + "/new", "x")], [("..", "x")],
            [("link", outside, LINK), ("link/" + PASSPHRASE, "x")], [("../" + PASSPHRASE, "x")],
            [("zero", "", DEVICE)], [("a", ".", LINK), ("a/b", outside, LINK), ("a/b/new", "x")])]
        whole = zipped(*[(f"d/f{number}", random.Random(number).randbytes(200)) for number in range(20)])
        central, end = whole.index(b"PK\1\2"), whole.index(b"PK\5\6")
        entry = whole[central:whole.index(b"PK\1\2", central + 1)]
        bad += [b"", b"PK\3\4" + bytes(100), whole[:500] + whole[600:], whole[:800] + b"\0" + whole[801:], whole[100:],
                SEEDS["plain.tar"] + zipped(("f", ""), ("g", "")), whole[:end] + end_record(19, end - central, central),
                whole[:end] + entry + end_record(21, end - central + len(entry), central),
                whole[:end + 4] + b"\1" + whole[end + 5:], b"#mtree\n./x type=file contents=../../victim\n",
                *[whole[:size] for size in (10, central, central + 30, end, len(whole) - 1)]]
        cases = list(itertools.product(bad, (None, "pw")))
        self.write("victim", b"untouched")
        self.write("existing/d/mine")
        for marked in (0, 1):  # in the directory: a plain file among encrypted ones
            self.run_verb("zip", "victim", "x.zip", "pw")
            with zipfile.ZipFile(self.path("x.zip"), "a") as archive:
                archive.writestr("forged", "x")
                archive.getinfo("forged").flag_bits = marked
            cases.append((self.read("x.zip"), "pw"))
        for (data, password), folder in itertools.product(cases, ("new/er", "existing")):
            self.expand(data, folder, 65, password)

    # A success brings only what was packed. Of an AES zip that isn't asked: whoever changes it may take out an entry's
    # encryption.
    def test_damage_at_random(self):
        with zipfile.ZipFile(io.BytesIO(SEEDS["plain.zip"])) as archive:
            packed = {b"", SEEDS["text"], *map(archive.read, archive.namelist())}
        end = time.monotonic() + float(os.environ.get("FOLIDEX_SECONDS", 3))
        first = int(os.environ.get("FOLIDEX_SEED", time.time_ns() if "FOLIDEX_SECONDS" in os.environ else 1))
        for seed in itertools.count(first):
            pick = random.Random(seed)
            name = pick.choice(["plain.zip", "encrypted.zip", "plain.tar", "text.encrypted"])
            verb, target = ("decrypt", "out/x") if name == "text.encrypted" else ("unzip", "out/")
            password = pick.choice(["pass word|é", "wrong", None if verb == "unzip" else "wrong"])
            self.sh("rm -rf out; mkdir out")
            self.write("in", SEEDS[name])
            if pick.random() < 0.5:
                self.run_verb(verb, "in", target, "pass word|é", expect=(0, 65))
            data = bytearray(SEEDS[name])
            headers = [at for at in range(len(data)) if data.startswith(b"PK", at)] or [0]
            for _ in range(pick.randrange(4)):
                at = pick.choice([pick.choice(headers) + pick.randrange(50), pick.randrange(len(data) + 1)])
                size = pick.choice([0, 1, 2, 4, 30, len(data)])
                data[at:at + size] = pick.choice([b"", pick.randbytes(4), b"\xff" * size, bytes(size)])
            self.write("in", data)
            again = f"again: FOLIDEX_SECONDS=0 FOLIDEX_SEED={seed} python3 tests/archive/script_test.py"
            with self.subTest(f"{again} ArchivesOfOthers.test_damage_at_random"):
                expect = (0, 1, 65) if verb == "decrypt" else (0, 65, 69, 73, 77, 82)
                if self.run_verb(verb, "in", target, password, expect=expect) == 0 and name != "encrypted.zip":
                    brought = {content for mode, content, _ in self.tree("out").values() if stat.S_ISREG(mode)}
                    self.assertLessEqual(brought, packed)
            if time.monotonic() > end:
                print(f"\nstat::number_of_executed_units: {seed - first + 1}")  # as libFuzzer says it
                return

    def test_no_set_id_bits_and_the_umask(self):
        self.write("x.zip", zipped(("d/", "", 0o42777), ("d/tool", "x", 0o106777), ("open", "x", 0o100666)))
        self.run_verb("unzip", "x.zip", "out/", prefix="umask 027;")
        self.assertEqual(self.modes("out", "out/d", "out/d/tool", "out/open"), [0o750, 0o750, 0o750, 0o640])

    def test_what_stands_in_the_way(self):
        for block in ("ln -s ../outside out/dir", "echo >out/dir", "mkdir out/dir; ln -s ../../outside out/dir/sub",
                      "mkdir -p out/dir/zzz/mine"):
            self.sh(f"rm -rf out; mkdir out; echo older >out/aaa; {block}")
            self.expand(zipped(("aaa", "x"), ("dir/sub/file", "x"), ("dir/zzz", "x")), "out", 73)


class Failure(ScratchCase):
    VERBS = [("zip", "file", None), ("zip", "file", "pw"), ("encrypt", "file", "pw"), ("decrypt", "x.enc", "pw")]

    def setUp(self):
        super().setUp()
        self.write("file", os.urandom(3_000_000))
        self.run_verb("encrypt", "file", "x.enc", "pw")
        self.run_verb("zip", "file", "aes.zip", "pw")

    def fake(self, tool, text):
        """An environment in which the tool is a script, with the true one as $1."""
        self.write(f"bin/{tool}", f'#!/bin/sh\nset -- {shutil.which(tool)} "$@"\n{text}\n'.encode(), 0o755)
        return {**os.environ, "PATH": f"{self.base}/bin:{os.environ['PATH']}"}

    def test_refusals(self):
        for fields in ("", "|", "zip|/|/|c", "zip|/|/|c|d|e", "decrypt|/|/|c|d", "decrypt|/|/|c|d|", "no|/|/|c|d"):
            self.assertEqual(subprocess.run([*next(self.shells), SCRIPT, fields], check=False).returncode, 64, fields)
        self.sh("mkdir folder; ln -s folder link; mkfifo folder/pipe")
        for verb, good, password in self.VERBS:
            for source in ("missing", "folder/pipe", "folder/."):
                self.run_verb(verb, source, "out", password, expect=66)
            for target in ("missing/out", "file/out", "folder", "link", "folder/pipe", good):
                self.run_verb(verb, good, target, password, expect=73)
        for status, verb, source, target, password in (
                (66, "zip", "folder", "out", None), (66, "unzip", "folder", "out/", None),
                (73, "unzip", "aes.zip", "file/out/", "pw"), (77, "unzip", "aes.zip", "new/", None),
                (82, "unzip", "aes.zip", "new/", "PW"), (1, "decrypt", "x.enc", "new", "PW")):
            self.run_verb(verb, source, target, password, expect=status)

    def test_changed_encrypted_files(self):
        data = self.read("x.enc")
        changed = [data[:at] + bytes([data[at] ^ 1]) + data[at + 1:] for at in (0, 7, 40, 64, 75, 80, len(data) - 1)]
        for content in (data[:60], data[:-1], data + b"x", *changed):
            self.write("changed", content)
            self.run_verb("decrypt", "changed", "new", "pw", expect=65)
        meanwhile = self.fake("cat", f'touch {self.base}/x.enc; exec "$@"')
        self.run_verb("decrypt", "x.enc", "new", "pw", expect=66, env=meanwhile)

    @unittest.skipUnless(AS_ROOT, "needs root to become another user")
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
        self.sh("umask 022; mkdir shut partly fine; echo | tee shut/file partly/file fine/file old.zip;"
                "chmod 2755 .; chmod 700 shut; chmod 640 partly/file; chmod 600 file old.zip")
        for verb, source, target, mode in (("zip", "shut", "1.zip", 0o600), ("zip", "partly", "2.zip", 0o640),
                                           ("zip", "file", "3.zip", 0o600), ("zip", "fine", "old.zip", 0o600),
                                           ("zip", "fine", "4.zip", 0o644), ("encrypt", "file", "5", 0o600)):
            self.run_verb(verb, source, target, "pw")
            self.assertEqual(self.modes(target), [mode], target)

    @unittest.skipUnless(AS_ROOT, "needs root: tmpfs")
    def test_full_disk(self):
        self.run_verb("zip", "file", "plain.zip")
        self.sh("mkdir disk; mount -t tmpfs -o size=2m tmpfs disk")
        self.addCleanup(self.sh, "umount disk")
        self.write("disk/out", b"earlier")
        self.write("disk/folder/file", b"earlier")
        for verb, source, password in self.VERBS:
            self.run_verb(verb, source, "disk/out", password, expect=74)
        for folder, password in itertools.product(("disk/folder/", "disk/new/one/"), (None, "pw")):
            self.run_verb("unzip", "aes.zip" if password else "plain.zip", folder, password, expect=74)

    @unittest.skipUnless(AS_ROOT, "needs root: mount name space")
    def test_tools_that_are_missing_or_fail(self):
        self.shells = itertools.repeat(SHELLS[0])  # bash finds files that it can't run
        for tool, (verb, source, password) in zip(("bsdtar", "perl", "openssl", "perl"), self.VERBS):
            hidden = f"unshare -m sh -c 'mount --bind /dev/null {shutil.which(tool)} && exec \"$@\"' sh"
            self.run_verb(verb, source, "out", password, expect=69, prefix=hidden)
        failures = (0, 65, 66, 69, 70, 73, 74)
        for tool in ("openssl", "bsdtar", "perl", "awk", "dd", "sync", "mv"):
            for status in (1, 82):
                env = self.fake(tool, f"exit {status}")
                self.run_verb("decrypt", "x.enc", "out", "pw", expect=failures, env=env)
                self.run_verb("unzip", "aes.zip", "new/", "pw", expect=failures, env=env)
            self.sh(f"rm -rf bin/{tool} out new")
        leaving_out = self.fake("bsdtar", 'case $2 in -c) set -- "$@" --exclude file ;; esac; exec "$@"')
        self.run_verb("zip", "file", "out", expect=70, env=leaving_out)

    # What they might do at the worst moment is done by a tool that the script calls then.
    def test_others_who_exchange_things_meanwhile(self):
        self.sh("mkdir out elsewhere; mkdir -m 700 elsewhere/empty; echo >elsewhere/file")
        elsewhere, target = self.path("elsewhere"), self.path("out/target")
        made = '"$@" && case $2 in */.ZipFuncs.*) %s ;; esac'
        for tool, deed, expected in (
                ("mkdir", made % f'rmdir "$2"; ln -s {elsewhere}/empty "$2"', 73), ("mkdir", made % 'echo >"$2/x"', 73),
                ("mv", f'ln -s {elsewhere} {target}; exec "$@"', 0), ("mv", f'mkdir {target}; exec "$@"', 73),
                ("mv", 'kill -TERM "$PPID"; exec "$@"', 0), ("mv", f'"$@" && rm {target} && echo other >{target}', 73)):
            for verb, source, password in self.VERBS:
                env = self.fake(tool, deed)
                self.run_verb(verb, source, "out/target", password, expect=expected, others=True, env=env)
                self.assertEqual(sorted(self.tree("elsewhere")), ["empty", "file"], deed)
                self.sh("rm -rf out bin; mkdir out")

    @unittest.skipIf(sys.platform == "darwin", "macOS flushes otherwise")
    def test_results_are_flushed_before_and_after_they_get_their_name(self):
        self.fake("mv", f'echo mv >>{self.base}/log; exec "$@"')
        env = self.fake("sync", f'shift; echo "$@" >>{self.base}/log; exec /bin/sync "$@"')
        self.run_verb("zip", "file", "out", env=env)
        self.run_verb("unzip", "out", "new/", env=env)
        self.write("in/file/inner")
        self.run_verb("zip", "in", "out")
        self.run_verb("unzip", "out", "in/../", env=env)
        self.assertEqual(self.read("log").split(b"\n")[:-1], [b"out", b"mv", b"..", b"-f .", b"mv", b"..", b"-f .."])

    # In the report, and where that was empty in the system log.
    def test_the_cause_is_told(self):
        env = {**self.fake("logger", f'echo "$@" >{self.base}/logged'), "FOLIDEX_REPORT": f"{self.base}/report"}
        for before, source, status, told in ((b"\n", "missing", 66, b"66 zip: the source is missing"),
                                             (b"", "file", 0, b"0 zip:"),
                                             (b"", "missing", 66, b"66 zip: the source is missing")):
            self.assertFalse(os.path.exists(self.path("logged")))
            self.write("report", before)
            self.run_verb("zip", source, "out", expect=status, others=True, env=env)
            self.assertIn(told, self.read("report"))
        self.assertIn(told, self.read("logged"))

    def test_a_host_that_ignores_or_closes_things(self):
        for host in ('trap "" PIPE CHLD TERM HUP;', "exec 3<&- 0<&- 1>&- 2>&-;", "umask 0777; exec setsid env -i",
                     'LC_ALL=C TMPDIR=/nowhere IFS="|" POSIXLY_CORRECT=1'):
            for verb, source, password in self.VERBS:
                self.run_verb(verb, source, "out", password, prefix=host)
            os.chmod(self.path("out"), 0o600)
            self.assertEqual(self.read("out"), self.read("file"))
            os.remove(self.path("out"))
        self.sh("mkdir -p elsewhere/tree")
        self.run_verb("unzip", "aes.zip", "new/", "pw", prefix=f"CDPATH={self.base}/elsewhere")
        self.assertEqual(self.read("new/file"), self.read("file"))

    # By TERM it leaves nothing, by KILL a folder that the next call removes; the target is as it was or whole.
    def test_ended_at_any_moment(self):
        self.sh("mkdir -p big/small; seq 200 | split -a 3 -l 1 - big/small/; head -c 20000000 /dev/urandom >big/data")
        self.run_verb("zip", "big", "x.zip")
        self.run_verb("zip", "big", "aes.zip", "pw")
        self.run_verb("encrypt", "big/data", "x.enc", "pw")
        pick = random.Random(1)

        def leftovers():
            return set(Path(self.base).glob("out/.ZipFuncs.*"))

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
            self.run_verb(verb, source, "out/" + target, password)
            whole = state()
            for number in range(400 if FULL else 6):
                self.sh(reset)
                sent, earlier = (signal.SIGKILL, signal.SIGTERM)[number % 2], leftovers()
                ends, end = os.pipe()
                os.dup2(end, 20)
                running = subprocess.Popen(self.command(verb, source, "out/" + target, password), pass_fds=[20])
                os.close(end)
                os.close(20)
                time.sleep(pick.random() * 0.6)
                running.send_signal(sent)
                status = running.wait(300)
                os.read(ends, 1)  # returns when its last tool has ended, which a KILL doesn't reach
                os.close(ends)
                # A KILL may come after its last deed. 70: bash 5.2, ended while it reads a substitution, reads the
                # trap as a part of that.
                allowed = {0: [whole], -9: [old, whole], -15: [old], 70: [old], 143: [old]}
                self.assertIn(status, allowed)
                self.assertTrue(state() in allowed[status], verb)
                self.assertFalse(sent == signal.SIGTERM and leftovers() - earlier)
            self.sh("touch -ct 200101010000 out/.ZipFuncs.*")  # one that is still empty could be in the making
            self.run_verb("zip", "file", "out/other")
            self.assertEqual(leftovers(), set())
            self.sh("rm -r out; mkdir out")
        env = self.fake("bsdtar", f"echo >{self.base}/hangs; exec sleep 1000")
        running = subprocess.Popen(self.command("zip", "big", "out/x"), env=env)
        while not self.path("hangs").exists():
            time.sleep(0.1)
        used = leftovers()
        self.run_verb("zip", "file", "out/other")
        self.assertEqual(leftovers(), used)
        running.terminate()
        self.assertEqual((running.wait(300), leftovers()), (143, set()))


if __name__ == "__main__":
    if not all(map(shutil.which, ("bsdtar", "openssl", "perl", "dash"))):
        print("skipped: bsdtar, openssl, perl and dash aren't all installed")
        sys.exit(77)
    print(f"shells: {SHELLS}" + " (others skipped: not installed)" * (len(SHELLS) < 3))
    unittest.main(verbosity=2)
