"""Runs resources/ZipFuncs.sh the way the plug-in does, in a scratch folder of each test."""

import hashlib
import os
import random
import shutil
import subprocess
import tempfile
import unittest
import zipfile

ROOT = os.path.abspath(os.path.join(os.path.dirname(__file__), "../../.."))
SCRIPT = os.environ.get("FOLIDEX_ZIPFUNCS", ROOT + "/resources/ZipFuncs.sh")
PAGE = ROOT + "/docs/encrypted-files.md"
FULL = os.environ.get("FOLIDEX_FULL") == "1"
SHELLS = {"dash": ["dash"], "bash": ["bash", "--posix"], "busybox": ["busybox", "sh"]}
AS_ROOT = os.geteuid() == 0

DONE, WRONG_PASSWORD, WRONG_ARCHIVE_PASSWORD = 0, 1, 82
USAGE, DAMAGED, SOURCE, MISSING_TOOL, DESTINATION, NOT_WRITTEN, NEEDS_PASSWORD = 64, 65, 66, 69, 73, 74, 77


def needs(*tools):
    missing = [tool for tool in tools if not shutil.which(tool)]
    return unittest.skipIf(missing, f"not installed: {missing}")


class ScratchCase(unittest.TestCase):
    def setUp(self):
        self.base = tempfile.mkdtemp(prefix="zipfuncs-")
        self.addCleanup(self.remove)
        os.chmod(self.base, 0o755)

    def remove(self):
        subprocess.run(["chmod", "-R", "u+rwx", self.base], stderr=subprocess.DEVNULL)
        shutil.rmtree(self.base)

    def path(self, *parts):
        return os.path.join(self.base, *parts)

    def folder(self, name):
        os.makedirs(self.path(name), exist_ok=True)
        return self.path(name) + "/"

    def write(self, name, data=b"content\n"):
        os.makedirs(os.path.dirname(self.path(name)), exist_ok=True)
        with open(self.path(name), "wb") as file:
            file.write(data)
        return data

    def read(self, name):
        with open(self.path(name), "rb") as file:
            return file.read()

    def random_file(self, name, megabytes):
        return self.write(name, random.Random(name).randbytes(megabytes << 20))

    @staticmethod
    def command(verb, *fields, shell="dash"):
        return [*SHELLS[shell], SCRIPT, "|".join([verb, *fields])]

    def run_verb(self, verb, *fields, expect=DONE, shell="dash", prefix=(), **options):
        """Without stdin a tool that asks would end at once, so none is closed here: a question hangs until the time-out."""
        done = subprocess.run([*prefix, *self.command(verb, *fields, shell=shell)], capture_output=True, timeout=3000 if FULL else 300,
                              stdin=subprocess.PIPE if "stdin" not in options else options.pop("stdin"), **options)
        self.assertEqual((done.stdout, done.stderr), (b"", b""), "not silent")
        if expect is not None:
            self.assertEqual(done.returncode, expect, (verb, *fields))
        return done.returncode

    def zip(self, source, archive, password=None, **options):
        return self.pack("zip" if password is None else "zipencrypt", source, archive, password, **options)

    def unzip(self, archive, destination, password=None, **options):
        verb, last = ("unzip", ()) if password is None else ("unzipdecrypt", (password,))
        folder, name = os.path.split(self.path(archive))
        return self.run_verb(verb, folder + "/", self.path(destination) + "/", name, "expand", *last, **options)

    def pack(self, verb, source, target, password=None, **options):
        """zip, zipencrypt, encrypt or decrypt."""
        (folder, name), (target_folder, target_name) = os.path.split(self.path(source)), os.path.split(self.path(target))
        last = () if password is None else (password,)
        return self.run_verb(verb, folder + "/", target_folder + "/", name, target_name, *last, **options)

    def assert_same_tree(self, one, other):
        done = subprocess.run(["rsync", "-nac", "--delete", "-i", self.path(one) + "/", self.path(other) + "/"],
                              capture_output=True, text=True, check=True)
        self.assertEqual(done.stdout, "")

    def snapshot(self):
        """Everything below the scratch folder: kinds, modes and contents, folder times left out."""
        found = {}
        for folder, folders, files in os.walk(self.base):
            for name in folders + files:
                path = os.path.join(folder, name)
                status = os.lstat(path)
                content = None
                if os.path.islink(path):
                    content = os.readlink(path)
                elif os.path.isfile(path):
                    with open(path, "rb") as file:
                        content = hashlib.sha256(file.read()).hexdigest()
                found[os.path.relpath(path, self.base)] = (oct(status.st_mode), content)
        return found

    def make_tree(self, name, names=()):
        """A tree with what an archive must keep."""
        odd = ["-dash", "@at", "-C", "back\\slash", "\\lead", "c:drive", "star*[x]?{y}", " blanks ", "new\nline", "end\n",
               "ünïcödé–日本", "quote\"s", "$HOME", "..dots", ".hidden", "#!", "%s%n", *names]
        for number, entry in enumerate(odd):
            self.write(f"{name}/{entry}", b"%d\n" % number * (number + 1))
            self.write(f"{name}/deep/{entry}/{entry}", b"x")
            os.utime(self.path(name, entry), (1_000_000_000 + 3 * number, 1_000_000_001 + 2 * number))
        self.folder(f"{name}/empty/within")
        self.write(f"{name}/nothing", b"")
        for link, to in (("link", "deep"), ("up", "../../elsewhere"), ("absolute", "/etc/passwd"), ("gone", "no\nwhere")):
            os.symlink(to, self.path(name, link))
        for mode in (0o600, 0o444, 0o750, 0o666, 0o4755, 0o2755):
            self.write(f"{name}/mode{mode:o}")
            os.chmod(self.path(name, f"mode{mode:o}"), mode)
        self.write(f"{name}/locked/file")
        os.utime(self.path(name, "locked"), (5e8, 5e8))
        os.chmod(self.path(name, "locked"), 0o555)
        os.chmod(self.path(name, "empty"), 0o700)


def make_zip(path, *entries):
    """Entries are (name, data) or (name, data, Unix mode)."""
    with zipfile.ZipFile(path, "w", zipfile.ZIP_DEFLATED) as archive:
        for name, data, *mode in entries:
            info = zipfile.ZipInfo(name, (2020, 2, 3, 4, 5, 6))
            info.create_system = 3
            info.external_attr = (mode[0] if mode else 0o100644) << 16
            archive.writestr(info, data)
