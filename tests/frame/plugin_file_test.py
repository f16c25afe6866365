"""What a server's administrator and FileMaker expect of the plug-in as a file."""

import json
import os
import re
import subprocess
import sys
import tempfile
import unittest

PLUGIN, SOURCE, BUILD_TYPE, PROCESSOR, STRIP = sys.argv[1:6]

# The library that FileMaker Server supplies, the C and C++ run-times, and what every Debian and Ubuntu has because
# its packages are essential or required: util-linux's and coreutils' own libraries.
SERVER_LIBRARIES = {
    "libFMWrapper.so", "libc.so.6", "libm.so.6", "libstdc++.so.6", "libgcc_s.so.1",
    "libmount.so.1", "libblkid.so.1", "libacl.so.1", "libattr.so.1",
    "ld-linux-x86-64.so.2", "ld-linux-aarch64.so.1",
}


def output(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


class PluginFile(unittest.TestCase):
    def test_exports_the_entry_point_alone(self):
        symbols = [line.split()[-1] for line in output("nm", "-D", "--defined-only", PLUGIN).splitlines()]
        self.assertEqual(symbols, ["FMExternCallProc"])

    def test_asks_the_sdk_for_documented_names_only(self):
        kit = os.path.join(SOURCE, "fmx", "include")
        declared = set()
        for name in os.listdir(kit):
            with open(os.path.join(kit, name), encoding="utf-8") as header:
                declared |= set(re.findall(r"\bFM_\w+", header.read()))
        undefined = set(re.findall(r"\bU (FM_\w+)", output("nm", "-D", "--undefined-only", PLUGIN)))
        self.assertGreater(len(undefined), 20)
        self.assertEqual(undefined - declared, set())

    def test_needs_only_what_a_server_has(self):
        dynamic = output("readelf", "-d", PLUGIN)
        needed = set(re.findall(r"\(NEEDED\).*\[(.+)\]", dynamic))
        self.assertEqual(needed - SERVER_LIBRARIES, set())
        self.assertIn("libFMWrapper.so", needed)
        # Where the server has FileMaker's library, and nowhere else.
        self.assertEqual(re.findall(r"\((?:RPATH|RUNPATH)\).*\[(.*)\]", dynamic), ["/opt/FileMaker/lib"])

    # Ubuntu 22.04, the oldest server system, has glibc 2.35 and GCC 12's libstdc++.
    def test_runs_on_the_oldest_server_system(self):
        versions = output("objdump", "-T", PLUGIN)
        newest = {"GLIBC": (2, 35), "GLIBCXX": (3, 4, 30), "CXXABI": (1, 3, 13)}
        for family, limit in newest.items():
            for version in re.findall(rf"\({family}_([\d.]+)\)", versions):
                self.assertLessEqual(tuple(map(int, version.split("."))), limit, f"{family}_{version}")

    def test_is_hardened(self):
        segments = output("readelf", "-lW", PLUGIN)
        self.assertIn("GNU_RELRO", segments)
        self.assertRegex(segments, r"GNU_STACK.* RW +0x")
        self.assertRegex(output("readelf", "-d", PLUGIN), r"BIND_NOW|FLAGS_1.*NOW")
        self.assertIn("__stack_chk_fail", output("nm", "-D", "--undefined-only", PLUGIN))

    # Neither need leave a trace in the file: a fortified call doesn't where the compiler can prove the bound, and the
    # linker drops the control-flow mark where the system's own start files lack it, as Debian's do.
    @unittest.skipUnless(BUILD_TYPE == "Release", "only optimised code is fortified")
    def test_is_compiled_with_fortified_calls_and_control_flow_protection(self):
        with open(os.path.join(os.path.dirname(PLUGIN), "compile_commands.json"), encoding="utf-8") as file:
            rooms = [entry["command"] for entry in json.load(file) if "folidex_core.dir" in entry["command"]]
        self.assertGreater(len(rooms), 20)
        flags = ["-D_FORTIFY_SOURCE=2", "-fstack-protector-strong"]
        flags += {"x86_64": ["-fcf-protection"], "aarch64": ["-mbranch-protection=standard"]}.get(PROCESSOR, [])
        self.assertEqual([command for command in rooms if not all(flag in command for flag in flags)], [])

    @unittest.skipUnless(BUILD_TYPE == "Release", "the limits are for what is shipped")
    def test_is_light(self):
        with tempfile.NamedTemporaryFile() as stripped:
            subprocess.run([STRIP, "-o", stripped.name, PLUGIN], check=True)
            self.assertLess(os.path.getsize(stripped.name), 1.5 * 1024 * 1024)

    def test_says_nothing_of_the_build_folder(self):
        with open(PLUGIN, "rb") as file:
            content = file.read()
        for folder in {SOURCE, os.path.dirname(PLUGIN)}:
            self.assertFalse(os.fsencode(folder) in content, folder)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
