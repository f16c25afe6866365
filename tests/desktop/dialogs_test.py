"""The real open panel, driven by keys: what a user picks is what a solution gets.

Arguments: fmxhost, Folidex.fmx.
"""

import json
import subprocess
import sys
import time
import unittest

from virtual_desktop import VirtualDesktop, enter_own_space, wait_for

HOST, PLUGIN = sys.argv[1:3]


class Dialogs(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.desktop = VirtualDesktop()
        cls.desktop.__enter__()
        cls.addClassCleanup(cls.desktop.__exit__)
        home = cls.desktop.folder / "home"
        cls.folder = home / "Ordner 100 % \u00fc"
        cls.folder.mkdir()
        cls.file = home / "B\u00e4r & K\u00f6nig 50%25 'x'.txt"
        cls.file.write_text("text")

    def call(self, function):
        """Starts the call; answer() has its outcome."""
        self.host = self.desktop.started(
            [HOST, "--json", "--plugin", PLUGIN, "-e", f'{function}("")', "-e", "KORB_GetLastError"],
            stdout=subprocess.PIPE)
        self.addCleanup(self.host.stdout.close)
        self.addCleanup(self.host.kill)

    def answer(self):
        output, _ = self.host.communicate(timeout=30)
        return [json.loads(line)["value"] for line in output.decode().splitlines()]

    def dialog(self):
        """Waits for the dialog and gives it the keyboard."""
        window = wait_for(lambda: self.desktop.windows("Select"), "dialog")[0]
        wait_for(lambda: self.desktop.xdotool("windowactivate", "--sync", window) is not None, "active dialog")
        time.sleep(0.5)
        return window

    def pick(self, path):
        # It starts among the recently used files, where a folder can't be selected.
        self.desktop.press("alt+Home", "ctrl+l")
        self.desktop.paste(str(path))
        time.sleep(0.5)

    def expect_no_dialog(self):
        wait_for(lambda: not self.desktop.windows("Select"), "end of the dialog")

    def test_picked_item_is_the_result(self):
        for function, path in (("KORB_GetFilePath", self.file), ("KORB_GetFolderPath", self.folder)):
            with self.subTest(function=function):
                self.call(function)
                self.dialog()
                self.pick(path)
                # The letter that presses the button shows its label: the dialog's own would be Alt+O for "Open".
                self.desktop.press("alt+s")
                self.assertEqual(self.answer(), [str(path), "Success"])
                self.expect_no_dialog()

    def test_dismissed_dialog_gives_an_empty_text(self):
        for function in ("KORB_GetFilePath", "KORB_GetFolderPath"):
            for way, key in (("button", "alt+c"), ("Escape", "Escape"), ("closed", "alt+F4")):
                with self.subTest(function=function, way=way):
                    self.call(function)
                    self.dialog()
                    self.desktop.press(key)
                    self.assertEqual(self.answer(), ["", "Success"])
                    self.expect_no_dialog()

    def test_host_that_ends_takes_its_dialog_along(self):
        self.call("KORB_GetFilePath")
        self.dialog()
        self.host.kill()
        self.expect_no_dialog()


if __name__ == "__main__":
    enter_own_space()
    unittest.main(argv=sys.argv[:1])
