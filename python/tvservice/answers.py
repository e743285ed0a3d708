"""What commands answer, with the names of the JSON in snake_case. Times are UTC texts, ISO 8601."""

from __future__ import annotations

import dataclasses
from typing import ClassVar, List, Mapping, Optional

from . import messages
from .objects import Answer, Record


@dataclasses.dataclass(frozen=True)
class RequestedTerminal(Answer):
    terminal: str  # "0:0"
    uri: str  # empty when it is not known
    result: Optional[int]  # see tvservice.Result; None without an answer
    result_name: Optional[str]


@dataclasses.dataclass(frozen=True)
class RequestStep(Answer):
    step: str  # "stop" or "start"
    awaited: str  # the services that had not answered when last looked at
    begin_ms: float  # since the request was made, or first seen


@dataclasses.dataclass(frozen=True)
class Request(Answer):
    """A play or stop request, and what became of it."""

    id: str
    asker: str  # "shell", "zapper" or "application"
    time: str  # when it was made, or first seen
    state: str  # "queued", "sent", "answered" or "given up"
    terminals: List[RequestedTerminal]
    more_terminals: int  # that are not in the list
    steps: List[RequestStep]  # that took long enough to be seen
    duration_ms: Optional[float]  # once it has ended; None when only its answer was seen
    late_answers: int
    lines: List[str]  # the same for people
    _members: ClassVar[Mapping[str, str]] = {"id": "request"}

    @property
    def is_pending(self) -> bool:
        return self.state in ("queued", "sent")

    @property
    def text(self) -> str:
        return "\n".join(self.lines)


@dataclasses.dataclass(frozen=True)
class Terminal(Answer):
    """What a terminal shows, who asked for it, and its last answer. Texts are empty when there was none."""

    terminal: str
    uri: str
    uuid: str
    req_id: str
    asker: str
    since: str
    last_result: int
    last_result_name: str
    last_uri: str
    last_req_id: str
    last_time: str
    queued: int  # requests
    state: str  # what the first of them waits for, "idle", or that the newest was given up


@dataclasses.dataclass(frozen=True)
class BundleStep(Answer):
    operation: str
    awaited: str


@dataclasses.dataclass(frozen=True)
class Bundle(Answer):
    """A request in the adapter's queue. The first one is the current one."""

    req_id: str
    steps: List[BundleStep]
    terminals: List[str]
    waited_ms: int
    overdue_ms: int
    state: str


@dataclasses.dataclass(frozen=True)
class Connection(Answer):
    """The counters of a process's connections to a service; on the service's side, of all its clients."""

    service: str
    connected: bool
    sent: int
    received: int
    dropped: int
    refused: int
    undecodable: int
    reconnects: int
    queued: int


@dataclasses.dataclass(frozen=True)
class Channel(Answer):
    number: int
    uri: str
    name: str


@dataclasses.dataclass(frozen=True)
class Notification:
    """A notification to the receiver's clients. `content` is the message of tvservice.messages; it is None when this
    module does not know the message, and when the receiver did not keep the arguments because they are too long."""

    number: int  # counts the receiver's notifications from 1
    time: str
    message: str  # its name
    content: Optional[Record]

    @classmethod
    def from_json(cls, content: object) -> Notification:
        head = _NotificationHead.from_json(content)
        assert isinstance(content, dict)
        kind = messages.TVSERVICE_NOTIFICATIONS.get(head.message)
        is_complete = kind is not None and "omittedBytes" not in content
        arguments = kind.from_json(content.get("arguments")) if kind is not None and is_complete else None
        return cls(head.number, head.time, head.message, arguments)


@dataclasses.dataclass(frozen=True)
class _NotificationHead(Answer):
    number: int
    time: str
    message: str
