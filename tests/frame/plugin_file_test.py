"""What a server's administrator expects of the plug-in as a file, beside the rules that fmxhost check knows."""

import json
import os
import re
import subprocess
import sys
import tempfile
import unittest

PLUGIN, SOURCE, BUILD_TYPE, PROCESSOR, STRIP = sys.argv[1:6]


def output(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


class PluginFile(unittest.TestCase):
    def test_asks_the_sdk_for_documented_names_only(self):
        kit = os.path.join(SOURCE, "fmx", "include")
        declared = set()
        for name in os.listdir(kit):
            with open(os.path.join(kit, name), encoding="utf-8") as header:
                declared |= set(re.findall(r"\bFM_\w+", header.read()))
        undefined = set(re.findall(r"\bU (FM_\w+)", output("nm", "-D", "--undefined-only", PLUGIN)))
        self.assertGreater(len(undefined), 20)
        self.assertEqual(undefined - declared, set())

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
