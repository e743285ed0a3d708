"""Two hosts in separate network namespaces, joined by two links: a pair of virtual interfaces (near), and a program
that delays and drops packets (far). Each host has its own addresses. The route between the hosts can be changed while
connections are up."""
import fcntl
import os
import pathlib
import shutil
import struct
import subprocess
import sys

HERE = pathlib.Path(__file__).resolve().parent
SERVICE_HOST, MOVED_HOST, RECEIVER_HOST = "10.209.0.1", "10.209.0.3", "10.209.0.2"
NAME = "services.test"  # the services' host in the hosts file
TUNSETIFF, IFF_TUN, IFF_NO_PI = 0x400454CA, 0x0001, 0x1000


def run_ip(*words):
    subprocess.run(["ip", *words], check=True)


class Network:
    """Needs root. close() removes everything that was created."""

    def __init__(self):
        self.services = f"hosts-{os.getpid()}-services"
        self.receiver = f"hosts-{os.getpid()}-receiver"
        self.link = None
        try:
            self._build()
        except Exception:
            self.close()
            raise

    def _build(self):
        for name in (self.services, self.receiver):
            run_ip("netns", "add", name)
            run_ip("-n", name, "link", "set", "lo", "up")
            # Programs in the namespace see these files in /etc. There is no name server.
            folder = pathlib.Path("/etc/netns") / name
            folder.mkdir(parents=True)
            (folder / "resolv.conf").write_text("", encoding="ascii")
            (folder / "nsswitch.conf").write_text("hosts: files\n", encoding="ascii")
        self.name_services(SERVICE_HOST)
        run_ip(
            "link",
            "add",
            "near-s",
            "netns",
            self.services,
            "type",
            "veth",
            "peer",
            "name",
            "near-r",
            "netns",
            self.receiver,
        )
        ends = [self._tunnel("far-s", self.services), self._tunnel("far-r", self.receiver)]
        self.link = subprocess.Popen(
            [sys.executable, HERE / "far_link.py", *map(str, ends), "1"],
            text=True,
            stdin=subprocess.PIPE,
            stdout=subprocess.PIPE,
            pass_fds=ends,
        )
        for end in ends:
            os.close(end)
        for namespace, end in ((self.services, "s"), (self.receiver, "r")):
            for link in ("near", "far"):
                run_ip("-n", namespace, "link", "set", f"{link}-{end}", "up")
        run_ip("-n", self.services, "addr", "add", f"{SERVICE_HOST}/32", "dev", "lo")
        run_ip("-n", self.receiver, "addr", "add", f"{RECEIVER_HOST}/32", "dev", "lo")
        self.use("near")

    @staticmethod
    def _tunnel(name, namespace):
        """Creates an interface in the namespace. Returns a descriptor here that reads and writes its packets."""
        end = os.open("/dev/net/tun", os.O_RDWR | os.O_CLOEXEC)
        fcntl.ioctl(end, TUNSETIFF, struct.pack("16sH22x", name.encode(), IFF_TUN | IFF_NO_PI))
        run_ip("link", "set", name, "netns", namespace)
        return end

    def use(self, link, address=SERVICE_HOST):
        """Routes the traffic between the hosts over the link, "near" or "far"."""
        run_ip("-n", self.services, "route", "replace", RECEIVER_HOST, "dev", f"{link}-s", "src", address)
        run_ip("-n", self.receiver, "route", "replace", address, "dev", f"{link}-r", "src", RECEIVER_HOST)

    def impair(self, loss_percent, delay, jitter):
        self.link.stdin.write(f"{loss_percent} {delay} {jitter}\n")
        self.link.stdin.flush()

    def cut(self):
        """Takes the near link down at the services' host. The receiver's host only sees that packets stop arriving."""
        run_ip("-n", self.services, "link", "set", "near-s", "down")

    def restore(self):
        run_ip("-n", self.services, "link", "set", "near-s", "up")
        self.use("near")

    def name_services(self, address):
        # Overwrites the files: running programs have them mounted, and would not see new ones.
        for name in (self.services, self.receiver):
            (pathlib.Path("/etc/netns") / name / "hosts").write_text(
                f"127.0.0.1 localhost\n{address} {NAME}\n", encoding="ascii"
            )

    def move_services(self):
        """Replaces the address of the services' host, and updates its name."""
        run_ip("-n", self.services, "addr", "add", f"{MOVED_HOST}/32", "dev", "lo")
        run_ip("-n", self.services, "addr", "del", f"{SERVICE_HOST}/32", "dev", "lo")
        self.use("near", MOVED_HOST)
        self.name_services(MOVED_HOST)

    @staticmethod
    def listening(host):
        """Returns a line for each listening TCP socket of the host."""
        return subprocess.run(
            ["ip", "netns", "exec", host, "ss", "-Hltn"], check=True, text=True, stdout=subprocess.PIPE
        ).stdout.splitlines()

    def end_far_link(self):
        """Returns how many packets the far link received, and how many of them it dropped."""
        self.link.stdin.close()
        received, dropped = (int(word) for word in self.link.stdout.read().split())
        self.link.wait()
        self.link = None
        return received, dropped

    def close(self):
        if self.link:
            self.link.kill()
            self.link.wait()
        for name in (self.services, self.receiver):
            if (pathlib.Path("/run/netns") / name).exists():
                run_ip("netns", "del", name)
            shutil.rmtree(pathlib.Path("/etc/netns") / name, ignore_errors=True)
