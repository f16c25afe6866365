"""The Objective-C++ files compile under automatic reference counting, which is how they are built on a Mac, with what they
have for GNUstep and with what they have for Apple's frameworks; those are GNUstep's headers with a few declarations more.

Called as: arc_test.py SOURCE-FOLDER CLANG++ GNUSTEP-INCLUDE-FOLDER
"""

import subprocess
import sys
import unittest
from pathlib import Path

SOURCE, COMPILER, GNUSTEP = Path(sys.argv[1]), sys.argv[2], sys.argv[3]
HERE = Path(__file__).parent


GNUSTEP_BUILD = ["-DGNUSTEP"]
APPLE_BUILD = ["-include", str(HERE / "arc/apple/declarations.h"), "-isystem", str(HERE / "arc/apple")]


def compile_with_arc(*arguments, source=None):
    gcc_headers = subprocess.run(["gcc", "-print-file-name=include"], capture_output=True, text=True, check=True)
    # Checked only: GNUstep's libraries on Debian have no run-time library that could run it.
    command = [COMPILER, "-fsyntax-only", "-fobjc-arc", "-fobjc-runtime=gnustep-2.0", "-std=c++20", "-x",
               "objective-c++", "-fexceptions", "-fobjc-exceptions", "-fconstant-string-class=NSConstantString",
               "-Wall", "-Wextra", "-Warc-retain-cycles", "-Wshadow", "-Wconversion", "-Werror",
               "-isystem", str(HERE / "arc"), "-isystem", GNUSTEP, "-idirafter", gcc_headers.stdout.strip(),
               "-DGNUSTEP_BASE_LIBRARY=1", "-DGNU_GUI_LIBRARY=1", "-D_NATIVE_OBJC_EXCEPTIONS",
               "-I", str(SOURCE), *arguments]
    return subprocess.run(command, input=source, capture_output=True, text=True)


class Arc(unittest.TestCase):
    def test_every_file_compiles(self):
        files = sorted((SOURCE / "platform/macos").glob("*.mm"))
        self.assertGreater(len(files), 5)
        for build in (GNUSTEP_BUILD, APPLE_BUILD):
            for file in files:
                with self.subTest(f"{file.name} {build[0]}"):
                    result = compile_with_arc(*build, str(file))
                    self.assertEqual(result.returncode, 0, result.stderr)

    def test_the_check_sees_a_release(self):
        result = compile_with_arc(*GNUSTEP_BUILD, "-", source="#import <Foundation/Foundation.h>\nvoid f(id x) { [x release]; }\n")
        self.assertIn("ARC forbids", result.stderr)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
