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
OLDEST_SERVER = {"libc6": "2.35", "libgcc-s1": "12", "libstdc++6": "12", "libmount1": "2.37"}


def output(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


class Packages(unittest.TestCase):
    def test_server_needs_what_the_oldest_server_system_has(self):
        depends = re.findall(r"([\w.+-]+)(?: \(>= ([^)]+)\))?", output("dpkg-deb", "-f", SERVER, "Depends"))
        self.assertEqual({name for name, version in depends if not version}, {"libarchive-tools", "openssl"})
        self.assertEqual({name for name, version in depends if version}, set(OLDEST_SERVER))
        for name, version in depends:
            if version:
                output("dpkg", "--compare-versions", version, "le", OLDEST_SERVER[name])

    def test_server_holds_the_plug_in_and_documents(self):
        files = set(re.findall(r" \.(/.*[^/\n])$", output("dpkg-deb", "-c", SERVER), re.M))
        documents = {file for file in files if file.startswith(DOCUMENTS)}
        overrides = "/usr/share/lintian/overrides/folidex-server"
        self.assertEqual(files - documents, {f"{FOLDER}/Folidex.fmx", f"{FOLDER}/engines", overrides})
        expected = ("functions.html", "install.md", "recipes.md", "recipes/rotate-logs.xml", "ZipFuncs.sh", "deviations.txt")
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
