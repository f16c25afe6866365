"""A desktop nobody sees: virtual display, window manager, message bus, portal.

Processes and files have name spaces of their own, and go with the process that was started there first.

Needs Linux and the packages xvfb openbox xdotool xclip dbus xdg-desktop-portal xdg-desktop-portal-gtk.
"""

import os
import pathlib
import subprocess
import sys
import time

sys.path.insert(0, str(pathlib.Path(__file__).parents[1]))
from support import surroundings

PROGRAMS = ["Xvfb", "openbox", "xdotool", "xclip", "dbus-daemon", "/usr/libexec/xdg-desktop-portal",
            "/usr/libexec/xdg-desktop-portal-gtk"]


def enter_own_space():
    """Runs this program again in a name space of its own, or ends it as skipped."""
    if os.getpid() == 1:
        return
    surroundings.skip_without("own-mounts", *PROGRAMS)
    command = [*surroundings.own_mounts(), "--pid", "--fork", "--kill-child", "--mount-proc"]
    if not surroundings.succeeds(*command, "true"):
        surroundings.skip("needs a name space of processes, with a /proc")
    os.execvp(command[0], [*command, sys.executable, *sys.argv])


def wait_for(condition, what, seconds=30):
    """The condition's first true answer; AssertionError when there is none in time."""
    end = time.monotonic() + seconds
    while time.monotonic() < end:
        answer = condition()
        if answer:
            return answer
        time.sleep(0.05)
    raise AssertionError(f"no {what} within {seconds} seconds")


class VirtualDesktop:
    def __enter__(self):
        self.processes = []
        self.folder = pathlib.Path("/mnt")
        subprocess.run(["mount", "-t", "tmpfs", "none", self.folder], check=True)
        self.environment = {name: value for name, value in os.environ.items()
                            if name not in ("WAYLAND_DISPLAY", "DBUS_SESSION_BUS_ADDRESS", "GTK_MODULES")}
        self.environment.update(GTK_USE_PORTAL="0", NO_AT_BRIDGE="1", GSETTINGS_BACKEND="memory",
                                XDG_CURRENT_DESKTOP="GNOME", LC_ALL="C.UTF-8")
        for name, folder in {"HOME": "home", "XDG_RUNTIME_DIR": "run", "XDG_CONFIG_HOME": "config",
                             "XDG_DATA_HOME": "data", "XDG_CACHE_HOME": "cache"}.items():
            (self.folder / folder).mkdir(mode=0o700)
            self.environment[name] = str(self.folder / folder)
        self.environment["DISPLAY"] = ":" + self.started_with_answer(
            ["Xvfb", "-screen", "0", "1024x768x24", "-nolisten", "tcp", "-displayfd", "1"])
        self.environment["DBUS_SESSION_BUS_ADDRESS"] = self.started_with_answer(
            ["dbus-daemon", "--session", "--nofork", "--nopidfile", "--print-address=1"])
        self.started(["openbox", "--sm-disable"])
        wait_for(lambda: self.xdotool("get_desktop") is not None, "window manager")
        return self

    def __exit__(self, *_):
        for process in self.processes:
            process.terminate()
            process.wait()

    def started(self, command, **options):
        streams = {"stdin": subprocess.DEVNULL, "stdout": subprocess.DEVNULL, "stderr": subprocess.DEVNULL, **options}
        self.processes.append(subprocess.Popen(command, env=self.environment, **streams))
        return self.processes[-1]

    def started_with_answer(self, command):
        with self.started(command, stdout=subprocess.PIPE).stdout as output:
            answer = output.readline().decode().strip()
        if not answer:
            raise AssertionError(f"{command[0]} didn't start")
        return answer

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
