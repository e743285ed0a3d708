"""Sends commands to the debug shell of a process: frame-host, tvserviced or mmserviced.

A request is a line of JSON, {"words": [...], "json": true}. The answer is lines of JSON, too: {"output": "..."} when
the command printed something, then {"status": 0} or {"status": -22, "error": "..."}.
"""

from __future__ import annotations

import asyncio
import json
import os
import socket
import struct
import time
from types import TracebackType
from typing import Any, NamedTuple, Optional, Type

from .errors import AccessDenied, BadAnswer, CommandFailed, NotAvailable, TimedOut

FRAMEWORK = "frame-host"
TV_SERVICE = "tvserviced"
MM_SERVICE = "mmserviced"

TIMEOUT = 10.0  # seconds for an answer
LONGEST_ANSWER = 16 * 1024 * 1024  # bytes
_CHUNK = 64 * 1024


def runtime_directory() -> str:
    """The folder of the shells' sockets, from the environment, as for the programs themselves."""
    if os.environ.get("RUNTIME_DIRECTORY"):
        return os.environ["RUNTIME_DIRECTORY"]
    if os.environ.get("XDG_RUNTIME_DIR"):
        return os.path.join(os.environ["XDG_RUNTIME_DIR"], "tvservice-adapter")
    return f"/tmp/tvservice-adapter-{os.geteuid()}"


class Reply(NamedTuple):
    status: int  # 0, or the command's negative result
    output: str  # what the command printed
    error: str  # the shell's own explanation of a negative status, may be empty

    def text(self) -> str:
        """Returns the output. Raises CommandFailed."""
        if self.status >= 0:
            return self.output
        explanations = [text for text in (self.output.rstrip("\n"), self.error) if text]
        raise CommandFailed("\n".join(explanations), self.status)

    def content(self) -> Any:
        """Returns the output, parsed as JSON; None for nothing. Raises CommandFailed and BadAnswer."""
        text = self.text()
        return _parsed(text) if text else None


def _parsed(text: str) -> Any:
    try:
        return json.loads(text)
    except (ValueError, RecursionError):
        raise BadAnswer(f"the answer is not JSON: {text[:80]}") from None


class _Exchange:
    """One command and its answer, without input and output."""

    def __init__(self, words: tuple[object, ...], as_json: bool):
        request = {"words": [str(word) for word in words], "json": as_json}
        self.request = json.dumps(request).encode() + b"\n"
        self._input = bytearray()
        self._searched = 0
        self._received = 0
        self._output = ""

    def take(self, data: bytes) -> Optional[Reply]:
        """Adds received data, none at the connection's end. Returns the reply once it is complete."""
        if not data:
            raise NotAvailable("the connection ended before the answer did")
        self._received += len(data)
        if self._received > LONGEST_ANSWER:
            raise BadAnswer(f"the answer is longer than {LONGEST_ANSWER} bytes")
        self._input += data
        while (end := self._input.find(b"\n", self._searched)) >= 0:
            line = bytes(self._input[:end])
            del self._input[: end + 1]
            self._searched = 0
            reply = self._take_line(line)
            if reply and self._input:
                raise BadAnswer("unexpected data after the answer")
            if reply:
                return reply
        self._searched = len(self._input)
        return None

    def _take_line(self, line: bytes) -> Optional[Reply]:
        answer = _parsed(line.decode(errors="replace"))
        if isinstance(answer, dict) and isinstance(answer.get("output"), str):
            self._output += answer["output"]
            return None
        if not isinstance(answer, dict) or type(answer.get("status")) is not int:
            raise BadAnswer(f"the answer is malformed: {line[:80].decode(errors='replace')}")
        error = answer.get("error")
        return Reply(answer["status"], self._output, error if isinstance(error, str) else "")


class _Connection:
    """What Shell and AsyncShell share: the socket, which does not block, and its errors."""

    def __init__(self, target: str, folder: Optional[str], timeout: float):
        self.path = os.path.join(folder or runtime_directory(), f"{target}.shell")
        self.timeout = timeout
        self._socket: Optional[socket.socket] = None

    def close(self) -> None:
        """Closes the connection. The next command makes a new one."""
        if self._socket is not None:
            self._socket.close()
            self._socket = None

    def _connected(self) -> socket.socket:
        """Connects, unless there is a connection that the process has not ended meanwhile: it does to idle clients."""
        if self._socket is not None and self._has_input(self._socket):
            self.close()
        if self._socket is None:
            self._socket = self._connect()
        return self._socket

    @staticmethod
    def _has_input(connection: socket.socket) -> bool:
        try:
            connection.setblocking(False)
            connection.recv(1, socket.MSG_PEEK)
            return True
        except BlockingIOError:
            return False
        except OSError:
            return True

    def _connect(self) -> socket.socket:
        made = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        try:
            made.setblocking(False)  # a Unix socket connects at once or not at all
            made.connect(self.path)
            # Checked whatever the modes of the socket and its folder are.
            _, user, _ = struct.unpack("3i", made.getsockopt(socket.SOL_SOCKET, socket.SO_PEERCRED, 12))
            if user != os.geteuid():
                raise AccessDenied(f"the shell at {self.path} belongs to another user")
            return made
        except BaseException as error:
            made.close()
            if isinstance(error, PermissionError):
                raise AccessDenied(f"cannot connect to the shell at {self.path}: {error.strerror}") from None
            if isinstance(error, OSError):
                why = error.strerror or str(error)
                raise NotAvailable(f"cannot connect to the shell at {self.path}: {why}; does it run?") from None
            raise

    def _timed_out(self, seconds: float) -> TimedOut:
        return TimedOut(f"{self.path}: no answer within {seconds:g} s")

    def _broken(self, error: OSError) -> NotAvailable:
        return NotAvailable(f"{self.path}: the connection broke: {error.strerror or error}")


