#!/usr/bin/env python3
"""surroundings.py NEED…: why a test can't run here, a line for each need that isn't met; silent when all are.

The one place that decides what the surroundings of the tests allow. C++ tests ask by support/surroundings.h, scripts by
skip_without(). A need is a key of NEEDS, an absolute path that must be readable, or the name of a program. Most are tried
out, for capabilities, security modules and containers forbid in many ways. What is mounted is gone with the trial.
"""

import os
import shutil
import stat
import subprocess
import sys
import tempfile
import unittest

SKIPPED = 77  # the exit status by which a script says that it was skipped
ACCESS_LIST = bytes.fromhex("02000000" "01000600ffffffff" "04000000ffffffff" "20000000ffffffff")  # acl(5): owner rw-


def succeeds(*command):
    return subprocess.run(command, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, check=False).returncode == 0


def is_root():
    return os.geteuid() == 0


def may_give_away():
    """Root as of a whole system: in a namespace of users other owners and devices are refused."""
    with tempfile.TemporaryDirectory() as folder:
        try:
            os.chown(folder, 1234, 5678)
            os.mknod(f"{folder}/null", stat.S_IFCHR | 0o600, os.makedev(1, 3))
        except OSError:
            return False
    return True


def own_mounts():
    """The words before a command that give it mounts of its own."""
    return ["unshare", "--mount"] if is_root() else ["unshare", "--map-root-user", "--mount"]


def in_own_mounts(script, *words):
    return succeeds(*own_mounts(), "sh", "-ec", script, "sh", *words)


def keeps(name, value):
    """Whether a file in the folder for temporary files keeps an extended attribute."""
    with tempfile.NamedTemporaryFile() as file:
        try:
            os.setxattr(file.name, name, value)
        except OSError:
            return False
    return True


def keeps_creation_dates():
    with tempfile.NamedTemporaryFile() as file:
        return succeeds("sh", "-c", '[ "$(stat -c %W "$1")" -gt 0 ]', "sh", file.name)


def has_memory():
    memory = "/dev/shm"
    return os.access(memory, os.W_OK) and os.stat(memory).st_dev != os.stat(tempfile.gettempdir()).st_dev


def mounts_image(kind, size):
    if not is_root() or not shutil.which(f"mkfs.{kind}"):
        return False
    with tempfile.TemporaryDirectory() as folder:
        return in_own_mounts(f'cd "$1"; truncate -s {size} image; mkfs.{kind} -q image; mkdir disk; mount -o loop image disk', folder)


def speaks_french():
    with tempfile.TemporaryDirectory() as folder:
        return os.access("/usr/share/locale/fr/LC_MESSAGES/libc.mo", os.R_OK) and \
            succeeds("localedef", "-i", "fr_FR", "-f", "UTF-8", f"{folder}/fr_FR.UTF-8")


NEEDS = {
    "root": (may_give_away, "root's rights, which can give files away and make devices"),
    "mounts": (lambda: is_root() and in_own_mounts("mount -t tmpfs none /mnt"), "mounts, as root with CAP_SYS_ADMIN"),
    "own-mounts": (lambda: in_own_mounts("mount -t tmpfs none /mnt"), "mounts, as root with CAP_SYS_ADMIN or in a namespace of users"),
    "fuse": (lambda: is_root() and in_own_mounts("exec 5<>/dev/fuse; mount -i -t fuse -o fd=5,rootmode=40000,user_id=0,group_id=0 none /mnt"),
             "/dev/fuse, as root with CAP_SYS_ADMIN"),
    "ext4": (lambda: mounts_image("ext4", "4M"), "loop mounts as root, and mkfs.ext4 (e2fsprogs)"),
    "xfs": (lambda: mounts_image("xfs", "300M"), "loop mounts as root, and mkfs.xfs (xfsprogs)"),
    "attributes": (lambda: keeps("user.folidex", b"1"), f"extended attributes in {tempfile.gettempdir()}"),
    "access-lists": (lambda: keeps("system.posix_acl_access", ACCESS_LIST), f"access lists in {tempfile.gettempdir()}"),
    "creation-dates": (keeps_creation_dates, f"dates of creation in {tempfile.gettempdir()}"),
    "memory": (has_memory, "a second file system, at /dev/shm"),
    "french": (speaks_french, "the C library's French (libc-l10n, locales)"),
}


def lacking(*needs):
    """What is lacking for a test, a line each."""
    reasons = []
    for need in needs:
        if need in NEEDS:
            is_there, what = NEEDS[need]
            if not is_there():
                reasons.append(f"needs {what}")
        elif not (os.access(need, os.R_OK) if need.startswith("/") else shutil.which(need)):
            reasons.append(f"needs {need}")
    return "\n".join(reasons)


def skip(reason):
    """Ends a script's test; the reason may have several lines."""
    print("skipped:", reason.replace("\n", "; "))
    sys.exit(SKIPPED)


def skip_without(*needs):
    if reason := lacking(*needs):
        skip(reason)


def case_needs(*needs):
    """Decorates a case or a class of unittest that is skipped without them."""
    reason = lacking(*needs).replace("\n", "; ")
    return unittest.skipIf(reason, reason)


if __name__ == "__main__":
    print(lacking(*sys.argv[1:]))
