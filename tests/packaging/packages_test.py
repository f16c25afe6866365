"""The Debian packages as cpack made them: what they depend on, what is where, and lintian's opinion.

Called as: packages_test.py PACKAGES-FOLDER VERSION ARCHITECTURE PLUGIN-FOLDER
"""

import gzip
import re
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

sys.path.insert(0, str(Path(__file__).parents[1]))
from support import surroundings

PACKAGES, VERSION, ARCHITECTURE, FOLDER = sys.argv[1:5]
SERVER, HOST = (f"{PACKAGES}/{name}_{VERSION}_{ARCHITECTURE}.deb" for name in ("folidex-server", "fmxhost"))
DOCUMENTS = "/usr/share/doc/folidex-server/"

# Ubuntu 22.04, the oldest server system.
OLDEST_SERVER = {"libc6": "2.35", "libgcc-s1": "12", "libstdc++6": "12", "libmount1": "2.37", "libssl3": "3.0.2",
                 "zlib1g": "1:1.2.11.dfsg-2", "libbz2-1.0": "1.0.8", "liblzma5": "5.2.5"}


def output(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


class Packages(unittest.TestCase):
    def test_server_needs_what_the_oldest_server_system_has(self):
        depends = re.findall(r"([\w.+-]+)(?: \(>= ([^)]+)\))?", output("dpkg-deb", "-f", SERVER, "Depends"))
        self.assertEqual({name.removesuffix("t64") for name, _ in depends}, set(OLDEST_SERVER))
        for name, version in depends:
            if version:
                output("dpkg", "--compare-versions", version, "le", OLDEST_SERVER[name.removesuffix("t64")])

    def test_server_holds_the_plug_in_and_documents(self):
        files = set(re.findall(r" \.(/.*[^/\n])$", output("dpkg-deb", "-c", SERVER), re.M))
        documents = {file for file in files if file.startswith(DOCUMENTS)}
        overrides = "/usr/share/lintian/overrides/folidex-server"
        programs = {f"{FOLDER}/{name}" for name in ("Folidex.fmx", "engines", "ZipFuncs.sh", "folidex-archive")}
        self.assertEqual(files - documents, programs | {overrides})
        expected = ("functions.html", "install.md", "recipes.md", "recipes/rotate-logs.xml", "deviations.txt")
        self.assertLessEqual({DOCUMENTS + name for name in expected}, documents)

    def test_unpacked_they_work_together(self):
        with tempfile.TemporaryDirectory() as root:
            for package in (SERVER, HOST):
                output("dpkg-deb", "-x", package, root)
            host = [root + "/usr/bin/fmxhost", "--plugin", f"{root}{FOLDER}/Folidex.fmx"]
            output(*host, "check", "--allow", f"{root}{DOCUMENTS}deviations.txt")
            Path(root, "größe").write_bytes(bytes(300))
            answers = output(*host, "-e", 'KORB_Version("short")', "-e", f'KORB_GetFileSize("{root}/größe")')
            self.assertEqual(answers.split(), [VERSION, "300"])
            # What the plug-in looks for in the package's folder before it takes what it holds itself.
            plugin = Path(root + FOLDER, "Folidex.fmx").read_bytes()
            for name in ("folidex-archive", "ZipFuncs.sh"):
                self.assertIn(Path(root + FOLDER, name).read_bytes(), plugin)
            # The kit's library to itself, where no other program finds it.
            self.assertEqual(len(list(Path(root).glob("usr/lib/*-linux-gnu/fmxhost/libFMWrapper.so"))), 1)
            for file in ("bash-completion/completions/fmxhost", "zsh/vendor-completions/_fmxhost", "fmxhost/server-libraries"):
                self.assertTrue(Path(root, "usr/share", file).read_text())
            for file, begin in (("man/man1/fmxhost.1.gz", ".TH FMXHOST 1"), ("doc/fmxhost/changelog.gz", f"folidex ({VERSION}) ")):
                self.assertTrue(gzip.open(Path(root, "usr/share", file), "rt").read().startswith(begin), file)

    def test_lintian_finds_nothing(self):
        command = ["lintian", "--allow-root", "--fail-on", "error,warning", SERVER, HOST]
        checked = subprocess.run(command, capture_output=True, text=True)
        self.assertEqual((checked.returncode, checked.stdout), (0, ""), checked.stderr)


if __name__ == "__main__":
    surroundings.skip_without("lintian")
    unittest.main(argv=sys.argv[:1], verbosity=2)
