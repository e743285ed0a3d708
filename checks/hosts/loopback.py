#!/usr/bin/env python3
"""A receiver plays through services at ports of the same machine, with keys, as between two hosts. A client without
keys must be rejected. Needs no root and uses free ports.

usage: loopback.py BUILD_FOLDER"""
import pathlib
import re
import socket
import sys
import tempfile

sys.dont_write_bytecode = True
from playing import LIVE, MEDIA, Player, connect
from programs import Failure, Machine, wait_until, write_settings

HOST = "127.0.0.1"


def port_of(service):
    """Returns the port that the system chose."""
    wait_until(lambda: service.log.find(": offered at "), "the service logs its endpoint")
    return int(re.search(r"offered at tcp://\S+:(\d+) ", service.log.find(": offered at ")["text"])[1])


def play(services, receiver):
    # The system chooses the services' ports; the receiver's configuration is written once they are known.
    write_settings(services, receiver, HOST, {"tvservice": 0, "mmservice": 0})
    tv_service, mm_service = services.start_service("tvserviced"), services.start_service("mmserviced")
    write_settings(services, receiver, HOST, {"tvservice": port_of(tv_service), "mmservice": port_of(mm_service)})
    host = receiver.start_host()
    connect(host)
    player = Player(host)
    for uri in (LIVE, MEDIA, LIVE):
        player.play_one(uri=uri)

    with socket.create_connection((HOST, port_of(tv_service))) as client:
        client.sendall(b"GET / HTTP/1.0\r\n\r\n")
    wait_until(lambda: tv_service.statistics()["tvservice"]["refused"] == 1, "the client without keys is counted")
    player.play_one(uri=MEDIA)
    for service, name in ((tv_service, "tvservice"), (mm_service, "mmservice")):
        counted = service.statistics()[name]
        if counted["refused"] != (1 if service is tv_service else 0) or not counted["connected"]:
            raise Failure(f"{name}: {counted}")


def main():
    build = pathlib.Path(sys.argv[1])
    with tempfile.TemporaryDirectory(prefix="hosts-") as folder:
        machines = [Machine(build, pathlib.Path(folder) / name) for name in ("services", "receiver")]
        try:
            play(*machines)
            for machine in reversed(machines):
                machine.end()
        except BaseException:
            print("".join(machine.log_tails() for machine in machines), file=sys.stderr)
            raise
        finally:
            for machine in machines:
                machine.kill()


if __name__ == "__main__":
    main()
