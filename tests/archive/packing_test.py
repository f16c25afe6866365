"""What folidex-archive packs, taken apart: packing_test.py PROGRAM

By Python's zipfile and by whatever else is here that opens archives.
"""

import fcntl
import os
import random
import shutil
import signal
import stat
import struct
import subprocess
import sys
import tempfile
import unittest
import zipfile
import zlib
from pathlib import Path

PROGRAM = sys.argv.pop(1) if len(sys.argv) > 1 else ""
BLOCK = 512 * 1024
WINDOW = 32 * 1024
STORED, DEFLATED, AES = 0, 8, 99


def contents():
    """Sizes around those of blocks, content that refers to what precedes a block, and such as can't be compressed."""
    pick = random.Random(1)
    words = [pick.randbytes(pick.randint(1, 8)).hex() for _ in range(3000)]
    text = " ".join(pick.choices(words, k=400_000)).encode()
    noise = pick.randbytes(5 * BLOCK)
    for size in (0, 1, 2, WINDOW, 65535, 65536, 300_000, BLOCK - 1, BLOCK, BLOCK + 1, 2 * BLOCK, 3 * BLOCK + 7):
        yield f"text {size}", text[:size], DEFLATED if size > 2 else STORED
        yield f"noise {size}", noise[:size], STORED
    yield "repeated across blocks", text[:BLOCK - 20000] + noise[:20000] * 2 + text[:BLOCK - 20000], DEFLATED
    yield "text in noise", noise[:2 * BLOCK] + text[:3 * BLOCK + 1] + noise[:2 * BLOCK - 7], DEFLATED
    yield "noise in text", text[:BLOCK // 2] + noise[:3 * BLOCK] + text[:3 * BLOCK], DEFLATED


class Packing(unittest.TestCase):
    def setUp(self):
        self.base = Path(tempfile.mkdtemp(prefix="packing-"))
        self.addCleanup(subprocess.run, ["sh", "-c", 'chmod -R u+rwx "$0"; rm -rf "$0"', self.base], check=False)
        (self.base / "in").mkdir()

    def write(self, name, data=b"content\n", mode=0o644, modified=1_000_000_000):
        path = self.base / "in" / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_bytes(data)
        path.chmod(mode)
        os.utime(path, (modified, modified))
        return path

    def pack(self, password="", source="in", result="x.zip", expect=0, **options):
        """The archive's path; of a failure the report."""
        folder, name = os.path.split(self.base / result)
        line = f"zip{'encrypt' if password else ''}|{self.base}/|{folder}/|{source}|{name}"
        done = subprocess.run([PROGRAM, line + (f"|{password}" if password else "")], capture_output=True, check=False,
                              **options)
        self.assertEqual(done.returncode, expect, done)
        return self.base / result if expect == 0 else done.stdout.decode()

    def entries(self, archive):
        """By name; every header of an entry says what the directory says, and nothing lies between the entries."""
        data = archive.read_bytes()
        with zipfile.ZipFile(archive) as opened:
            infos, end = opened.infolist(), opened.start_dir
        at = 0
        for info in infos:
            self.assertEqual(info.header_offset, at, info)
            (signature, version, flags, method, time, date, crc, packed, size, name_length,
             extra_length) = struct.unpack_from("<4s5H3I2H", data, at)
            name = data[at + 30:at + 30 + name_length]
            extra = data[at + 30 + name_length:][:extra_length]
            self.assertEqual((signature, version, flags, method, crc, packed, size),
                             (b"PK\3\4", info.extract_version, info.flag_bits, info.compress_type, info.CRC,
                              info.compress_size, info.file_size))
            self.assertEqual(((date >> 9) + 1980, date >> 5 & 15, date & 31, time >> 11, time >> 5 & 63, time % 32 * 2),
                             info.date_time)
            self.assertEqual((name.decode("utf-8" if flags & 0x800 else "cp437"), extra), (info.orig_filename, info.extra))
            at += 30 + name_length + extra_length + packed
        self.assertEqual(at, end)
        return {info.filename: info for info in infos}

    def test_contents(self):
        """Whole, compressed where that helps, and the same whatever number of threads works, and where the caller lives."""
        expected = {}
        for name, data, method in contents():
            self.write(name, data)
            expected[f"in/{name}"] = (data, method)
        archive = self.pack()
        entries = self.entries(archive)
        with zipfile.ZipFile(archive) as opened:
            for name, (data, method) in expected.items():
                self.assertTrue(opened.read(name) == data, name)
                self.assertEqual(entries[name].compress_type, method, name)
                self.assertLessEqual(entries[name].compress_size, len(data), name)
        at_once = zlib.compress(expected["in/repeated across blocks"][0], 3)
        self.assertLess(entries["in/repeated across blocks"].compress_size, len(at_once) * 1.01)
        if hasattr(os, "sched_setaffinity"):
            processor = min(os.sched_getaffinity(0))
            again = self.pack(result="y.zip", preexec_fn=lambda: os.sched_setaffinity(0, {processor}),
                              env={**os.environ, "TZ": "Etc/GMT+9"})
            self.assertTrue(again.read_bytes() == archive.read_bytes())

    def test_tree(self):
        """Sorted, each item with its kind, mode and time, names as their bytes are."""
        self.write("b/file", mode=0o444)
        self.write("b/private", mode=0o600)
        self.write("ünïcödé e\u0301", mode=0o755)
        self.write(os.fsdecode(b"latin \xe9"))
        (self.base / "in/a/empty").mkdir(parents=True)
        (self.base / "in/a").chmod(0o700)
        (self.base / "in/link").symlink_to("b/../no where")
        (self.base / "in/.folidex-archive-12345678-1234567890123456").mkdir()
        (self.base / "source").symlink_to("in")
        entries = self.entries(self.pack())
        kinds = {name: (oct(info.external_attr >> 16), info.external_attr & 0xffff, info.flag_bits, info.create_system)
                 for name, info in entries.items()}
        self.assertEqual(list(kinds.items()), [
            ("in/", ("0o40755", 0x10, 0, 3)),
            ("in/latin Θ", ("0o100644", 0, 0, 3)), # as code page 437 has it
            ("in/link", ("0o120777", 0, 0, 3)),
            ("in/ünïcödé e\u0301", ("0o100755", 0, 0x800, 3)),
            ("in/a/", ("0o40700", 0x10, 0, 3)),
            ("in/a/empty/", ("0o40755", 0x10, 0, 3)),
            ("in/b/", ("0o40755", 0x10, 0, 3)),
            ("in/b/file", ("0o100444", 1, 0, 3)),
            ("in/b/private", ("0o100600", 0, 0, 3)),
        ])
        with zipfile.ZipFile(self.base / "x.zip") as archive:
            self.assertEqual(archive.read("in/link"), b"b/../no where")
        self.assertIn("source/b/file", self.entries(self.pack(source="source", result="y.zip")))

    def test_times(self):
        """Local time as far as the format goes, UTC where all readers agree on it."""
        cases = {
            -1000: ((1980, 1, 1, 0, 0, 0), 0),
            1000: ((1980, 1, 1, 0, 0, 0), 1000),
            1_000_000_001: ((2001, 9, 9, 1, 46, 40), 1_000_000_001),
            2**31 - 1: ((2038, 1, 19, 3, 14, 6), 2**31 - 1),
            2**31: ((2038, 1, 19, 3, 14, 8), None),
            4_000_000_000: ((2096, 10, 2, 7, 6, 40), None),
            4_355_000_000: ((2107, 12, 31, 23, 59, 58), None),
        }
        for modified in cases:
            self.write(str(modified), modified=modified)
        entries = self.entries(self.pack())
        for modified, (local, utc) in cases.items():
            info = entries[f"in/{modified}"]
            self.assertEqual(info.extra, b"" if utc is None else struct.pack("<2sHBI", b"UT", 5, 1, utc), modified)
            if not Path("/etc/localtime").exists() or Path("/etc/localtime").resolve().name in ("UTC", "Etc/UTC"):
                self.assertEqual(info.date_time, local, modified)

    def test_encryption(self):
        """Contents of files and links, each under a salt of its own; other programs open it."""
        for name in ("one", "two"):
            self.write(name, b"the same\n" * 100)
        large = next(data for name, data, _ in contents() if name == "text in noise")
        self.write("large", large)
        self.write("empty", b"")
        (self.base / "in/link").symlink_to("one")
        (self.base / "in/folder").mkdir()
        archive = self.pack("pass word")
        entries = self.entries(archive)
        data = archive.read_bytes()
        salts = set()
        for name, info in entries.items():
            is_folder = name.endswith("/")
            field = b"" if is_folder else struct.pack("<HHH2sBH", 0x9901, 7, 2, b"AE", 3,
                                                      DEFLATED if name in ("in/one", "in/two", "in/large") else STORED)
            self.assertEqual((info.compress_type, info.flag_bits, info.CRC, info.extra[9:]),
                             (STORED if is_folder else AES, int(not is_folder), 0, field), name)
            start = info.header_offset + 30 + len(name) + len(info.extra)
            salts.add(data[start:start + 16] if not is_folder else name)
        self.assertEqual(len(salts), len(entries))
        self.assertFalse(b"the same" in data)
        if shutil.which("7z"):
            self.expand(["7z", "x", "-ppass word", archive])
            self.assertTrue((self.base / "out/in/large").read_bytes() == large)
            self.assertEqual((self.base / "out/in/two").read_bytes(), b"the same\n" * 100)
            self.assertEqual(os.readlink(self.base / "out/in/link"), "one")

    def test_folders_alone_tell_the_password(self):
        (self.base / "in/a/b").mkdir(parents=True)
        encrypted = [name for name, info in self.entries(self.pack("word")).items() if info.flag_bits & 1]
        self.assertEqual(encrypted, ["in/a/b/"])

    def expand(self, command):
        (self.base / "out").mkdir()
        subprocess.run(command, cwd=self.base / "out", stdout=subprocess.DEVNULL, check=True)

    def test_others(self):
        """What other programs make of it is what was packed."""
        self.write("text", b"text " * BLOCK)
        self.write("folder/ünïcödé", mode=0o640, modified=1_234_567_890)
        (self.base / "in/folder/link").symlink_to("ünïcödé")
        (self.base / "in/empty").mkdir()
        archive = self.pack()
        environment = {**os.environ, "LC_ALL": "C.UTF-8"}

        def look(top):
            found = {}
            for path in top.rglob("*"):
                status = path.lstat()
                is_file = stat.S_ISREG(status.st_mode)
                found[str(path.relative_to(top))] = (stat.filemode(status.st_mode),
                                                     is_file and (path.read_bytes(), int(status.st_mtime)))
            return found

        for command in (["unzip", "-q"], ["7z", "x"], ["bsdtar", "-xpf"]):
            if shutil.which(command[0]):
                os.environ.update(environment)
                self.expand([*command, archive])
                self.assertEqual(look(self.base / "out/in"), look(self.base / "in"), command)
                shutil.rmtree(self.base / "out")

    def test_inside_its_source(self):
        self.write("file")
        self.write("folder/x.zip")
        left = self.write(".folidex-archive-aaaaaaaa-aaaaaaaaaaaaaaaa") # another host's
        for _ in range(2):
            archive = self.pack(result="in/x.zip")
        self.assertTrue(left.exists())
        self.assertEqual(list(self.entries(archive)), ["in/", "in/file", "in/folder/", "in/folder/x.zip"])

    @unittest.skipUnless(hasattr(fcntl, "F_SETLEASE"), "this system has no leases")
    def test_changes_meanwhile(self):
        """The other file, whose name has been read, changes while the first one's lease is waited for."""
        secret = self.base / "secret"
        secret.write_bytes(b"secret")

        def swap(path):
            path.unlink()
            path.symlink_to(secret)

        def pipe(path):
            path.unlink()
            os.mkfifo(path)

        for change, expect in ((pipe, 66), (Path.unlink, 0), (swap, 66)):
            (self.base / "in/second").unlink(missing_ok=True)
            second = self.write("second")
            with open(self.write("first"), "r+b") as first:
                def let_go(*_, change=change, file=first):
                    change(second)
                    fcntl.fcntl(file, fcntl.F_SETLEASE, fcntl.F_UNLCK)

                signal.signal(signal.SIGIO, let_go)
                try:
                    fcntl.fcntl(first, fcntl.F_SETLEASE, fcntl.F_WRLCK)
                except OSError as error:
                    self.skipTest(f"no leases here: {error}")
                self.pack(expect=expect)
            if expect == 0:
                self.assertEqual(list(self.entries(self.base / "x.zip")), ["in/", "in/first"])

    def test_refusals(self):
        """What can't be packed is an error that says so, and leaves nothing."""
        cases = {
            "pipe": os.mkfifo,
            "back\\slash": Path.mkdir,
            "below/back\\slash": Path.touch,
        }
        for name, make in cases.items():
            path = self.base / "in" / name
            path.parent.mkdir(exist_ok=True)
            make(path)
            self.assertIn(f"in/{name}", self.pack(expect=66))
            self.assertEqual(os.listdir(self.base), ["in"])
            path.unlink() if not path.is_dir() else path.rmdir()
        Path(self.base, "c:x").touch()
        self.pack(source="c:x", expect=66)
        symbols = Path("/proc/kallsyms") # without a size
        if symbols.exists() and len(symbols.read_bytes()) > 2 * BLOCK:
            (self.base / "symbols").symlink_to(symbols)
            self.assertIn("more content", self.pack(source="symbols", expect=66))
        folder = os.open(self.base / "in", os.O_RDONLY)
        for _ in range(65535 // 256 + 1):
            os.mkdir("x" * 255, dir_fd=folder)
            above, folder = folder, os.open("x" * 255, os.O_RDONLY, dir_fd=folder)
            os.close(above)
        os.close(folder)
        self.assertIn("longer", self.pack(expect=66))


if __name__ == "__main__":
    unittest.main()
