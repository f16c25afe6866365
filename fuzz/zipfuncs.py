#!/usr/bin/env python3
"""Runs ZipFuncs.sh, as the plug-in does, on archives and encrypted files that were damaged at random.

    fuzz/zipfuncs.py SECONDS [--seed N]       case after case; the seed is printed
    fuzz/zipfuncs.py --seed N --case K        one of them again

A case depends on the seed and its number alone. It is a fault when

- the exit status isn't one of those that the input can have, or anything is printed, or a minute passes;
- a success brought a file whose content isn't that of a file that was packed;
- after a failure the destination isn't as it was;
- anything outside the destination changed, a temporary folder or a process is left.

Then the scratch folder is kept, the command that repeats the case is printed, and the exit status is 1.
"""

import argparse
import collections
import hashlib
import io
import os
import random
import shutil
import signal
import stat
import struct
import subprocess
import sys
import tempfile
import time
import warnings
import zipfile

ROOT = os.path.abspath(os.path.join(os.path.dirname(__file__), ".."))
SCRIPT = os.environ.get("FOLIDEX_ZIPFUNCS", ROOT + "/resources/ZipFuncs.sh")
SEEDS = ROOT + "/fuzz/corpus/zipfuncs"
PASSWORD = "pass word|é"  # of the seeds

DONE, WRONG_PASSWORD, WRONG_ARCHIVE_PASSWORD = 0, 1, 82
USAGE, DAMAGED, SOURCE, DESTINATION, NEEDS_PASSWORD = 64, 65, 66, 73, 77
LINK, FOLDER, DEVICE = 0o120777, 0o40755, 0o20666


class Fault(Exception):
    pass


def require(holds, what):
    if not holds:
        raise Fault(what)


class Scratch:
    """in/ the input, out/ the destination, which needn't exist, outside/ what nothing may touch, tmp/ for temporary files."""

    def __init__(self):
        self.base = tempfile.mkdtemp(prefix="fuzz-zipfuncs-")
        for name in ("in", "outside", "tmp"):
            os.mkdir(self.path(name))
        self.write("outside/victim", b"untouched")

    def path(self, *parts):
        return os.path.join(self.base, *parts)

    def write(self, name, data):
        os.makedirs(os.path.dirname(self.path(name)), exist_ok=True)
        with open(self.path(name), "wb") as file:
            file.write(data)

    def remove(self):
        subprocess.run(["chmod", "-R", "u+rwx", self.base], stderr=subprocess.DEVNULL, check=False)
        shutil.rmtree(self.base)

    def snapshot(self):
        """Path below the scratch folder → mode and content or link target of everything there."""
        found = {}
        for folder, folders, files in os.walk(self.base):
            for name in folders + files:
                path = os.path.join(folder, name)
                mode = os.lstat(path).st_mode
                content = None
                if stat.S_ISLNK(mode):
                    content = os.readlink(path)
                elif stat.S_ISREG(mode):
                    with open(path, "rb") as file:
                        content = hashlib.sha256(file.read()).hexdigest()
                found[os.path.relpath(path, self.base)] = (oct(mode), content)
        return found


def left_processes(session):
    left = []
    for entry in os.listdir("/proc"):
        if entry.isdigit():
            try:
                with open(f"/proc/{entry}/stat", "rb") as file:
                    fields = file.read().rpartition(b")")[2].split()
            except OSError:
                continue  # gone meanwhile
            if int(fields[3]) == session:
                left.append(int(entry))
    return left


def run_script(scratch, argument):
    """The exit status. The command is the one of the plug-in's bridge; a question would wait for the open standard input."""
    command = f"sh '{SCRIPT}' '{argument}'"
    process = subprocess.Popen(["/bin/sh", "-c", command], stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                               start_new_session=True, env={**os.environ, "TMPDIR": scratch.path("tmp")})
    try:
        output = process.communicate(timeout=60)[0]
    except subprocess.TimeoutExpired:
        os.killpg(process.pid, signal.SIGKILL)
        process.wait()
        raise Fault("it hangs") from None
    require(output == b"", f"it prints {output!r}")
    deadline = time.monotonic() + 2
    while left := left_processes(process.pid):
        require(time.monotonic() < deadline, f"processes are left: {left}")
        time.sleep(0.01)
    return process.returncode


def is_inside(name):
    return name == "out" or name.startswith("out/")


