"""Archives made to do harm: nothing outside the destination changes, none counts as success, nothing stays behind."""

import io
import os
import random
import struct
import tarfile
import unittest
import zipfile

from support import AS_ROOT, DAMAGED, DESTINATION, SHELLS, ScratchCase, make_zip

LINK, FOLDER, DEVICE, SOCKET = 0o120777, 0o40755, 0o20666, 0o140777


class HostileArchive(ScratchCase):
    def setUp(self):
        super().setUp()
        self.write("outside/victim", b"untouched")
        self.write("victim", b"untouched")

    def refuse(self, archive="a.zip", expect=DAMAGED, **options):
        """Expands into a new folder and into one that exists; a plain archive is refused by both verbs."""
        self.write("existing/mine", b"mine")
        before = self.snapshot()
        for destination in ("new", "existing"):
            for password in (None, "pw"):
                self.unzip(archive, destination, password, expect=expect, **options)
        self.assertEqual(self.snapshot(), before)

    def test_names_and_kinds_that_lead_astray(self):
        outside = self.path("outside")
        corpus = {
            "parent": [("ok", "x"), ("../victim", "x")],
            "parent inside": [("a/../../victim", "x")],
            "parent, Windows style": [("..\\victim", "x")],
            "deep parent": [("a/b/../../../outside/victim", "x")],
            "only dots": [("..", "x")],
            "absolute": [(outside + "/victim", "x")],
            "absolute after a good one": [("ok", "x"), (outside + "/new", "x")],
            "double slash": [("/" + outside + "/victim", "x")],
            "absolute folder": [(outside + "/folder/", "", FOLDER)],
            "absolute link": [(outside + "/link", "/etc/passwd", LINK)],
            "through a link": [("link", outside, LINK), ("link/victim", "x")],
            "through a relative link": [("link", "../outside", LINK), ("link/new", "x")],
            "through two links": [("a", ".", LINK), ("a/b", "../outside", LINK), ("a/b/new", "x")],
            "through a link to a folder of its own": [("d/", "", FOLDER), ("l", "d", LINK), ("l/../../victim", "x")],
            "folder over a link": [("link", outside, LINK), ("link/", "", FOLDER), ("link/new", "x")],
            "file over a link": [("victim", outside + "/victim", LINK), ("victim", "x")],
            "link over a folder": [("a/b/c", "x"), (".//a/./b", outside, LINK)],
            "device": [("zero", "", DEVICE)],
            "socket": [("socket", "", SOCKET)],
            "listing look-alike": [("-rw-r--r--  0 0 0 1 Jan 1 2020 ok", "x"), ("/etc/zipfuncs", "x")],
        }
        for name, entries in corpus.items():
            with self.subTest(name):
                make_zip(self.path("a.zip"), *entries)
                self.refuse()

    def test_every_shell_refuses(self):
        make_zip(self.path("a.zip"), ("link", self.path("outside"), LINK), ("link/new", "x"), ("/etc/zipfuncs", "x"))
        for shell in SHELLS:
            self.refuse(shell=shell)

    def test_an_entry_replaces_a_link_and_never_writes_through_it(self):
        make_zip(self.path("a.zip"), ("file", "x"), ("dir", "x"), ("gone", "x"))
        self.folder("out")
        for name, to in (("file", "../outside/victim"), ("dir", "../outside"), ("gone", "../outside/new")):
            os.symlink(to, self.path("out", name))
        self.unzip("a.zip", "out")
        self.assertEqual([self.read("out/" + name) for name in ("file", "dir", "gone")], [b"x"] * 3)
        self.assertEqual(os.listdir(self.path("outside")), ["victim"])
        self.assertEqual(self.read("outside/victim"), b"untouched")

    def test_what_stands_in_the_way_fails_before_anything_moves(self):
        make_zip(self.path("a.zip"), ("aaa", "x"), ("dir/sub/file", "x"), ("zzz", "x"))
        ways = {
            "link to a folder": lambda: os.symlink("../outside", self.path("existing/dir")),
            "link further down": lambda: os.symlink("../../outside", os.path.join(self.folder("existing/dir"), "sub")),
            "link to nothing": lambda: os.symlink("../outside/new", self.path("existing/dir")),
            "file for a folder": lambda: self.write("existing/dir"),
            "folder for a file": lambda: self.write("existing/zzz/mine"),
            "pipe for a folder": lambda: os.mkfifo(self.path("existing/dir")),
        }
        for name, block in ways.items():
            with self.subTest(name):
                os.system(f"rm -rf '{self.path('existing')}'")
                self.write("existing/aaa", b"older")
                block()
                before = self.snapshot()
                self.unzip("a.zip", "existing", expect=DESTINATION)
                self.assertEqual(self.snapshot(), before)

    def test_other_formats_dressed_as_zip(self):
        zipped = io.BytesIO()
        with zipfile.ZipFile(zipped, "w") as archive:
            archive.writestr("ok", "x")
        plain = zipped.getvalue()
        tarred = io.BytesIO()
        with tarfile.open(fileobj=tarred, mode="w", format=tarfile.USTAR_FORMAT) as archive:
            for name in ("PK\x03\x04evil", "b"):
                info = tarfile.TarInfo(name)
                info.size = 1
                archive.addfile(info, io.BytesIO(b"x"))
        # A tar whose first name is the magic, with a real zip behind it, its offsets set right.
        at = len(tarred.getvalue())
        end = bytearray(plain)
        central = plain.index(b"PK\1\2")
        struct.pack_into("<I", end, len(end) - 6, central + at)
        struct.pack_into("<I", end, central + 42, at)
        image = bytearray(plain[:4] + bytes(0x9000)) + end
        image[0x8000:0x8006] = b"\1CD001"
        forms = {
            "mtree": f"#mtree\n./stolen type=file mode=0644 contents={self.path('victim')}\n".encode(),
            "tar": tarred.getvalue(),
            "tar and zip": tarred.getvalue() + bytes(end),
            "disk image": bytes(image),
            "magic alone": b"PK\3\4" + bytes(100),
            "shell archive": b"PK\3\4\n#!/bin/sh\ntouch " + self.path("outside/new").encode(),
            "program in front": b"MZ" + bytes(510) + plain,
            "text": b"hello", "nothing": b"",
        }
        for name, data in forms.items():
            with self.subTest(name):
                self.write("a.zip", data)
                self.refuse()

    def test_cut_and_changed_archives(self):
        pick = random.Random(4)
        with zipfile.ZipFile(self.path("whole.zip"), "w") as archive:
            archive.comment = b"a comment"
            for number in range(20):
                archive.writestr(f"d/f{number}", pick.randbytes(200))
        whole = self.read("whole.zip")
        self.unzip("whole.zip", "whole")
        self.assertEqual(len(os.listdir(self.path("whole/d"))), 20)
        central = whole.index(b"PK\1\2")
        end = whole.index(b"PK\5\6")
        miscounted = bytearray(whole)
        struct.pack_into("<HH", miscounted, end + 8, 19, 19)
        changed = bytearray(whole)
        changed[central // 2 + 20] ^= 4
        cuts = [whole[:size] for size in (10, central // 2, central, central + 30, (central + end) // 2, end, end + 10, len(whole) - 1)]
        for number, data in enumerate([*cuts, whole[:500] + whole[600:], whole[100:], whole + b"more", bytes(miscounted), bytes(changed)]):
            with self.subTest(number):
                self.write("a.zip", data)
                self.refuse()

    def test_a_zip64_archive_is_whole_or_refused(self):
        self.write("in/f")
        with zipfile.ZipFile(self.path("a.zip"), "w") as archive:
            for number in range(65_600):
                archive.writestr(zipfile.ZipInfo(f"{number % 50}/{number}"), b"")
        data = self.read("a.zip")
        self.unzip("a.zip", "out")
        self.assertEqual(sum(len(files) for _, _, files in os.walk(self.path("out"))), 65_600)
        for cut in (data[:-22], data[:-42] + data[-22:], data[:-98] + data[-22:], data[:5000] + data[5100:]):
            self.write("a.zip", cut)
            self.unzip("a.zip", "new", expect=DAMAGED)
        self.assertFalse(os.path.exists(self.path("new")))

    @unittest.skipUnless(AS_ROOT, "needs root: setpriv")
    def test_set_id_bits_are_not_taken_over_for_another_owner(self):
        make_zip(self.path("a.zip"), ("tool", "x", 0o104755))
        os.chmod(self.folder("out"), 0o777)
        self.unzip("a.zip", "out", prefix=["setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"])
        self.assertEqual(os.stat(self.path("out/tool")).st_mode & 0o7777, 0o755)

    def test_harmless_oddities_expand(self):
        make_zip(self.path("a.zip"), ("twice", "first"), ("./dot/./f", "x"), ("twice", "second"), ("empty/", "", FOLDER), ("a//b", "x"))
        self.unzip("a.zip", "out")
        self.assertEqual(self.read("out/twice"), b"second")
        self.assertEqual(self.read("out/dot/f") + self.read("out/a/b"), b"xx")
        make_zip(self.path("none.zip"))
        self.unzip("none.zip", "out2")
        self.assertEqual(os.listdir(self.path("out2")), [])


if __name__ == "__main__":
    unittest.main(verbosity=2)
