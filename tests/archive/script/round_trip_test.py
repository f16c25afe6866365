"""What goes into an archive comes out of it."""

import os
import subprocess
import sys
import unittest
import zipfile

from support import AS_ROOT, DESTINATION, FULL, SHELLS, SOURCE, ScratchCase, needs

NOBODY = ["setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"]


class RoundTrip(ScratchCase):
    def test_a_tree_keeps_everything_in_every_shell(self):
        self.make_tree("in/tree")
        for shell in SHELLS:
            for password in (None, "p w"):
                with self.subTest(shell=shell, password=password):
                    out = f"{shell}{password}"
                    self.zip("in/tree", "archive", password, shell=shell)
                    self.unzip("archive", f"{out}/missing/folders", password, shell=shell)
                    self.assert_same_tree("in/tree", f"{out}/missing/folders/tree")
                    self.assertEqual(os.listdir(self.path(out)), ["missing"])

    @unittest.skipUnless(AS_ROOT, "needs root to become another user")
    def test_a_tree_keeps_everything_without_root(self):
        self.make_tree("in/tree")
        self.folder("out")
        subprocess.run(["chown", "-hR", "65534:65534", self.base], check=True)
        # Changing the owner took the set-id bits.
        for mode in (0o4755, 0o2755):
            os.chmod(self.path(f"in/tree/mode{mode:o}"), mode)
        self.zip("in/tree", "archive", prefix=NOBODY)
        self.unzip("archive", "out", prefix=NOBODY)
        self.assert_same_tree("in/tree", "out/tree")

    def test_expanding_again_overwrites_and_merges(self):
        self.make_tree("in/tree")
        self.zip("in/tree", "a.zip")
        for entry in ("tree/mine", "tree/deep/$HOME/mine", "other"):
            self.write(f"out/{entry}", b"mine")
        self.write("out/tree/-dash", b"older")
        os.symlink("mine", self.path("out/tree/nothing"))
        self.unzip("a.zip", "out")
        for entry in ("tree/mine", "tree/deep/$HOME/mine", "other"):
            self.assertEqual(self.read(f"out/{entry}"), b"mine")
            os.remove(self.path("out", entry))
        if not AS_ROOT:
            # Nothing can be replaced in a read-only folder.
            self.unzip("a.zip", "out", expect=DESTINATION)
            for folder in ("in/tree/locked", "out/tree/locked"):
                os.chmod(self.path(folder), 0o755)
        self.unzip("a.zip", "out")
        self.assert_same_tree("in/tree", "out/tree")

    def test_many_small_files_with_the_quicker_packer(self):
        names = ["-x", "@y", "back\\slash", "new\nline", "a*?[b]", " c ", "d:e"]
        for number in range(700):
            self.write(f"in/-small/{number % 7}/{names[number % 7]}{number}", b"%d" % number)
        os.symlink("../nowhere", self.path("in/-small/link"))
        self.folder("in/-small/empty")
        os.chmod(self.path("in/-small/0"), 0o711)
        self.zip("in/-small", "a.archive")
        self.unzip("a.archive", "out")
        self.assert_same_tree("in/-small", "out/-small")

    @needs("7z")
    def test_a_big_tree_with_all_cores(self):
        self.make_tree("in/@tree", names=["-", "a?b"])
        for entry in ("mode4755", "mode2755"):
            os.remove(self.path("in/@tree", entry))
        self.random_file("in/@tree/deep/random", 40)
        self.write("in/@tree/zeros", bytes(50_000_000))
        self.zip("in/@tree", "a.archive")
        with zipfile.ZipFile(self.path("a.archive")) as archive:
            self.assertIsNone(archive.testzip())
            self.assertIn("@tree/ünïcödé–日本", archive.namelist())
        self.unzip("a.archive", "out")
        self.assert_same_tree("in/@tree", "out/@tree")

    def test_single_sources_with_odd_names(self):
        for name in ("-dash", "@at", "-C", "a\\b", "\\lead", "c:x", "*", "new\nline", "end\n", " ", "ü.txt", "a;b&c"):
            for password in (None, "pw"):
                with self.subTest(name=name, password=password):
                    data = self.write(f"in/{name}", name.encode())
                    self.zip(f"in/{name}", "a", password)
                    self.unzip("a", "out", password)
                    self.assertEqual(self.read(f"out/{name}"), data)

    def test_a_source_that_is_a_link_gives_what_it_links_to(self):
        self.write("in/real/file")
        os.symlink("file", self.path("in/real/inner"))
        os.symlink("real", self.path("in/link"))
        self.zip("in/link", "a")
        self.unzip("a", "out")
        self.assertFalse(os.path.islink(self.path("out/link")))
        self.assert_same_tree("in/real", "out/link")

    def test_the_archive_replaces_what_is_there_under_the_very_name(self):
        self.write("in/file")
        self.write("elsewhere", b"untouched")
        os.symlink("../elsewhere", self.path("in/archive"))
        for _ in range(2):
            self.zip("in/file", "in/archive")
        self.assertEqual(sorted(os.listdir(self.path("in"))), ["archive", "file"])
        self.assertEqual(self.read("elsewhere"), b"untouched")
        self.unzip("in/archive", "out")

    def test_an_archive_in_its_own_source_leaves_itself_out(self):
        self.write("in/s[x]/sub/file")
        for _ in range(2):
            self.zip("in/s[x]", "in/s[x]/sub/a[1]*.zip")
        with zipfile.ZipFile(self.path("in/s[x]/sub/a[1]*.zip")) as archive:
            self.assertEqual(sorted(archive.namelist()), ["s[x]/", "s[x]/sub/", "s[x]/sub/file"])

    def test_calls_at_once_keep_out_of_each_others_way(self):
        running = []
        for number in range(6):
            self.write(f"in/{number}/file", b"%d" % number * 50_000)
            self.zip(f"in/{number}", f"{number}.zip", "pw")
            running.append(subprocess.Popen(self.command("unzipdecrypt", self.path(""), self.path("out/"), f"{number}.zip",
                                                         "expand", "pw", shell=list(SHELLS)[number % 3])))
        self.assertEqual([process.wait(120) for process in running], [0] * 6)
        for number in range(6):
            self.assert_same_tree(f"in/{number}", f"out/{number}")

    def test_names_that_are_not_utf8(self):
        if sys.platform == "darwin":
            self.skipTest("this file system refuses them")
        self.make_tree("in/tree", names=["latin\udce9"])
        for password in (None, "pw"):
            self.zip("in/tree", "a", password)
            self.unzip("a", f"out{password}", password)
            self.assert_same_tree("in/tree", f"out{password}/tree")

    @needs("unzip", "7z")
    def test_archives_open_elsewhere(self):
        self.make_tree("in/tree")
        self.zip("in/tree", "plain.zip")
        self.zip("in/tree", "aes.zip", "Pässwort 1")
        with zipfile.ZipFile(self.path("plain.zip")) as archive:
            self.assertIsNone(archive.testzip())
            self.assertIn("tree/ünïcödé–日本", archive.namelist())
        for command in (["unzip", "-tqq", "plain.zip"], ["7z", "t", "plain.zip"], ["7z", "t", "-pPässwort 1", "aes.zip"]):
            subprocess.run(command, cwd=self.base, check=True, stdout=subprocess.DEVNULL,
                           env={**os.environ, "LC_ALL": "C.UTF-8"})
        listing = subprocess.run(["7z", "l", "-slt", self.path("aes.zip")], capture_output=True, text=True).stdout
        self.assertIn("AES-256", listing)

    def test_what_cannot_be_stored_is_refused(self):
        self.write("in/tree/file")
        os.mkfifo(self.path("in/tree/pipe"))
        for source in ("in/tree", "in/tree/pipe", "in/missing"):
            self.zip(source, "a", expect=SOURCE)
        self.assertEqual(os.listdir(self.base), ["in"])

    @unittest.skipUnless(FULL, "FOLIDEX_FULL=1 packs 5 GiB and 100,000 files")
    def test_sizes(self):
        os.makedirs(self.path("in/tree"))
        with open(self.path("in/tree/big"), "wb") as big:
            big.truncate(5 << 30)
            big.seek(4 << 30)
            big.write(b"beyond four gigabytes")
        self.zip("in/tree", "big.zip")
        self.unzip("big.zip", "big")
        self.assert_same_tree("in/tree", "big/tree")
        for number in range(100_000):
            self.write(f"many/tree/{number % 300}/{number}", b"%d" % number)
        for password in (None, "pw"):
            self.zip("many/tree", "many.zip", password)
            self.unzip("many.zip", f"many{password}", password)
            self.assert_same_tree("many/tree", f"many{password}/tree")


if __name__ == "__main__":
    unittest.main(verbosity=2)
