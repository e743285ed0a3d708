"""The results of play and stop requests. Written by ./dev generate; do not edit."""

from __future__ import annotations

from enum import IntEnum
from typing import Dict


class Result(IntEnum):
    """`str(result)` is its name for people."""

    # shown, stopped or chosen
    DONE = 0
    # a newer request for the terminal is queued
    SUPERSEDED = 1
    # the channel is not in the channel list
    UNKNOWN_CHANNEL = 2
    # the path is not that of a readable file
    CANNOT_OPEN_FILE = 3
    # the service cannot show this kind of address
    UNSUPPORTED_ADDRESS = 4
    # the service was told to answer wrongly, with `fault wrong`
    WRONG_BY_FAULT = 5
    # the terminal is locked against minors; it keeps what it shows
    LOCKED = 6
    # what the terminal shows has no such track
    UNKNOWN_TRACK = 7
    # the terminal shows no broadcast, so it has no tracks
    NOTHING_SHOWN = 8
    # the service's or the client's share of terminals or text is used up; the terminal keeps what it shows
    NO_ROOM = 9
    # what the address names cannot be decoded: of no known format, or damaged
    NOT_MEDIA = 10
    # no installed plugin decodes it; the service's log names the codec
    CODEC_MISSING = 11
    # the service must not read it
    NO_PERMISSION = 12
    # the source cannot be reached, or breaks off
    NO_CONNECTION = 13
    # the channel's transport stream does not have its program
    NO_SUCH_PROGRAM = 14
    # the channel list does not say where the channel comes from
    NO_SOURCE = 15
    # all tuners receive other transport streams; a notification names them
    NO_TUNER = 16
    # its pictures have more pixels than televisions decode
    TOO_LARGE = 17

    def __str__(self) -> str:
        return NAMES[self]


NAMES: Dict[int, str] = {
    Result.DONE: "done",
    Result.SUPERSEDED: "superseded",
    Result.UNKNOWN_CHANNEL: "unknown channel",
    Result.CANNOT_OPEN_FILE: "cannot open file",
    Result.UNSUPPORTED_ADDRESS: "unsupported address",
    Result.WRONG_BY_FAULT: "wrong by fault",
    Result.LOCKED: "locked",
    Result.UNKNOWN_TRACK: "unknown track",
    Result.NOTHING_SHOWN: "nothing shown",
    Result.NO_ROOM: "no room",
    Result.NOT_MEDIA: "not media",
    Result.CODEC_MISSING: "codec missing",
    Result.NO_PERMISSION: "no permission",
    Result.NO_CONNECTION: "no connection",
    Result.NO_SUCH_PROGRAM: "no such program",
    Result.NO_SOURCE: "no source",
    Result.NO_TUNER: "no tuner",
    Result.TOO_LARGE: "too large",
}


def name_of_result(number: int) -> str:
    """The name of a result; "unknown" for a number that is not in the list."""
    return NAMES.get(number, "unknown")
