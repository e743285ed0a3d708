#!/usr/bin/env python3
"""Those who have no business at a service's port, one after the other and some at a time.

usage: strangers.py KIND HOST PORT COUNT SERVICE_KEY, where KIND is
       keys, clients whose own keys nobody has allowed, every fourth of which expects another service's key;
       plain, connections that speak something else, break off, or say nothing;
       or one of those that come at an even pace: silent ones, who say a byte or nothing and stay; slow ones, who say
       their greeting a byte at a time; garbage, who speak something else or break off; wrong-keys, as keys.

Ends with 0 when every one of them was connected, and turned away or gone."""
import ctypes
import os
import random
import socket
import struct
import sys
import time

AT_A_TIME = 50  # fewer than may wait to be accepted, so that none comes twice
PACES = {"silent": 125, "slow": 25, "garbage": 50, "wrong-keys": 25}  # a second
BYTE_PAUSE = 0.2 # seconds, between those of slow ones
PATIENCE = 20   # seconds, for a connection, and for being turned away
DEALER, PAIR = 5, 0
LINGER, RECONNECT_IVL, RCVTIMEO = 17, 18, 27
CURVE_PUBLICKEY, CURVE_SECRETKEY, CURVE_SERVERKEY, IPV6 = 48, 49, 50, 42
FAILED_NO_DETAIL, SUCCEEDED, FAILED_PROTOCOL, FAILED_AUTH, DISCONNECTED = 0x800, 0x1000, 0x2000, 0x4000, 0x200
ALL_EVENTS = 0xFFFF


class Zmq:
    """As much of the library as it takes to be a client."""

    def __init__(self):
        self.lib = ctypes.CDLL("libzmq.so.5")
        for name in ("zmq_ctx_new", "zmq_socket"):
            getattr(self.lib, name).restype = ctypes.c_void_p
        self.context = ctypes.c_void_p(self.lib.zmq_ctx_new())

    def socket(self, kind):
        return ctypes.c_void_p(self.lib.zmq_socket(self.context, kind))

    def set(self, where, option, value):
        data = struct.pack("i", value) if isinstance(value, int) else value
        self.check(self.lib.zmq_setsockopt(where, option, data, ctypes.c_size_t(len(data))))

    def keys(self):
        public, secret = ctypes.create_string_buffer(41), ctypes.create_string_buffer(41)
        self.check(self.lib.zmq_curve_keypair(public, secret))
        return public.value, secret.value

    def receive(self, where):
        data = ctypes.create_string_buffer(256)
        size = self.lib.zmq_recv(where, data, ctypes.c_size_t(len(data)), 0)
        self.check(size)
        return data.raw[:size]

    @staticmethod
    def check(result):
        if result < 0:
            raise RuntimeError("the library refuses, or nothing comes")


class KeyStranger:
    """A client with keys that nobody knows."""

    def __init__(self, zmq, number, address, service_key):
        self.zmq, self.stranger, self.monitor = zmq, zmq.socket(DEALER), zmq.socket(PAIR)
        public, secret = zmq.keys()
        for option, value in ((LINGER, 0), (RECONNECT_IVL, -1), (IPV6, 1), (CURVE_PUBLICKEY, public),
                              (CURVE_SECRETKEY, secret), (CURVE_SERVERKEY, service_key)):
            zmq.set(self.stranger, option, value)
        place = f"inproc://stranger-{number}".encode()
        zmq.check(zmq.lib.zmq_socket_monitor(self.stranger, place, ALL_EVENTS))
        zmq.set(self.monitor, RCVTIMEO, PATIENCE * 1000)
        zmq.set(self.monitor, LINGER, 0)
        zmq.check(zmq.lib.zmq_connect(self.monitor, place))
        zmq.check(zmq.lib.zmq_connect(self.stranger, address))

    def wait(self):
        """Until it is turned away."""
        while True:
            event, _ = struct.unpack("=HI", self.zmq.receive(self.monitor))
            self.zmq.receive(self.monitor)  # the address
            if event == SUCCEEDED:
                raise RuntimeError("a stranger was let in")
            if event in (FAILED_AUTH, FAILED_PROTOCOL, FAILED_NO_DETAIL, DISCONNECTED):
                break
        # First, as the library would wait for ever for somebody to hear of the end.
        self.zmq.check(self.zmq.lib.zmq_socket_monitor(self.stranger, None, 0))
        for one in (self.stranger, self.monitor):
            self.zmq.check(self.zmq.lib.zmq_close(one))


