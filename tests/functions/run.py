#!/usr/bin/env python3
"""run.py [--update] [--cocoa] FMXHOST PLUGIN SCRIPT.calc: what a script's lines bring, beside SCRIPT.expected.

A line of a script is "# a comment", "$ a command" of the shell, or a calculation. All calculations are evaluated by one
fmxhost, whose current folder is an empty one of the test's own; "@" stands for that folder. Under each line stands
what it brought: a command's output; a text in quotation marks, a number or a timestamp; for "!!ERROR!!" the last
error's code and text.

The first line may ask for surroundings, as "#! volumes gio NAME=VALUE": a folder /Volumes, a need that
support/surroundings.py knows, a variable of that fmxhost's.
--update writes what came as what is expected. --cocoa takes any words for the system's own description of a failure.
"""

import difflib
import json
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile

sys.path.insert(0, str(pathlib.Path(__file__).parents[1]))
from support import surroundings

DESKTOP = ("DISPLAY", "WAYLAND_DISPLAY", "DBUS_SESSION_BUS_ADDRESS", "XDG_RUNTIME_DIR")

# A root folder with all that is in the machine's, and with a folder /Volumes of its own.
WITH_VOLUMES = """
mount -t tmpfs none /mnt && mkdir /mnt/Volumes || exit
for item in /*; do
    if [ -L "$item" ]; then cp -P "$item" /mnt
    elif [ -d "$item" ] && [ "$item" != /mnt ] && [ "$item" != /Volumes ]; then
        mkdir "/mnt$item" && mount --rbind "$item" "/mnt$item"
    fi
done
exec chroot /mnt "$@"
"""


def enter_volumes():
    """Runs this program again where there is a folder /Volumes."""
    surroundings.skip_without("own-mounts")
    space = surroundings.own_mounts()
    os.environ["IN_VOLUMES"] = "yes"
    words = [word if word.startswith("--") else os.path.abspath(word) for word in sys.argv]
    os.execvp(space[0], [*space, "sh", "-c", WITH_VOLUMES, "sh", sys.executable, *words])


class Session:
    """One fmxhost, asked a calculation at a time. Root's is held to file permissions like anybody's."""

    def __init__(self, host, plugin, folder, environment):
        user = [shutil.which("setpriv"), "--bounding-set=-all", "--inh-caps=-all"] if os.geteuid() == 0 else []
        self.process = subprocess.Popen([*user, host, "--json", "--no-arity-check", "--plugin", plugin, "run", "-"],
                                        stdin=subprocess.PIPE, stdout=subprocess.PIPE, cwd=folder, env=environment)

    def evaluate(self, calculation):
        self.process.stdin.write(calculation.encode() + b"\n")
        self.process.stdin.flush()
        line = self.process.stdout.readline()
        if not line:
            raise SystemExit(f"fmxhost ended at: {calculation}")
        return json.loads(line)

    def shown(self, calculation):
        result = self.evaluate(calculation)
        value = result["value"]
        text = json.dumps(value, ensure_ascii=False) if result["type"] == "text" else value
        code = self.evaluate('KORB_GetLastError("number")')["value"]
        if code != "0":
            error = f"{code} {json.dumps(self.evaluate('KORB_GetLastError')['value'], ensure_ascii=False)}"
            text = error if value == "!!ERROR!!" else f"{text}, last error {error}"
        return text if result["error"] == 0 else f"{text}, handler's code {result['error']}"


def transcript(host, plugin, lines, wishes, folder):
    environment = {name: value for name, value in os.environ.items() if name not in DESKTOP}
    environment.update(HOME=folder, TZ="UTC", LC_ALL="C.UTF-8", FMXHOST_PLUGIN=plugin,
                       PATH=f"{os.path.dirname(host)}:{os.environ['PATH']}")
    variables = dict(wish.replace("@", folder).split("=", 1) for wish in wishes if "=" in wish)
    session = Session(host, plugin, folder, {**environment, **variables})
    shown = []
    for line in lines:
        shown.append(line)
        actual = line.replace("@", folder)
        if line.startswith("$ "):
            output = subprocess.run(["sh", "-c", actual[2:]], cwd=folder, env=environment, stdin=subprocess.DEVNULL,
                                    stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False).stdout.decode()
            shown += ["    " + part for part in output.replace(folder, "@").splitlines()]
        elif line and not line.startswith("#"):
            shown.append("    " + session.shown(actual).replace(folder, "@"))
    session.process.stdin.close()
    if session.process.wait() != 0:
        shown.append(f"fmxhost ended with {session.process.returncode}")
    return shown


def agree(found, expected, cocoa):
    start = expected.find("could not ")
    if cocoa and start >= 0:
        return found[:start] == expected[:start] and len(found) > start + 1
    return found == expected


def main():
    words = [word for word in sys.argv[1:] if not word.startswith("--")]
    host, plugin, script = map(os.path.abspath, words)
    lines = pathlib.Path(script).read_text(encoding="utf-8").splitlines()
    wishes = lines[0][3:].split() if lines[0].startswith("#! ") else []
    if "volumes" in wishes and "IN_VOLUMES" not in os.environ:
        enter_volumes()
    surroundings.skip_without(*(wish for wish in wishes if wish != "volumes" and "=" not in wish))
    os.umask(0o022)
    with tempfile.TemporaryDirectory(prefix="folidex-") as folder:
        found = transcript(host, plugin, lines, wishes, os.path.realpath(folder))
    file = pathlib.Path(script).with_suffix(".expected")
    if "--update" in sys.argv:
        file.write_text("\n".join(found) + "\n", encoding="utf-8")
        return 0
    expected = file.read_text(encoding="utf-8").splitlines()
    if len(found) == len(expected) and all(agree(*pair, "--cocoa" in sys.argv) for pair in zip(found, expected)):
        return 0
    print(*difflib.unified_diff(expected, found, file.name, "found", lineterm="", n=3), sep="\n")
    return 1


if __name__ == "__main__":
    sys.exit(main())
