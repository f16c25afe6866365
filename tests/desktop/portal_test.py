"""The desktop's services as a plug-in meets them: none at all, ones that answer, ones that fail or fall silent.

Arguments: fmxhost, the plug-in, the program desktop_call.
"""

import json
import os
import pathlib
import signal
import subprocess
import sys
import tempfile
import threading
import time
import unittest

try:
    from jeepney import DBusAddress, HeaderFields, MessageType, new_error, new_method_call, new_method_return, new_signal
    from jeepney.io.blocking import open_dbus_connection
except ImportError:
    open_dbus_connection = None
sys.path.insert(0, str(pathlib.Path(__file__).parents[1]))
from support import surroundings

HOST, PLUGIN, CALL = sys.argv[1:4]
BACKEND = "org.freedesktop.impl.portal.desktop.fake"
FUNCTIONS = {"KORB_GetFilePath": "file", "KORB_GetFolderPath": "folder"}
AT_ONCE, IN_TIME = 4, 30  # seconds, of a busy machine: services are given 4.5
CONFIGURATION = """<busconfig><type>session</type><listen>unix:path={}</listen><policy context="default">
<allow send_destination="*" eavesdrop="true"/><allow eavesdrop="true"/><allow own="*"/></policy></busconfig>"""


class Service:
    """Has a name on the bus and answers calls on a thread of its own, until `answer` says that it crashes."""

    def __init__(self, name, answer=None):
        self.connection = open_dbus_connection()
        self.ask_bus("RequestName", "su", name, 0)
        self.ends = threading.Event()
        self.thread = threading.Thread(target=self.serve, args=[answer])
        if answer:
            self.thread.start()

    def ask_bus(self, method, signature, *arguments):
        bus = DBusAddress("/org/freedesktop/DBus", "org.freedesktop.DBus", "org.freedesktop.DBus")
        return self.connection.send_and_get_reply(new_method_call(bus, method, signature, arguments)).body[0]

    def serve(self, answer):
        while not self.ends.is_set():
            try:
                message = self.connection.receive(timeout=0.05)
            except TimeoutError:
                continue
            if message.header.message_type == MessageType.method_call and answer(message) == "crash":
                return self.connection.close()
        return None

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.ends.set()
        if self.thread.is_alive():
            self.thread.join()
        self.connection.close()


class Portal(Service):
    """The file chooser of the desktop portal, with a user who always answers the same."""

    def __init__(self, code=0, uris=None, fate="answers", seconds=0.0, token=None):
        self.code, self.uris, self.fate, self.seconds, self.token = code, uris, fate, seconds, token
        self.options = None
        self.backend = Service(BACKEND) if fate == "loses its backend" else None
        super().__init__("org.freedesktop.portal.Desktop", None if fate == "is frozen" else self.answer)

    def answer(self, call):
        if call.header.fields[HeaderFields.member] != "OpenFile":
            return None
        if self.fate == "refuses":
            return self.connection.send(new_error(call, "org.freedesktop.DBus.Error.UnknownMethod"))
        if self.fate == "dies":
            return "crash"
        self.options = {name: value for name, (_, value) in call.body[2].items()}
        sender = call.header.fields[HeaderFields.sender][1:].replace(".", "_")
        path = f"/org/freedesktop/portal/desktop/request/{sender}/{self.token or self.options.pop('handle_token')}"
        self.connection.send(new_method_return(call, "o", (path,)))
        time.sleep(self.seconds)
        if self.fate == "dies with its dialog open":
            return "crash"
        if self.backend:
            self.backend.__exit__()
            # The answer comes once everybody has been told that the backend is gone.
            while self.ask_bus("NameHasOwner", "s", BACKEND):
                continue
        # Portals send more than the URIs.
        results = {"choices": ("a(ss)", [("encoding", "utf8")])}
        if self.uris is not None:
            results["uris"] = ("as", self.uris)
        # First somebody else's answer: the portal serves every program of the desktop.
        for address, answer in ((path + "0", (0, {"uris": ("as", ["file:///another"])})), (path, (self.code, results))):
            request = DBusAddress(address, interface="org.freedesktop.portal.Request")
            self.connection.send(new_signal(request, "Response", "ua{sv}", answer))
        return None


class DesktopTest(unittest.TestCase):
    def setUp(self):
        for name in ("DISPLAY", "WAYLAND_DISPLAY", "DBUS_SESSION_BUS_ADDRESS", "XDG_RUNTIME_DIR"):
            os.environ.pop(name, None)
        folder = tempfile.TemporaryDirectory(prefix="folidex-")
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)

    def choose(self, function, limit=AT_ONCE):
        """The path, or the error that was recorded."""
        done = subprocess.run([HOST, "--json", "--plugin", PLUGIN, "-e", f'{function}("ignored")', "-e", "KORB_GetLastError"],
                              check=True, stdout=subprocess.PIPE, timeout=300)
        path, error = map(json.loads, done.stdout.splitlines())
        self.assertLess(path["seconds"], limit)
        self.assertEqual(path["value"] == "!!ERROR!!", error["value"] != "Success")
        return path["value"] if error["value"] == "Success" else error["value"]

    def expect_failure(self, limit=AT_ONCE):
        for function, kind in FUNCTIONS.items():
            self.assertEqual(self.choose(function, limit), f"Unable to complete operation -  Unable to get {kind} path")


