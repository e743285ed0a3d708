"""What the receivers do, without input and output, for the blocking and the asyncio ones alike.

Each function is a generator. It yields Ask for a command whose answer it wants to be sent, and Pause to wait a moment.
"""

from __future__ import annotations

import collections
import json
import time
from typing import Any, Deque, Dict, FrozenSet, Generator, Iterable, List, NamedTuple, Optional, Tuple, Type, Union

from . import messages
from .answers import Bundle, Channel, Connection, Notification, Request, Terminal
from .errors import BadAnswer, GivenUp, NotShown, TimedOut
from .objects import Record
from .results import Result
from .shell import FRAMEWORK, TV_SERVICE

FIRST_PAUSE, LONGEST_PAUSE = 0.001, 0.05  # seconds; most answers take less than a millisecond
POLL_INTERVAL = 0.1  # seconds, of notifications

Terminals = Union[str, Iterable[str]]
FaultValue = Union[bool, int]
Names = Iterable[Union[str, Type[Record]]]


class Ask(NamedTuple):
    target: str
    words: Tuple[object, ...]


class Pause(NamedTuple):
    seconds: float


Step = Union[Ask, Pause]


class Deadline:
    def __init__(self, timeout: Optional[float]):
        self._end = None if timeout is None else time.monotonic() + timeout

    def has_passed(self) -> bool:
        return self._end is not None and time.monotonic() >= self._end


# ---- play and stop ----


def submit(command: str, terminals: Terminals, *words: str) -> Generator[Step, Any, str]:
    names = terminals if isinstance(terminals, str) else ",".join(terminals)
    answer = yield Ask(FRAMEWORK, (command, names, *(word for word in words if word)))
    if not isinstance(answer, dict) or not isinstance(answer.get("request"), str):
        raise BadAnswer(f"{command}: the answer names no request; is it the control application's command?")
    request: str = answer["request"]
    return request


def request_of(name: str) -> Generator[Step, Any, Request]:
    answer = yield Ask(FRAMEWORK, ("request", name))
    found = Request.list_from_json(answer)
    if len(found) != 1:
        raise BadAnswer(f"request {name}: {len(found)} requests in the answer")
    return found[0]


def outcome_of(name: str, timeout: Optional[float]) -> Generator[Step, Any, Request]:
    deadline = Deadline(timeout)
    pause = FIRST_PAUSE
    while (request := (yield from request_of(name))).is_pending:
        if deadline.has_passed():
            raise TimedOut(f"no result within {timeout:g} s; the request goes on: {request.text}")
        yield Pause(pause)
        pause = min(2 * pause, LONGEST_PAUSE)
    return _checked(request)


def _checked(request: Request) -> Request:
    if request.state == "given up":
        raise GivenUp(request.text, request)
    for terminal in request.terminals:
        if terminal.result != Result.DONE:
            raise NotShown(request.text, request, terminal.result, terminal.result_name)
    return request


# ---- lists ----


def requests(count: int) -> Generator[Step, Any, List[Request]]:
    return Request.list_from_json((yield Ask(FRAMEWORK, ("requests", count))))


def terminals_of() -> Generator[Step, Any, List[Terminal]]:
    return Terminal.list_from_json((yield Ask(FRAMEWORK, ("terminals",))))


def bundles() -> Generator[Step, Any, List[Bundle]]:
    return Bundle.list_from_json((yield Ask(FRAMEWORK, ("bundles",))))


def statistics(target: str) -> Generator[Step, Any, List[Connection]]:
    return Connection.list_from_json((yield Ask(target, ("stats",))))


def channels() -> Generator[Step, Any, List[Channel]]:
    return Channel.list_from_json((yield Ask(TV_SERVICE, ("channels",))))


# ---- services ----

_SWITCH = {True: "on", False: "off"}


def set_fault(service: str, name: str, value: FaultValue) -> Generator[Step, Any, None]:
    yield Ask(service, ("fault", name, _SWITCH[value] if isinstance(value, bool) else value))


def clear_faults(service: str) -> Generator[Step, Any, None]:
    yield Ask(service, ("fault", "clear"))


def faults(service: str) -> Generator[Step, Any, Dict[str, FaultValue]]:
    answer = yield Ask(service, ("faults",))
    if not isinstance(answer, dict):
        raise BadAnswer(f"{service}: faults: expected an object, not {str(answer)[:80]}")
    switches: Dict[Any, bool] = {text: value for value, text in _SWITCH.items()}
    return {name: switches.get(value, value) for name, value in answer.items()}


def emit(message: Record) -> Generator[Step, Any, None]:
    yield Ask(TV_SERVICE, ("emit", type(message).__name__, json.dumps(message.to_json())))


# ---- notifications ----


def _checked_names(names: Names) -> FrozenSet[str]:
    texts = frozenset(name if isinstance(name, str) else name.__name__ for name in names)
    for text in sorted(texts):
        if text not in messages.TVSERVICE_NOTIFICATIONS:
            known = ", ".join(messages.TVSERVICE_NOTIFICATIONS)
            raise ValueError(f"{text} is not a notification; there are: {known}")
    return texts


class Feed:
    """The notifications since its start, in order of arrival. `missed` counts those that the receiver had dropped
    before they were requested. `names`: the messages to return; none: all."""

    def __init__(self, names: Names):
        self.missed = 0
        self._names = _checked_names(names)
        self._number = 0  # of the last notification seen; 0: none
        self._time = ""  # of that one
        self._received: Deque[Notification] = collections.deque()  # at most one answer of the receiver

    def start(self) -> Generator[Step, Any, None]:
        """Remembers the newest notification: those after it follow."""
        for notification in (yield from self._list()):
            self._remember(notification)

    def next(self, timeout: Optional[float]) -> Generator[Step, Any, Notification]:
        deadline = Deadline(timeout)
        while not self._received:
            received = yield from self._poll()
            self._received.extend(each for each in received if not self._names or each.message in self._names)
            if self._received:
                break
            if deadline.has_passed():
                wanted = " or ".join(sorted(self._names)) or "notification"
                raise TimedOut(f"no {wanted} within {timeout:g} s")
            if not received:  # else more may be available at once
                yield Pause(POLL_INTERVAL if timeout is None else min(POLL_INTERVAL, timeout))
        return self._received.popleft()

    def _poll(self) -> Generator[Step, Any, List[Notification]]:
        """Requests the last one again: when it has changed or is gone, the receiver has restarted its numbering, and
        all its notifications are new."""
        received = yield from self._list(max(self._number - 1, 0))
        if self._number > 0:
            first = received[0] if received else None
            if first is None or first.number < self._number or self._is_other(first):
                self._number = 0
                received = yield from self._list(0)
            elif first.number == self._number:
                del received[0]
        if received:
            self.missed += received[0].number - self._number - 1
        for notification in received:
            self._remember(notification)
        return received

    def _is_other(self, notification: Notification) -> bool:
        return notification.number == self._number and notification.time != self._time

    def _remember(self, notification: Notification) -> None:
        self._number, self._time = notification.number, notification.time

    @staticmethod
    def _list(*after: int) -> Generator[Step, Any, List[Notification]]:
        answer = yield Ask(FRAMEWORK, ("notifications", *after))
        if not isinstance(answer, list):
            raise BadAnswer(f"notifications: expected a list, not {str(answer)[:80]}")
        return [Notification.from_json(each) for each in answer]
