#!/usr/bin/env python3
"""Runs the commands of a document in order, with one folder per host, and compares their output with the output shown:
commands_work.py BUILD_FOLDER DOCUMENT. Commands of a document without hosts run on one host."""
import os
import pathlib
import re
import signal
import socket
import subprocess
import sys
import tempfile

TIMEOUT = 300  # seconds for a block, which may compile something
BLOCK = re.compile(r"^```(sh|text)\n(.*?)^```$", re.MULTILINE | re.DOTALL)
# The first line of a block names the hosts that run it.
HOSTS = {
    "# one host": ["one"],
    "# services' host": ["services"],
    "# receiver's host": ["receiver"],
    "# both hosts": ["services", "receiver"],
    "# every host": ["one", "services", "receiver"],
}


class Host:
    """An interactive shell, like an operator's, with folders of its own."""

    def __init__(self, name, folder, variables):
        self.name, self.folder, self.blocks = name, folder, 0
        kept = {
            key: value
            for key, value in os.environ.items()
            if not key.startswith(("TVSA_", "XDG_")) and key not in ("RUNTIME_DIRECTORY", "STATE_DIRECTORY")
        }
        places = {}
        for key, place in (
            ("HOME", "home"),
            ("XDG_RUNTIME_DIR", "run"),
            ("XDG_STATE_HOME", "state"),
            ("XDG_CONFIG_HOME", "config"),
        ):
            (folder / place).mkdir(mode=0o700, parents=True)
            places[key] = str(folder / place)
        # A process group of its own, so that end() also stops background processes.
        self.shell = subprocess.Popen(
            ["bash", "-euo", "pipefail"],
            stdin=subprocess.PIPE,
            stdout=subprocess.PIPE,
            text=True,
            cwd=folder,
            start_new_session=True,
            # No media: addresses in documents are examples.
            env={**kept, **variables, **places, "PREFIX": str(folder / "installed"), "TVSA_MEDIA_ENGINE": "simulated"},
        )

    def run(self, commands, given):
        """Returns the output of the commands, and the keys that the shell has afterwards."""
        self.blocks += 1
        script, output, keys = (self.folder / f"{self.blocks}.{kind}" for kind in ("sh", "out", "keys"))
        script.write_text(commands, encoding="utf-8")
        assignments = "".join(f"{name}='{key}'\n" for name, key in given.items())
        self.shell.stdin.write(
            f"{assignments}source {script} </dev/null >{output}\n"
            f"for name in ${{!SERVICE_KEY*}} ${{!RECEIVER_KEY*}} ${{!NEW_KEY*}}; do\n"
            f'echo "$name ${{!name}}"; done >{keys}\necho done\n'
        )
        self.shell.stdin.flush()
        signal.alarm(TIMEOUT)
        ended = self.shell.stdout.readline()
        signal.alarm(0)
        if ended != "done\n":
            raise SystemExit(f"on {self.name}, a command failed in:\n{commands}")
        return output.read_text(encoding="utf-8"), dict(line.split(" ", 1) for line in keys.read_text().splitlines())

    def logs(self):
        return "".join(
            f"---- {self.name}: {log.name} ----\n{log.read_text(errors='replace')[-3000:]}"
            for log in sorted((self.folder / "home").glob("**/logs/*"))
        )

    def end(self):
        try:
            os.killpg(self.shell.pid, signal.SIGKILL)
        except ProcessLookupError:
            pass
        self.shell.wait()


def pattern_of(shown):
    """Returns the pattern for an output: numbers may differ, and "..." matches anything within a line."""
    lines = []
    for line in shown.splitlines():
        parts = (re.sub(r"\d+", r"\\d+", re.escape(part)) for part in line.split("..."))
        lines.append(re.sub(r"(\\ )+", r" +", ".*".join(parts)) + " *\n")
    return re.compile("".join(lines))


def free_port():
    with socket.create_server(("127.0.0.1", 0)) as probe:
        return str(probe.getsockname()[1])


def run_all(document, hosts):
    ran, given, output = 0, {}, None
    for kind, text in BLOCK.findall(document):
        if kind == "text":
            if output is None or not pattern_of(text).fullmatch(output):
                raise SystemExit(f"shown:\n{text}printed:\n{output}")
            output = None
            continue
        for name in HOSTS.get(text.split("\n", 1)[0], ["one"]):
            output, known = hosts[name].run(text, given)
            given.update({key: value.strip() for key, value in known.items()})
        ran += 1
    return ran


def main():
    build, document = (pathlib.Path(argument).resolve() for argument in sys.argv[1:])
    text = document.read_text(encoding="utf-8")
    with tempfile.TemporaryDirectory(prefix="operations-") as folder:
        variables = {"BUILD": str(build), "SERVICE_HOST": "127.0.0.1", "TV_PORT": free_port(), "MM_PORT": free_port()}
        hosts = {name: Host(name, pathlib.Path(folder) / name, variables) for name in ("one", "services", "receiver")}

        def give_up(*_):
            raise SystemExit(f"a block took longer than {TIMEOUT} s")

        signal.signal(signal.SIGALRM, give_up)
        try:
            ran = run_all(text, hosts)
        except BaseException:
            print("".join(host.logs() for host in hosts.values()), file=sys.stderr)
            raise
        finally:
            for host in hosts.values():
                host.end()
    if ran == 0:
        raise SystemExit("the document has no commands")
    print(f"{ran} blocks of commands ran as documented")


if __name__ == "__main__":
    main()
