"""resources/ZipFuncs.sh, run as the plug-in runs it: what goes in comes out, nothing else is touched, failures say why."""

import contextlib
import io
import os
import random
import shutil
import signal
import stat
import struct
import subprocess
import sys
import tarfile
import tempfile
import time
import unittest
import zipfile

ROOT = os.path.abspath(os.path.join(os.path.dirname(__file__), "../.."))
SCRIPT = os.environ.get("FOLIDEX_ZIPFUNCS", ROOT + "/resources/ZipFuncs.sh")
FULL = os.environ.get("FOLIDEX_FULL") == "1"
AS_ROOT = os.geteuid() == 0
SHELLS = {"dash": ["dash"], "bash": ["bash", "--posix"], "busybox": ["busybox", "sh"]}
SHELL = next(iter(SHELLS))
NOBODY = ["setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"]
LINK, FOLDER, DEVICE = 0o120777, 0o40755, 0o20666
ODD = ["-dash", "@at", "-C", "back\\slash", "\\lead", "c:drive", "star*[x]?{y}", " blanks ", "new\nline", "end\n", "%s%n", "$HOME",
       "ünïcödé–日本", "quote\"s", "latin\udce9", "..dots", ".hidden", "a: Incorrect passphrase"]


def shells():
    for name, command in SHELLS.items():
        if shutil.which(command[0]):
            yield name
        else:
            print(f"skipped: {name} isn't installed")


class ScratchCase(unittest.TestCase):
    def setUp(self):
        self.base = tempfile.mkdtemp(prefix="zipfuncs-")
        self.addCleanup(subprocess.run, ["sh", "-c", f"chmod -R u+rwx {self.base}; rm -rf {self.base}"], stderr=subprocess.DEVNULL)
        os.chmod(self.base, 0o755)

    def path(self, *parts):
        return os.path.join(self.base, *parts)

    def write(self, name, data=b"content\n", mode=0o644):
        os.makedirs(os.path.dirname(self.path(name)), exist_ok=True)
        with open(self.path(name), "wb") as file:
            file.write(data)
        os.chmod(self.path(name), mode)
        return data

    def read(self, name):
        with open(self.path(name), "rb") as file:
            return file.read()

    def modes(self, *names):
        return [stat.S_IMODE(os.lstat(self.path(name)).st_mode) for name in names]

    def command(self, verb, source, target, password=None, shell=SHELL):
        (folder, name), (target_folder, target_name) = os.path.split(self.path(source)), os.path.split(self.path(target))
        fields = [verb, folder + "/", target_folder + "/", name, "expand" if verb.startswith("unzip") else target_name]
        return [*SHELLS[shell], SCRIPT, "|".join(fields + ([] if password is None else [password]))]

    def run_verb(self, verb, source, target, password=None, expect=0, shell=SHELL, prefix=(), **options):
        done = subprocess.run([*prefix, *self.command(verb, source, target, password, shell)], capture_output=True, timeout=3000,
                              stdin=subprocess.PIPE, cwd="/", check=False, **options)
        self.assertEqual((done.stdout, done.stderr), (b"", b""), "not silent")
        self.assertIn(done.returncode, [expect] if isinstance(expect, int) else expect, (verb, source, target))
        return done.returncode

    def zip(self, source, archive, password=None, **options):
        return self.run_verb("zipencrypt" if password else "zip", source, archive, password, **options)

    def unzip(self, archive, folder, password=None, **options):
        return self.run_verb("unzipdecrypt" if password else "unzip", archive, folder + "/", password, **options)

    def tree(self, top="", times=False):
        """Everything below: kinds, modes, contents, on demand the times of all but folders."""
        found = {}
        for folder, folders, files in os.walk(self.path(top)):
            for path in (os.path.join(folder, name) for name in folders + files):
                status = os.lstat(path)
                is_file = stat.S_ISREG(status.st_mode)
                content = self.read(path) if is_file else os.path.islink(path) and os.readlink(path)
                found[os.path.relpath(path, self.path(top))] = (status.st_mode, content, times and is_file and int(status.st_mtime))
        return found

    @contextlib.contextmanager
    def unchanged(self):
        """For what must leave everything as it is."""
        before = self.tree()
        yield
        self.assertEqual(self.tree(), before)

    def make_tree(self, name):
        for number, entry in enumerate(ODD):
            self.write(f"{name}/{entry}", b"%d\n" % number * (number + 1))
            self.write(f"{name}/deep/{entry}/{entry}")
            os.utime(self.path(name, entry), (1e9, 1e9 + 2 * number))
        os.makedirs(self.path(name, *["level"] * 200, "empty"))
        self.write(f"{name}/nothing", b"")
        os.link(self.path(name, "nothing"), self.path(name, "hard link"))
        for link, to in (("link", "deep"), ("up", "../../elsewhere"), ("absolute", "/etc/passwd"), ("gone", "no\nwhere")):
            os.symlink(to, self.path(name, link))
        self.write(f"{name}/locked/file", mode=0o444)
        os.chmod(self.path(name, "locked"), 0o555)


