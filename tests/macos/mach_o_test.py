"""Everything that a Mac compiles of C++ compiles to Mach-O objects, what is under __APPLE__ too.

Apple's own headers aren't there: the C library's come from musl, without its extensions, the C++ library's from libc++,
which is Apple's too; headers/ has stand-ins for what else is used of the SDK.

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
CPU_TYPES = {"x86_64": 0x01000007, "arm64": 0x0100000C}  # mach/machine.h
MH_MAGIC_64, MH_OBJECT = 0xFEEDFACF, 1  # mach-o/loader.h

PLUGIN = ["platform", "frame", "log", "queries", "operations", "archive"]
ALL = [*PLUGIN, "fmx", "host"]
LINUX_ONLY = ("platform/linux/*", "*_linux.cpp", "*_gnustep.cpp")
TESTS_OF_LINUX_ONLY = ("tests/desktop/*", "tests/faults/*", "tests/stress/*", "tests/platform/desktop_test.cpp",
                       "tests/platform/linux_file_changes_test.cpp", "tests/platform/mount_filter_test.cpp",
                       "tests/platform/opener_test.cpp", "tests/operations/choosers_test.cpp")

resources = Path(subprocess.run([COMPILER, "-print-resource-dir"], capture_output=True, text=True, check=True).stdout.strip())
LIBCXX = resources.parents[2] / "include/c++/v1"
MUSL = Path("/usr/include") / (subprocess.run(["uname", "-m"], capture_output=True, text=True).stdout.strip() + "-linux-musl")

# Libraries' headers without the C library's beside them. Of ICU those that macOS's SDK has.
ICU = [f"unicode/{name}.h" for name in (
    "localpointer parseerr platform ptypes putil stringoptions uchar ucpmap uconfig uiter umachine urename uset ustring utext "
    "utf utf16 utf8 utf_old utypes uvernum uversion").split()]
LIBRARIES = ["CLI", "expat.h", "expat_external.h", "gtest", "histedit.h", "nlohmann", *ICU]
NOT_ON_MACOS = ["byteswap.h", "elf.h", "link.h", "malloc.h", "mntent.h", "sys/epoll.h", "sys/eventfd.h",
                "sys/inotify.h", "sys/prctl.h", "sys/sendfile.h", "sys/statfs.h", "sys/sysmacros.h", "sys/vfs.h"]
# What CMake passes as macros, by any value.
TEXTS = ["FMXHOST_DEFAULT_PLUGIN", "FMXHOST_PLUGIN_NAME", "FMXHOST_VERSION", "FOLIDEX_PLUGIN_FILE", "KIT_CASES",
         "RESOURCES_FOLDER", "SAMPLE_PLUGINS"]


def sources(rooms, excluded):
    found = [file.relative_to(SOURCE) for room in rooms for file in sorted((SOURCE / room).rglob("*.cpp"))]
    return [file for file in found if not any(file.match(pattern) for pattern in excluded)]


class MachO(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(folder.cleanup)
        cls.folder = Path(folder.name)
        for name in LIBRARIES:
            link = cls.folder / "libraries" / name
            link.parent.mkdir(parents=True, exist_ok=True)
            link.symlink_to(Path("/usr/include") / name)
        for name in NOT_ON_MACOS:
            header = cls.folder / "missing" / name
            header.parent.mkdir(parents=True, exist_ok=True)
            header.write_text("#error this header isn't on macOS\n")
        # The vendor's SDK is a framework, whose headers have its name before them.
        (cls.folder / "framework").mkdir()
        (cls.folder / "framework/FMWrapper").symlink_to(SOURCE / "fmx/include")

    def compile(self, architecture, files, *options, kit=("fmx/include", "fmx/hosting")):
        """Answers the objects; a file that doesn't compile fails the test."""
        system = [self.folder / "missing", SOURCE / "tests/macos/headers", LIBCXX, resources / "include", MUSL,
                  self.folder / "libraries"]
        command = [COMPILER, f"--target={architecture}-apple-macos13", "-std=c++20", "-stdlib=libc++", "-nostdinc",
                   *(word for folder in system for word in ("-isystem", folder)),
                   "-D_LIBCPP_HAS_MUSL_LIBC", "-D_BSD_SOURCE", "-D_XOPEN_SOURCE=700",
                   "-DU_DISABLE_RENAMING=1", "-DUCHAR_TYPE=char16_t", *(f'-D{name}=""' for name in TEXTS),
                   *(f"-I{folder}" for folder in (".", "tests", *kit)),
                   "-Wall", "-Wextra", "-Wpedantic", "-Wshadow", "-Wconversion", "-Wsign-conversion", "-Wold-style-cast",
                   "-Wnon-virtual-dtor", "-Woverloaded-virtual", "-Wformat=2", "-Wundef", "-Werror"]

        def compile_one(file):
            target = self.folder / f"{architecture}-{str(file).replace('/', '-')}.o"
            result = subprocess.run([*command, *options, "-c", file, "-o", target], capture_output=True, text=True, cwd=SOURCE)
            return file, target, result

        with ThreadPoolExecutor(2) as pool:
            for file, target, result in pool.map(compile_one, files):
                with self.subTest(f"{architecture} {file}"):
                    self.assertEqual(result.returncode, 0, result.stderr)
                    yield target

    def check_objects(self, architecture, files):
        for target in self.compile(architecture, files):
            magic, found, _, kind = struct.unpack("<4I", target.read_bytes()[:16])
            self.assertEqual((magic, found, kind), (MH_MAGIC_64, CPU_TYPES[architecture], MH_OBJECT))

    def test_everything_compiles(self):
        files = sources(ALL, LINUX_ONLY)
        self.assertGreater(len(files), 80)
        self.assertIn(Path("platform/macos/bundle.cpp"), files)
        self.check_objects("arm64", files)

    # Of fmxhost's what knows the machine or the system; the rest takes too long to be compiled twice.
    def test_the_plug_in_compiles_for_both_architectures(self):
        host = [file for file in sources(["host"], LINUX_ONLY)
                if file.match("*_macos.cpp") or "__APPLE__" in (SOURCE / file).read_text() or file.match("*_mach_o.cpp")]
        self.assertGreater(len(host), 2)
        self.check_objects("x86_64", sources([*PLUGIN, "fmx"], LINUX_ONLY) + host)

    def test_the_tests_compile(self):
        files = sources(["tests"], TESTS_OF_LINUX_ONLY)
        self.assertGreater(len(files), 40)
        list(self.compile("arm64", files, "-fsyntax-only"))

    def test_the_plug_in_compiles_against_a_framework(self):
        files = sources(["frame"], ())
        list(self.compile("arm64", files, "-fsyntax-only", kit=[self.folder / "framework"]))


if __name__ == "__main__":
    if not (LIBCXX / "string").exists() or not (MUSL / "stdlib.h").exists():
        print(f"missing: {LIBCXX} or {MUSL}", file=sys.stderr)
        sys.exit(77)
    unittest.main(argv=sys.argv[:1], verbosity=2)
