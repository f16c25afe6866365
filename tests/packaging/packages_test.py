"""The Debian packages as cpack made them: names, dependencies, what is where, and lintian's opinion.

Called as: packages_test.py PACKAGES-FOLDER VERSION ARCHITECTURE PLUGIN-FOLDER
"""

import gzip
import io
import re
import shutil
import subprocess
import sys
import tarfile
import tempfile
import unittest
from pathlib import Path

PACKAGES, VERSION, ARCHITECTURE, FOLDER = sys.argv[1:5]

# Ubuntu 22.04, the oldest server system.
OLDEST_SERVER = {"libc6": "2.35", "libgcc-s1": "12", "libstdc++6": "12", "libmount1": "2.37"}


def output(*command, **options):
    return subprocess.run(command, check=True, capture_output=True, **options).stdout


class Package:
    def __init__(self, name):
        self.file = Path(PACKAGES, f"{name}_{VERSION}_{ARCHITECTURE}.deb")
        self.fields = dict(re.findall(r"^ (\S+): (.*(?:\n  .*)*)", output("dpkg-deb", "-I", self.file, text=True), re.M))
        self.depends = dict(re.findall(r"([\w.+-]+)(?: \(>= ([^)]+)\))?", self.fields["Depends"]))
        self.archive = tarfile.open(fileobj=io.BytesIO(output("dpkg-deb", "--fsys-tarfile", self.file)))
        self.entries = {"/" + entry.name.removeprefix("./"): entry for entry in self.archive}

    def content(self, path):
        return self.archive.extractfile(self.entries[path]).read()


class Packages(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.server, cls.host = Package("folidex-server"), Package("fmxhost")

    def test_fields(self):
        for package, name in [(self.server, "folidex-server"), (self.host, "fmxhost")]:
            self.assertEqual([package.fields[field] for field in ("Package", "Version", "Architecture")],
                             [name, VERSION, ARCHITECTURE])
            self.assertGreater(len(package.fields["Description"].splitlines()), 3)
            changelog = gzip.decompress(package.content(f"/usr/share/doc/{name}/changelog.gz")).decode()
            self.assertTrue(changelog.startswith(f"folidex ({VERSION}) "), changelog.splitlines()[0])

    def test_server_needs_what_the_oldest_server_system_has(self):
        libraries = {name: version for name, version in self.server.depends.items() if version}
        self.assertEqual(libraries.keys(), OLDEST_SERVER.keys())
        for name, version in libraries.items():
            newer = subprocess.run(["dpkg", "--compare-versions", version, "gt", OLDEST_SERVER[name]], check=False)
            self.assertNotEqual(newer.returncode, 0, f"{name} {version}")
        self.assertEqual(self.server.depends.keys() - libraries.keys(), {"libarchive-tools", "openssl"})

    def test_server_holds_the_plug_in_and_documents(self):
        files = [path for path, entry in self.server.entries.items() if not entry.isdir()
                 and not path.startswith(("/usr/share/doc/folidex-server/", "/usr/share/lintian/overrides/"))]
        self.assertEqual(files, [f"{FOLDER}/Folidex.fmx", f"{FOLDER}/engines"])
        documents = {Path(path).name for path in self.server.entries if path.startswith("/usr/share/doc/folidex-server/")}
        self.assertLessEqual({"functions.html", "install.md", "recipes.md", "rotate-logs.xml", "ZipFuncs.sh"}, documents)

    def test_host_has_its_library_to_itself(self):
        library = [path for path in self.host.entries if path.endswith("libFMWrapper.so")]
        self.assertRegex(" ".join(library), r"^/usr/lib/[^/]+-linux-gnu/fmxhost/libFMWrapper\.so$")
        self.assertIn(b".TH FMXHOST 1", gzip.decompress(self.host.content("/usr/share/man/man1/fmxhost.1.gz")))
        for file in ("bash-completion/completions/fmxhost", "zsh/vendor-completions/_fmxhost", "fmxhost/server-libraries"):
            self.assertTrue(self.host.content("/usr/share/" + file))

    def test_unpacked_they_work_together(self):
        with tempfile.TemporaryDirectory() as root:
            for package in (self.server, self.host):
                subprocess.run(["dpkg-deb", "-x", package.file, root], check=True)
            host = [root + "/usr/bin/fmxhost", "--plugin", f"{root}{FOLDER}/Folidex.fmx"]
            self.assertGreaterEqual(len(output(*host, "list").splitlines()), 41)
            (Path(root) / "größe").write_bytes(bytes(300))
            answers = output(*host, "-e", 'KORB_Version("short")', "-e", f'KORB_GetFileSize("{root}/größe")', text=True)
            self.assertEqual(answers.split(), [VERSION, "300"])
            deviations = f"{root}/usr/share/doc/folidex-server/deviations.txt"
            subprocess.run([*host, "check", "--allow", deviations], check=True, stdout=subprocess.DEVNULL)

    @unittest.skipUnless(shutil.which("lintian"), "needs lintian")
    def test_lintian_finds_no_error(self):
        checked = subprocess.run(["lintian", "--allow-root", "--fail-on", "error,warning", self.server.file, self.host.file],
                                 capture_output=True, text=True, check=False)
        self.assertEqual((checked.returncode, checked.stdout), (0, ""), checked.stderr)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
