"""The portable sources compile to Mach-O objects for both architectures, with the C++ library that a Mac has.

Apple's own headers aren't there: the C library's come from musl, so this says nothing of what is under __APPLE__.

Called as: mach_o_test.py SOURCE-FOLDER CLANG++; exit status 77 where the headers are missing.
"""

import struct
import subprocess
import sys
import tempfile
import unittest
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

SOURCE, COMPILER = Path(sys.argv[1]), sys.argv[2]
ROOMS = ["platform", "frame", "log", "queries", "operations", "archive"]
CPU_TYPES = {"x86_64": 0x01000007, "arm64": 0x0100000C}  # mach/machine.h
MH_MAGIC_64, MH_OBJECT = 0xFEEDFACF, 1  # mach-o/loader.h

resources = Path(subprocess.run([COMPILER, "-print-resource-dir"], capture_output=True, text=True, check=True).stdout.strip())
LIBCXX = resources.parents[2] / "include/c++/v1"
MUSL = Path("/usr/include") / (subprocess.run(["uname", "-m"], capture_output=True, text=True).stdout.strip() + "-linux-musl")


def compile_for(architecture, file, target):
    command = [COMPILER, f"--target={architecture}-apple-macos13", "-std=c++20", "-stdlib=libc++", "-nostdinc",
               "-isystem", LIBCXX, "-isystem", resources / "include", "-isystem", MUSL, "-U__APPLE__", "-D__linux__",
               "-D_LIBCPP_HAS_MUSL_LIBC", "-D_GNU_SOURCE", "-I", SOURCE, "-I", SOURCE / "fmx/include",
               "-Wall", "-Wextra", "-Wshadow", "-Wconversion", "-Wsign-conversion", "-Wold-style-cast", "-Werror",
               "-c", "-o", target, file]
    return subprocess.run(command, capture_output=True, text=True)


class MachO(unittest.TestCase):
    def test_the_rooms_compile(self):
        files = [file for room in ROOMS for file in sorted((SOURCE / room).glob("*.cpp"))]
        self.assertGreater(len(files), 20)
        with tempfile.TemporaryDirectory() as folder, ThreadPoolExecutor(2) as pool:
            for architecture, cpu_type in CPU_TYPES.items():
                targets = [Path(folder) / f"{architecture}-{file.parent.name}-{file.stem}.o" for file in files]
                results = pool.map(compile_for, [architecture] * len(files), files, targets)
                for file, target, result in zip(files, targets, results):
                    with self.subTest(f"{architecture} {file.relative_to(SOURCE)}"):
                        self.assertEqual(result.returncode, 0, result.stderr)
                        magic, found, _, kind = struct.unpack("<4I", target.read_bytes()[:16])
                        self.assertEqual((magic, found, kind), (MH_MAGIC_64, cpu_type, MH_OBJECT))


if __name__ == "__main__":
    if not (LIBCXX / "string").exists() or not (MUSL / "stdlib.h").exists():
        print(f"missing: {LIBCXX} or {MUSL}", file=sys.stderr)
        sys.exit(77)
    unittest.main(argv=sys.argv[:1], verbosity=2)