class ServerWithoutDesktop(DesktopTest):
    def test_every_call_fails_at_once(self):
        for variables in ({}, {"DISPLAY": ""}, {"WAYLAND_DISPLAY": "wayland-0"}, {"XDG_RUNTIME_DIR": "run"},
                          {"XDG_RUNTIME_DIR": "/nowhere"}, {"DBUS_SESSION_BUS_ADDRESS": "unix:path=/nowhere/bus"},
                          {"DBUS_SESSION_BUS_ADDRESS": "tcp:host=127.0.0.1,port=9"},
                          {"DBUS_SESSION_BUS_ADDRESS": f"unixexec:path=/usr/bin/touch,argv1={self.folder}/ran"},
                          {"DBUS_SESSION_BUS_ADDRESS": "autolaunch:"}, {"DBUS_SESSION_BUS_ADDRESS": ";;"}):
            with self.subTest(**variables):
                os.environ.update(variables)
                self.expect_failure()
        self.assertEqual(list(self.folder.iterdir()), [])


class Desktop(DesktopTest):
    def setUp(self):
        super().setUp()
        (self.folder / "bus.conf").write_text(CONFIGURATION.format(self.folder / "bus"))
        # A test that is killed takes its bus along.
        self.bus = subprocess.Popen(["setpriv", "--pdeathsig", "KILL", "dbus-daemon", "--nofork", "--nopidfile", "--print-address=1",
                                     f"--config-file={self.folder / 'bus.conf'}"], stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
        self.addCleanup(self.bus.communicate)
        self.addCleanup(self.bus.kill)
        self.bus.stdout.readline()  # its address, once it listens
        os.environ.update(DISPLAY=":none", DBUS_SESSION_BUS_ADDRESS=f"unix:path={self.folder}/bus")

    def test_asks_for_one_item_of_its_kind(self):
        for function, kind in FUNCTIONS.items():
            with Portal(1) as portal:
                self.choose(function)
                self.assertEqual(portal.options, {"accept_label": "_Select", "directory": kind == "folder",
                                                  "multiple": False, "modal": True})

    def test_takes_the_users_answer(self):
        file = self.folder / "f"
        file.write_text("x")
        for code, uris, answers in (
                (0, ["file:///n/%C3%A4%20%25"], ("/n/ä %", "/n/ä %")), (0, ["file:///n/a", "file:///n/b"], ("/n/a", "/n/a")),
                (0, [f"file://{file}"], (str(file), None)), (0, [f"file://{self.folder}"], (None, str(self.folder))),
                (0, ["sftp://server/a"], (None, None)), (0, [], (None, None)), (0, None, (None, None)),
                (1, [], ("", "")), (1, ["file:///n/a"], ("", "")), (2, None, ("", ""))):
            for (function, kind), answer in zip(FUNCTIONS.items(), answers):
                with self.subTest(function, code=code, uris=uris), Portal(code, uris):
                    failure = f"Unable to complete operation -  Unable to get {kind} path"
                    self.assertEqual(self.choose(function), failure if answer is None else answer)

    def test_takes_the_answer_of_portals_that_name_requests_themselves(self):
        with Portal(0, ["file:///n/a"], token="x1"):
            self.assertEqual(self.choose("KORB_GetFilePath"), "/n/a")

    def test_fails_with_its_portal(self):
        self.expect_failure()
        for fate in ("refuses", "dies", "dies with its dialog open", "loses its backend"):
            for function, kind in FUNCTIONS.items():
                with self.subTest(fate, function=function), Portal(2, fate=fate):
                    self.assertIn(f"get {kind} path", self.choose(function))

    def test_fails_in_time_when_nobody_answers(self):
        with Portal(fate="is frozen"):
            self.expect_failure(IN_TIME)
        self.bus.send_signal(signal.SIGSTOP)
        self.expect_failure(IN_TIME)

    # Longer than a service may take, while the host's timer interrupts every wait.
    def test_waits_for_the_user(self):
        with Portal(0, ["file:///n/a"], seconds=6):
            self.assertEqual(subprocess.check_output([CALL, "file"], text=True, timeout=300), "/n/a\nnothing left behind\n")

    def test_an_alert_is_a_notification(self):
        for capability, body in (("body-markup", "a&lt;b &amp; é\N{REPLACEMENT CHARACTER}"), ("body", "a<b & é\N{REPLACEMENT CHARACTER}")):
            shown = []

            def answer(call):
                asks = call.header.fields[HeaderFields.member] == "GetCapabilities"
                if not asks:
                    shown.extend(call.body[3:5])
                service.connection.send(new_method_return(call, *(("as", ([capability],)) if asks else ("u", (1,)))))

            with Service("org.freedesktop.Notifications", answer) as service:
                left = subprocess.check_output([CALL, "alert", "DEBUG MESSAGE", b"a<b & \xc3\xa9\xff"], text=True, timeout=300)
            self.assertEqual(left, "shown\nnothing left behind\n")
            self.assertEqual(shown, ["DEBUG MESSAGE", body])


if __name__ == "__main__":
    surroundings.skip_without("dbus-daemon", "setpriv")
    if not open_dbus_connection:
        surroundings.skip("needs jeepney (python3-jeepney)")
    unittest.main(argv=sys.argv[:1])
