"""The bundle as cmake --install makes it: layout, Info.plist, and the plug-in in it at work.

Called as: bundle_test.py CMAKE BUILD-FOLDER SOURCE-FOLDER FMXHOST VERSION
"""

import json
import os
import plistlib
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path
from urllib.parse import unquote, urlsplit

CMAKE, BUILD, SOURCE, FMXHOST, VERSION = sys.argv[1:6]
RESOURCES = Path(SOURCE) / "resources"


class Bundle(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.root = tempfile.TemporaryDirectory()
        cls.addClassCleanup(cls.root.cleanup)
        subprocess.run([CMAKE, "--install", BUILD, "--component", "plugin"], check=True, stdout=subprocess.DEVNULL,
                       env={**os.environ, "DESTDIR": cls.root.name})
        cls.bundle = next(Path(cls.root.name).rglob("Folidex.fmplugin"))

    def test_layout(self):
        found = {str(file.relative_to(self.bundle)) for file in self.bundle.rglob("*") if file.is_file()}
        tables = {str(file.relative_to(RESOURCES)) for file in RESOURCES.glob("*.lproj/KORBFolidex.strings")}
        self.assertIn("en.lproj/KORBFolidex.strings", tables)
        resources = {"Contents/Resources/" + file for file in tables | {"ZipFuncs.sh"}}
        found.discard("Contents/_CodeSignature/CodeResources")
        self.assertEqual(found, resources | {"Contents/Info.plist", "Contents/MacOS/Folidex", "Contents/Resources/functions.html"})
        for file in resources:
            name = file.removeprefix("Contents/Resources/")
            self.assertEqual((self.bundle / file).read_bytes(), (RESOURCES / name).read_bytes(), name)
        self.assertTrue(os.access(self.bundle / "Contents/MacOS/Folidex", os.X_OK))

    def test_information(self):
        information = plistlib.loads((self.bundle / "Contents/Info.plist").read_bytes())
        self.assertEqual(information["CFBundleExecutable"], "Folidex")
        self.assertRegex(information["CFBundleIdentifier"], r"^[A-Za-z0-9.-]+$")
        self.assertEqual(information["CFBundlePackageType"], "BNDL")
        self.assertEqual(information["CFBundleShortVersionString"], VERSION)
        self.assertEqual(information["CFBundleVersion"], VERSION)
        self.assertEqual(information["LSMinimumSystemVersion"], "13.0")
        languages = sorted(folder.stem for folder in (self.bundle / "Contents/Resources").glob("*.lproj"))
        self.assertEqual(sorted(information["CFBundleLocalizations"]), languages)
        self.assertIn(information["CFBundleDevelopmentRegion"], languages)

    def evaluate(self, *calculations, **variables):
        words = [word for calculation in calculations for word in ("-e", calculation)]
        result = subprocess.run([FMXHOST, "--plugin", self.plugin(), *words], capture_output=True, text=True,
                                env={**os.environ, **variables})
        self.assertEqual(result.returncode, 0, result.stderr)
        return result.stdout.splitlines()

    def test_the_plug_in_loads_from_it(self):
        self.assertEqual(self.evaluate('KORB_Version("short")'), [VERSION])

    def test_help_lands_in_the_bundles_reference(self):
        listed = subprocess.run([FMXHOST, "--plugin", self.plugin(), "--json", "strings"], check=True, capture_output=True, text=True)
        address = urlsplit(json.loads(listed.stdout)["132"])
        page = Path(unquote(address.path))
        self.assertEqual((address.scheme, address.netloc, address.fragment), ("file", "", "id="))
        self.assertTrue(page.samefile(self.bundle / "Contents/Resources/functions.html"))
        self.assertIn('id="id=2"></a><h3><a href="#KORB_FileCopy"', page.read_text(encoding="utf-8"))

    def plugin(self):
        return self.bundle if sys.platform == "darwin" else self.bundle / "Contents/MacOS/Folidex"

    def test_dates_are_local_time(self):
        file = Path(self.root.name) / "file"
        file.touch()
        for zone, seconds, expected in [
            ("Europe/Berlin", 1711846799, "3/31/2024 1:59:59 AM"),  # the clock goes forward
            ("Europe/Berlin", 1711846800, "3/31/2024 3:00:00 AM"),
            ("America/New_York", 1704085199, "12/31/2023 11:59:59 PM"),
        ]:
            os.utime(file, (seconds, seconds))
            for kind in ["Modification", "Access"]:
                with self.subTest(f"{kind} {zone} {seconds}"):
                    # GNUstep has a variable of its own.
                    found = self.evaluate(f'KORB_GetFile{kind}Date("{file}")', TZ=zone, GNUSTEP_TZ=zone)
                    self.assertEqual(found, [expected])


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
