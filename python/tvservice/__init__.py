"""Controls and tests receivers. README.md beside this package's folder, or in the documentation, has examples."""

from .answers import Bundle, Channel, Connection, Notification, Request, Terminal
from .errors import AccessDenied, BadAnswer, CommandFailed, Error, GivenUp, NotAvailable, NotShown, TimedOut
from .receiver import AsyncNotifications, AsyncReceiver, Notifications, Receiver
from .results import Result, name_of_result
from .shell import FRAMEWORK, MM_SERVICE, TV_SERVICE, AsyncShell, Shell

__all__ = [
    "AccessDenied",
    "AsyncNotifications",
    "AsyncReceiver",
    "AsyncShell",
    "BadAnswer",
    "Bundle",
    "Channel",
    "CommandFailed",
    "Connection",
    "Error",
    "FRAMEWORK",
    "GivenUp",
    "MM_SERVICE",
    "NotAvailable",
    "NotShown",
    "Notification",
    "Notifications",
    "Receiver",
    "Request",
    "Result",
    "Shell",
    "TV_SERVICE",
    "Terminal",
    "TimedOut",
    "name_of_result",
]
