"""Controls a running receiver with the reference control application and the reference services."""

from __future__ import annotations

import asyncio
import time
from types import TracebackType
from typing import Any, Dict, Generator, Iterator, List, Optional, Type, TypeVar, Union

from . import steps
from .answers import Bundle, Channel, Connection, Notification, Request, Terminal
from .objects import Record
from .shell import FRAMEWORK, TIMEOUT, AsyncShell, Shell
from .steps import FaultValue, Terminals

T = TypeVar("T")
R = TypeVar("R", bound="Receiver")
A = TypeVar("A", bound="AsyncReceiver")


class Receiver:
    """A receiver; for one thread at a time. `folder`: its runtime folder, by default the environment's. `timeout`:
    seconds for each answer of a process. All methods raise errors of tvservice.errors."""

    def __init__(self, folder: Optional[str] = None, *, timeout: float = TIMEOUT):
        self.folder = folder
        self.timeout = timeout
        self._shells: Dict[str, Shell] = {}

    def __enter__(self: R) -> R:
        return self

    def __exit__(
        self, kind: Optional[Type[BaseException]], error: Optional[BaseException], trace: Optional[TracebackType]
    ) -> None:
        self.close()

    def close(self) -> None:
        """Closes the connections. The receiver keeps running."""
        for shell in self._shells.values():
            shell.close()

    def shell(self, target: str = FRAMEWORK) -> Shell:
        """The shell of a process, for commands without a method here."""
        return self._shells.setdefault(target, Shell(target, folder=self.folder, timeout=self.timeout))

    def play(self, terminals: Terminals, uri: str, uuid: str = "", *, timeout: Optional[float] = None) -> Request:
        """Shows something on terminals such as "0:0" and waits for the result. Without a timeout it waits until the
        request ends: the adapter gives it up when a service does not answer. Raises NotShown, GivenUp, TimedOut."""
        return self.wait(self.send_play(terminals, uri, uuid), timeout=timeout)

    def stop(self, terminals: Terminals, *, timeout: Optional[float] = None) -> Request:
        """Stops what terminals show, and waits like play."""
        return self.wait(self.send_stop(terminals), timeout=timeout)

    def send_play(self, terminals: Terminals, uri: str, uuid: str = "") -> str:
        """Sends a play request, and returns its id without waiting for the result."""
        return self._run(steps.submit("play", terminals, uri, uuid))

    def send_stop(self, terminals: Terminals) -> str:
        return self._run(steps.submit("stop", terminals))

    def wait(self, request: str, *, timeout: Optional[float] = None) -> Request:
        """Waits for the result of a request and raises like play."""
        return self._run(steps.outcome_of(request, timeout))

    def request(self, request: str) -> Request:
        """What became of a request so far."""
        return self._run(steps.request_of(request))

    def requests(self, count: int = 10) -> List[Request]:
        """The newest requests, oldest of them first."""
        return self._run(steps.requests(count))

    def terminals(self) -> List[Terminal]:
        return self._run(steps.terminals_of())

    def bundles(self) -> List[Bundle]:
        """The requests in the adapter's queue."""
        return self._run(steps.bundles())

    def statistics(self, target: str = FRAMEWORK) -> List[Connection]:
        return self._run(steps.statistics(target))

    def channels(self) -> List[Channel]:
        return self._run(steps.channels())

    def fault(self, service: str, name: str, value: FaultValue = True) -> None:
        """Makes a service misbehave: fault("tvserviced", "mute"), fault("mmserviced", "delay", 100)."""
        self._run(steps.set_fault(service, name, value))

    def faults(self, service: str) -> Dict[str, FaultValue]:
        return self._run(steps.faults(service))

    def clear_faults(self, service: str) -> None:
        self._run(steps.clear_faults(service))

    def emit(self, message: Record) -> None:
        """Makes the TV service send a notification of tvservice.messages to all its clients."""
        self._run(steps.emit(message))

    def notifications(self, *names: Union[str, Type[Record]], timeout: Optional[float] = None) -> Notifications:
        """The notifications from now on; only those with the names, if any. See Notifications."""
        return Notifications(Shell(FRAMEWORK, folder=self.folder, timeout=self.timeout), names, timeout)

    def _run(self, generator: Generator[steps.Step, Any, T]) -> T:
        return _run(generator, lambda step: self.shell(step.target).ask(*step.words))


def _run(generator: Generator[steps.Step, Any, T], ask: Any) -> T:
    answer = None
    while True:
        try:
            step = generator.send(answer)
        except StopIteration as end:
            result: T = end.value
            return result
        if isinstance(step, steps.Pause):
            time.sleep(step.seconds)
        else:
            answer = ask(step)


