"""A receiver that really plays, and what its terminals show."""
import base64
import os
import pathlib
import re
import subprocess
import threading
import time

from tvservice import Error, Shell
from tvservice.local import LocalReceiver

SERVICES = {"tvserviced": "TV service", "mmserviced": "MM service"}
# What has no source any more ends within this time: an input lingers for up to two periods of five seconds, and idle
# threads of GLib end after fifteen.
QUIET, QUIET_LIMIT = 16, 90  # seconds


class PlayingReceiver(LocalReceiver):
    def __init__(self, channels, environment=None):
        own = {"TVSA_MEDIA_ENGINE": "gstreamer", "TVSA_MEDIA_OUTPUT": "none", "TVSA_MEDIA_SOUND": "none"}
        super().__init__(environment={**own, **(environment or {})})
        self._options["tvserviced"] = ["--channels", str(channels)]
        self._locks = {name: threading.Lock() for name in SERVICES}

    def size(self, name):
        """Returns the numbers of descriptors and threads of a service, and its resident memory in KiB."""
        path = pathlib.Path("/proc") / str(self.processes[name].pid)
        kibibytes = int(re.search(r"VmRSS:\s+(\d+)", (path / "status").read_text())[1])
        return len(os.listdir(path / "fd")), len(os.listdir(path / "task")), kibibytes

    def sizes_at_rest(self):
        """Waits until no descriptor or thread has come or gone for a while. Returns the sizes of all services."""
        deadline = time.monotonic() + QUIET_LIMIT
        counts, since = None, 0
        while True:
            sizes = {name: self.size(name) for name in SERVICES}
            now = [size[:2] for size in sizes.values()]
            if now != counts:
                counts, since = now, time.monotonic()
            if time.monotonic() - since > QUIET:
                return sizes
            if time.monotonic() > deadline:
                raise Error(f"the services do not come to rest within {QUIET_LIMIT} s: {sizes}")
            time.sleep(0.2)

    def picture(self, service, terminal):
        """Returns a snapshot of a terminal. A service keeps one picture, of which it prints parts."""
        picture = b""
        with self._locks[service], Shell(service, folder=self.folder) as shell:
            while True:
                part = shell.ask("snapshot", terminal, len(picture))
                picture += base64.b64decode(part["data"])
                if len(picture) >= part["size"]:
                    return picture

    def pitch(self, service, terminal):
        with Shell(service, folder=self.folder) as shell:
            return shell.ask("level", terminal)["pitch"]


def text_in(picture):
    """Returns the text of a picture's QR code; empty without one."""
    found = subprocess.run(
        ["zbarimg", "--quiet", "--raw", "-Sdisable", "-Sqrcode.enable", "PNG:-"],
        input=picture,
        stdout=subprocess.PIPE,
        stderr=subprocess.DEVNULL,
        check=False,
    )
    return found.stdout.decode(errors="replace").split("\n")[0]