def run_checked(scratch, argument, allowed):
    """Runs the script and checks what holds for every verb; answers the status and what was there before and after."""
    before = scratch.snapshot()
    status = run_script(scratch, argument)
    after = scratch.snapshot()
    require(status in allowed, f"status {status}, not one of {sorted(allowed)}")
    for name in before.keys() | after.keys():
        same = before.get(name) == after.get(name)
        require(same or is_inside(name), f"changed outside of the destination: {name}")
        require(same or status == DONE, f"changed in spite of status {status}: {name}")
    require(not any("ZipFuncs" in name for name in after), "something temporary is left")
    return status, before, after


def digest(data):
    return hashlib.sha256(data).hexdigest()


# --- Inputs -----------------------------------------------------------------------------------------------------------

Archive = collections.namedtuple("Archive", "data contents links")  # contents: digests of what was packed


def made_archive(pick, scratch):
    """A zip with names, kinds and links that lead astray, or with none of them."""
    outside = scratch.path("outside")
    names = ["a", "b/c", "b/d/e", "b//f", "./g", "ünï", "x" * 100, "link", "link/new", "new\nline", "-C", "@a", "back\\slash", " "]
    hostile = ["../outside/victim", "..", "b/../../outside/new", outside + "/victim", "/" + outside + "/new", "..\\victim", "x" * 300]
    links = ["a", "b", "../outside", outside, outside + "/victim", "/etc/passwd", "nowhere"]
    contents, targets, made = set(), set(), io.BytesIO()
    with zipfile.ZipFile(made, "w") as archive:
        for _ in range(pick.randrange(6)):
            name = pick.choice(hostile if pick.random() < 0.1 else names)
            info = zipfile.ZipInfo(name, (2020, 2, 3, 4, 5, 6))
            info.create_system = 3
            info.compress_type = pick.choice([zipfile.ZIP_STORED, zipfile.ZIP_DEFLATED])
            kind = pick.choices([0o100644, LINK, FOLDER, DEVICE, pick.randrange(0x10000)], [12, 4, 2, 1, 1])[0]
            data = pick.choice(links).encode() if stat.S_ISLNK(kind) else pick.randbytes(pick.choice([0, 1, 20, 300]))
            info.external_attr = kind << 16
            contents.add(digest(data))
            targets.add(data)
            archive.writestr(info, b"" if kind == FOLDER else data)
        archive.comment = pick.randbytes(pick.choice([0, 0, 5]))
    return Archive(made.getvalue(), contents | {digest(b"")}, targets)


def mutated(pick, data, rounds):
    """Changed in `rounds` places, half of them where a zip has its headers."""
    data = bytearray(data)
    marks = [at for at in range(len(data) - 3) if data[at:at + 2] == b"PK" and data[at + 2] in (1, 3, 5, 6, 7)]

    def place():
        if marks and pick.random() < 0.5:
            return min(pick.choice(marks) + pick.randrange(50), len(data))
        return pick.randrange(len(data) + 1)

    for _ in range(rounds):
        at, size = place(), pick.choice([1, 2, 4, 8, 30])
        match pick.randrange(8):
            case 0:
                data[at:at + 1] = bytes([data[at] ^ 1 << pick.randrange(8)]) if at < len(data) else b"\0"
            case 1:
                data[at:at + 1] = pick.randbytes(1)
            case 2:
                form, values = pick.choice([("<H", (0, 1, 8, 99, 0xFFFF)), ("<I", (0, 1, 0x7FFFFFFF, 0xFFFFFFFF, len(data)))])
                number = struct.pack(form, pick.choice(values))
                data[at:at + len(number)] = number
            case 3:
                del data[at:at + size]
            case 4:
                data[at:at] = pick.randbytes(size)
            case 5:
                other = place()
                data[at:at + size] = data[other:other + size]
            case 6:
                del data[pick.choice([at, len(data) - size]):]
            case 7:
                data += data[at:] if pick.random() < 0.5 else pick.randbytes(size)
        marks = [mark for mark in marks if mark < len(data)]
    return bytes(data)


def seed_data(name):
    with open(os.path.join(SEEDS, name), "rb") as file:
        return file.read()


def occupy(pick, scratch):
    """The destination: missing, empty, or with things of its own, some in the way."""
    state = pick.randrange(4)
    if state > 0:
        os.mkdir(scratch.path("out"))
    if state > 1:
        scratch.write("out/mine", b"mine")
        scratch.write("out/b/mine", b"mine")
    if state > 2:
        os.symlink("../outside/victim", scratch.path("out/a"))
        os.symlink("../outside", scratch.path("out/" + pick.choice(["link", "text", "folder"])))


