"""fmxhost's reader of Mach-O files on files made by a linker for macOS: of one architecture, of several, damaged ones.

Called as: mach_o_reader_test.py READER CLANG++; exit status 77 without ld64.lld.
"""

import platform
import random
import shutil
import struct
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

READER, COMPILER = sys.argv[1:3]
LINKER = shutil.which("ld64.lld") or shutil.which("ld64.lld-14")
NATIVE = "arm64" if platform.machine() in ("aarch64", "arm64") else "x86_64"
FOREIGN = {"arm64": "x86_64", "x86_64": "arm64"}[NATIVE]
CPU_TYPES = {"x86_64": 0x01000007, "arm64": 0x0100000C}  # mach/machine.h

SOURCE = """
extern "C" {
void FMX_Needed();
__attribute__((visibility("default"))) void FMExternCallProc() { FMX_Needed(); }
__attribute__((visibility("default"))) void FMExternOther() {}
__attribute__((visibility("default"))) int other = 1;
__attribute__((visibility("hidden"))) void hidden() {}
}
"""
# What a linker takes in the place of a library (LLVM, "TextAPI").
STUB = """--- !tapi-tbd
tbd-version: 4
targets: [ x86_64-macos, arm64-macos ]
install-name: '%s'
exports:
  - targets: [ x86_64-macos, arm64-macos ]
    symbols: [ %s ]
...
"""


class Reader(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(folder.cleanup)
        cls.folder = Path(folder.name)
        (cls.folder / "plugin.cpp").write_text(SOURCE)
        (cls.folder / "kit.tbd").write_text(STUB % ("@rpath/libFMWrapper.dylib", "_FMX_Needed"))
        (cls.folder / "system.tbd").write_text(STUB % ("/usr/lib/libSystem.B.dylib", "dyld_stub_binder"))
        (cls.folder / "exports.txt").write_text("_FMExternCallProc\n")

    def link(self, architecture, *options):
        file = self.folder / f"{architecture}-{len(options)}"
        for command in (
            [COMPILER, f"--target={architecture}-apple-macos13", "-nostdinc", "-c", "plugin.cpp", "-o", "plugin.o"],
            [LINKER, "-arch", architecture, "-platform_version", "macos", "13.0", "13.0", "-bundle", "-o", file, "plugin.o",
             "kit.tbd", "system.tbd", "-rpath", "@executable_path/../Frameworks", *options],
        ):
            subprocess.run(command, cwd=self.folder, check=True, capture_output=True)
        return file.read_bytes()

    def read(self, content):
        file = self.folder / "file"
        file.write_bytes(content)
        result = subprocess.run([READER, file], capture_output=True, text=True, errors="replace", timeout=60)
        self.assertEqual((result.returncode, result.stderr), (0, ""))
        return result.stdout.splitlines()

    OTHERS = ["needs @rpath/libFMWrapper.dylib", "needs /usr/lib/libSystem.B.dylib", "searches @executable_path/../Frameworks"]

    def test_exports_needs_and_folders(self):
        found = self.read(self.link(NATIVE))
        self.assertEqual(sorted(found[:3]), ["exports FMExternCallProc", "exports FMExternOther", "exports other"])
        self.assertEqual(found[3:], self.OTHERS)
        self.assertEqual(self.read(self.link(NATIVE, "-exported_symbols_list", "exports.txt")),
                         ["exports FMExternCallProc", *self.OTHERS])

    def test_of_several_architectures_this_machines_is_read(self):
        slices = {architecture: self.link(architecture) for architecture in (FOREIGN, NATIVE)}
        both = self.fat(slices)
        self.assertEqual(self.read(both), self.read(slices[NATIVE]))
        self.assertEqual(self.read(slices[FOREIGN]), ["error it is made for another kind of machine"])
        self.assertEqual(self.read(self.fat({FOREIGN: slices[FOREIGN]})), ["error it is made for other kinds of machines"])

    @staticmethod
    def fat(slices):
        head, body = struct.pack(">2I", 0xCAFEBABE, len(slices)), b""  # mach-o/fat.h
        for architecture, content in slices.items():
            offset = 0x4000 + len(body)
            head += struct.pack(">5I", CPU_TYPES[architecture], 0, offset, len(content), 14)
            body += content + bytes(-len(content) % 0x4000)
        return head.ljust(0x4000, b"\0") + body

    def test_other_files_are_refused(self):
        executable = bytearray(self.link(NATIVE))
        executable[12] = 2  # MH_EXECUTE
        for content, words in ((b"", "it ends before"), (b"text " * 20, "it is no Mach-O file"),
                               (bytes(executable), "it is no library"),
                               (self.endless(), "a load command without an end"), (self.link(NATIVE)[:100], "it ends before")):
            self.assertIn(words, self.read(content)[0])

    def endless(self):
        header = list(struct.unpack("<8I", self.link(NATIVE)[:32]))
        header[4] = 0xFFFFFFFF  # the number of commands
        return struct.pack("<8I", *header) + bytes(1000)

    # A file may claim anything. Reading it ends in an answer or an error, never outside of the file.
    def test_damaged_ones_are_read_to_an_end(self):
        good = self.link(NATIVE)
        chance = random.Random(20261124)
        errors = 0
        for _ in range(150):
            damaged = bytearray(good)
            for _ in range(4):
                damaged[chance.randrange(32, 1200)] = chance.randrange(256)
            damaged[chance.randrange(len(good) - 400, len(good))] = chance.randrange(256)
            errors += self.read(bytes(damaged))[:1] != self.read(good)[:1]
        self.assertGreater(errors, 5)


if __name__ == "__main__":
    if LINKER is None:
        print("missing: ld64.lld", file=sys.stderr)
        sys.exit(77)
    unittest.main(argv=sys.argv[:1], verbosity=2)
