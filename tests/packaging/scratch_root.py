"""This machine's system with changes that vanish: for packages and for the commands that the documentation gives."""

import subprocess
import tempfile
from pathlib import Path

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
    def __init__(self, source):
        self.folder = tempfile.TemporaryDirectory()
        self.keeper = subprocess.Popen(["unshare", "--mount", "sh", "-c", SETUP, "sh", self.folder.name, source],
                                       stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
        if self.keeper.stdout.readline() != "ready\n":
            self.close()
            raise OSError("a root folder of the test's own takes root, and overlays in a mount namespace")
        self.run("sh", "-c", 'printf %s "$1" > /usr/local/bin/sudo; chmod +x /usr/local/bin/sudo', "sh", SUDO)

    def close(self):
        self.keeper.communicate()
        self.folder.cleanup()

    def run(self, *command, user="root"):
        """Runs `command` in the root and answers what it prints; it must succeed."""
        inside = ["nsenter", f"--target={self.keeper.pid}", "--mount", "chroot", f"{self.folder.name}/root",
                  "env", "-i", "PATH=/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin", "HOME=/tmp", "LC_ALL=C.UTF-8",
                  "DEBIAN_FRONTEND=noninteractive", "runuser", "-u", user, "--", *command]
        done = subprocess.run(inside, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, stdin=subprocess.DEVNULL)
        if done.returncode != 0:
            raise AssertionError(f"{command}: exit status {done.returncode}\n{done.stdout}")
        return done.stdout

    def shell(self, commands, folder="/"):
        return self.run("bash", "-ec", f"cd '{folder}'\n{commands}")

    def entries(self, *folders):
        """What is there, with owner, group and mode."""
        return self.run("find", *map(str, folders), "-printf", r"%p %u:%g %m\n").splitlines()