def with_keys(host, port, service_key, count, per_second=None):
    """As fast as they can, or one after the other at an even pace."""
    zmq = Zmq()
    address = f"tcp://{host}:{port}".encode()
    begun = time.monotonic()
    at_a_time = 1 if per_second else AT_A_TIME
    for begin in range(0, count, at_a_time):
        crowd = [KeyStranger(zmq, number, address, zmq.keys()[0] if number % 4 == 3 else service_key)
                 for number in range(begin, min(begin + at_a_time, count))]
        for stranger in crowd:
            stranger.wait()
        if per_second:
            time.sleep(max(0, begun + (begin + 1) / per_second - time.monotonic()))


def greeting(mechanism):
    return b"\xFF" + bytes(8) + b"\x7F\x03\x01" + mechanism.ljust(20, b"\0") + bytes(32)


def plain_words(number, source):
    """What a stranger says, or nothing for one that waits to be sent away."""
    return (b"", b"GET / HTTP/1.0\r\n\r\n", greeting(b"NULL"), greeting(b"CURVE")[:source.randrange(1, 64)],
            source.randbytes(source.randrange(1, 300)),
            greeting(b"CURVE") + b"\x04\xC8\x05HELLO" + source.randbytes(194),
            b"\xFF" + source.randbytes(100), greeting(b"CURVE") + b"\x06" + source.randbytes(8), b"tvsq" + bytes(60),
            None)[number % 10]


def hear_out(stranger):
    """Until it is turned away; before, it may hear the service's own greeting."""
    try:
        while stranger.recv(4096):
            pass
    except ConnectionResetError:
        pass


def plain(host, port, count):
    source = random.Random(1)
    for begin in range(0, count, AT_A_TIME):
        crowd, silent = [], []
        for number in range(begin, min(begin + AT_A_TIME, count)):
            stranger = socket.create_connection((host, port), PATIENCE)
            words = plain_words(number, source)
            crowd.append(stranger)
            if words is None:
                silent.append(stranger)
            elif words:
                stranger.sendall(words)
        for stranger in silent:
            hear_out(stranger)
        for stranger in crowd:
            stranger.close()


class Crowd:
    """Those that come at an even pace."""

    def __init__(self, kind, host, port):
        self.kind, self.place = kind, (host, port)
        self.source = random.Random(1)
        self.members = {}  # and how many bytes they have said
        self.trickles = 0

    def add(self, number):
        stranger = socket.create_connection(self.place, PATIENCE)
        words = plain_words(number, self.source) if self.kind == "garbage" else b"\xFF" if number % 2 else b""
        if self.kind != "slow" and words:
            stranger.sendall(words)
        self.members[stranger] = 0

    def trickle(self):
        """Another byte of everybody, for some of whom it is too late."""
        words = greeting(b"CURVE")
        for stranger, said in self.members.items():
            try:
                stranger.send(words[said:said + 1])
            except OSError:
                pass
            self.members[stranger] = said + 1
        self.trickles += 1

    def come(self, count):
        begun = time.monotonic()
        for number in range(count):
            self.add(number)
            due = begun + (number + 1) / PACES[self.kind]
            if self.kind == "slow" and due - begun > self.trickles * BYTE_PAUSE:
                self.trickle()
            time.sleep(max(0, due - time.monotonic()))
        for stranger in self.members:
            hear_out(stranger)
            stranger.close()


def main():
    kind, host, port, count, service_key = sys.argv[1:]
    if kind in PACES:
        # Only what nobody else wants of the processors: they are to show what a crowd does to the service.
        os.sched_setscheduler(0, os.SCHED_IDLE, os.sched_param(0))
    if kind == "keys":
        with_keys(host, int(port), service_key.encode(), int(count))
    elif kind == "wrong-keys":
        with_keys(host, int(port), service_key.encode(), int(count), PACES[kind])
    elif kind == "plain":
        plain(host, int(port), int(count))
    else:
        Crowd(kind, host, int(port)).come(int(count))


if __name__ == "__main__":
    main()
