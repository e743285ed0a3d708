#!/usr/bin/env python3
"""Broadcasts a transport stream in real time, again and again: broadcast.py FILE PORT

Sends to the port of this machine. The times of each round continue those of the previous one. A receiver cannot tell it
from a transmitter, which would need most of two processors to encode its pictures."""
import bisect
import pathlib
import socket
import sys
import time

PACKET, DATAGRAM = 188, 7 * 188
TICKS = 90_000  # of a second
WRAP = 1 << 33
FRAME = TICKS // 25
AHEAD = 0.004  # seconds; what is due within them is sent at once


def read_time(data, at):
    """A time of a stream: 33 bits in five bytes, between marker bits."""
    first, second, third = data[at], data[at + 1] << 8 | data[at + 2], data[at + 3] << 8 | data[at + 4]
    return (first >> 1 & 7) << 30 | (second >> 1) << 15 | third >> 1


def write_time(data, at, ticks):
    data[at] = data[at] & 0xF1 | (ticks >> 30) << 1
    for place, part in ((at + 1, ticks >> 15 & 0x7FFF), (at + 3, ticks & 0x7FFF)):
        data[place], data[place + 1] = part >> 7, (part << 1 | 1) & 0xFF


def read_clock(data, at):
    return int.from_bytes(data[at : at + 4], "big") << 1 | data[at + 4] >> 7


def write_clock(data, at, ticks):
    data[at : at + 4] = (ticks >> 1).to_bytes(4, "big")
    data[at + 4] = data[at + 4] & 0x7F | (ticks & 1) << 7


class Stream:
    def __init__(self, data):
        self.data = bytearray(data)
        self.clocks, self.times = [], []  # (offset, ticks)
        self._find()
        clock_pid = self._pid(self.clocks[0][0] // PACKET * PACKET)
        paced = [entry for entry in self.clocks if self._pid(entry[0] // PACKET * PACKET) == clock_pid]
        self.offsets = [offset for offset, _ in paced]
        self.ticks = [ticks - paced[0][1] for _, ticks in paced]
        self.length = self.ticks[-1] + FRAME

    def _pid(self, at):
        return (self.data[at + 1] & 0x1F) << 8 | self.data[at + 2]

    def _find(self):
        data = self.data
        for at in range(0, len(data) - PACKET + 1, PACKET):
            payload = at + 4
            if data[at + 3] & 0x20:
                payload += 1 + data[at + 4]
                if data[at + 4] >= 7 and data[at + 5] & 0x10:
                    self.clocks.append((at + 6, read_clock(data, at + 6)))
            is_start = data[at + 1] & 0x40 and data[at + 3] & 0x10 and payload + 19 <= at + PACKET
            if is_start and data[payload : payload + 3] == b"\0\0\1":
                flags = data[payload + 7] >> 6
                for number in range({2: 1, 3: 2}.get(flags, 0)):
                    place = payload + 9 + 5 * number
                    self.times.append((place, read_time(data, place)))

    def shift(self, ticks):
        for at, clock in self.clocks:
            write_clock(self.data, at, (clock + ticks) % WRAP)
        for at, moment in self.times:
            write_time(self.data, at, (moment + ticks) % WRAP)

    def due(self, offset):
        """Returns when what is at an offset is sent, in ticks from the begin of a round."""
        after = bisect.bisect_right(self.offsets, offset)
        if after == 0:
            return 0
        begin, moment = self.offsets[after - 1], self.ticks[after - 1]
        is_last = after == len(self.offsets)
        end, next_moment = (len(self.data), self.length) if is_last else (self.offsets[after], self.ticks[after])
        return moment + (next_moment - moment) * (offset - begin) / (end - begin)


def main():
    stream = Stream(pathlib.Path(sys.argv[1]).read_bytes())
    due = [stream.due(at) / TICKS for at in range(0, len(stream.data), DATAGRAM)]
    to = ("127.0.0.1", int(sys.argv[2]))
    begin, rounds = time.monotonic(), 0
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as sender:
        while True:
            stream.shift(rounds * stream.length)
            for number, moment in enumerate(due):
                pause = begin + moment - time.monotonic()
                if pause > AHEAD:
                    time.sleep(pause)
                try:
                    sender.sendto(stream.data[number * DATAGRAM : (number + 1) * DATAGRAM], to)
                except ConnectionRefusedError:  # of an earlier datagram: nobody receives, as in the air
                    pass
            begin += stream.length / TICKS
            rounds += 1


if __name__ == "__main__":
    main()
