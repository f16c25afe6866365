"""A root folder with this machine's Debian or Ubuntu release and nothing else in it, for packages to be tried in."""

import os
import shutil
import subprocess
from pathlib import Path

# What installing anything changes and removing it doesn't change back: the package system's own notes, caches and logs.
PACKAGE_SYSTEM = ("var/lib/dpkg", "var/lib/apt", "var/cache", "var/log", "etc/ld.so.cache", "proc", "sys", "dev", "tmp", "run")


def release():
    lines = Path("/etc/os-release").read_text(encoding="utf-8").splitlines()
    return dict(line.split("=", 1) for line in lines if "=" in line)["VERSION_CODENAME"].strip('"')


def mirror(codename):
    """Where this machine's own packages of that release come from."""
    targets = subprocess.run(
        ["apt-get", "indextargets", "--format", "$(CODENAME) $(COMPONENT) $(REPO_URI)", "Created-By: Packages"],
        check=True, capture_output=True, text=True).stdout
    for name, component, address in (line.split() for line in targets.splitlines()):
        if name == codename and component == "main":
            return address
    raise LookupError(f"no source of {codename} among this machine's")


def base_archive(cache):
    """The minimal system, made once and kept in the folder `cache`."""
    codename = release()
    archive = Path(cache, f"{codename}.tar")
    if not archive.exists():
        folder = Path(cache, codename)
        shutil.rmtree(folder, ignore_errors=True)
        folder.mkdir(parents=True)
        subprocess.run(["debootstrap", "--variant=minbase", codename, folder, mirror(codename)],
                       check=True, stdout=subprocess.DEVNULL)
        unfinished = archive.with_suffix(".part")
        subprocess.run(["tar", "-C", folder, "--one-file-system", "-cf", unfinished, "."], check=True)
        shutil.rmtree(folder)
        unfinished.rename(archive)
    return archive


class ScratchRoot:
    def __init__(self, folder, cache):
        self.folder = Path(folder)
        subprocess.run(["tar", "-C", folder, "-xpf", base_archive(cache)], check=True)
        shutil.copy("/etc/resolv.conf", self.folder / "etc/resolv.conf")

    def run(self, *command, user=None, status=0):
        """Runs `command` in the root and answers its standard output; its exit status must be `status`."""
        as_user = ["runuser", "-u", user, "--"] if user else []
        # Namespaces of its own: nothing stays mounted, no process survives.
        inside = ["unshare", "--mount", "--pid", "--fork", "--kill-child", f"--mount-proc={self.folder}/proc",
                  "chroot", self.folder, "/usr/bin/env", "-i", "PATH=/usr/sbin:/usr/bin:/sbin:/bin", "HOME=/tmp", "LC_ALL=C.UTF-8",
                  "DEBIAN_FRONTEND=noninteractive", *as_user, *command]
        done = subprocess.run(inside, capture_output=True, text=True, stdin=subprocess.DEVNULL)
        if done.returncode != status:
            raise AssertionError(f"{command}: exit status {done.returncode}\n{done.stdout}\n{done.stderr}")
        return done.stdout + done.stderr if status else done.stdout

    def entries(self):
        """What is there, with owner, group and mode, except for what belongs to the package system itself."""
        found = {}
        for folder, folders, files in os.walk(self.folder):
            inside = os.path.relpath(folder, self.folder)
            folders[:] = [name for name in folders if os.path.normpath(os.path.join(inside, name)) not in PACKAGE_SYSTEM]
            for name in folders + files:
                path = os.path.normpath(os.path.join(inside, name))
                if path not in PACKAGE_SYSTEM:
                    status = os.lstat(os.path.join(folder, name))
                    found[path] = (status.st_uid, status.st_gid, oct(status.st_mode))
        return found
