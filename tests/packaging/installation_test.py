"""The Debian packages installed, used and removed in a clean system. With FOLIDEX_FULL in the environment, as root.

Called as: installation_test.py PACKAGES-FOLDER CACHE-FOLDER VERSION EXTENSIONS-FOLDER
"""

import os
import re
import shutil
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

from scratch_root import ScratchRoot

PACKAGES, CACHE, VERSION, EXTENSIONS = sys.argv[1:5]
NAMES = ("folidex-server", "fmxhost")


def reason_to_skip():
    if not os.environ.get("FOLIDEX_FULL"):
        return "a clean system is made and filled with FOLIDEX_FULL=1"
    if os.geteuid() != 0:
        return "needs root, to make a system in a folder"
    missing = [tool for tool in ("debootstrap", "dpkg", "unshare", "setpriv") if not shutil.which(tool)]
    return f"needs {', '.join(missing)}" if missing else None


class Installation(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory(dir=CACHE)
        cls.addClassCleanup(folder.cleanup)
        cls.root = ScratchRoot(folder.name, CACHE)
        (cls.root.folder / "packages").mkdir()
        native = cls.root.run("dpkg", "--print-architecture").strip()
        cls.files = {name: f"/packages/{name}_{VERSION}_{native}.deb" for name in NAMES}
        for file in cls.files.values():
            shutil.copy(Path(PACKAGES, Path(file).name), cls.root.folder / "packages")
        # With all that they depend on, and nothing more; the dependencies stay.
        cls.root.run("apt-get", "update")
        cls.root.run("apt-get", "install", "-y", "--no-install-recommends", *cls.files.values())
        cls.root.run("dpkg", "-P", *NAMES)

    def tearDown(self):
        self.root.run("dpkg", "-P", *NAMES)

    def assert_nothing_changed_since(self, before):
        self.assertEqual(sorted(set(self.root.entries().items()) ^ set(before.items())), [])

    def install(self, *names):
        return self.root.run("dpkg", "-i", *(self.files[name] for name in names))

    def evaluate(self, *calculations, user="nobody"):
        words = [word for calculation in calculations for word in ("-e", calculation)]
        return self.root.run("fmxhost", *words, user=user).splitlines()

    def extensions(self, name=""):
        return self.root.folder / EXTENSIONS.lstrip("/") / name

    def assert_archives_work(self, user):
        work = self.root.run("mktemp", "-d", user=user).strip()
        folder = self.root.folder / work.lstrip("/")
        (folder / "a.txt").write_text("content", encoding="utf-8")
        answers = self.evaluate(
            'KORB_Version("short")',
            f'KORB_CompressAndEncrypt("{work}/a.txt"; "{work}/a.zip"; "word")', f'KORB_FileDelete("{work}/a.txt")',
            f'KORB_DecryptAndExpand("{work}/a.zip"; "{work}/"; "word")',
            f'KORB_EncryptFile("{work}/a.txt"; "{work}/a.enc"; "word")',
            f'KORB_DecryptFile("{work}/a.enc"; "{work}/b.txt"; "word")', "KORB_GetLastError", user=user)
        self.assertEqual(answers, [VERSION, "0", "0", "0", "0", "0", "Success"])
        self.assertEqual((folder / "b.txt").read_text(encoding="utf-8"), "content")

    def test_used_by_an_ordinary_user_and_removed_without_a_trace(self):
        before = self.root.entries()
        said = self.install(*NAMES)
        self.assertIn("Admin Console", said)
        self.assertIn(f"{EXTENSIONS}/Folidex.fmx", said)
        self.assertEqual(self.extensions("Folidex.fmx").owner(), "root")
        self.assert_archives_work("nobody")
        self.assertEqual(self.root.run("dpkg", "-V", *NAMES), "")
        self.install(*NAMES)  # as an upgrade
        for remove in ("-r", "-P"):
            self.root.run("dpkg", remove, *NAMES)
            self.assert_nothing_changed_since(before)

    def test_fmxhost_alone_says_that_there_is_no_plug_in(self):
        self.install("fmxhost")
        said = self.root.run("fmxhost", "-e", "1 + 1", user="nobody", status=3)
        self.assertRegex(said, f"No plug-in was found: .*{re.escape(EXTENSIONS)}/Folidex.fmx")

    def test_belongs_to_the_server_where_there_is_one(self):
        self.addCleanup(self.root.run, "userdel", "fmserver")
        self.root.run("groupadd", "--system", "fmsadmin")
        self.addCleanup(self.root.run, "groupdel", "fmsadmin")
        self.root.run("useradd", "--system", "--user-group", "--groups", "fmsadmin", "fmserver")
        self.root.run("install", "-d", "-o", "fmserver", "-g", "fmsadmin", "-m", "2775", EXTENSIONS)
        self.addCleanup(shutil.rmtree, self.root.folder / "opt/FileMaker")
        before = self.root.entries()
        for _ in range(2):
            self.install(*NAMES)
            listed = self.root.run("stat", "-c", "%U:%G %a", f"{EXTENSIONS}/Folidex.fmx")
            self.assertEqual(listed.strip(), "fmserver:fmsadmin 755")
        self.assert_archives_work("fmserver")
        self.root.run("dpkg", "-P", *NAMES)
        self.assert_nothing_changed_since(before)

    def test_leaves_other_plug_ins_and_linked_folders(self):
        (self.root.folder / "srv/plug-ins").mkdir()
        self.extensions().parent.mkdir(parents=True)
        self.extensions().symlink_to(os.path.relpath("/srv/plug-ins", os.path.dirname(EXTENSIONS)))
        self.addCleanup(shutil.rmtree, self.root.folder / "srv/plug-ins")
        self.addCleanup(shutil.rmtree, self.root.folder / "opt/FileMaker")
        self.extensions("Other.fmx").touch()
        before = self.root.entries()
        self.install("folidex-server")
        self.root.run("dpkg", "-P", "folidex-server")
        self.assert_nothing_changed_since(before)


if __name__ == "__main__":
    if reason := reason_to_skip():
        print("skipped:", reason)
        sys.exit(77)
    unittest.main(argv=sys.argv[:1], verbosity=2)
