"""folidex-archive's reading: right archives of every form, wrong and hostile ones, what an expansion does to what is there.

Called with the program's path. The archives of others in fuzz/corpus/zip_reader hold the file "text", some the link
"link" to it; the password is "password".
"""

import bz2
import io
import lzma
import os
import random
import stat
import struct
import subprocess
import sys
import tempfile
import time
import unittest
import zipfile
import zlib
from pathlib import Path

from zip_files import (ANYWHERE16, ANYWHERE32, DESCRIPTOR, DEVICE, FIFO, FILE, FOLDER, LINK, UTF8, archive, deflated,
                       entry, field)

PROGRAM = os.path.abspath(sys.argv.pop(1))
SEEDS = {path.stem: path.read_bytes()
         for path in (Path(__file__).resolve().parents[2] / "fuzz/corpus/zip_reader").iterdir()}
# Where flushing costs nothing.
SCRATCH = "/dev/shm" if os.access("/dev/shm", os.W_OK) else None
DAMAGED, UNSUPPORTED, IN_THE_WAY, NEEDS_PASSWORD, WRONG_PASSWORD = 65, 69, 73, 77, 82


class Reading(unittest.TestCase):
    def setUp(self):
        self.base = Path(tempfile.mkdtemp(prefix="reading-", dir=SCRATCH))
        self.addCleanup(subprocess.run, ["sh", "-c", 'chmod -R u+rwx "$0"; rm -rf "$0"', self.base], check=True)
        self.out = self.base / "out"

    def run_program(self, data, password=None, target="out", umask=0o022):
        """Status and cause."""
        source = self.base / "x.zip"
        source.write_bytes(data)
        verb = "unzip" if password is None else "unzipdecrypt"
        line = f"{verb}|{self.base}/|{self.base}/{target}/|x.zip|expand" + ("" if password is None else "|" + password)
        done = subprocess.run([PROGRAM, line], capture_output=True, umask=umask, timeout=600, check=False)
        source.unlink()
        self.assertEqual(done.stderr, b"")
        return done.returncode, done.stdout.decode()

    def expand(self, data, password=None, expect=0, **options):
        """After a failure all is as it was, but for the times of folders in which something came and went."""
        before = expect and tree(self.base, inodes=True, folder_times=False)
        status, cause = self.run_program(data, password, **options)
        self.assertEqual(status, expect, cause)
        if expect:
            self.assertEqual(tree(self.base, inodes=True, folder_times=False), before)
        self.assertEqual([*self.base.glob(".folidex*"), *self.base.glob("*/.folidex*")], [])
        return cause

    def expand_anew(self, data, password=None, **options):
        """The tree that it makes."""
        subprocess.run(["sh", "-c", '[ ! -e "$0" ] || chmod -R u+rwx "$0"; rm -rf "$0"', self.out], check=True)
        self.expand(data, password, **options)
        return tree(self.out)


def tree(top, inodes=False, folder_times=True):
    """Of everything below: modes, contents, times; on demand which items they are."""
    found = {}
    for folder, folders, files in os.walk(top):
        for name in folders + files:
            path = os.path.join(folder, name)
            status = os.lstat(path)
            kind = stat.S_IFMT(status.st_mode)
            content = (Path(path).read_bytes() if kind == stat.S_IFREG else
                       os.readlink(path) if kind == stat.S_IFLNK else None)
            moment = int(status.st_mtime) if folder_times or kind != stat.S_IFDIR else None
            found[os.path.relpath(path, top)] = (status.st_mode, content, moment, inodes and status.st_ino)
    return found


TWO = (entry("a", "first"), entry("d/b", b"second " * 50, method=8))


