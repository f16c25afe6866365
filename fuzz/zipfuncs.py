#!/usr/bin/env python3
"""Runs ZipFuncs.sh, as the plug-in does, on archives and encrypted files that were damaged at random.

    fuzz/zipfuncs.py SECONDS [--seed N]       case after case; the seed is printed
    fuzz/zipfuncs.py --seed N --case K        one of them again

A case depends on the seed and its number alone. It is a fault when the exit status isn't one that the input can have,
anything is printed, a success brings a file whose content wasn't packed, or a failure changes anything. Then the exit
status is 1, and the command that repeats the case is printed.
"""

import argparse
import os
import random
import stat
import sys
import time
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
sys.path.insert(0, str(ROOT / "tests/archive"))
import script_test  # noqa: E402

PASSWORD = "pass word|é"  # of the seeds
SEEDS = {path.name: path.read_bytes() for path in (ROOT / "fuzz/corpus/zipfuncs").iterdir()}


def mutated(pick, data):
    """Changed in up to three places, half of them where a zip has its headers."""
    data = bytearray(data)
    marks = [at for at in range(len(data) - 3) if data[at:at + 2] == b"PK"] or [0]
    for _ in range(pick.choice([0, 1, 1, 2, 3])):
        at = pick.choice([pick.choice(marks) + pick.randrange(50), pick.randrange(len(data) + 1)])
        size = pick.choice([1, 2, 4, 30])
        data[at:at + pick.choice([0, size, size, len(data)])] = pick.choice([b"", pick.randbytes(size), b"\xff" * size, bytes(size)])
    return bytes(data)


def contents(scratch):
    return {content for mode, content, _ in scratch.tree("out").values() if stat.S_ISREG(mode)}


def case(seed, number):
    scratch, pick = script_test.ScratchCase(), random.Random(f"{seed} {number}")
    scratch.setUp()
    try:
        name = pick.choice(["plain.zip", "encrypted.zip", "plain.tar", "text.encrypted"])
        password = pick.choice([PASSWORD, "wrong", None if name != "text.encrypted" else PASSWORD])
        os.makedirs(scratch.path("out"))
        decrypts = name == "text.encrypted"
        verb = "decrypt" if decrypts else "unzipdecrypt" if password else "unzip"
        scratch.write("in", SEEDS[name])
        scratch.run_verb(verb, "in", "out/new", PASSWORD if password else None, expect=(0, 65, 77))
        packed = contents(scratch) | {b""}
        before = scratch.tree() if pick.random() < 0.5 else (os.system(f"rm -rf {scratch.base}/out/*"), scratch.tree())[1]
        scratch.write("in", mutated(pick, SEEDS[name]))
        before["in"] = scratch.tree()["in"]
        status = scratch.run_verb(verb, "in", "out/new", password, expect=(0, 1, 65) if decrypts else (0, 65, 69, 73, 77, 82))
        if status:
            scratch.assertEqual(scratch.tree(), before)
        elif name != "encrypted.zip":
            scratch.assertLessEqual(contents(scratch), packed)
        return status
    finally:
        scratch.doCleanups()


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("seconds", nargs="?", type=float, default=0)
    parser.add_argument("--seed", type=int, default=random.randrange(10**6))
    parser.add_argument("--case", type=int)
    options = parser.parse_args()
    number, end = options.case or 0, time.monotonic() + options.seconds
    print(f"seed {options.seed}")
    while True:
        try:
            print(f"case {number}: status {case(options.seed, number)}", flush=True)
        except AssertionError as fault:
            sys.exit(f"{fault}\nagain: fuzz/zipfuncs.py --seed {options.seed} --case {number}")
        number += 1
        if options.case is not None or time.monotonic() > end:
            print(f"stat::number_of_executed_units: {number - (options.case or 0)}")  # as libFuzzer says it
            return


if __name__ == "__main__":
    main()
