"""What can go wrong. The `code` of an error is the exit code that tvctl has for it."""

from __future__ import annotations

import errno
import os
from typing import TYPE_CHECKING, Optional

if TYPE_CHECKING:
    from .answers import Request


class Error(Exception):
    """The base of all errors of this module. `str(error)` says what happened, to what, and what to do."""

    code = 1


class CommandFailed(Error):
    """A process rejected a command, or the command failed. `status` is its negative result."""

    def __init__(self, text: str, status: int):
        super().__init__(text or f"failed: {errno.errorcode.get(-status, status)}, {os.strerror(-status)}")
        self.status = status
        self.code = {-errno.EINVAL: 2, -errno.ENOSYS: 2, -errno.EACCES: 5}.get(status, 1)


class NotAvailable(Error):
    """There is no such process, or it ended before it answered."""

    code = 3


class TimedOut(Error):
    """There was no answer, no result or no notification in time. A request goes on all the same."""

    code = 4


class AccessDenied(Error):
    """The process belongs to another user."""

    code = 5


class BadAnswer(Error):
    """An answer is malformed."""

    code = 6


class NotShown(Error):
    """A terminal does not show what was asked for: the service refused it, or a newer request replaced it.

    `result` is the number in the answer (see tvservice.Result), None when the answer has none for the terminal; `name`
    is its name. Of several terminals, those of the first that failed; `request` has all.
    """

    code = 7

    def __init__(self, text: str, request: Request, result: Optional[int], name: Optional[str]):
        super().__init__(text)
        self.request = request
        self.result = result
        self.name = name


class GivenUp(Error):
    """The adapter gave a request up, because a service did not answer within its limit."""

    code = 8

    def __init__(self, text: str, request: Request):
        super().__init__(text)
        self.request = request
