"""encrypt, decrypt and passwords: nothing but the right password on the unchanged file gives anything back."""

import os
import random
import re
import unittest

from support import DAMAGED, FULL, PAGE, SHELLS, USAGE, WRONG_ARCHIVE_PASSWORD, WRONG_PASSWORD, ScratchCase

PASSWORDS = ["x", " a  b ", "-d", "--", "a|b||", "\"$(id)\" `id` \\n \\", "*?[a]%s%%", "é日本🗝", "two\nlines\n", "0123456789" * 20,
             "ü" * 2000, "\\000"]
HEADER = 80


class EncryptedFile(ScratchCase):
    def encrypted(self, data, password="pw"):
        self.write("plain", data)
        self.pack("encrypt", "plain", "sealed", password)
        return self.read("sealed")

    def decrypt_changed(self, data):
        self.write("changed", bytes(data))
        status = self.pack("decrypt", "changed", "out", "pw", expect=None)
        self.assertIn(status, (WRONG_PASSWORD, DAMAGED))
        self.assertFalse(os.path.exists(self.path("out")))
        return status

    def test_round_trips_in_every_shell(self):
        for size in (0, 1, 16, 65537, 3_000_001):
            self.write("plain", random.Random(size).randbytes(size))
            for writer, reader in (("dash", "bash"), ("bash", "busybox"), ("busybox", "dash")):
                self.pack("encrypt", "plain", "sealed", "pw", shell=writer)
                self.pack("decrypt", "sealed", "out", "pw", shell=reader)
                self.assertEqual(self.read("out"), self.read("plain"))
        self.assertEqual(sorted(os.listdir(self.base)), ["out", "plain", "sealed"])

    def test_the_format_page_decrypts(self):
        with open(PAGE, encoding="utf-8") as page:
            code = re.search(r"```python\n(.*?)```", page.read(), re.DOTALL).group(1)
        names = {}
        exec(code, names)
        for password in PASSWORDS:
            data = password.encode() * 5000
            sealed = self.encrypted(data, password)
            self.assertEqual(names["decrypt"](sealed, password), data)
            for changed, secret in ((sealed, password + "x"), (sealed[:-1], password), (b"x" + sealed, password)):
                self.assertRaises(ValueError, names["decrypt"], changed, secret)

    def test_two_files_of_the_same_content_share_nothing_but_the_magic(self):
        one, two = self.encrypted(bytes(4096)), self.encrypted(bytes(4096))
        same = [at for at in range(len(one)) if one[at] == two[at] and at >= 8 and not 64 <= at < 72]
        self.assertLess(len(same), 60)

    def test_changed_files_never_decrypt(self):
        sealed = self.encrypted(random.Random(1).randbytes(3000))
        pick = random.Random(2)
        flips = [0, 7, 8, 23, 24, 31, 32, 63, 64, 72, 80, len(sealed) - 1]
        flips += [pick.randrange(len(sealed)) for _ in range((1000 if FULL else 60) - len(flips))]
        for at in flips:
            changed = bytearray(sealed)
            changed[at] ^= 1 << pick.randrange(8)
            status = self.decrypt_changed(changed)
            self.assertEqual(status, WRONG_PASSWORD if 8 <= at < 32 else DAMAGED, f"byte {at}")
        for size in (0, 7, 8, 31, 63, 79, 80, 81, len(sealed) - 1):
            self.assertEqual(self.decrypt_changed(sealed[:size]), DAMAGED, f"{size} bytes")
        for more in (b"\0", b"\n", sealed[HEADER:], sealed):
            self.assertEqual(self.decrypt_changed(sealed + more), DAMAGED)

    def test_wrong_passwords(self):
        self.write("plain", b"content")
        self.pack("encrypt", "plain", "sealed", "correct horse")
        self.write("in/a")
        self.write("in/b")
        self.zip("in", "a.zip", "correct horse")
        pick = random.Random(3)
        wrong = ["correct hors", "correct horse ", " correct horse", "Correct horse", "correct horse\n", "correct horse|", "-"]
        wrong += ["%x" % pick.getrandbits(pick.randrange(8, 800)) for _ in range((200 if FULL else 20) - len(wrong))]
        for password in wrong:
            self.pack("decrypt", "sealed", "out", password, expect=WRONG_PASSWORD)
            self.unzip("a.zip", "out", password, expect=WRONG_ARCHIVE_PASSWORD)
        self.assertEqual(sorted(os.listdir(self.base)), ["a.zip", "in", "plain", "sealed"])

    def test_archive_passwords(self):
        self.write("in/file")
        for number, password in enumerate(PASSWORDS):
            for shell in SHELLS if number < 6 else ["dash"]:
                self.zip("in/file", "a.zip", password, shell=shell)
                self.unzip("a.zip", "out", password, shell=shell)
                os.remove(self.path("out/file"))

    def test_an_empty_password_is_refused(self):
        self.write("plain")
        self.zip("plain", "a.zip", "pw")
        self.pack("encrypt", "plain", "sealed", "pw")
        for verb, source in (("zipencrypt", "plain"), ("encrypt", "plain"), ("decrypt", "sealed")):
            self.pack(verb, source, "out", "", expect=USAGE)
        self.unzip("a.zip", "out", "", expect=USAGE)
        self.assertFalse(os.path.exists(self.path("out")))

    def test_copies_are_as_private_as_their_source(self):
        self.write("plain")
        os.chmod(self.path("plain"), 0o600)
        self.pack("encrypt", "plain", "sealed", "pw")
        self.pack("decrypt", "sealed", "out", "pw")
        self.assertEqual([os.stat(self.path(name)).st_mode & 0o777 for name in ("sealed", "out")], [0o600, 0o600])


if __name__ == "__main__":
    unittest.main(verbosity=2)
