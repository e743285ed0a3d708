"""Starts that must fail. Each must print the reason, exit with the documented code, and leave no socket listening."""
import os
import re
import subprocess
import sys

from programs import Failure, TIMEOUT

FAILED = 1  # exit codes
BAD_DATA = 6
ANOTHER_USER = 65534
PORT = 7411  # not used by other scenarios
PORT_IN_USE = 7412
SERVICE = f'[endpoints]\ntvservice = "tcp://*:{PORT}"\n'
UNASSIGNED_HOST = "192.0.2.1"  # reserved for documentation


def start(machine, program, arguments=()):
    return subprocess.run(
        [*machine.prefix, machine.binaries / program, *arguments],
        timeout=TIMEOUT,
        text=True,
        env=machine.environment({"TVSA_LOG": "", "TVSA_LOG_FORMAT": "text"}),
        stdin=subprocess.DEVNULL,
        capture_output=True,
        check=False,
    )


class Trial:
    """Bad starts on one pair of hosts."""

    def __init__(self, net, services, receiver):
        self.net, self.services, self.receiver = net, services, receiver
        self.tried = 0
        self.wrong = []

    def expect(self, what, result, code, text, listening):
        self.tried += 1
        if result.returncode != code or not re.search(text, result.stderr) or listening:
            self.wrong.append(what)
            print(f"{what}: exit code {result.returncode}, printed {result.stderr!r}, listening {listening}")

    def service(self, what, configuration, text, code=FAILED):
        self.services.configure(configuration)
        result = start(self.services, "tvserviced")
        listening = [line for line in self.net.listening(self.net.services) if f":{PORT} " in line]
        self.expect(what, result, code, text, listening)

    def host(self, what, configuration, text, code=FAILED):
        self.receiver.configure(configuration)
        libraries = [str(self.receiver.libraries / "libapp-tvservice-adapter.so")]
        self.expect(
            what, start(self.receiver, "frame-host", libraries), code, text, self.net.listening(self.net.receiver)
        )


def try_key_files(attempt, program, own, configuration):
    """configuration(LINES) returns a configuration that is valid if LINES name a valid key file."""

    def with_file(file):
        return configuration(f'file = "{file}"\n')

    attempt(f"{program} without keys", configuration(""), "keys.file is not configured")
    attempt(f"{program} with a missing key file", with_file(f"{own}.other"), f"key file {own}.other: No such file")
    os.chmod(own, 0o644)
    attempt(f"{program} with a world-readable key file", with_file(own), f"key file {own}: open to other users")
    os.chmod(own, 0o600)
    os.chown(own, ANOTHER_USER, -1)
    attempt(f"{program} with another user's key file", with_file(own), f"key file {own}: belongs to another user")
    os.chown(own, os.geteuid(), -1)
    malformed = own.with_name("malformed")
    previous = f"public = '{'a' * 40}'\nsecret = '{'b' * 40}'\n"
    advice = f"{malformed}: keys of an earlier version.*move the file away.*'tvctl keygen {malformed}'"
    for text, reason in (
        (previous, advice),
        ("public = \n", "malformed:1: not TOML"),
        ("public = 'x'\n", 'has no "secret" key'),
        ("public = 'x'\nsecret = 'y'\n", "its keys are not a pair"),
        ("", 'has no "public" key'),
    ):
        malformed.write_text(text, encoding="ascii")
        malformed.chmod(0o600)
        attempt(f"{program} with a key file that contains {text!r}", with_file(malformed), reason)