def zipped(*entries, comment=b""):
    """An archive. Entries are (name, data) or (name, data, Unix mode)."""
    data = io.BytesIO()
    with zipfile.ZipFile(data, "w", zipfile.ZIP_DEFLATED) as archive:
        archive.comment = comment
        for name, content, *mode in entries:
            info = zipfile.ZipInfo(name, (2020, 2, 3, 4, 5, 6))
            info.create_system, info.external_attr = 3, (mode[0] if mode else 0o100644) << 16
            archive.writestr(info, content)
    return data.getvalue()


class RoundTrip(ScratchCase):
    def test_a_tree_in_every_shell(self):
        self.make_tree("in/-tree")
        for shell in shells():
            for password in (None, "p w|'\"$"):
                with self.subTest(shell=shell, password=password):
                    self.zip("in/-tree", "x.zip", password, shell=shell)
                    self.unzip("x.zip", f"{shell}/{bool(password)}/out", password, shell=shell)
                    self.assertEqual(self.tree("in/-tree", True), self.tree(f"{shell}/{bool(password)}/out/-tree", True))
        with zipfile.ZipFile(self.path("x.zip"), metadata_encoding="latin-1") as archive:
            flags = {info.orig_filename: info.flag_bits for info in archive.infolist()}
        self.assertTrue(flags["-tree/ünïcödé–日本"] & 0x800, "one name that isn't UTF-8 spoils no other's mark")

    def test_single_files_in_every_shell(self):
        for number, name in enumerate(ODD):
            data = self.write(f"in/{name}", random.Random(number).randbytes(number * 9999))
            shell = list(shells())[number % len(list(shells()))]
            self.zip(f"in/{name}", "x.zip", shell=shell)
            self.unzip("x.zip", "out", shell=shell)
            self.run_verb("encrypt", f"in/{name}", "x.enc", "pw|2", shell=shell)
            self.run_verb("decrypt", "x.enc", "back", "pw|2", shell=shell)
            self.assertEqual((self.read(f"out/{name}"), self.read("back")), (data, data), name)

    def test_the_format_page_decrypts_what_the_script_encrypts(self):
        with open(ROOT + "/docs/encrypted-files.md", encoding="utf-8") as page:
            code = page.read().split("```python\n")[1].split("```")[0]
        space = {}
        exec(code, space)
        data = self.write("in.txt", os.urandom(200_000))
        self.run_verb("encrypt", "in.txt", "x.enc", "Pässwort")
        self.assertEqual(space["decrypt"](self.read("x.enc"), "Pässwort"), data)

    def test_it_merges_into_folders_and_replaces_files_and_links(self):
        self.make_tree("in/tree")
        self.zip("in/tree", "x.zip")
        self.write("out/tree/mine")
        self.write("out/tree/-dash", b"older")
        self.write("victim", b"untouched")
        os.symlink("../../victim", self.path("out/tree/nothing"))
        self.unzip("x.zip", "out")
        self.assertEqual(self.read("victim"), b"untouched")
        os.remove(self.path("out/tree/mine"))
        self.assertEqual(self.tree("in/tree", True), self.tree("out/tree", True))

    def test_an_archive_in_its_own_source_leaves_itself_and_leftovers_out(self):
        self.write("s[x]/sub/file")
        for _ in range(2):
            self.write("s[x]/sub/.ZipFuncs.0123456789/out", b"secret")
            self.zip("s[x]", "s[x]/sub/a[1]*.zip")
        with zipfile.ZipFile(self.path("s[x]/sub/a[1]*.zip")) as archive:
            self.assertEqual(sorted(archive.namelist()), ["s[x]/", "s[x]/sub/", "s[x]/sub/file"])

    def test_times_that_zip_cannot_hold_are_clamped(self):
        self.write("in/new line/a b")
        os.utime(self.path("in/new line/a b"), (5e9, 5e9))
        self.write("in/new line/ü", b"older")
        os.utime(self.path("in/new line/ü"), (-3e8, -3e8))
        self.zip("in/new line", "x.zip")
        self.unzip("x.zip", "out")
        times = [int(os.stat(self.path("out/new line", name)).st_mtime) for name in ("a b", "ü")]
        self.assertEqual((times, self.read("out/new line/ü")), ([2**31 - 1, 0], b"older"))

    @unittest.skipUnless(FULL, "FOLIDEX_FULL=1 packs 5 GiB and 100,000 files")
    def test_sizes(self):
        self.write("in/tree/big")
        os.truncate(self.path("in/tree/big"), 5 << 30)
        self.zip("in/tree", "big.zip")
        self.unzip("big.zip", "big")
        subprocess.run(["cmp", self.path("in/tree/big"), self.path("big/tree/big")], check=True)
        for number in range(100_000):
            self.write(f"many/tree/{number % 300}/{number}", b"%d" % number)
        for password in (None, "pw"):
            self.zip("many/tree", "many.zip", password)
            self.unzip("many.zip", f"many{password}", password)
            self.assertEqual(self.tree("many/tree"), self.tree(f"many{password}/tree"))


