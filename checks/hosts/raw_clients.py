#!/usr/bin/env python3
"""Clients of a service's port that never prove a key.

usage: raw_clients.py KIND HOST PORT COUNT, where KIND is
       plain     send another protocol or nothing, or disconnect; as fast as they can, some at a time
       or one of these, which connect at a constant rate:
       silent    send a byte or nothing, and stay connected
       one-byte  send one byte; they are more than a service lets prove their keys at a time
       slow      send a valid TLS ClientHello, a byte at a time
       garbage   send another protocol, or disconnect

Exits with 0 if every client connected, and was then rejected or disconnected itself."""
import functools
import os
import random
import socket
import ssl
import sys
import time

AT_A_TIME = 50  # fewer than the backlog of the listening socket, so that no connect is repeated
RATES = {"silent": 125, "one-byte": 125, "slow": 25, "garbage": 50}  # clients a second
BYTE_INTERVAL = 0.2  # seconds, of slow clients
TIMEOUT = 20  # seconds, to connect or to be rejected


@functools.cache
def client_hello(newest=ssl.TLSVersion.TLSv1_3):
    """Returns the first record of a client."""
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_CLIENT)
    context.check_hostname, context.verify_mode = False, ssl.CERT_NONE
    context.maximum_version = newest
    sent = ssl.MemoryBIO()
    try:
        context.wrap_bio(ssl.MemoryBIO(), sent).do_handshake()
    except ssl.SSLWantReadError:
        pass
    return sent.read()


def record(kind, content):
    return bytes([kind]) + b"\x03\x03" + len(content).to_bytes(2, "big") + content


def plain_bytes(number, source):
    """Returns what a client sends: b"" to disconnect silently, None to wait silently until it is rejected."""
    hello = client_hello()
    return (
        b"",
        b"GET / HTTP/1.0\r\n\r\n",
        client_hello(ssl.TLSVersion.TLSv1_2),
        hello[: source.randrange(1, len(hello))],
        source.randbytes(source.randrange(1, 300)),
        record(22, b"\x01\x02\x00\x00" + source.randbytes(16000)),  # the beginning of a ClientHello of 128 KiB
        record(source.choice((20, 21, 23, 24, 99)), source.randbytes(100)),
        hello + record(23, source.randbytes(64)),
        b"tvsq" + bytes(60),
        None,
    )[number % 10]


def await_rejection(client):
    """Reads until the service closes the connection. It may send its part of a handshake first."""
    try:
        while client.recv(4096):
            pass
    except ConnectionResetError:
        pass


def plain(host, port, count):
    source = random.Random(1)
    for begin in range(0, count, AT_A_TIME):
        clients, silent = [], []
        for number in range(begin, min(begin + AT_A_TIME, count)):
            client = socket.create_connection((host, port), TIMEOUT)
            data = plain_bytes(number, source)
            clients.append(client)
            if data is None:
                silent.append(client)
            elif data:
                client.sendall(data)
        for client in silent:
            await_rejection(client)
        for client in clients:
            client.close()


class PacedClients:
    """Clients that connect at a constant rate."""

    def __init__(self, kind, host, port):
        self.kind, self.address = kind, (host, port)
        self.source = random.Random(1)
        self.clients = {}  # socket: bytes sent
        self.bytes_each = 0

    def add(self, number):
        client = socket.create_connection(self.address, TIMEOUT)
        data = (
            plain_bytes(number, self.source)
            if self.kind == "garbage"
            else b"\x16" * (self.kind == "one-byte" or number % 2)
        )
        if self.kind != "slow" and data:
            client.sendall(data)
        self.clients[client] = 0

    def send_next_byte(self):
        """Sends another byte from every client. The service may have rejected some of them."""
        hello = client_hello()
        for client, sent in self.clients.items():
            try:
                client.send(hello[sent : sent + 1])
            except OSError:
                pass
            self.clients[client] = sent + 1
        self.bytes_each += 1

    def run(self, count):
        started = time.monotonic()
        for number in range(count):
            self.add(number)
            due = started + (number + 1) / RATES[self.kind]
            if self.kind == "slow" and due - started > self.bytes_each * BYTE_INTERVAL:
                self.send_next_byte()
            time.sleep(max(0, due - time.monotonic()))
        for client in self.clients:
            await_rejection(client)
            client.close()


def main():
    kind, host, port, count = sys.argv[1:]
    if kind == "plain":
        plain(host, int(port), int(count))
    else:
        # Run only on idle processors, so that the measurement shows the load on the service, not on the machine.
        os.sched_setscheduler(0, os.SCHED_IDLE, os.sched_param(0))
        PacedClients(kind, host, int(port)).run(int(count))


if __name__ == "__main__":
    main()