class Notifications(Iterator[Notification]):
    """An iterator over notifications, on a connection of its own. It waits for each; with a timeout, it raises TimedOut
    when none arrives for that many seconds, and may be used again."""

    def __init__(self, shell: Shell, names: steps.Names, timeout: Optional[float]):
        self.timeout = timeout
        self._feed = steps.Feed(names)
        self._shell = shell
        self._run(self._feed.start())

    @property
    def missed(self) -> int:
        """How many the receiver had dropped before they were requested."""
        return self._feed.missed

    def __next__(self) -> Notification:
        return self._run(self._feed.next(self.timeout))

    def __enter__(self) -> Notifications:
        return self

    def __exit__(
        self, kind: Optional[Type[BaseException]], error: Optional[BaseException], trace: Optional[TracebackType]
    ) -> None:
        self.close()

    def close(self) -> None:
        self._shell.close()

    def _run(self, generator: Generator[steps.Step, Any, T]) -> T:
        return _run(generator, lambda step: self._shell.ask(*step.words))


class AsyncReceiver:
    """Receiver for asyncio: the same methods as coroutines, which several tasks may call."""

    def __init__(self, folder: Optional[str] = None, *, timeout: float = TIMEOUT):
        self.folder = folder
        self.timeout = timeout
        self._shells: Dict[str, AsyncShell] = {}

    async def __aenter__(self: A) -> A:
        return self

    async def __aexit__(
        self, kind: Optional[Type[BaseException]], error: Optional[BaseException], trace: Optional[TracebackType]
    ) -> None:
        self.close()

    def close(self) -> None:
        for shell in self._shells.values():
            shell.close()

    def shell(self, target: str = FRAMEWORK) -> AsyncShell:
        return self._shells.setdefault(target, AsyncShell(target, folder=self.folder, timeout=self.timeout))

    async def play(self, terminals: Terminals, uri: str, uuid: str = "", *, timeout: Optional[float] = None) -> Request:
        return await self.wait(await self.send_play(terminals, uri, uuid), timeout=timeout)

    async def stop(self, terminals: Terminals, *, timeout: Optional[float] = None) -> Request:
        return await self.wait(await self.send_stop(terminals), timeout=timeout)

    async def send_play(self, terminals: Terminals, uri: str, uuid: str = "") -> str:
        return await self._run(steps.submit("play", terminals, uri, uuid))

    async def send_stop(self, terminals: Terminals) -> str:
        return await self._run(steps.submit("stop", terminals))

    async def wait(self, request: str, *, timeout: Optional[float] = None) -> Request:
        return await self._run(steps.outcome_of(request, timeout))

    async def request(self, request: str) -> Request:
        return await self._run(steps.request_of(request))

    async def requests(self, count: int = 10) -> List[Request]:
        return await self._run(steps.requests(count))

    async def terminals(self) -> List[Terminal]:
        return await self._run(steps.terminals_of())

    async def bundles(self) -> List[Bundle]:
        return await self._run(steps.bundles())

    async def statistics(self, target: str = FRAMEWORK) -> List[Connection]:
        return await self._run(steps.statistics(target))

    async def channels(self) -> List[Channel]:
        return await self._run(steps.channels())

    async def fault(self, service: str, name: str, value: FaultValue = True) -> None:
        await self._run(steps.set_fault(service, name, value))

    async def faults(self, service: str) -> Dict[str, FaultValue]:
        return await self._run(steps.faults(service))

    async def clear_faults(self, service: str) -> None:
        await self._run(steps.clear_faults(service))

    async def emit(self, message: Record) -> None:
        await self._run(steps.emit(message))

    async def notifications(
        self, *names: Union[str, Type[Record]], timeout: Optional[float] = None
    ) -> AsyncNotifications:
        """Awaited, it returns the notifications from now on, to be read with `async for`."""
        made = AsyncNotifications(AsyncShell(FRAMEWORK, folder=self.folder, timeout=self.timeout), names, timeout)
        await made.start()
        return made

    async def _run(self, generator: Generator[steps.Step, Any, T]) -> T:
        return await _run_async(generator, lambda step: self.shell(step.target).ask(*step.words))


async def _run_async(generator: Generator[steps.Step, Any, T], ask: Any) -> T:
    answer = None
    while True:
        try:
            step = generator.send(answer)
        except StopIteration as end:
            result: T = end.value
            return result
        if isinstance(step, steps.Pause):
            await asyncio.sleep(step.seconds)
        else:
            answer = await ask(step)


class AsyncNotifications:
    """Notifications for asyncio; for one task at a time."""

    def __init__(self, shell: AsyncShell, names: steps.Names, timeout: Optional[float]):
        self.timeout = timeout
        self._feed = steps.Feed(names)
        self._shell = shell

    async def start(self) -> None:
        """Called by AsyncReceiver.notifications."""
        await self._run(self._feed.start())

    @property
    def missed(self) -> int:
        return self._feed.missed

    def __aiter__(self) -> AsyncNotifications:
        return self

    async def __anext__(self) -> Notification:
        return await self._run(self._feed.next(self.timeout))

    async def __aenter__(self) -> AsyncNotifications:
        return self

    async def __aexit__(
        self, kind: Optional[Type[BaseException]], error: Optional[BaseException], trace: Optional[TracebackType]
    ) -> None:
        self.close()

    def close(self) -> None:
        self._shell.close()

    async def _run(self, generator: Generator[steps.Step, Any, T]) -> T:
        return await _run_async(generator, lambda step: self._shell.ask(*step.words))