class ArchivesOfOthers(ScratchCase):
    def expand(self, data, folder, expect=0, password=None):
        self.write("x.zip", data)
        self.unzip("x.zip", folder, password, expect=expect)

    def test_valid_ones(self):
        plain = zipped(("d/f", "x" * 99, 0o100755), ("d/twice", "1"), ("./d/./twice", "2"), ("__MACOSX/d/._f", "x"), ("d//g", ""))
        for name, data in {"newline": plain + b"\n", "padded": plain + bytes(30_000), "program in front": b"MZ" + bytes(5000) + plain,
                           "comment": zipped(("d/f", "x" * 99, 0o100755), comment=b"PK\5\6" * 9999)}.items():
            self.expand(data, name)
            self.assertEqual((self.read(name + "/d/f"), self.modes(name + "/d/f")), (b"x" * 99, [0o755]))
        self.expand(zipped(), "none")

    def test_many_entries_and_a_wrapped_count(self):
        data = zipped(*[(f"{number % 50}/{number}", "") for number in range(65_600)])
        wrapped = bytearray(data[:-98] + data[-22:])  # without the two records for more than 65,535
        struct.pack_into("<HHII", wrapped, len(wrapped) - 14, 64, 64, len(data) - 98 - data.index(b"PK\1\2"), data.index(b"PK\1\2"))
        for name, content in (("zip64", data), ("wrapped", bytes(wrapped))):
            self.expand(content, name)
            self.assertEqual(sum(len(files) for _, _, files in os.walk(self.path(name))), 65_600)

    def test_damaged_and_hostile_ones(self):
        outside = self.path("outside")
        os.mkdir(outside)
        hostile = [zipped(*entries) for entries in (
            [("ok", "x"), ("../victim", "x")], [("a/../../victim", "x")], [(outside + "/new", "x")], [("..", "x")],
            [("link", outside, LINK), ("link/new", "x")], [("a", ".", LINK), ("a/b", outside, LINK), ("a/b/new", "x")],
            [("zero", "", DEVICE)], [("../a: Incorrect passphrase", "x")])]
        tarred = io.BytesIO()
        with tarfile.open(fileobj=tarred, mode="w", format=tarfile.USTAR_FORMAT) as archive:
            archive.addfile(tarfile.TarInfo("PK\x03\x04evil"))
        whole = zipped(*[(f"d/f{number}", random.Random(number).randbytes(200)) for number in range(20)])
        central, end = whole.index(b"PK\1\2"), whole.index(b"PK\5\6")
        changed, miscounted = bytearray(whole), bytearray(whole)
        changed[central // 2 + 20] ^= 4
        struct.pack_into("<HH", miscounted, end + 8, 19, 19)
        damaged = [b"", b"PK\3\4" + bytes(100), tarred.getvalue(), tarred.getvalue() + zipped(("f", "x")), bytes(miscounted), bytes(changed),
                   f"#mtree\n./x type=file contents={self.path('victim')}\n".encode(), whole[:500] + whole[600:], whole[100:],
                   *[whole[:size] for size in (10, central, central + 30, end, len(whole) - 1)]]
        self.write("in/a")
        self.zip("in", "aes.zip", "pw")
        forged = [self.forge(marked) for marked in (0, 1)]
        for data, password in [(data, password) for data in hostile + damaged for password in (None, "pw")] + [(f, "pw") for f in forged]:
            self.write("victim", b"untouched")
            self.write("existing/d/mine")
            self.write("x.zip", data)
            with self.subTest(data[:60]), self.unchanged():
                self.expand(data, "new/er", 65, password)
                self.expand(data, "existing", 65, password)

    def forge(self, marked):
        """An encrypted archive with a file that isn't, but may be marked so in the directory."""
        aes, plain = self.read("aes.zip"), zipped(("in/forged", "x"))
        cut, plain_cut = aes.index(b"PK\1\2"), plain.index(b"PK\1\2")
        entry = bytearray(plain[plain_cut:plain.index(b"PK\5\6")])
        struct.pack_into("<H", entry, 8, marked)
        struct.pack_into("<I", entry, 42, cut)
        end_at = aes.rindex(b"PK\5\6")
        body = aes[:cut] + plain[:plain_cut] + aes[cut:end_at] + entry
        count = struct.unpack_from("<H", aes, end_at + 10)[0] + 1
        return body + struct.pack("<IHHHHIIH", 0x06054B50, 0, 0, count, count, len(body) - cut - plain_cut, cut + plain_cut, 0)

    def test_no_set_id_bits_and_the_umask(self):
        self.write("x.zip", zipped(("d/", "", 0o42777), ("d/tool", "x", 0o106777), ("open", "x", 0o100666)))
        self.unzip("x.zip", "out", prefix=["sh", "-c", 'umask 027; exec "$@"', "sh"])
        self.assertEqual(self.modes("out", "out/d", "out/d/tool", "out/open"), [0o750, 0o750, 0o750, 0o640])

    def test_what_stands_in_the_way(self):
        data = zipped(("aaa", "x"), ("dir/sub/file", "x"), ("dir/zzz", "x"))
        for block in (lambda: os.symlink("../outside", self.path("out/dir")), lambda: self.write("out/dir"),
                      lambda: (os.mkdir(self.path("out/dir")), os.symlink("../../outside", self.path("out/dir/sub"))),
                      lambda: self.write("out/dir/zzz/mine")):
            shutil.rmtree(self.path("out"), ignore_errors=True)
            self.write("out/aaa", b"older")
            self.write("x.zip", data)
            block()
            with self.unchanged():
                self.expand(data, "out", 73)


class Failure(ScratchCase):
    VERBS = (("zip", "file", None), ("zipencrypt", "file", "pw"), ("encrypt", "file", "pw"), ("decrypt", "sealed", "pw"))

    def setUp(self):
        super().setUp()
        self.write("file", os.urandom(3_000_000))
        self.run_verb("encrypt", "file", "sealed", "pw")
        self.zip("file", "aes.zip", "pw")

    def fake(self, tool, text):
        """An environment in which the tool is a script, with the true one as $0."""
        self.write(f"bin/{tool}", f'#!/bin/sh\nset -- {shutil.which(tool)} "$@"\n{text}\n'.encode(), 0o755)
        return {**os.environ, "PATH": self.path("bin") + ":" + os.environ["PATH"]}

    def test_usage_and_wrong_passwords(self):
        for argument in ("", "|", "zip|/a/|/b/|c", "zip|/a/|/b/|c|d|e", "decrypt|/a/|/b/|c|d", "decrypt|/a/|/b/|c|d|", "no|/a/|/b/|c|d"):
            for shell in shells():
                self.assertEqual(subprocess.run([*SHELLS[shell], SCRIPT, argument], check=False).returncode, 64, argument)
        with self.unchanged():
            self.unzip("aes.zip", "new", "PW", expect=82)
            self.unzip("aes.zip", "new", expect=77)
            self.run_verb("decrypt", "sealed", "new", "PW", expect=1)

    def test_changed_encrypted_files(self):
        data = self.read("sealed")
        changed = [data[:60], data[:-1], data + b"x"]
        for at in (0, 7, 40, 64, 75, 80, len(data) - 1):
            changed.append(data[:at] + bytes([data[at] ^ 1]) + data[at + 1:])
        for content in changed:
            self.write("x.enc", content)
            self.run_verb("decrypt", "x.enc", "new", "pw", expect=65)
        self.run_verb("decrypt", "sealed", "new", "pw", expect=66, env=self.fake("cat", f'touch {self.path("sealed")}; exec "$@"'))
        self.assertFalse(os.path.exists(self.path("new")))

    def test_unusable_sources_and_destinations(self):
        os.mkdir(self.path("folder"))
        os.symlink("folder", self.path("link"))
        os.mkfifo(self.path("folder/pipe"))
        with self.unchanged():
            for verb, good, password in self.VERBS:
                for source in ("missing", "folder/pipe", "folder/."):
                    self.run_verb(verb, source, "out", password, expect=66)
                for target in ("missing/out", "file/out", "folder", "link", "folder/pipe", good):
                    self.run_verb(verb, good, target, password, expect=73)
            self.zip("folder", "out", expect=66)
            self.unzip("folder", "out", expect=66)
            self.unzip("aes.zip", "file/out", "pw", expect=73)

    @unittest.skipUnless(AS_ROOT, "needs root to become another user")
    def test_what_another_user_may_not_touch(self):
        self.write("tree/shut/file")
        self.zip("tree", "x.zip")
        self.write("open/tree/shut/file")
        os.chmod(self.path("open"), 0o777)
        os.chmod(self.path("file"), 0o600)
        for folder_mode, file_mode in ((0o755, 0o600), (0o700, 0o644)):
            os.chmod(self.path("tree/shut"), folder_mode)
            os.chmod(self.path("tree/shut/file"), file_mode)
            self.zip("tree", "open/out", expect=66, prefix=NOBODY)
        with self.unchanged():
            self.run_verb("encrypt", "file", "open/out", "pw", expect=66, prefix=NOBODY)
            self.unzip("x.zip", "open", expect=73, prefix=NOBODY)
            self.unzip("x.zip", "new", expect=73, prefix=NOBODY)

    def test_results_are_as_private_as_what_they_come_from(self):
        self.write("shut/file")
        self.write("partly/file", mode=0o640)
        self.write("fine/file")
        self.write("old.zip", mode=0o600)
        os.chmod(self.base, 0o2755)  # of a group's folder
        os.chmod(self.path("shut"), 0o700)
        os.chmod(self.path("file"), 0o600)
        for source, target in (("shut", "1.zip"), ("partly", "2.zip"), ("file", "3.zip"), ("fine", "old.zip"), ("fine", "5.zip")):
            self.zip(source, target)
        self.run_verb("encrypt", "file", "x.enc", "pw")
        self.assertEqual(self.modes("1.zip", "2.zip", "3.zip", "old.zip", "5.zip", "x.enc"), [0o600, 0o640, 0o600, 0o600, 0o644, 0o600])

    @unittest.skipUnless(AS_ROOT, "needs root: tmpfs")
    def test_full_disk(self):
        self.zip("file", "plain.zip")
        os.mkdir(self.path("disk"))
        subprocess.run(["mount", "-t", "tmpfs", "-o", "size=2m", "tmpfs", self.path("disk")], check=True)
        self.addCleanup(subprocess.run, ["umount", self.path("disk")], check=True)
        self.write("disk/out", b"earlier")
        self.write("disk/folder/file", b"earlier")
        with self.unchanged():
            for verb, source, password in self.VERBS:
                self.run_verb(verb, source, "disk/out", password, expect=74)
            for folder in ("disk/folder", "disk/new/one"):
                self.unzip("plain.zip", folder, expect=74)
                self.unzip("aes.zip", folder, "pw", expect=74)

    @unittest.skipUnless(AS_ROOT, "needs root: mount name space")
    def test_tools_that_are_missing_or_fail(self):
        with self.unchanged():
            for tool, verb in (("bsdtar", "zip"), ("openssl", "encrypt")):
                hidden = ["unshare", "-m", "sh", "-c", f'mount --bind /dev/null {shutil.which(tool)} && exec "$@"', "sh"]
                self.run_verb(verb, "file", "out", None if verb == "zip" else "pw", expect=69, prefix=hidden)
        for tool in ("openssl", "bsdtar", "awk", "dd", "sync", "mv"):
            for status in (1, 82):
                environment = self.fake(tool, f"exit {status}")
                for shell in shells() if tool == "openssl" else [SHELL]:
                    failures = (0, 65, 66, 69, 70, 73, 74)
                    self.run_verb("decrypt", "sealed", "out", "pw", expect=failures, shell=shell, env=environment)
                    self.unzip("aes.zip", "new", "pw", expect=failures, env=environment)
            os.remove(self.path("bin", tool))
            subprocess.run(["rm", "-rf", self.path("out"), self.path("new")], check=True)
        self.zip("file", "out", expect=70, env=self.fake("bsdtar", 'case $2 in -c) set -- "$@" --exclude file ;; esac; exec "$@"'))

    def test_others_who_exchange_things_meanwhile(self):
        """What they might do at the worst moment is done by a tool that the script calls then."""
        os.mkdir(self.path("out"))
        os.makedirs(self.path("elsewhere/empty"), 0o700)
        self.write("elsewhere/file", b"untouched")
        elsewhere, target = self.path("elsewhere"), self.path("out/target")
        for tool, deed, expected in (
                ("mktemp", f'made=$("$@") && case $made in */out/*) rmdir "$made" && ln -s {elsewhere}/empty "$made" ;; esac && echo "$made"', 73),
                ("mktemp", f'made=$("$@") && case $made in */out/*) echo >"$made/owner" ;; esac && echo "$made"', 73),
                ("mv", f'ln -s {elsewhere} {target}; exec "$@"', 0), ("mv", f'mkdir {target}; exec "$@"', 73),
                ("mv", f'"$@" && rm {target} && echo other >{target}', 73)):
            for verb, source, password in self.VERBS:
                self.run_verb(verb, source, "out/target", password, expect=expected, env=self.fake(tool, deed))
                self.assertEqual(sorted(self.tree("elsewhere")), ["empty", "file"], deed)
                subprocess.run(["sh", "-c", f"rm -rf {self.path('out')}/* {self.path('out')}/.Z*; rm {self.path('bin')}/*"], check=True)

    @unittest.skipIf(sys.platform == "darwin", "macOS flushes otherwise")
    def test_results_are_flushed_before_and_after_they_get_their_name(self):
        log = self.path("log")
        self.fake("mv", f'echo mv >>{log}; exec "$@"')
        environment = self.fake("sync", f'shift; echo "$@" >>{log}; exec /bin/sync "$@"')
        self.zip("file", "out", env=environment)
        self.unzip("out", "new", env=environment)
        self.write("in/file/inner")
        self.zip("in", "out")
        self.unzip("out", "in/..", env=environment)
        self.assertEqual(self.read("log").split(b"\n")[:-1], [b"out", b"mv", b"..", b"-f .", b"mv", b"..", b"-f .."])

    def test_the_cause_is_told(self):
        for before, source, expected in (("\n", "missing", "66 zip: the source is missing"), ("", "file", "0 zip:")):
            self.write("report", before.encode())
            self.run_verb("zip", source, "out", expect=(0, 66), env={**os.environ, "FOLIDEX_REPORT": self.path("report")})
            self.assertIn(expected, self.read("report").decode())
        self.zip("missing", "out", expect=66, env=self.fake("logger", f'echo "$@" >{self.path("logged")}'))
        self.assertIn(b"66 zip: the source is missing", self.read("logged"))

    def test_a_host_that_ignores_or_closes_things(self):
        for prefix in (["sh", "-c", 'trap "" PIPE CHLD TERM HUP; exec "$@"', "sh"], ["sh", "-c", 'exec "$@" 3<&- 0<&- 1>&- 2>&-', "sh"],
                       ["env", "LC_ALL=C", "TMPDIR=/nowhere", "CDPATH=/", "IFS=|", "POSIXLY_CORRECT=1"],
                       ["setsid", "env", "-i", "PATH=/bin", "sh", "-c", 'umask 0777; exec "$@"', "sh"]):
            for shell in shells():
                for verb, source, password in self.VERBS:
                    self.run_verb(verb, source, "out", password, shell=shell, prefix=prefix)
                os.chmod(self.path("out"), 0o600)
                self.assertEqual(self.read("out"), self.read("file"))
                os.remove(self.path("out"))

    def test_ended_at_any_moment(self):
        """By TERM it leaves nothing, by KILL a folder that the next call removes; the target is what it was or whole."""
        for number in range(200):
            self.write(f"big/small/{number}", b"x" * number)
        self.write("big/data", os.urandom(20_000_000))
        self.zip("big", "x.zip")
        self.zip("big", "aes.zip", "pw")
        self.run_verb("encrypt", "big/data", "sealed", "pw")
        pick, interrupted, whole = random.Random(1), 0, self.tree("big")
        undone = {"zip": "unzip", "zipencrypt": "unzipdecrypt", "encrypt": "decrypt"}

        def leftovers():
            return {name for name in os.listdir(self.path("out")) if name.startswith(".ZipFuncs.")}

        def state():
            """Of the destination: "old", "whole", or what is wrong with it."""
            for name in ("back", "out/big") if verb in undone else ():
                shutil.rmtree(self.path(name), ignore_errors=True)
            found = self.tree("out/big") or self.read("out/target")
            if found == b"earlier":
                return "old"
            if verb in undone:
                os.mkdir(self.path("back"))
                self.run_verb(undone[verb], "out/target", "back/" + ("data" if verb == "encrypt" else ""), password)
                found = self.tree("back/big") if "zip" in verb else self.read("back/data")
            return "whole" if found in (whole, whole["data"][1]) else found

        for verb, source, password in (("zip", "big", None), ("zipencrypt", "big", "pw"), ("encrypt", "big/data", "pw"),
                                       ("decrypt", "sealed", "pw"), ("unzip", "x.zip", None), ("unzipdecrypt", "aes.zip", "pw")):
            shutil.rmtree(self.path("out"), ignore_errors=True)
            for number in range(400 if FULL else 6):
                shutil.rmtree(self.path("out/big"), ignore_errors=True)
                self.write("out/target", b"earlier")
                sent, earlier, shell = (signal.SIGKILL, signal.SIGTERM)[number % 2], leftovers(), list(shells())[number % 3]
                running = subprocess.Popen(self.command(verb, source, "out/" + ("" if "unzip" in verb else "target"), password, shell))
                time.sleep(pick.random() * 0.6)
                running.send_signal(sent)
                status = running.wait(300)
                interrupted += status != 0
                self.assertIn(status, (0, -sent, 128 + sent))
                self.assertFalse(sent == signal.SIGTERM and leftovers() - earlier)
                allowed = {0: ("whole",), -signal.SIGKILL: ("old", "whole")}  # killed after its last deed
                self.assertIn(state(), allowed.get(status, ("old",)))
            deadline = time.monotonic() + 300
            while leftovers() and time.monotonic() < deadline:
                for left in leftovers():
                    os.utime(self.path("out", left), (1e9, 1e9))  # one that is still empty could be in the making
                self.zip("file", "out/other")  # leftovers go once the last of their tools has ended
            self.assertEqual(leftovers(), set())
        self.assertGreater(interrupted, 6)


if __name__ == "__main__":
    if not all(shutil.which(tool) for tool in ("bsdtar", "openssl", SHELL)):
        print("skipped: bsdtar, openssl and dash aren't all installed")
        sys.exit(77)
    unittest.main(verbosity=2)
