"""A desktop nobody sees: virtual display, window manager, message bus, portal. Everything that it starts ends with it.

Needs Linux and the packages xvfb openbox xdotool xclip imagemagick dbus xdg-desktop-portal xdg-desktop-portal-gtk.
"""

import ctypes
import os
import pathlib
import shutil
import signal
import subprocess
import tempfile
import time

PORTAL = "/usr/libexec/xdg-desktop-portal"
BACKEND = "/usr/libexec/xdg-desktop-portal-gtk"
PROGRAMS = ["Xvfb", "openbox", "xdotool", "xclip", "import", "dbus-daemon", "setpriv", PORTAL, BACKEND]
PR_SET_CHILD_SUBREAPER = 36  # prctl(2)


def missing_programs():
    return [program for program in PROGRAMS if not shutil.which(program)]


def wait_for(condition, what, seconds=30):
    """The condition's first true answer; AssertionError when there is none in time."""
    end = time.monotonic() + seconds
    while time.monotonic() < end:
        answer = condition()
        if answer:
            return answer
        time.sleep(0.05)
    raise AssertionError(f"no {what} within {seconds} seconds")


def status_fields(pid):
    """Command name, state and parent of a process (proc(5), stat); None when it is gone."""
    try:
        text = pathlib.Path(f"/proc/{pid}/stat").read_text(errors="replace")
    except OSError:
        return None
    name, _, rest = text.partition("(")[2].rpartition(")")
    state, parent = rest.split()[:2]
    return name, state, int(parent)


def descendants(ancestor):
    parents = {int(name): status_fields(name) for name in os.listdir("/proc") if name.isdigit()}
    found = {ancestor}
    while True:
        more = {pid for pid, fields in parents.items() if fields and fields[2] in found} - found
        if not more:
            return found - {ancestor}
        found |= more


class VirtualDesktop:
    def __enter__(self):
        # Services that outlive the bus that started them become children of this process, which ends them.
        ctypes.CDLL(None).prctl(PR_SET_CHILD_SUBREAPER, 1, 0, 0, 0)
        self.processes = []
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="folidex-desktop-"))
        self.environment = {name: value for name, value in os.environ.items()
                            if name not in ("WAYLAND_DISPLAY", "DBUS_SESSION_BUS_ADDRESS", "GTK_MODULES")}
        self.environment.update(GTK_USE_PORTAL="0", NO_AT_BRIDGE="1", GSETTINGS_BACKEND="memory",
                                XDG_CURRENT_DESKTOP="GNOME", LC_ALL="C.UTF-8")
        for name, folder in {"HOME": "home", "XDG_RUNTIME_DIR": "run", "XDG_CONFIG_HOME": "config",
                             "XDG_DATA_HOME": "data", "XDG_CACHE_HOME": "cache"}.items():
            (self.folder / folder).mkdir(mode=0o700)
            self.environment[name] = str(self.folder / folder)
        try:
            self.start()
        except BaseException:
            self.end()
            raise
        return self

    def __exit__(self, *_):
        self.end()

    def start(self):
        self.environment["DISPLAY"] = ":" + self.started_with_answer(
            ["Xvfb", "-screen", "0", "1024x768x24", "-nolisten", "tcp", "-displayfd", "1"])
        self.environment["DBUS_SESSION_BUS_ADDRESS"] = self.started_with_answer(
            ["dbus-daemon", "--session", "--nofork", "--nopidfile", "--print-address=1"])
        self.started(["openbox", "--sm-disable"])
        wait_for(lambda: self.xdotool("get_desktop") is not None, "window manager")

    def started(self, command, **options):
        # A test that is killed takes its desktop along.
        process = subprocess.Popen(["setpriv", "--pdeathsig", "KILL", *command], env=self.environment,
                                   **{"stdin": subprocess.DEVNULL, "stdout": subprocess.DEVNULL,
                                      "stderr": subprocess.DEVNULL, **options})
        self.processes.append(process)
        return process

    def started_with_answer(self, command):
        with self.started(command, stdout=subprocess.PIPE).stdout as output:
            answer = output.readline().decode().strip()
        if not answer:
            raise AssertionError(f"{command[0]} didn't start")
        return answer

    def end(self):
        """Ends what was started, politely at first: the document portal has a mount to undo."""
        for number, seconds in ((signal.SIGTERM, 3), (signal.SIGKILL, 10)):
            for pid in descendants(os.getpid()):
                try:
                    os.kill(pid, signal.SIGCONT)
                    os.kill(pid, number)
                except ProcessLookupError:
                    pass
            try:
                wait_for(self.reaped, "end of the desktop", seconds)
                break
            except AssertionError:
                continue
        for process in self.processes:
            process.poll()
        subprocess.run(["umount", "-l", self.folder / "run/doc"], stderr=subprocess.DEVNULL, check=False)
        shutil.rmtree(self.folder, ignore_errors=True)

    @staticmethod
    def reaped():
        try:
            while os.waitpid(-1, os.WNOHANG) != (0, 0):
                pass
        except ChildProcessError:
            pass
        return not descendants(os.getpid())

    def process_ids(self, program):
        """Of the desktop's processes that run a program."""
        found = []
        for pid in descendants(os.getpid()):
            try:
                if os.readlink(f"/proc/{pid}/exe") == program:
                    found.append(pid)
            except OSError:
                pass
        return found

    def signal_program(self, program, number):
        pids = self.process_ids(program)
        assert pids, f"{program} isn't running"
        for pid in pids:
            os.kill(pid, number)

    def xdotool(self, *arguments):
        """Its output; None when it fails."""
        result = subprocess.run(["xdotool", *arguments], env=self.environment, capture_output=True, text=True,
                                timeout=30, check=False)
        return result.stdout.strip() if result.returncode == 0 else None

    def windows(self, title):
        """X windows with exactly this title that are on the screen."""
        return (self.xdotool("search", "--onlyvisible", "--name", f"^{title}$") or "").split()

    def press(self, *keys):
        for key in keys:
            self.xdotool("key", "--clearmodifiers", key)
            time.sleep(0.2)

    def paste(self, text):
        """Typing would drop characters."""
        subprocess.run(["xclip", "-selection", "clipboard"], input=text.encode(), env=self.environment, check=True,
                       stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, timeout=30)
        self.press("ctrl+v")

    def screenshot(self, file):
        subprocess.run(["import", "-window", "root", file], env=self.environment, check=True, timeout=60)
