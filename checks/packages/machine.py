"""A Debian system of its own in a folder: a chroot, in which systemd can run as process 1 of new namespaces.

Only root can make one. Nothing of it reaches the machine: /run, /tmp, /var and /etc are its own, and it is ended by its
process id."""
import os
import pathlib
import shutil
import signal
import subprocess
import time

SUITE = "bookworm"
PREPARED = ("systemd", "systemd-sysv", "dbus")  # in the base system, which all machines start from
ENVIRONMENT = {
    "PATH": "/usr/sbin:/usr/bin:/sbin:/bin",
    "HOME": "/root",
    "LANG": "C.UTF-8",
    "DEBIAN_FRONTEND": "noninteractive",
}


class Failure(Exception):
    """Something is not as expected; the text says what."""


def make_base(archive):
    """Downloads a minimal system, once."""
    if archive.exists():
        return
    archive.parent.mkdir(parents=True, exist_ok=True)
    new = archive.with_suffix(".new")
    sources = [str(path) for path in pathlib.Path("/etc/apt/sources.list.d").glob("*.sources")]
    subprocess.run(
        ["mmdebstrap", "--quiet", "--variant=minbase", f"--include={','.join(PREPARED)}", "--format=tar", SUITE, new]
        + sources,
        check=True,
    )
    new.rename(archive)


class Machine:
    """A system made from a base archive; use it in a with statement."""

    def __init__(self, archive, folder):
        self.root = pathlib.Path(folder)
        self.archive = archive
        self.init = None

    def __enter__(self):
        self.root.mkdir(parents=True)
        subprocess.run(["tar", "--extract", f"--file={self.archive}", f"--directory={self.root}"], check=True)
        shutil.copy("/etc/resolv.conf", self.root / "etc/resolv.conf")
        policy = self.root / "usr/sbin/policy-rc.d"  # a chroot without systemd must start nothing
        policy.write_text("#!/bin/sh\nexit 101\n", encoding="ascii")
        policy.chmod(0o755)
        return self

    def __exit__(self, *_):
        self.halt()
        shutil.rmtree(self.root, ignore_errors=True)

    def boot(self):
        """Starts systemd and waits until it has started what it starts."""
        (self.root / "usr/sbin/policy-rc.d").unlink(missing_ok=True)
        script = f"""
            set -e
            cd {self.root}
            mount --make-rprivate /
            mount --bind . .
            cd {self.root}
            mount -t proc proc proc
            mount -t sysfs -o ro sysfs sys
            mount -t cgroup2 cgroup2 sys/fs/cgroup
            for place in run tmp dev; do mount -t tmpfs tmpfs $place; done
            for device in null zero full random urandom tty; do
                touch dev/$device
                mount --bind /dev/$device dev/$device
            done
            mkdir dev/pts dev/shm
            mount -t devpts -o newinstance,ptmxmode=0666 devpts dev/pts
            ln -s pts/ptmx dev/ptmx
            for link in fd:/proc/self/fd stdin:/proc/self/fd/0 stdout:/proc/self/fd/1 stderr:/proc/self/fd/2; do
                ln -s "${{link#*:}}" "dev/${{link%%:*}}"
            done
            pivot_root . mnt
            exec chroot . sh -c 'umount -l /mnt; exec env -i container=check /lib/systemd/systemd --system'
        """
        spaces = ["--mount", "--pid", "--ipc", "--uts", "--cgroup", "--fork", "--kill-child"]
        self._make_group()
        self.init = subprocess.Popen(
            ["unshare", *spaces, "sh", "-c", script],
            stdin=subprocess.DEVNULL,
            stdout=subprocess.DEVNULL,
            stderr=subprocess.DEVNULL,
            preexec_fn=lambda: self.group.joinpath("cgroup.procs").write_text(str(os.getpid()), encoding="ascii"),
        )
        self.wait(
            lambda: self.first() and self.runs("systemctl is-system-running --wait"), 60, "systemd does not start"
        )

    def _make_group(self):
        for hierarchy in ("/sys/fs/cgroup/unified", "/sys/fs/cgroup"):
            if pathlib.Path(hierarchy, "cgroup.procs").exists():
                self.group = pathlib.Path(hierarchy, f"packages-{os.getpid()}")
                self.group.mkdir(exist_ok=True)
                return
        raise Failure("this machine has no cgroup2 hierarchy, which systemd needs")

    def first(self):
        """The process id, outside, of the machine's process 1; None before it runs."""
        children = pathlib.Path(f"/proc/{self.init.pid}/task/{self.init.pid}/children").read_text(encoding="ascii")
        return int(children.split()[0]) if children.split() else None

    def halt(self):
        if self.init is None:
            return
        if (first := self.first()) is not None:
            os.kill(first, signal.SIGRTMIN + 14)  # the manager exits at once, its namespace ends with it
            try:
                self.init.wait(20)
            except subprocess.TimeoutExpired:
                os.kill(first, signal.SIGKILL)
        self.init.wait()
        self.init = None
        for group in sorted(self.group.glob("**/"), reverse=True):
            group.rmdir()

    def execute(self, command):
        """Runs a shell command in the machine."""
        if self.init is None:
            where = ["chroot", self.root]
        else:
            where = ["nsenter", f"--target={self.first()}", "--all", "--root", "env", "--chdir=/"]
        return subprocess.run(
            [*where, "sh", "-c", command],
            stdin=subprocess.DEVNULL,
            stdout=subprocess.PIPE,
            stderr=subprocess.STDOUT,
            text=True,
            errors="replace",
            env=ENVIRONMENT,
            check=False,
        )

    def runs(self, command):
        return self.execute(command).returncode == 0

    def __call__(self, command):
        """Runs a shell command that must succeed; returns its output."""
        result = self.execute(command)
        if result.returncode:
            raise Failure(f"exit code {result.returncode} from: {command}\n{result.stdout}")
        return result.stdout.strip()

    def wait(self, condition, seconds, what):
        """Waits for a condition and returns the seconds that it took."""
        start = time.monotonic()
        while not condition():
            if time.monotonic() - start > seconds:
                raise Failure(f"{what} within {seconds} s")
            time.sleep(0.05)
        return time.monotonic() - start

    def files(self):
        """All paths but those of other file systems and what the package manager keeps."""
        kept = (
            "var/lib/dpkg",
            "var/lib/apt",
            "var/cache",
            "var/log",
            "var/lib/systemd",
            "proc",
            "sys",
            "run",
            "tmp",
            "dev",
        )
        found = set()
        for folder, folders, names in os.walk(self.root):
            place = os.path.relpath(folder, self.root)
            folders[:] = [name for name in folders if os.path.normpath(os.path.join(place, name)) not in kept]
            found.update(os.path.normpath(os.path.join(place, name)) for name in [*folders, *names])
        return found