class Shell(_Connection):
    """A connection to the shell of the process `target`; for one thread at a time.

    It connects when the first command is sent, and again when the process was restarted. `folder`: the runtime folder,
    by default the environment's. `timeout`: seconds for each answer.
    """

    def __init__(self, target: str = FRAMEWORK, *, folder: Optional[str] = None, timeout: float = TIMEOUT):
        super().__init__(target, folder, timeout)

    def __enter__(self) -> Shell:
        return self

    def __exit__(
        self, kind: Optional[Type[BaseException]], error: Optional[BaseException], trace: Optional[TracebackType]
    ) -> None:
        self.close()

    def ask(self, *words: object, timeout: Optional[float] = None) -> Any:
        """Runs a command and returns what it prints as JSON; None for nothing. Words need no quoting."""
        return self.run(words, True, timeout).content()

    def read(self, *words: object, timeout: Optional[float] = None) -> str:
        """Runs a command and returns what it prints for people."""
        return self.run(words, False, timeout).text()

    def run(self, words: tuple[object, ...], as_json: bool, timeout: Optional[float] = None) -> Reply:
        """Runs a command and returns its reply, also when it failed."""
        limit = self.timeout if timeout is None else timeout
        end = time.monotonic() + limit
        exchange = _Exchange(words, as_json)
        connection = self._connected()

        def allow_rest() -> None:
            rest = end - time.monotonic()
            if rest <= 0:
                raise self._timed_out(limit)
            connection.settimeout(rest)

        try:
            allow_rest()
            try:
                connection.sendall(exchange.request)
            except (BrokenPipeError, ConnectionResetError):
                pass  # a shell that rejects a client sends the reason before it closes
            while True:
                allow_rest()
                reply = exchange.take(connection.recv(_CHUNK))
                if reply:
                    return reply
        except BaseException as error:
            self.close()  # a later answer would be taken for that of the next command
            if isinstance(error, socket.timeout):
                raise self._timed_out(limit) from None
            if isinstance(error, OSError):
                raise self._broken(error) from None
            raise


class AsyncShell(_Connection):
    """The same for asyncio. Commands of several tasks are sent one after the other."""

    def __init__(self, target: str = FRAMEWORK, *, folder: Optional[str] = None, timeout: float = TIMEOUT):
        super().__init__(target, folder, timeout)
        self._lock: Optional[asyncio.Lock] = None  # belongs to the loop that runs the first command

    async def __aenter__(self) -> AsyncShell:
        return self

    async def __aexit__(
        self, kind: Optional[Type[BaseException]], error: Optional[BaseException], trace: Optional[TracebackType]
    ) -> None:
        self.close()

    async def ask(self, *words: object, timeout: Optional[float] = None) -> Any:
        return (await self.run(words, True, timeout)).content()

    async def read(self, *words: object, timeout: Optional[float] = None) -> str:
        return (await self.run(words, False, timeout)).text()

    async def run(self, words: tuple[object, ...], as_json: bool, timeout: Optional[float] = None) -> Reply:
        limit = self.timeout if timeout is None else timeout
        if self._lock is None:
            self._lock = asyncio.Lock()
        async with self._lock:
            try:
                return await asyncio.wait_for(self._run(_Exchange(words, as_json)), limit)
            except BaseException as error:
                self.close()
                if isinstance(error, asyncio.TimeoutError):
                    raise self._timed_out(limit) from None
                if isinstance(error, OSError):
                    raise self._broken(error) from None
                raise

    async def _run(self, exchange: _Exchange) -> Reply:
        loop = asyncio.get_running_loop()
        connection = self._connected()
        try:
            await loop.sock_sendall(connection, exchange.request)
        except (BrokenPipeError, ConnectionResetError):
            pass
        while True:
            reply = exchange.take(await loop.sock_recv(connection, _CHUNK))
            if reply:
                return reply
