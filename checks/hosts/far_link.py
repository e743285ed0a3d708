#!/usr/bin/env python3
"""A long and bad line between two network namespaces: carries IP packets from one interface to the other, each as late
as it is told, and loses some.

usage: far_link.py DESCRIPTOR DESCRIPTOR SEED, two interfaces without headers. Each line of standard input says what
holds from then on: loss in percent, delay and jitter in milliseconds. At its end it prints how many packets came and
how many of them were lost."""
import heapq
import os
import random
import select
import sys
import time

LONGEST_PACKET = 65536
MOST_WAITING = 10_000  # packets; a line that is longer than that loses what comes


class FarLink:
    def __init__(self, ends, seed):
        self.other = {ends[0]: ends[1], ends[1]: ends[0]}
        self.random = random.Random(seed)
        self.loss = self.delay = self.jitter = 0.0
        self.waiting = []  # (when, number, end, packet)
        self.came = self.lost = 0

    def adjust(self, line):
        percent, delay, jitter = (float(word) for word in line.split())
        self.loss, self.delay, self.jitter = percent / 100, delay / 1000, jitter / 1000

    def take(self, end):
        packet = os.read(end, LONGEST_PACKET)
        self.came += 1
        if self.random.random() < self.loss or len(self.waiting) >= MOST_WAITING:
            self.lost += 1
            return
        late = self.delay + self.random.uniform(-self.jitter, self.jitter)
        heapq.heappush(self.waiting, (time.monotonic() + late, self.came, self.other[end], packet))

    def deliver(self):
        """Passes on what is due, and returns how long nothing more is."""
        while self.waiting:
            left = self.waiting[0][0] - time.monotonic()
            if left > 0:
                return left
            _, _, end, packet = heapq.heappop(self.waiting)
            try:
                os.write(end, packet)
            except OSError:  # the interface is down
                self.lost += 1
        return None

    def run(self):
        ends = list(self.other)
        while True:
            ready, _, _ = select.select([sys.stdin.fileno(), *ends], [], [], self.deliver())
            for end in ends:
                if end in ready:
                    self.take(end)
            if sys.stdin.fileno() in ready:
                line = sys.stdin.readline()
                if not line:
                    return
                self.adjust(line)


def main():
    first, second, seed = (int(word) for word in sys.argv[1:])
    link = FarLink((first, second), seed)
    link.run()
    print(link.came, link.lost)


if __name__ == "__main__":
    main()
