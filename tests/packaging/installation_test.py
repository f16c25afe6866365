"""The Debian packages on a scratch server, and the commands that README and documents give for Linux. As root.

Called as: installation_test.py PACKAGES-FOLDER SOURCE-FOLDER VERSION
"""

import os
import re
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

sys.path.insert(0, str(Path(__file__).parents[1]))
from support import surroundings

PACKAGES, SOURCE, VERSION = sys.argv[1:4]
SERVER = "/opt/FileMaker/FileMaker Server"
WEB = "Web Publishing/publishing-engine"
FOLDERS = ["Database Server/Extensions", f"{WEB}/cwpc/Plugins", f"{WEB}/wip/Plugins"]
COPIES = [f"{SERVER}/{folder}/Folidex.fmx" for folder in FOLDERS]
DOWNLOADS = "/srv/downloads"
# Otherwise the build would be another one, and made anew.
BUILT_WITH = f"FOLIDEX_WERROR={os.environ.get('FOLIDEX_WERROR', '')}"
LEFT_BY_APT = ("/var/lib/dpkg", "/var/lib/apt", "/var/cache")
# FileMaker Server's folders, user and group, and a library for the plug-in to find; the web publishing engine has no
# folder for plug-ins yet.
MAKE_SERVER = f"""
groupadd --system fmsadmin
useradd --system --create-home --user-group --groups fmsadmin fmserver
mkdir -p '{SERVER}'; cd '{SERVER}'
install -d -o fmserver -g fmsadmin -m 2775 'Database Server/Extensions' '{WEB}/cwpc' '{WEB}/wip/Plugins'
install -D {SOURCE}/build/release/libFMWrapper.so /opt/FileMaker/lib/libFMWrapper.so
"""
# An overlay in a mount namespace that lasts as long as its first process. The source may be a mount of its own.
SETUP = """
set -e
mount --make-rprivate /
mount -t tmpfs scratch "$1"
cd "$1"
mkdir upper work root
mount -t overlay overlay -o "lowerdir=/,upperdir=$1/upper,workdir=$1/work" root
if [ ! -e "root$2/CMakeLists.txt" ]; then
    mkdir -p "root$2" source source-work
    mount -t overlay overlay -o "lowerdir=$2,upperdir=$1/source,workdir=$1/source-work" "root$2"
fi
mount -t proc proc root/proc
mount --rbind /dev root/dev
echo ready
exec cat
"""
SUDO = """#!/bin/sh
[ "$1" != -u ] || { user=$2; shift 2; exec runuser -u "$user" -- "$@"; }
exec "$@"
"""


