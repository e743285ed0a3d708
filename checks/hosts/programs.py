"""The programs of a receiver. Each runs on a chosen host and is controlled through its shell."""
import datetime
import json
import os
import pathlib
import re
import signal
import subprocess
import sys
import time

sys.path.append(str(pathlib.Path(__file__).resolve().parents[2] / "python"))
import tvservice
from tvservice.local import start_program

TIMEOUT = 20  # seconds; on an idle machine the operations are immediate
SERVICES = {"tvserviced": "tvservice", "mmserviced": "mmservice"}


class Failure(Exception):
    """An expectation that was not met."""


def wait_until(condition, what, limit=TIMEOUT, pause=0.01):
    """Returns the seconds waited. what: the text for the failure, or a function that makes it then."""
    started = time.monotonic()
    while not condition():
        if time.monotonic() - started > limit:
            raise Failure(f"{what() if callable(what) else what}: not within {limit} s")
        time.sleep(pause)
    return time.monotonic() - started


def seconds_of(line):
    return datetime.datetime.fromisoformat(line["time"].replace("Z", "+00:00")).timestamp()


class Log:
    """The lines of a program's log, read while it runs."""

    def __init__(self, path):
        self.path = path
        self.offset = 0
        self.lines = []  # objects; a line that is not JSON, such as of a crash report, has only "text"

    def read(self):
        """Reads the lines written since the last call."""
        with open(self.path, "rb") as file:
            file.seek(self.offset)
            whole = file.read().rpartition(b"\n")
        self.offset += len(whole[0]) + len(whole[1])
        self.lines += [self._parsed(line) for line in whole[0].decode(errors="replace").splitlines()]

    @staticmethod
    def _parsed(line):
        try:
            return json.loads(line)
        except ValueError:
            return {"text": line}

    def find(self, words, begin=0):
        """Returns the first line from number `begin` on that contains `words`, or None."""
        self.read()
        return next((line for line in self.lines[begin:] if words in line["text"]), None)


class Program:
    """A running program of the receiver. It is killed when this process ends."""

    def __init__(self, machine, name, arguments=(), count_heap=False):
        self.name = name
        self.shell = tvservice.Shell(name, folder=str(machine.folder / "run"), timeout=TIMEOUT)
        self.log = Log(machine.folder / f"{name}.{len(machine.programs)}.log")
        command = [*machine.prefix, machine.binaries / name, *arguments]
        self.heap_file = f"{self.log.path}.heap"
        heap = {"LD_PRELOAD": str(machine.libraries / "libcheck-hosts-allocated.so"), "ALLOCATED_FILE": self.heap_file}
        self.process = start_program(command, self.log.path, machine.environment(heap if count_heap else None))
        machine.programs.append(self)

    def wait_for_shell(self, last_command):
        def ready():
            if self.process.poll() is not None:
                raise Failure(f"{self.name} ended while starting: {self.log.path.read_text()[-2000:]}")
            try:
                return any(entry["command"] == last_command for entry in self.ask("help"))
            except tvservice.NotAvailable:
                return False

        wait_until(ready, f"{self.name} is ready")
        return self

    def ask(self, *words):
        """Runs a shell command and returns its output, parsed as JSON."""
        return self.shell.ask(*words)

    def statistics(self):
        """Returns the counters of its connections, by service."""
        return {counters["service"]: counters for counters in self.ask("stats")}

    def size(self):
        """Returns the numbers of descriptors and threads, and the resident anonymous memory in KiB."""
        path = pathlib.Path("/proc") / str(self.process.pid)
        kibibytes = int(re.search(r"RssAnon:\s+(\d+)", (path / "status").read_text())[1])
        return len(os.listdir(path / "fd")), len(os.listdir(path / "task")), kibibytes

    def allocated(self):
        """Returns the KiB that its heap has given out and not got back. Only of a program started with count_heap."""
        path = pathlib.Path(self.heap_file)
        path.unlink(missing_ok=True)
        self.process.send_signal(signal.SIGUSR2)
        wait_until(lambda: path.exists() and path.read_text().endswith("\n"), f"{self.name} counts its heap")
        return int(path.read_text()) // 1024

    def kill(self):
        self.process.kill()
        self.process.wait()

    def end(self):
        """Sends SIGTERM. Fails if the program does not end, or not with exit code 0."""
        self.process.terminate()
        try:
            code = self.process.wait(TIMEOUT)
        except subprocess.TimeoutExpired:
            self.kill()
            raise Failure(f"{self.name} does not end") from None
        if code != 0:
            raise Failure(f"{self.name} ended with {code}: {self.log.path.read_text()[-2000:]}")