def try_service(trial, clients):
    keys = f'[keys]\nfile = "{trial.services.key_file}"\n'
    trial.service(
        "service without a list of clients", SERVICE + keys, "known clients only, but keys.clients is not configured"
    )
    trial.service(
        "service with an empty list of clients", f"{SERVICE}{keys}clients = []\n", "keys.clients: names no client"
    )
    trial.service(
        "service with a client that is not a key",
        f'{SERVICE}{keys}clients = ["everybody"]\n',
        "keys.clients: not a key",
    )
    trial.service(
        "service with a client's key of the previous format",
        f'{SERVICE}{keys}clients = ["{"c" * 40}"]\n',
        "keys.clients: not a key .*of an earlier version.*tvctl keygen",
    )
    for what, endpoint, text in (
        ("service at an unknown host", f"tcp://no-such-host.test:{PORT}", "no address for the host of"),
        ("service at another host's address", f"tcp://{UNASSIGNED_HOST}:{PORT}", "cannot listen at .* assign"),
    ):
        trial.service(what, f'[endpoints]\ntvservice = "{endpoint}"\n{keys}{clients}', text)
    trial.service(
        "service without a port",
        f'[endpoints]\ntvservice = "tcp://127.0.0.1"\n{keys}{clients}',
        "config.toml:2: endpoints.tvservice: not tcp://HOST:PORT",
        BAD_DATA,
    )
    trial.service(
        "service with a heartbeat out of range",
        f"{SERVICE}{keys}{clients}[remote]\nheartbeat_ms = 1\n",
        "config.toml:7: remote.heartbeat_ms: not a number from 10 to 60000",
        BAD_DATA,
    )


def try_port_in_use(trial, clients):
    """Another process holds the port before and during the start."""
    script = (
        "import socket, sys\n"
        f"held = socket.create_server(('127.0.0.1', {PORT_IN_USE}))\nprint(flush=True)\nsys.stdin.read()"
    )
    with subprocess.Popen(
        [*trial.services.prefix, sys.executable, "-c", script], stdin=subprocess.PIPE, stdout=subprocess.PIPE
    ) as holder:
        holder.stdout.readline()
        trial.service(
            "service at a port that is in use",
            f'[endpoints]\ntvservice = "tcp://127.0.0.1:{PORT_IN_USE}"\n'
            f'[keys]\nfile = "{trial.services.key_file}"\n{clients}',
            "cannot listen at .* in use",
        )
        holder.stdin.close()


def try_host(trial):
    file = f'[keys]\nfile = "{trial.receiver.key_file}"\n'
    proof = f'[keys.services]\ntvservice = "{trial.services.key}"\n'
    endpoint = f'[endpoints]\ntvservice = "tcp://{UNASSIGNED_HOST}:{PORT}"\n'
    try_key_files(
        trial.host, "receiver", trial.receiver.key_file, lambda file_line: f"{endpoint}[keys]\n{file_line}{proof}"
    )
    trial.host("receiver without the service's key", endpoint + file, "keys.services.tvservice is not configured")
    trial.host(
        "receiver with a service key that is not a key",
        f'{endpoint}{file}[keys.services]\ntvservice = "any"\n',
        "keys.services.tvservice: not a key",
    )
    trial.host(
        "receiver of a service at an unknown host",
        f'[endpoints]\ntvservice = "tcp://no-such-host.test:{PORT}"\n{file}{proof}',
        "no address for the host of",
    )
    trial.host(
        "receiver with a heartbeat that is not a number",
        f'{endpoint}{file}{proof}[remote]\nheartbeat_ms = "often"\n',
        "config.toml:[0-9]+: remote.heartbeat_ms: not a number",
        BAD_DATA,
    )


def try_all(net, services, receiver, judge):
    trial = Trial(net, services, receiver)
    clients = f'clients = ["{receiver.key}"]\n'
    try_key_files(
        trial.service, "service", services.key_file, lambda file_line: f"{SERVICE}[keys]\n{file_line}{clients}"
    )
    try_service(trial, clients)
    try_port_in_use(trial, clients)
    try_host(trial)
    left = [
        path.name
        for machine in (services, receiver)
        for path in (machine.folder / "run").iterdir()
        if path.suffix != ".lock"
    ]
    if left:
        raise Failure(f"programs that did not start left files behind: {left}")
    judge(
        "invalid starts that fail as documented",
        trial.tried - len(trial.wrong),
        "starts",
        trial.tried,
        trial.tried,
    )
