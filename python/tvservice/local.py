"""Starts a whole receiver on this machine, for tests."""

from __future__ import annotations

import ctypes
import os
import pathlib
import select
import shutil
import signal
import subprocess
import tempfile
import time
from types import TracebackType
from typing import Dict, List, Mapping, Optional, Sequence, Type

from .errors import Error, NotAvailable
from .receiver import Receiver
from .shell import FRAMEWORK, MM_SERVICE, TV_SERVICE

START_LIMIT = 60.0  # seconds; a machine under load loads programs slowly
STOP_LIMIT = 20.0
PAUSE = 0.01  # between looks at a starting process
PROGRAMS_VARIABLE = "TVSERVICE_PROGRAMS"
_PR_SET_PDEATHSIG = 1
_LIBC = ctypes.CDLL(None)


class ProcessError(Error):
    """A program did not start, or ended badly."""


def program(name: str) -> str:
    """The path of a program: in the folder that the variable TVSERVICE_PROGRAMS names, else in PATH."""
    found = shutil.which(name, path=os.environ.get(PROGRAMS_VARIABLE))
    if found is None:
        raise ProcessError(f"no program {name}: install it, or set {PROGRAMS_VARIABLE} to the folder that has it")
    return found


def clean_environment(added: Mapping[str, str]) -> Dict[str, str]:
    """This process's environment without the variables and the configuration of other receivers.

    The services play nothing for real, unless the added variables name another media engine.
    """
    others = {
        name: value
        for name, value in os.environ.items()
        if not name.startswith("TVSA_") and name not in ("RUNTIME_DIRECTORY", "STATE_DIRECTORY")
    }
    return {**others, "TVSA_CONFIG": os.devnull, "TVSA_MEDIA_ENGINE": "simulated", **added}


def start_program(
    command: Sequence[str], log: pathlib.Path, environment: Mapping[str, str], descriptors: Sequence[int] = ()
) -> subprocess.Popen[bytes]:
    """Starts a program whose output is added to a log. The program is killed when the calling thread ends."""
    with open(log, "ab") as output:
        return subprocess.Popen(
            command,
            stdin=subprocess.DEVNULL,
            stdout=output,
            stderr=output,
            env=environment,
            pass_fds=descriptors,
            preexec_fn=lambda: _LIBC.prctl(_PR_SET_PDEATHSIG, signal.SIGKILL),
        )


class LocalReceiver(Receiver):
    """A receiver of its own: the two services, and frame-host with applications, in a temporary folder.

        with LocalReceiver() as receiver:
            receiver.play("0:0", "dvb://1.1.1")

    It ends with the thread that started it. `applications` are names or paths, as for `frame-host --application`;
    `environment` is added to the programs' environment.
    """

    def __init__(self, applications: Sequence[str] = ("control",), environment: Optional[Mapping[str, str]] = None):
        self._root = tempfile.TemporaryDirectory(prefix="receiver-")
        root = pathlib.Path(self._root.name)
        for name in ("run", "state"):
            (root / name).mkdir(mode=0o700)
        super().__init__(str(root / "run"))
        self.logs = root
        self.processes: Dict[str, subprocess.Popen[bytes]] = {}
        self._options = {FRAMEWORK: [part for name in applications for part in ("--application", name)]}
        self._environment = clean_environment(
            {"RUNTIME_DIRECTORY": str(root / "run"), "STATE_DIRECTORY": str(root / "state"), **(environment or {})}
        )

    def __enter__(self) -> LocalReceiver:
        try:
            self.start()
        except BaseException:
            self._end()
            self._root.cleanup()
            raise
        return self

    def __exit__(
        self, kind: Optional[Type[BaseException]], error: Optional[BaseException], trace: Optional[TracebackType]
    ) -> None:
        try:
            problems = self._end()
            if problems and error is None:
                raise ProcessError("\n".join(problems) + "\n" + self.log_tails())
        finally:
            self._root.cleanup()

    def start(self) -> None:
        """Starts all programs and waits until the services are connected."""
        deadline = time.monotonic() + START_LIMIT
        for name in (TV_SERVICE, MM_SERVICE, FRAMEWORK):
            self.start_process(name)
        while not all(connection.connected for connection in self.statistics()):
            self._wait_a_moment(FRAMEWORK, deadline, "connect to the services")

    def start_process(self, name: str) -> None:
        """Starts one program and waits until it is ready."""
        command = [program(name), *self._options.get(name, [])]
        deadline = time.monotonic() + START_LIMIT
        if name == FRAMEWORK:
            self._launch(name, command)
            while not self._has_command(name, "log"):  # registered last
                self._wait_a_moment(name, deadline, "become ready")
            return
        reading, writing = os.pipe()
        try:
            try:
                self._launch(name, [*command, "--ready-fd", str(writing)], writing)
            finally:
                os.close(writing)
            readable, _, _ = select.select([reading], [], [], START_LIMIT)
            if not readable or os.read(reading, 16) != b"ready\n":
                raise self._failed_start(name, "did not become ready")
        finally:
            os.close(reading)

    def kill(self, name: str) -> None:
        """Kills one program at once. Start it again with start_process."""
        process = self.processes.pop(name)
        process.kill()
        process.wait()

    def log_tails(self, lines: int = 20) -> str:
        """The last lines of each program's log, for people."""
        return "".join(
            f"---- {log.stem} ----\n" + "".join(log.read_text(errors="replace").splitlines(keepends=True)[-lines:])
            for log in sorted(self.logs.glob("*.log"))
        )

    def _launch(self, name: str, command: List[str], *descriptors: int) -> None:
        self.processes[name] = start_program(command, self.logs / f"{name}.log", self._environment, descriptors)

    def _has_command(self, name: str, command: str) -> bool:
        try:
            return any(entry["command"] == command for entry in self.shell(name).ask("help"))
        except NotAvailable:
            return False

    def _wait_a_moment(self, name: str, deadline: float, what: str) -> None:
        """Fails at once when the program has ended."""
        try:
            code = self.processes[name].wait(PAUSE)
        except subprocess.TimeoutExpired:
            if time.monotonic() < deadline:
                return
            raise self._failed_start(name, f"did not {what} within {START_LIMIT:g} s") from None
        raise self._failed_start(name, f"ended with {code} before it could {what}")

    def _failed_start(self, name: str, why: str) -> ProcessError:
        return ProcessError(f"{name} {why}\n{self.log_tails()}")

    def _end(self) -> List[str]:
        """Ends the programs, the framework process first. Returns what went wrong."""
        self.close()
        problems = []
        for name, process in reversed(list(self.processes.items())):
            if process.poll() is not None:
                problems.append(f"{name} had ended unexpectedly, with {process.returncode}")
                continue
            process.send_signal(signal.SIGCONT)  # a stopped process cannot end
            process.terminate()
            try:
                if process.wait(STOP_LIMIT) != 0:
                    problems.append(f"{name} ended with {process.returncode}")
            except subprocess.TimeoutExpired:
                process.kill()
                process.wait()
                problems.append(f"{name} did not end within {STOP_LIMIT:g} s")
        self.processes.clear()
        return problems