class Machine:
    """A host with its own folder, configuration and key pair. `prefix` begins each command that runs there."""

    def __init__(self, build, folder, prefix=()):
        self.binaries, self.libraries = build / "bin", build / "lib"
        self.folder = folder
        self.prefix = prefix
        self.key_file = folder / "key"
        self.programs = []  # also those that have ended
        for path in (folder, folder / "run", folder / "state"):
            path.mkdir(mode=0o700)
        self.key = subprocess.run(
            [self.binaries / "tvctl", "keygen", "--quiet", self.key_file], check=True, text=True, stdout=subprocess.PIPE
        ).stdout.strip()

    def configure(self, text):
        (self.folder / "config.toml").write_text(text, encoding="utf-8")

    def environment(self, added=None):
        others = {name: value for name, value in os.environ.items() if not name.startswith("TVSA_")}
        return {
            **others,
            "RUNTIME_DIRECTORY": str(self.folder / "run"),
            "STATE_DIRECTORY": str(self.folder / "state"),
            "TVSA_CONFIG": str(self.folder / "config.toml"),
            "TVSA_LOG": "info",
            "TVSA_LOG_FORMAT": "json",
            "TVSA_MEDIA_ENGINE": "simulated",
            **(added or {}),
        }

    def start_service(self, name, count_heap=False):
        return Program(self, name, count_heap=count_heap).wait_for_shell("stats")

    def start_host(self):
        """The framework process with the adapter and the control application."""
        libraries = [self.libraries / f"lib{name}.so" for name in ("app-tvservice-adapter", "control-application")]
        return Program(self, "frame-host", libraries).wait_for_shell("log")

    def end(self):
        """Ends the programs that still run, the latest first."""
        for program in reversed(self.programs):
            if program.process.poll() is None:
                program.end()

    def kill(self):
        for program in self.programs:
            if program.process.poll() is None:
                program.kill()

    def log_tails(self):
        return "".join(
            f"---- {program.log.path.name} ----\n"
            + "\n".join(program.log.path.read_text(errors="replace").splitlines()[-12:])
            + "\n"
            for program in self.programs
            if program.log.path.exists()
        )


QUEUE_BYTES = 4 << 20  # limit of a service's queue for one connection


def write_settings(services, receiver, host, ports, heartbeat=1.0):
    """Configures both machines: the services listen at the ports, and the receiver connects to them at `host`."""
    remote = f"[remote]\nheartbeat_ms = {round(heartbeat * 1000)}\n"
    keys = f'[keys]\nfile = "{services.key_file}"\nclients = ["{receiver.key}"]\n'
    endpoints = "".join(f'{name} = "tcp://*:{port}"\n' for name, port in ports.items())
    services.configure("[endpoints]\n" + endpoints + keys + remote + f"[queue]\nbytes = {QUEUE_BYTES}\n")
    endpoints = "".join(f'{name} = "tcp://{host}:{port}"\n' for name, port in ports.items())
    proofs = "".join(f'{name} = "{services.key}"\n' for name in ports)
    keys = f'[keys]\nfile = "{receiver.key_file}"\n[keys.services]\n{proofs}'
    receiver.configure("[endpoints]\n" + endpoints + keys + remote)
