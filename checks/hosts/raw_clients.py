#!/usr/bin/env python3
"""Clients of a service's port that never prove a key, one after the other and some at a time.

usage: raw_clients.py KIND HOST PORT COUNT, where KIND is
       plain, connections that speak something else, break off, or say nothing;
       or one of those that come at an even pace: silent ones, that say a byte or nothing and stay; one-byte ones, that
       all say one and are more than a service lets prove their keys at a time; slow ones, that say a good TLS
       ClientHello a byte at a time; garbage, that speak something else or break off.

Ends with 0 when every one of them was connected, and rejected or gone."""
import functools
import os
import random
import socket
import ssl
import sys
import time

AT_A_TIME = 50  # fewer than may wait to be accepted, so that none comes twice
PACES = {"silent": 125, "one-byte": 125, "slow": 25, "garbage": 50}  # a second
BYTE_PAUSE = 0.2  # seconds, between those of slow ones
TIMEOUT = 20  # seconds, to connect or to be rejected


@functools.cache
def client_hello(newest=ssl.TLSVersion.TLSv1_3):
    """The record with which a client begins."""
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_CLIENT)
    context.check_hostname, context.verify_mode = False, ssl.CERT_NONE
    context.maximum_version = newest
    said = ssl.MemoryBIO()
    try:
        context.wrap_bio(ssl.MemoryBIO(), said).do_handshake()
    except ssl.SSLWantReadError:
        pass
    return said.read()


def record(kind, content):
    return bytes([kind]) + b"\x03\x03" + len(content).to_bytes(2, "big") + content


def plain_words(number, source):
    """What a client says, or nothing for one that waits to be rejected."""
    hello = client_hello()
    return (
        b"",
        b"GET / HTTP/1.0\r\n\r\n",
        client_hello(ssl.TLSVersion.TLSv1_2),
        hello[: source.randrange(1, len(hello))],
        source.randbytes(source.randrange(1, 300)),
        record(22, b"\x01\x02\x00\x00" + source.randbytes(16000)),  # a ClientHello of 128 KiB, of which this comes
        record(source.choice((20, 21, 23, 24, 99)), source.randbytes(100)),
        hello + record(23, source.randbytes(64)),
        b"tvsq" + bytes(60),
        None,
    )[number % 10]


def hear_out(client):
    """Until it is rejected; before, it may hear the service's part of a handshake."""
    try:
        while client.recv(4096):
            pass
    except ConnectionResetError:
        pass


def plain(host, port, count):
    source = random.Random(1)
    for begin in range(0, count, AT_A_TIME):
        crowd, silent = [], []
        for number in range(begin, min(begin + AT_A_TIME, count)):
            client = socket.create_connection((host, port), TIMEOUT)
            words = plain_words(number, source)
            crowd.append(client)
            if words is None:
                silent.append(client)
            elif words:
                client.sendall(words)
        for client in silent:
            hear_out(client)
        for client in crowd:
            client.close()


class Crowd:
    """Those that come at an even pace."""

    def __init__(self, kind, host, port):
        self.kind, self.place = kind, (host, port)
        self.source = random.Random(1)
        self.members = {}  # and how many bytes they have said
        self.trickles = 0

    def add(self, number):
        client = socket.create_connection(self.place, TIMEOUT)
        words = (
            plain_words(number, self.source)
            if self.kind == "garbage"
            else b"\x16" * (self.kind == "one-byte" or number % 2)
        )
        if self.kind != "slow" and words:
            client.sendall(words)
        self.members[client] = 0

    def trickle(self):
        """Another byte of everybody, for some of whom it is too late."""
        words = client_hello()
        for client, said in self.members.items():
            try:
                client.send(words[said : said + 1])
            except OSError:
                pass
            self.members[client] = said + 1
        self.trickles += 1

    def come(self, count):
        begun = time.monotonic()
        for number in range(count):
            self.add(number)
            due = begun + (number + 1) / PACES[self.kind]
            if self.kind == "slow" and due - begun > self.trickles * BYTE_PAUSE:
                self.trickle()
            time.sleep(max(0, due - time.monotonic()))
        for client in self.members:
            hear_out(client)
            client.close()


def main():
    kind, host, port, count = sys.argv[1:]
    if kind == "plain":
        plain(host, int(port), int(count))
    else:
        # Only what nobody else wants of the processors: they are to show what a crowd does to the service.
        os.sched_setscheduler(0, os.SCHED_IDLE, os.sched_param(0))
        Crowd(kind, host, int(port)).come(int(count))


if __name__ == "__main__":
    main()