# --- Cases ------------------------------------------------------------------------------------------------------------


def check_expanded(before, after, archive):
    """Everything new is a folder, a link that was packed, or a file with a content that was packed."""
    for name in after.keys() - before.keys() | {name for name in after.keys() & before.keys() if after[name] != before[name]}:
        mode, content = int(after[name][0], 8), after[name][1]
        if stat.S_ISLNK(mode):
            pass  # bsdtar doesn't compare a link's target with its checksum
        elif stat.S_ISREG(mode):
            require(content in archive.contents, f"a content that wasn't packed: {name}")
        else:
            require(stat.S_ISDIR(mode), f"{name} is no file, folder or link")


def expand(pick, scratch, archive, password, rounds):
    scratch.write("in/a.zip", mutated(pick, archive.data, rounds))
    occupy(pick, scratch)
    given = pick.choice([password, password, "wrong", None])
    verb, last = ("unzip", "") if given is None else ("unzipdecrypt", "|" + given)
    argument = f"{verb}|{scratch.path('in')}/|{scratch.path('out')}/|a.zip|expand{last}"
    allowed = {DONE, DAMAGED, DESTINATION, NEEDS_PASSWORD if given is None else WRONG_ARCHIVE_PASSWORD}
    status, before, after = run_checked(scratch, argument, allowed)
    if status == DONE:
        check_expanded(before, after, archive)
    return status


def contents_of(name, password):
    """What a seed holds, by expanding it undamaged."""
    scratch = Scratch()
    try:
        scratch.write("in/a.zip", seed_data(name))
        verb, last = ("unzip", "") if password is None else ("unzipdecrypt", "|" + password)
        require(run_script(scratch, f"{verb}|{scratch.path('in')}/|{scratch.path('out')}/|a.zip|expand{last}") == DONE, f"bad seed {name}")
        found = [(int(mode, 8), content) for path, (mode, content) in scratch.snapshot().items() if path.startswith("out/")]
        links = {os.fsencode(content) for mode, content in found if stat.S_ISLNK(mode)}
        contents = {content for mode, content in found if stat.S_ISREG(mode)}
        require(links and len(contents) > 1, f"bad seed {name}")
        return Archive(seed_data(name), contents | {digest(b"")} | {digest(link) for link in links}, links)
    finally:
        scratch.remove()


def expand_made(pick, scratch):
    return expand(pick, scratch, made_archive(pick, scratch), "any", pick.choice([0, 0, 0, 1, 2]))


def expand_seed(pick, scratch, known={}):  # the seeds are expanded once
    name, password = pick.choice([("plain.zip", None), ("encrypted.zip", PASSWORD)])
    archive = known[name] if name in known else known.setdefault(name, contents_of(name, password))
    return expand(pick, scratch, archive, password or "any", pick.choice([0, 1, 1, 1, 2, 3, 8]))


def expand_other_format(pick, scratch):
    data = mutated(pick, seed_data(pick.choice(["plain.tar", "text.encrypted"])), pick.choice([0, 1, 3]))
    data = pick.choice([b"", b"PK\3\4", b"#mtree\n"]) + data
    archive = Archive(data, set(), set())
    scratch.write("in/a.zip", archive.data)
    occupy(pick, scratch)
    argument = f"unzip|{scratch.path('in')}/|{scratch.path('out')}/|a.zip|expand"
    return run_checked(scratch, argument, {DAMAGED})[0]


def decrypt(pick, scratch):
    """The status is known beforehand: every byte is either checked or authenticated."""
    seed = seed_data("text.encrypted")
    # Deriving the keys is what takes time; most of the header is judged before.
    data = mutated(pick, seed, pick.choice([0, 1, 1, 2]))
    password = pick.choice([PASSWORD, PASSWORD, "wrong"])
    if len(data) < 80 or data[:8] != seed[:8]:
        expected = DAMAGED
    elif password == "wrong" or data[8:32] != seed[8:32]:
        expected = WRONG_PASSWORD
    else:
        expected = DONE if data == seed else DAMAGED
    scratch.write("in/text", data)
    scratch.write("out/old", b"old")
    target = pick.choice(["old", "new"])
    argument = f"decrypt|{scratch.path('in')}/|{scratch.path('out')}/|text|{target}|{password}"
    status, _, after = run_checked(scratch, argument, {expected})
    if status == DONE:
        require(after["out/" + target][1] == digest(seed_data("text")), "the content differs")
    return status


