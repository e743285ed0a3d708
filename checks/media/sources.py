"""What a receiver can show here: channels of two transport streams and of a broadcast, and files of all kinds."""
import dataclasses
import os
import shlex
import socket
import subprocess
import sys
from pathlib import Path

from tvservice.local import start_program

PROGRAMS = {1: ("One", "Two", "News"), 2: ("Sports", "Movies", "Music")}  # of the transmitter's streams
PITCH = 500  # Hz, of the file without pictures
# Made by GStreamer; each shows its own name.
FILES = {
    "mkv": "openh264enc gop-size=25 complexity=low ! h264parse ! matroskamux",
    "mp4": "openh264enc gop-size=25 complexity=low ! h264parse ! mp4mux",
    "webm": "vp8enc deadline=1 cpu-used=8 keyframe-max-dist=25 ! webmmux",
    "ogg": "theoraenc keyframe-force=32 speed-level=2 ! oggmux",
}
FRAMES = 25  # a second


@dataclasses.dataclass(frozen=True)
class Source:
    kind: str  # "channel", "broadcast" or "file"
    uri: str
    texts: tuple = ()  # of which its picture shows one; none: it has no picture

    @property
    def service(self):
        return "mmserviced" if self.kind == "file" else "tvserviced"


def make_files(transmitter, folder, seconds):
    """Makes the transport streams and the files. Returns the sources that are files."""
    making = [
        subprocess.Popen(
            [transmitter, "--stream", str(stream), "--seconds", str(seconds), folder / f"{stream}.ts"],
            stderr=subprocess.DEVNULL,  # one encoder prints a harmless message
            env={**os.environ, "ASAN_OPTIONS": "detect_leaks=0"},  # the encoders' leaks are not judged here
        )
        for stream in PROGRAMS
    ]
    sources = [Source("file", f"file://{folder}/1.ts", PROGRAMS[1])]
    for suffix, encode in FILES.items():
        launch(
            f"videotestsrc num-buffers={seconds * FRAMES} ! video/x-raw,width=640,height=360,framerate={FRAMES}/1"
            f" ! qroverlay data={suffix} case-sensitive=true pixel-size=6 x=10 y=50 ! videoconvert ! {encode}",
            folder / f"film.{suffix}",
        )
        sources.append(Source("file", f"file://{folder}/film.{suffix}", (suffix,)))
    launch(
        f"audiotestsrc num-buffers={seconds * 43} freq={PITCH} ! audio/x-raw,rate=44100 ! wavenc", folder / "tone.wav"
    )
    sources.append(Source("file", f"file://{folder}/tone.wav"))
    for process in making:
        if process.wait() != 0:
            raise RuntimeError(f"{shlex.join(map(str, process.args))} failed with {process.returncode}")
    return sources


def launch(description, path):
    subprocess.run(
        ["gst-launch-1.0", "-q", *shlex.split(description), "!", "filesink", f"location={path}"],
        check=True,
        stderr=subprocess.DEVNULL,
    )


def start_broadcast(folder):
    """Broadcasts the second stream until this process ends. Returns the process and its address."""
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as free:
        free.bind(("127.0.0.1", 0))
        port = free.getsockname()[1]
    program = Path(__file__).with_name("broadcast.py")
    command = [sys.executable, "-B", str(program), str(folder / "2.ts"), str(port)]
    return start_program(command, folder / "broadcast.log", None), f"udp://127.0.0.1:{port}"


def write_channels(path, address):
    """Writes the list of channels. Returns the channels."""
    sources, lines = [], []
    places = [("channel", stream, f"file://{stream}.ts") for stream in PROGRAMS] + [("broadcast", 2, address)]
    for kind, stream, place in places:
        for number, name in enumerate(PROGRAMS[stream], 1):
            uri = f"dvb://{kind}.{stream}.{number}"
            sources.append(Source(kind, uri, (name,)))
            lines += [
                "[[channel]]",
                f'uri = "{uri}"',
                f'name = "{name}"',
                f'source = "{place}"',
                f"program = {number}",
            ]
    path.write_text("\n".join(lines) + "\n", encoding="utf-8")
    return sources
