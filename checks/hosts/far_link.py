#!/usr/bin/env python3
"""A link between two network namespaces that forwards IP packets from one interface to the other, delays each of them
and drops some.

usage: far_link.py DESCRIPTOR DESCRIPTOR SEED, two interfaces without headers. Each line of standard input sets loss in
percent, delay and jitter in milliseconds for the packets that follow. At the end it prints how many packets it
received and how many of them it dropped."""
import heapq
import os
import random
import select
import sys
import time

LONGEST_PACKET = 65536
MAX_QUEUED = 10_000  # packets; the link drops further ones


class FarLink:
    def __init__(self, ends, seed):
        self.other = {ends[0]: ends[1], ends[1]: ends[0]}
        self.random = random.Random(seed)
        self.loss = self.delay = self.jitter = 0.0
        self.queued = []  # heap of (due time, number, end, packet)
        self.received = self.dropped = 0

    def adjust(self, line):
        percent, delay, jitter = (float(word) for word in line.split())
        self.loss, self.delay, self.jitter = percent / 100, delay / 1000, jitter / 1000

    def receive(self, end):
        packet = os.read(end, LONGEST_PACKET)
        self.received += 1
        if self.random.random() < self.loss or len(self.queued) >= MAX_QUEUED:
            self.dropped += 1
            return
        delay = self.delay + self.random.uniform(-self.jitter, self.jitter)
        heapq.heappush(self.queued, (time.monotonic() + delay, self.received, self.other[end], packet))

    def deliver(self):
        """Forwards the packets that are due. Returns the seconds until the next one is due, or None."""
        while self.queued:
            left = self.queued[0][0] - time.monotonic()
            if left > 0:
                return left
            _, _, end, packet = heapq.heappop(self.queued)
            try:
                os.write(end, packet)
            except OSError:  # the interface is down
                self.dropped += 1
        return None

    def run(self):
        ends = list(self.other)
        while True:
            ready, _, _ = select.select([sys.stdin.fileno(), *ends], [], [], self.deliver())
            for end in ends:
                if end in ready:
                    self.receive(end)
            if sys.stdin.fileno() in ready:
                line = sys.stdin.readline()
                if not line:
                    return
                self.adjust(line)


def main():
    first, second, seed = (int(word) for word in sys.argv[1:])
    link = FarLink((first, second), seed)
    link.run()
    print(link.received, link.dropped)


if __name__ == "__main__":
    main()