def pack(pick, scratch):
    """What is packed or encrypted comes back."""
    odd = ["a", ".b", "-C", "@x", "c:d", "back\\slash", "\\lead", "star*?[x]", "new\nline", " ", "ünï–日", "$HOME", "`x`", "#", "%s"]
    name = pick.choice(odd)
    data = pick.randbytes(pick.choice([0, 1, 15, 16, 17, 5000]))
    password = pick.choice(["p", " ", "|", "é|\"$x", "-", "\\0", "x" * 500])
    verb = pick.choice(["zip", "zipencrypt", "encrypt"])
    last = "" if verb == "zip" else "|" + password
    if verb != "encrypt" and pick.random() < 0.5:
        for entry in pick.sample(odd, 3):
            scratch.write(f"in/{name}/{entry}", data)
    else:
        scratch.write("in/" + name, data)
    packed = scratch.path("out")
    os.mkdir(packed)
    argument = f"{verb}|{scratch.path('in')}/|{packed}/|{name}|packed.x{last}"
    before = run_checked(scratch, argument, {DONE})[1]

    back = {"zip": f"unzip|{packed}/|{packed}/back/|packed.x|expand",
            "zipencrypt": f"unzipdecrypt|{packed}/|{packed}/back/|packed.x|expand|{password}",
            "encrypt": f"decrypt|{packed}/|{packed}/back/|packed.x|{name}|{password}"}[verb]
    if verb == "encrypt":
        os.mkdir(scratch.path("out/back"))
    status, _, after = run_checked(scratch, back, {DONE})
    original = {path[3:]: entry for path, entry in before.items() if path.startswith("in/")}
    require({path[9:]: entry for path, entry in after.items() if path.startswith("out/back/")} == original, "it comes back changed")
    return status


def refuse(pick, scratch):
    """Fields that are too few, too many, empty or no names."""
    scratch.write("in/a.zip", seed_data("plain.zip"))
    os.mkdir(scratch.path("out"))
    names = ["a.zip", "", ".", "..", "b/c", "none", "\n", "*", "expand"]
    verb = pick.choice(["zip", "unzip", "zipencrypt", "unzipdecrypt", "encrypt", "decrypt", "", "tar", "-zip", "zip "])
    fields = [verb,
              pick.choice([scratch.path("in") + "/", scratch.path("in") + "/", scratch.path("in"), "", "in/", scratch.path("none") + "/"]),
              pick.choice([scratch.path("out") + "/", scratch.path("out/none") + "/", "", "out/"]),
              pick.choice(names), pick.choice(["expand", *names]), "p"]
    count = (5 if verb in ("zip", "unzip") else 6) if pick.random() < 0.7 else pick.randrange(1, 7)
    argument = "|".join(fields[:count])
    return run_checked(scratch, argument, {DONE, WRONG_ARCHIVE_PASSWORD, USAGE, DAMAGED, SOURCE, DESTINATION})[0]


CASES = {expand_made: 8, expand_seed: 10, expand_other_format: 2, decrypt: 5, pack: 2, refuse: 2}


def run_case(seed, number):
    """The case's name and status."""
    pick = random.Random(f"{seed}:{number}")
    case = pick.choices(list(CASES), list(CASES.values()))[0]
    scratch = Scratch()
    try:
        status = case(pick, scratch)
    except Fault as fault:
        print(f"case {number}, {case.__name__}: {fault}\nkept: {scratch.base}\n"
              f"again: fuzz/zipfuncs.py --seed {seed} --case {number}", flush=True)
        sys.exit(1)
    scratch.remove()
    return case.__name__, status


def main():
    warnings.filterwarnings("ignore", "Duplicate name")
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("seconds", nargs="?", type=float, default=10)
    parser.add_argument("--seed", type=int, default=random.SystemRandom().randrange(1 << 32))
    parser.add_argument("--case", type=int)
    arguments = parser.parse_args()
    if arguments.case is not None:
        print(*run_case(arguments.seed, arguments.case))
        return
    print("seed", arguments.seed, flush=True)
    begin, statuses, number = time.monotonic(), collections.Counter(), 0
    while time.monotonic() < begin + arguments.seconds:
        statuses[run_case(arguments.seed, number)] += 1
        number += 1
    for (case, status), count in sorted(statuses.items()):
        print(f"{case}, status {status}: {count}")
    print("stat::number_of_executed_units:", number)


if __name__ == "__main__":
    main()