class RightArchives(Reading):
    def test_of_other_programs(self):
        text = zipfile.ZipFile(io.BytesIO(SEEDS["deflate"])).read("text")
        for name, data in SEEDS.items():
            is_encrypted = any(info.flag_bits & 1 for info in zipfile.ZipFile(io.BytesIO(data)).infolist())
            with self.subTest(name):
                if name == "ppmd":
                    self.assertIn("PPMd", self.expand(data, expect=UNSUPPORTED))
                    continue
                found = self.expand_anew(data, "password" if is_encrypted else None)
                expected = text[:6] if name.startswith("small") else text
                self.assertTrue(found["text"][1] == expected)
                self.assertEqual(found.get("link", (0, "text"))[1], "text")
                if is_encrypted:
                    self.expand(data, "Password", WRONG_PASSWORD)
                    self.expand(data, None, NEEDS_PASSWORD)
                else:
                    self.expand(data, "password", DAMAGED)

    def test_every_form_of_the_records(self):
        everywhere = dict(disk=ANYWHERE16, directory_disk=ANYWHERE16, here=ANYWHERE16, entries=ANYWHERE16,
                          length=ANYWHERE32, start=ANYWHERE32)
        marks = b"PK\5\6" * 9
        data = b"second " * 50
        packed = deflated(data)
        crc, sizes = struct.pack("<I", zlib.crc32(data)), (len(packed), len(data))
        missing = dict(crc=0, packed=0, size=0)

        def described(descriptor, local=missing, local_extra=b""):
            return archive(TWO[0], entry("d/b", data, method=8, flags=DESCRIPTOR, descriptor=descriptor, local=local,
                                         local_extra=local_extra), TWO[0][:1] and entry("z"))

        zip64 = field(1, struct.pack("<QQ", len(data), len(packed)))
        forms = {
            "plain": archive(*TWO),
            "prefix": archive(*TWO, prefix=b"MZ" * 999),
            "prefix that offsets count": archive(*TWO, prefix=b"MZ" * 999, absolute=True),
            "trailing bytes": archive(*TWO, trailing=bytes(30_000)),
            "comment": archive(*TWO, comment=b"!" * ANYWHERE16),
            "comment longer than announced": archive(*TWO, comment=marks, end={"comment_length": 3}),
            "comment shorter than announced": archive(*TWO, comment=marks, end={"comment_length": 999}),
            "gap before the end": archive(*TWO, gap=b"....."),
            "zip64": archive(*TWO, zip64={}),
            "zip64, all fields there": archive(*TWO, zip64={}, end=everywhere),
            "zip64, prefix": archive(*TWO, prefix=b"MZ" * 999, zip64={}, end=everywhere),
            "zip64, prefix that offsets count": archive(*TWO, prefix=b"MZ" * 99, absolute=True, zip64={}),
            "zip64, more data": archive(*TWO, zip64={}, sector=b"-" * 30, end=everywhere),
            "numbers in zip64 fields": archive(TWO[0], entry(
                "d/b", data, method=8, extra=field(1, struct.pack("<3Q", len(data), len(packed), len(TWO[0][0]))),
                local_extra=zip64, local=dict(packed=ANYWHERE32, size=ANYWHERE32),
                central=dict(packed=ANYWHERE32, size=ANYWHERE32, offset=ANYWHERE32))),
            "padded extra field": archive(TWO[0], entry("d/b", data, method=8, extra=bytes(3))),
            "descriptor": described(crc + struct.pack("<II", *sizes)),
            "descriptor, signed": described(b"PK\7\x08" + crc + struct.pack("<II", *sizes)),
            "descriptor, large": described(crc + struct.pack("<QQ", *sizes), local_extra=zip64,
                                           local=dict(crc=0, packed=ANYWHERE32, size=ANYWHERE32)),
            "descriptor, large, signed": described(b"PK\7\x08" + crc + struct.pack("<QQ", *sizes)),
            "descriptor that isn't there": described(b"", local={}),
        }
        expected = {"a": b"first", "d/b": data}
        for name, form in forms.items():
            with self.subTest(name):
                found = self.expand_anew(form)
                self.assertEqual({path: content for path, (_, content, *_) in found.items()
                                  if content}, expected)
        self.assertEqual((self.expand_anew(archive()), self.out.is_dir()), ({}, True))

    def test_large_contents(self):
        """Larger than any buffer and window, in each method."""
        pick = random.Random(1)
        words = [pick.randbytes(8).hex() for _ in range(500)]
        text = " ".join(pick.choices(words, k=40_000)).encode()
        alone = lzma.compress(text, lzma.FORMAT_ALONE)
        runs = (100_000, 1 << 17, 1 << 17)
        zstandard = bytes.fromhex("28b52ffd 0038") + b"".join(
            (size << 3 | 2 | is_last).to_bytes(3, "little") + b"a" for size, is_last in zip(runs, (0, 0, 1)))
        bits = "110" + f"{0x91:08b}" + 8 * (f"{0xc5:08b}" + "1" * 16 + "00000") + "0000000"
        longest = int(bits[::-1], 2).to_bytes(len(bits) // 8 + 1, "little")
        for method, flags, content, packed in (
                (8, 0, text, deflated(text)), (9, 0, text, deflated(text)), (9, 0, b"a" * (1 + 8 * 65538), longest),
                (12, 0, text, bz2.compress(text)), (14, 2, text, b"\x10\2\5\0" + alone[:5] + alone[13:]),
                (93, 0, b"a" * sum(runs), zstandard), (95, 0, text, lzma.compress(text))):
            with self.subTest(method):
                found = self.expand_anew(archive(entry("x", content, method=method, flags=flags, packed=packed)))
                self.assertTrue(found["x"][1] == content)

    def test_many_entries(self):
        entries = [entry(f"{number % 300}/{number}", b"%d" % number) for number in range(66_000)]
        wrapped = len(entries) & ANYWHERE16
        self.expand(archive(*entries, end=dict(entries=wrapped, here=wrapped)))
        self.assertEqual(sum(len(files) for _, _, files in os.walk(self.out)), 66_000)
        self.assertEqual((self.out / "299/65999").read_bytes(), b"65999")

    def test_names(self):
        def unicode_path(text, about):
            return field(0x7075, b"\1" + struct.pack("<I", zlib.crc32(about)) + text.encode())

        upper = bytes(range(0x80, 0x100))
        for name, flags, extra, expected in (
                ("é", UTF8, b"", "é"), ("e\u0301", 0, b"", "e\u0301"), ("é/日本", 0, b"", "é/日本"),
                (upper[:64] + b"/" + upper[64:], 0, b"", (upper[:64] + b"/" + upper[64:]).decode("cp437")), (b"\x81", UTF8, b"", "ü"),
                (b"\x81", 0, unicode_path("ű", b"\x81"), "ű"), (b"\x81", 0, unicode_path("ű", b"\x82"), "ü"),
                ("#U0171", 0, unicode_path("ű", b"#U0171"), "ű"), ("u", UTF8, unicode_path("ű", b"u"), "u"), ("é", 0, unicode_path("e", "é".encode()), "é"),
                ("./a//./b", 0, b"", "a/b"), (" a ..b...", 0, b"", " a ..b..."), ("1:b", 0, b"", "1:b"),
                ("__MACOSX/._a", 0, b"", "__MACOSX/._a"), ("n\nl", 0, b"", "n\nl")):
            with self.subTest(name):
                found = self.expand_anew(archive(entry(name, "x", flags=flags, extra=extra)))
                self.assertEqual([path for path, (_, content, *_) in found.items() if content], [expected])
        deep = "/".join(["level " * 40] * 50)
        self.expand(archive(entry(deep + "/file", "deep"), entry(deep + "/x/", mode=FOLDER)), target="deep")
        depth = subprocess.run(["find", ".", "-name", "file", "-size", "4c", "-printf", "%d"], cwd=self.base / "deep",
                               capture_output=True, check=True).stdout
        self.assertEqual(depth, b"51")

    def test_modes_and_times(self):
        def at(number):
            return field(0x5455, b"\1" + struct.pack("<i", number))

        ntfs = field(0x0A, struct.pack("<IHH3Q", 0, 1, 24, (11644473600 + 1234) * 10**7 + 9, 0, 0))
        older = field(0x5855, struct.pack("<ii", 1, 99))
        found = self.expand_anew(archive(
            entry("d/", mode=0o42777, extra=at(1000)), entry("d/f", "x", 0o106777, extra=at(-1000)),
            entry("locked/", mode=0o40500, extra=at(2000)), entry("locked/sub/f", "x", 0o100444),
            entry("shut/", mode=0o40000), entry("shut/f", "x"),
            entry("l", "away", LINK, extra=at(3000)), entry("n", "x", FIFO, extra=ntfs + older), entry("o", extra=older),
            entry("s", "x", mode=0o0640), entry("none", mode=0), entry("dos", mode=0, system=0, attributes=0x21),
            entry("dos folder", mode=0, system=0, attributes=0x11), entry("plain", mode=DEVICE, system=0),
            entry("unlisted/f"), entry("new", date=(2021, 0, 0, 1, 2, 4)), entry("java/", mode=0o177777),
            entry("late", date=(2039, 1, 2, 3, 4, 6), extra=field(0x5455, b"\1" + struct.pack("<I", 1 << 31)))),
            umask=0o027)
        is_root = os.geteuid() == 0
        kinds = {name: (oct(mode), moment) for name, (mode, _, moment, _) in found.items()}
        self.assertEqual([kinds[name] for name in ("d", "d/f", "locked", "l", "n", "o")],
                         [("0o40750", 1000), ("0o100750", -1000), ("0o40500", 2000), ("0o120777", 3000),
                          ("0o100640", 1234), ("0o100640", 99)])
        self.assertEqual({name: kinds[name][0] for name in ("locked/sub", "s", "none", "dos", "dos folder", "plain",
                                                            "unlisted", "shut", "java")},
                         {"locked/sub": "0o40750", "s": "0o100640", "none": "0o100640", "dos": "0o100440",
                          "dos folder": "0o40750", "plain": "0o100640", "unlisted": "0o40750", "shut": "0o40000",
                          "java": "0o40750"})
        self.assertEqual(kinds["late"][1], 1 << 31)
        self.assertTrue(not is_root or "shut/f" in kinds)
        local = time.mktime((2020, 2, 3, 4, 5, 6, 0, 0, -1))
        self.assertEqual((kinds["dos"][1], self.out.stat().st_mode), (local, 0o40750))


class WrongArchives(Reading):
    def test_hostile_and_damaged_ones(self):
        data = b"second " * 50
        packed = deflated(data)
        missing = dict(crc=0, packed=0, size=0)
        plain = archive(*TWO)
        central = plain.index(b"PK\1\2")
        deflate_bomb = deflated(bytes(50_000_000))
        first, second = TWO
        inner = entry("inner.zip", plain)
        at_first = dict(offset=0)

        def one(*arguments, **options):
            return archive(TWO[0], entry(*arguments, **options))

        bad = {
            **{f"name {name}": one(name, "x") for name in (
                "/abs", "../up", "a/../../up", "..", "a/..", "c:", "./C:/x", "back\\slash", "\\x", "nul\0l", "", ".")},
            "unicode name": one(b"\x81", extra=field(0x7075, b"\1" + struct.pack("<I", zlib.crc32(b"\x81")) + b"../x")),
            **{f"mode {mode:o}": one("x", "", mode) for mode in (DEVICE, 0o60666, 0o140666)},
            "link with a slash": one("l/", "/etc", LINK), "folder with content": one("f", "x", FOLDER),
            "below a link": one("a/b", "x"), "below a link 2": archive(entry("l", "/tmp", LINK), entry("l/x", "x")),
            "below a file, other order": archive(entry("x/y", "x"), entry("w"), entry("x.z"), entry("x", "x")),
            "one name": one("./a", "x"), "one name, folders": archive(entry("d/"), entry("./d//")),
            "file and folder": archive(entry("x/"), entry("x", "x")),
            "link, empty": one("l", "", LINK), "link, NUL": one("l", "x\0y", LINK), "link, long": one("l", "x" * 4096, LINK),
            "local name": archive(TWO[0], (first[0].replace(b"a", b"b", 1), *first[1:])),
            "local method": one("x", data, local=dict(method=8)), "local flags": one("x", "x", local=dict(flags=1)),
            "local size": one("x", "x", local=dict(size=2)), "local crc": one("x", "x", local=dict(crc=1)),
            "local packed size": one("x", data, method=8, local=dict(packed=0)),
            "local signature": one("x", "x", local=dict(signature=0x04034B51)),
            "crc": one("x", "x", local=dict(crc=1), central=dict(crc=1)),
            "crc, deflated": one("x", data, method=8, local=dict(crc=1), central=dict(crc=1)),
            "crc of a folder": one("d/", "", FOLDER, local=dict(crc=1), central=dict(crc=1)),
            "size, larger": one("x", "xy", packed=b"x"), "size, smaller": one("x", "x", packed=b"xy"),
            "size of 4 GiB": one("x", "x", extra=field(1, struct.pack("<Q", (1 << 32) + 1)),
                                 local=dict(size=ANYWHERE32), central=dict(size=ANYWHERE32)),
            "zip64 field, cut": one("x", "x", extra=field(1, b"1234"), central=dict(size=ANYWHERE32)),
            "bomb": one("x", "", method=8, packed=deflate_bomb, local=dict(size=10), central=dict(size=10)),
            "deflate, cut": one("x", data, method=8, packed=packed[:-3]),
            "deflate, more": one("x", data, method=8, packed=packed + b"x"),
            "deflate64, more": one("x", data, method=9, packed=packed + b"x"),
            "deflate64, cut": one("x", data, method=9, packed=packed[:-3]),
            "deflate64, before the start": one("x", data, method=9, packed=b"\x03\x02\x00"),
            "descriptor": one("x", data, method=8, flags=DESCRIPTOR, local=missing, descriptor=b"PK\7\x08" + bytes(12)),
            "descriptor, missing": one("x", data, method=8, flags=DESCRIPTOR, local=missing),
            "descriptor, other sizes": one("x", data, flags=DESCRIPTOR, local=dict(size=3)),
            **{f"descriptor, other {name} before": one("x", data, method=8, flags=DESCRIPTOR, local={**missing, name: 1},
                                                       descriptor=struct.pack("<3I", zlib.crc32(data), len(packed), len(data)))
               for name in missing},
            "descriptor that lies": one("x", data, flags=DESCRIPTOR, descriptor=b"PK\7\x08" + bytes(12)),
            "overlap": archive(first, (b"", {**second[1], **at_first}, second[2])),
            "one content for two": archive(first, (b"", {**first[1], **at_first}, first[2])),
            "into the directory": one("x", "xP", packed=b"x", local=dict(packed=2), central=dict(packed=2)),
            "extra field, longer than the archive": one("x", "x", local=dict(extra_length=60_000)),
            "offset": one("x", "x", central=dict(offset=1)), "offset, far": one("x", "x", central=dict(offset=1 << 31)),
            "offset, wraps": archive((b"", *entry("x", "x", extra=field(1, struct.pack("<Q", (1 << 64) - 32)), local_extra=b"",
                                                  central=dict(offset=ANYWHERE32))[1:]), prefix=entry("x", "x")[0]),
            "count, more": archive(*TWO, end=dict(entries=3)), "count, fewer": archive(*TWO, end=dict(entries=1)),
            "count, zip64": archive(*TWO, zip64=dict(entries=1), end=dict(entries=ANYWHERE16)),
            "zip64 that disagrees": archive(*TWO, zip64=dict(entries=1)),
            "comment into the end": one("x", "x", central=dict(comment_length=9)),
            "second disk": archive(*TWO, end=dict(disk=1)), "disks": archive(*TWO, end=dict(directory_disk=1)),
            "zip64, second disk": archive(*TWO, zip64=dict(disk=1), end=dict(disk=ANYWHERE16)),
            "directory, longer": archive(*TWO, end=dict(length=9999)), "no archive": b"text\n" * 99, "empty": b"",
            **{f"archive in one that is cut, {behind} behind": whole[:-22] for behind, whole in (
                ("entry", archive(inner, second)), ("directory", archive(second, inner)),
                ("descriptor", archive((inner[0] + b"PK\7\x08" + bytes(12), *inner[1:]))))},
            "middle missing": plain[:40] + plain[50:], "start missing": plain[10:],
            "directory's signature": plain.replace(b"PK\1\2", b"PK\1\3"),
            **{f"cut at {size}": plain[:size] for size in (10, central, central + 30, len(plain) - 22, len(plain) - 1)},
        }
        self.out.mkdir()
        (self.out / "mine").write_text("mine")
        for name, content in bad.items():
            for target in ("out", "new/er") if name.startswith(("name", "crc")) else ("out",):
                with self.subTest(name):
                    self.expand(content, expect=DAMAGED, target=target)
        for name, options in (("Implode", dict(method=6)), ("MP3", dict(method=94)),
                              ("strong", dict(flags=0x41)), ("strong", dict(flags=0x2001))):
            self.assertIn(name, self.expand(one("x", "x", **options), "pw" if name == "strong" else None, UNSUPPORTED))

    def test_passwords_and_damage_are_told_apart(self):
        for name in ("aes256", "zipcrypto"):
            data = bytearray(SEEDS[name])
            last = data.index(b"PK\1\2") - 30  # in the content of "text", or its MAC
            for at in (last, data.index(b"text", data.index(b"link")) + 8 + 30):
                damaged = bytearray(data)
                damaged[at] ^= 1
                self.expand(damaged, "password", DAMAGED)
            # Of ZipCrypto's checks, 212 passes that of "text", 239 that of "link", of AES' 111,379 that of "link".
            for number in (1, 212, 239, 111_379):
                self.expand(data, f"wrong {number}", WRONG_PASSWORD)
            with zipfile.ZipFile(whole := io.BytesIO(data), "a") as forged:
                forged.writestr("forged", "x")
            self.expand(whole.getvalue(), "password", DAMAGED)
        salt = 30 + len("text") + 11
        for at, expect in ((salt, WRONG_PASSWORD), (salt + 16, DAMAGED), (salt + 18, DAMAGED)):  # salt, check, content
            damaged = bytearray(SEEDS["small-aes256"])
            damaged[at] ^= 1
            self.expand(damaged, "password", expect)
        aes = field(0x9901, b"\2\0AE\3\0\0")
        for wrong in (dict(method=99, packed=bytes(27), extra=aes), dict(packed=bytes(11)), dict(flags=0),
                      dict(method=99, packed=bytes(28), extra=aes, local_extra=field(0x9901, b"\2\0AE\1\0\0"))):
            self.expand(archive(entry("d/"), entry("e", **{"flags": 1, **wrong})), "password", DAMAGED)


class Destinations(Reading):
    def setUp(self):
        super().setUp()
        for name in ("victim", "out/d/mine", "out/d/f", "out/e/deep/f"):
            path = self.base / name
            path.parent.mkdir(parents=True, exist_ok=True)
            path.write_text("mine")
            os.utime(path, (1e9, 1e9))
        os.chmod(self.out / "d/f", 0o600)
        os.chmod(self.out / "d", 0o2755)
        os.symlink("../victim", self.out / "link")
        os.symlink("d", self.out / "to folder")
        for folder in ("d", "e", "e/deep", "."):
            os.utime(self.out / folder, (1e9, 1e9))

    new = (entry("d/", mode=0o40700, extra=field(0x5455, b"\1" + struct.pack("<i", 77))), entry("d/f", "new"),
           entry("d/g", "new"), entry("e/deep/f", "new"), entry("e/deep/x/y", "new"), entry("link", "new"),
           entry("locked/", mode=0o40555), entry("locked/f", "new"))

    def test_merging(self):
        before = tree(self.base, inodes=True)
        self.expand(archive(*self.new))
        after = tree(self.base, inodes=True)
        for name, old in before.items():
            content = "new" if name in ("out/d/f", "out/e/deep/f", "out/link") else None
            self.assertEqual(after[name][1], content.encode() if content else old[1], name)
        self.assertEqual((after["out/d"], after["out/d/f"][0]), ((0o42700, None, 77, before["out/d"][3]), 0o100644))
        self.assertEqual((after["victim"], after["out/d/mine"]), (before["victim"], before["out/d/mine"]))
        self.assertEqual((after["out/locked"][0], len(after) - len(before)), (0o40555, 5))

    # What is in the way comes last: everything else was put into place, and goes back.
    def test_whole_or_not_at_all(self):
        (self.out / "z/in the way").mkdir(parents=True)
        (self.out / "zz").write_text("file")
        for last in (entry("z/in the way", "x"), entry("zz/f", "x"), entry("zz/", mode=FOLDER)):
            self.expand(archive(*self.new, last), expect=IN_THE_WAY)

    def test_links_of_the_destination(self):
        self.expand(archive(entry("to folder/f", "new")), expect=IN_THE_WAY)
        self.expand(archive(entry("to folder/", mode=FOLDER)), expect=IN_THE_WAY)
        self.expand(archive(entry("d", "new")), expect=IN_THE_WAY)
        self.expand(archive(entry("d", "elsewhere", LINK)), expect=IN_THE_WAY)
        self.expand(archive(entry("in", "new")), target="out/to folder")
        self.assertEqual((self.out / "d/in").read_text(), "new")
        for target in ("out/link", "out/d/f", "out/d/f/new", "out/../new/../x"):
            self.expand(archive(*TWO), expect=IN_THE_WAY, target=target)
        os.symlink("nowhere", self.base / "dangling")
        self.expand(archive(*TWO), expect=IN_THE_WAY, target="dangling")


if __name__ == "__main__":
    unittest.main(verbosity=2)