class ScratchRoot:
    """This machine's system with changes that vanish."""

    def __init__(self):
        self.folder = tempfile.TemporaryDirectory()
        self.keeper = subprocess.Popen(["unshare", "--mount", "sh", "-c", SETUP, "sh", self.folder.name, SOURCE],
                                       stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
        if self.keeper.stdout.readline() != "ready\n":
            self.close()
            raise OSError("a root folder of the test's own takes root, and overlays in a mount namespace")
        self.run("sh", "-c", 'printf %s "$1" > /usr/local/bin/sudo; chmod +x /usr/local/bin/sudo', "sh", SUDO)

    def close(self):
        self.keeper.communicate()
        self.folder.cleanup()

    def run(self, *command, user="root"):
        """Runs `command` in the root and returns what it prints; it must succeed."""
        inside = ["nsenter", f"--target={self.keeper.pid}", "--mount", "chroot", f"{self.folder.name}/root",
                  "env", "-i", "PATH=/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin", "HOME=/tmp", "LC_ALL=C.UTF-8",
                  "DEBIAN_FRONTEND=noninteractive", BUILT_WITH, "runuser", "-u", user, "--", *command]
        done = subprocess.run(inside, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, stdin=subprocess.DEVNULL)
        if done.returncode != 0:
            raise AssertionError(f"{command}: exit status {done.returncode}\n{done.stdout}")
        return done.stdout

    def shell(self, commands, folder="/"):
        return self.run("bash", "-ec", f"cd '{folder}'\n{commands}")

    def entries(self, *folders):
        """What is there, with owner, group and mode."""
        return self.run("find", *folders, "-printf", r"%p %u:%g %m\n").splitlines()


def commands_of(document, heading):
    """The blocks for sh under a heading, as one script."""
    text = re.sub(r"^```filemaker.*?^```$", "", Path(SOURCE, document).read_text("utf-8"), flags=re.M | re.S)
    section = re.search(rf"^#+ {re.escape(heading)}\n(.*?)(?=^#|\Z)", text, re.M | re.S)[1]
    return re.findall(r"^ *```sh\n(.*?)^ *```$", section, re.M | re.S)


class Installation(unittest.TestCase):
    def setUp(self):
        self.root = ScratchRoot()
        self.addCleanup(self.root.close)
        # Without lists of packages apt knows of none that is newer. Its question whether to go on is answered.
        self.root.shell(f"""rm -rf /var/lib/apt/lists/*; echo 'APT::Get::Assume-Yes 1;' > /etc/apt/apt.conf.d/yes
            mkdir {DOWNLOADS}; cp {PACKAGES}/*_{VERSION}_*.deb {SOURCE}/build/release/Folidex.fmx {DOWNLOADS}""")

    def do(self, heading, document="docs/install.md", part=slice(None)):
        """Runs the commands under the heading as printed, where the text says that they are given."""
        printed = [self.root.shell(block, SOURCE if block.startswith(("scripts/", "build/", "cmake ")) else DOWNLOADS)
                   for block in commands_of(document, heading)[part]]
        return "".join(printed)

    def assert_installed(self, content="/usr/libexec/folidex-server/Folidex.fmx"):
        listed = self.root.run("stat", "-c", "%U:%G %a", *COPIES).splitlines()
        self.assertEqual(listed, ["fmserver:fmsadmin 755"] * 3)
        for copy in COPIES:
            self.root.run("cmp", content, copy)

    def other_version(self, version):
        """A package of another version, whose plug-in has a few bytes more; the file as that package installs it."""
        self.root.shell(f"""cd /srv; rm -rf other; dpkg-deb -R {DOWNLOADS}/folidex-server_*.deb other
            sed -i 's/^Version: .*/Version: {version}/' other/DEBIAN/control
            echo {version} >> other/usr/libexec/folidex-server/Folidex.fmx
            sed -i '/Folidex.fmx/d' other/DEBIAN/md5sums; dpkg-deb -b other other.deb""")
        return "/srv/other.deb", "/srv/other/usr/libexec/folidex-server/Folidex.fmx"

    def test_by_package(self):
        self.root.shell(MAKE_SERVER)
        before = self.root.entries("/opt", "/usr", "/etc", "/var/lib")
        older, plugin = self.other_version("5.0.2.0")
        self.root.run("apt-get", "install", older)
        self.assert_installed(plugin)
        said = self.do("By package")
        for copy in COPIES:
            self.assertIn(copy, said)
        self.assert_installed()
        self.assertEqual(self.root.run("stat", "-c", "%U:%G %a", os.path.dirname(COPIES[1])), "fmserver:fmsadmin 2775\n")
        self.assertIn(f"Folidex {VERSION}", self.do("Does it work?"))
        self.assertIn("fmserver", self.do("Folders that solutions work on"))
        loaded = self.do("When it doesn't load")
        self.assertIn("/opt/FileMaker/lib/libFMWrapper.so", loaded)
        self.assertNotIn("not found", loaded)
        self.assertRegex(loaded, r"\n16 tests: \d+ pass, \d+ note\n")

        # What the archive functions run is there, and the service user may.
        self.root.shell("install -d -o fmserver /srv/solution")
        archive = 'KORB_CompressAndEncrypt( "/usr/share/doc/folidex-server/recipes.md" ; "/srv/solution/a.zip" ; "word" )'
        answers = self.root.run("fmxhost", "-e", archive, "-e", "KORB_GetLastError", user="fmserver")
        self.assertEqual(answers.split(), ["0", "Success"])

        self.do("Remove", part=slice(1))
        self.root.run("apt-get", "purge", "-y", "folidex-server", "fmxhost")
        changed = set(self.root.entries("/opt", "/usr", "/etc", "/var/lib")) ^ set(before)
        self.assertEqual([entry for entry in changed if not entry.startswith(LEFT_BY_APT)], [])

    def test_server_that_comes_later(self):
        said = self.do("By package", part=slice(1))
        self.assertIn("FileMaker Server isn't installed", said)
        self.root.shell(f"""groupadd --system fmsadmin; useradd --system --user-group --groups fmsadmin fmserver
            cd /srv; mkdir -p server/DEBIAN 'server{SERVER}/'{{'Database Server','{WEB}/cwpc','{WEB}/wip'}}
            printf '%s: a\\n' Package Maintainer Description > server/DEBIAN/control
            printf '%s\\n' 'Version: 1' 'Architecture: all' >> server/DEBIAN/control
            dpkg-deb -b server server.deb; dpkg -i server.deb""")
        self.assert_installed()

    def test_by_hand(self):
        self.root.shell(MAKE_SERVER)
        self.root.shell(f"touch '{SERVER}/Database Server/Extensions/Other.fmx'")
        printed = self.do("By hand")
        self.assertRegex(printed, rf"soname: \[{re.escape(VERSION)}\]")
        self.assert_installed(f"{DOWNLOADS}/Folidex.fmx")
        self.do("Remove", part=slice(1, None))
        self.assertEqual(self.root.run("find", "/opt/FileMaker", "-name", "*.fmx"), f"{SERVER}/Database Server/Extensions/Other.fmx\n")

    def test_readme(self):
        printed = self.do("Try it", "README.md")
        for word in (VERSION, "KORB_FileCopy", "pass      start-up"):
            self.assertIn(word, printed)
        self.do("Install it", "README.md")
        self.assertIn("\n16 tests: 16 pass\n", self.do("Another plug-in", "docs/architecture.md"))


if __name__ == "__main__":
    try:
        ScratchRoot().close()
    except OSError as reason:
        surroundings.skip(str(reason))
    unittest.main(argv=sys.argv[:1], verbosity=2)
