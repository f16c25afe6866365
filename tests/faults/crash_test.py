"""A file system that stops as in a crash of the machine, at random moments of calls and right after them.

ext4 and xfs on loop devices are shut down without writing their logs (ioctl_xfs_goingdown(2); ext4 has the same request),
mounted again, and looked at: what was reported with 0 is there, whole, and what was to be replaced or moved isn't lost.
Arguments: fmxhost, the plug-in. FOLIDEX_FULL=1 in the environment: 200 shut-downs, otherwise one for each case.
"""

import fcntl
import os
import pathlib
import random
import shutil
import struct
import subprocess
import sys
import tempfile
import time
import zipfile

sys.path.insert(0, str(pathlib.Path(__file__).parents[1]))
from support import surroundings

HOST, PLUGIN = sys.argv[1:3]
GOING_DOWN, WITHOUT_LOG = 0x8004587D, 2
IS_FULL, FULL_ROUNDS = "FOLIDEX_FULL" in os.environ, 200
OLD, NEW = b"old" * 50_000, b"new" * 400_000
PICK = random.Random()


def shell(*words):
    subprocess.run(words, check=True, stdout=subprocess.DEVNULL, stderr=subprocess.STDOUT)


class Disk:
    def __init__(self, kind, folder):
        self.image, self.place = folder / f"{kind}.image", folder / kind
        self.place.mkdir()
        with self.image.open("wb") as file:
            file.truncate(512 << 20)
        shell(f"mkfs.{kind}", "-q", self.image)

    def mount(self):
        shell("mount", "-o", "loop", self.image, self.place)

    def crash(self):
        folder = os.open(self.place, os.O_RDONLY)
        fcntl.ioctl(folder, GOING_DOWN, struct.pack("I", WITHOUT_LOG))
        os.close(folder)

    def mount_again(self):
        shell("umount", self.place)
        self.mount()


def content(path):
    try:
        return path.read_bytes()
    except FileNotFoundError:
        return None


def archived(path):
    """What is in an archive: its file's content, or None where there is no whole archive."""
    try:
        with zipfile.ZipFile(path) as archive:
            return archive.read("file.txt")
    except (OSError, KeyError, zipfile.BadZipFile):
        return None


def tree(path):
    return {str(item.relative_to(path)): content(item) for item in path.rglob("*") if item.is_file()} if path.exists() else None


def evaluate(calculation):
    return subprocess.run([HOST, "--plugin", PLUGIN, "-e", calculation], stdout=subprocess.PIPE, check=False).stdout.strip() == b"0"


# Judges of what is there after the crash: (whether the result was 0, the disk, a folder on another one) -> what is wrong.
def replaced(path, new, look):
    def judge(is_done, disk, _):
        found = look(disk / path)
        return None if found == new or (not is_done and found in (None, OLD)) else "the target is neither old nor new"
    return judge


def moved(source, look, whole):
    def judge(is_done, disk, safe):
        arrived, left = look(disk / "to" / source), look(safe / source)
        if arrived == whole or (left == whole and not is_done):
            return None
        return "neither source nor target is whole"
    return judge


def sealed(is_done, disk, safe):
    if not (disk / "to/sealed.bin").exists():
        return "the encrypted file is gone" if is_done else None
    evaluate(f'KORB_DecryptFile("{disk}/to/sealed.bin"; "{safe}/opened.txt"; "p")')
    return None if content(safe / "opened.txt") == NEW else "the encrypted file isn't whole"


FOLDER = {f"{number}/f": NEW[:number * 1000] for number in range(1, 40)}
CASES = {
    'KORB_FileCopy("@safe/file.txt"; "@disk/to"; "Y")': replaced("to/file.txt", NEW, content),
    'KORB_FileMove("@disk/file.txt"; "@disk/to"; "Y")': replaced("to/file.txt", NEW, content),
    'KORB_FileMove("@safe/file.txt"; "@disk/to"; "Y")': moved("file.txt", content, NEW),
    'KORB_FolderMove("@safe/folder"; "@disk/to")': moved("folder", tree, FOLDER),
    'KORB_CompressFile("@disk/file.txt"; "@disk/to/old.zip")': replaced("to/old.zip", NEW, archived),
    'KORB_EncryptFile("@safe/file.txt"; "@disk/to/sealed.bin"; "p")': sealed,
    'KORB_DecryptFile("@safe/sealed.bin"; "@disk/to/file.txt"; "p")': replaced("to/file.txt", NEW, content),
    'KORB_ExpandFile("@safe/new.zip"; "@disk/to/")': replaced("to/file.txt", NEW, content),
}


def prepare(disk, safe):
    for folder in (disk, safe):
        for item in folder.iterdir():
            shutil.rmtree(item) if item.is_dir() else item.unlink()
        (folder / "file.txt").write_bytes(NEW)
    (disk / "to").mkdir()
    (disk / "to/file.txt").write_bytes(OLD)
    with zipfile.ZipFile(disk / "to/old.zip", "w") as archive:
        archive.writestr("file.txt", OLD)
    with zipfile.ZipFile(safe / "new.zip", "w") as archive:
        archive.writestr("file.txt", NEW)
    for name, data in FOLDER.items():
        (safe / "folder" / name).parent.mkdir(parents=True)
        (safe / "folder" / name).write_bytes(data)
    assert evaluate(f'KORB_EncryptFile("{safe}/file.txt"; "{safe}/sealed.bin"; "p")')
    shell("sync", "--file-system", disk)


def main():
    surroundings.skip_without("ext4", "xfs")
    if "IN_NAMESPACE" not in os.environ:
        os.environ["IN_NAMESPACE"] = "yes"
        os.execvp("unshare", ["unshare", "-m", sys.executable, *sys.argv])
    scratch = pathlib.Path(tempfile.mkdtemp(prefix="folidex-"))
    safe = scratch / "safe"
    safe.mkdir()
    faults, done = [], 0
    try:
        shell("mount", "-t", "tmpfs", "tmpfs", safe)
        disks = [Disk("ext4", scratch), Disk("xfs", scratch)]
        for disk in disks:
            disk.mount()
        took = {}  # seconds that each call takes undisturbed
        # Each case on either disk, or else on one of them.
        trials = [(disk, *case) for case in CASES.items() for disk in disks]
        rounds = FULL_ROUNDS if IS_FULL else len(CASES)
        if not IS_FULL:
            trials = [trials[2 * number + PICK.randrange(2)] for number in range(len(CASES))]
        for number in range(-len(trials), rounds):
            disk, calculation, judge = trials[number % len(trials)]
            prepare(disk.place, safe)
            start = time.monotonic()
            call = subprocess.Popen([HOST, "--plugin", PLUGIN, "-e", calculation.replace("@disk", str(disk.place)).replace("@safe", str(safe))],
                                    stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
            if number < 0:
                call.wait()
                took[disk, calculation] = time.monotonic() - start
                continue
            # A fifth of them once the call has ended; the others somewhere within its work.
            moment = "after" if PICK.random() < 0.2 else PICK.random() * took[disk, calculation]
            if moment == "after":
                call.wait()
            else:
                time.sleep(moment)
            disk.crash()
            is_done = call.communicate()[0].strip() == b"0"
            done += is_done
            disk.mount_again()
            if wrong := judge(is_done, disk.place, safe):
                faults.append(f"{disk.place.name}, {calculation}, shut down {moment}, answered {0 if is_done else 'an error'}: {wrong}")
        for disk in disks:
            shell("umount", disk.place)
        shell("umount", safe)
    finally:
        shutil.rmtree(scratch, ignore_errors=True)
    print(f"sample: {rounds} of {FULL_ROUNDS} shut-downs")
    print(f"{rounds} shut-downs, {done} of them after an answer of 0: {len(faults)} faults")
    sys.exit("\n".join(faults) or 0)


main()
