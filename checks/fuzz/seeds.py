"""What the fuzzer starts from: the golden messages, as each target takes them, and right texts of the other kinds."""

import json
import pathlib
import struct

ROOT = pathlib.Path(__file__).resolve().parents[2]
LONGEST = 1100  # bytes; what is longer slows the fuzzer down and shows nothing more

SHELL_LINES = [
    'play :d :s [:s]\nTYPE URI [UUID] - plays it\nplay 1 dvb://1.1.1 "a b"',
    'say :s ...\nNAME TEXT... - says it\nsay name the \\"rest\\" of it',
    "terminals\n- lists\nterminals",
    "stop [:d]\nstops it\nstop",
]
URIS = ["dvb://1.1.1", "FILE:///tmp/x", "rec://plain/null", "https://a/b?c#d", "youtubev4:x", "1a:b", "a+b-c.d:"]
JSONS = [
    "{}",
    '{"requests": [{"terminal": {"type": 1, "id": -2}, "uri": "dvb://1.1.1", "strParamList": ["a", "b"]}]}',
    '{"info": {"tracks": []}}',
    '{"application": 4294967296}',
    '{"text": "\\u00fc\\u0000"}',
]


def golden():
    """service, message, value's name, byte order (0 this machine's), bytes."""
    for file in sorted((ROOT / "tests" / "golden").glob("*.json")):
        content = json.loads(file.read_text(encoding="utf-8"))
        for value in content["values"] + content["accepted"]:
            for swap, order in enumerate(("little", "big")):
                yield content["service"], content["message"], value, swap, bytes.fromhex(value[order])


def section(pid, table, extension, content, last=0):
    """A part of a transport stream: a section, whose length and checksum the target makes right."""
    body = struct.pack(">HBBB", extension, 0xC1, 0, last) + content
    return bytes([1]) + struct.pack(">H", pid) + bytes([table, 0xB0, 0, len(body)]) + body


def picture(pid, clock, more):
    """A part: a key frame with a clock in ticks, and more packets."""
    header = bytes.fromhex("000001e0000080000000000001b300")
    return (
        bytes([3])
        + struct.pack(">HBIB", pid, 0x40 | 0x20 | 0x10 | 0x80 | 15, clock >> 1, 0x50)
        + header
        + bytes([more])
    )


def transport_streams():
    """name, parts."""
    names = section(0x11, 0x42, 7, bytes.fromhex("0001ff 0001 fd 8009 4807 01 01 41 03 4f6e65"))
    event = bytes.fromhex("03e9 e000000000 000005 8006 5504 64657505")
    events = section(0x12, 0x4E, 1, bytes.fromhex("000700010000") + event, 0)
    for count, more in ((1, 3), (3, 13)):
        programs = [(number, 0x1000 + number, 0x100 * number) for number in range(1, count + 1)]
        entries = b"".join(struct.pack(">HH", number, 0xE000 | table) for number, table, _ in programs)
        parts = [section(0, 0, 7, entries)]
        for number, table, pid in programs:
            streams = struct.pack(">HHBHH", 0xE000 | pid, 0xF000, 0x1B, 0xE000 | pid, 0xF000)
            streams += struct.pack(">BHH", 3, 0xE000 | pid + 1, 0xF006) + b"\x0a\x04eng\0"
            streams += struct.pack(">BHH", 6, 0xE000 | pid + 2, 0xF007) + b"\x56\x05eng\x09\0"
            streams += struct.pack(">BHH", 6, 0xE000 | pid + 3, 0xF00A) + b"\x59\x08eng\x10\0\1\0\1"
            parts.append(section(table, 2, number, streams))
        parts += [names, events]
        for clock in (0, 9_000, 18_000):
            parts += [picture(pid, clock, more) for _, _, pid in programs]
        yield f"programs-{count}", parts


def seeds(order_of_kinds):
    """target, name, bytes of each; order_of_kinds: the targets of the messages, as the fuzzer numbers them."""
    for service, message, value, swap, data in golden():
        target = f"{service}-{message}"
        name = f"{value['name'].replace(' ', '-')}-{'big' if swap else 'little'}"
        if len(data) > LONGEST:
            continue
        kind = order_of_kinds.index(target)
        yield target, name, bytes([swap]) + data
        if value["name"] == "typical" and not swap:
            yield "json", target, bytes([kind]) + json.dumps(value["content"]).encode()
            yield "encode", target, bytes([kind]) + data
    for i, text in enumerate(SHELL_LINES):
        yield "shell-lines", f"line-{i}", text.encode()
    for i, text in enumerate(URIS):
        yield "uris", f"uri-{i}", text.encode()
    for i, text in enumerate(JSONS):
        yield "json", f"json-{i}", b"\0" + text.encode()
    yield "channel-list", "built-in", (ROOT / "receiver" / "services" / "tvservice" / "channels.toml").read_bytes()
    yield "channel-list", "empty", b""
    for i, choice in enumerate((0, 1)):
        hello = b"tvsq" + struct.pack("<5IQ", 0x01020304, 1, 32 + 9 + 24, 9, 1, 0) + b"tvservice"
        hello += struct.pack("<4IQ", 0xFFFFFFFF, 0x1CCD7773, 0x28671236, 0, 0)
        yield "handshake", f"hello-{i}", bytes([choice, 33]) + hello
        yield "frames", f"hello-{i}", bytes([choice, 7, 1]) + hello
    # After a right hello, in either order: a request of one byte, and one with a text.
    for i, (choice, sign) in enumerate(((3, "<"), (7, ">"))):
        frame = struct.pack(sign + "4IB3x3I", 1, 0xFFFFFFFF, 0x1CCD7773, 0x2867123D, 0, 1, 2, 0) + b"\0"
        text = struct.pack(sign + "4IB3x3I", 12, 0xFFFFFFFF, 0x1CCD7773, 0x28671242, 0, 0, 0, 0)
        yield "frames", f"frames-{i}", bytes([choice, 63, 3]) + frame + text + struct.pack(sign + "2I", 3, 8) + b"abc\0"
    # The head of a first message of TLS, an alert, and what else may come; then both sides of a stream.
    for i, side in enumerate((0, 1)):
        hello = bytes([22, 3, 1, 0, 64, 1, 0, 0, 60, 3, 3]) + bytes(32) + bytes([0, 0, 2, 0x13, 1, 1, 0, 0, 17])
        hello += bytes([0, 43, 0, 3, 2, 3, 4, 0, 10, 0, 4, 0, 2, 0, 29, 0, 0])
        yield "tls-before", f"hello-{i}", bytes([side, 255]) + hello
        yield "tls-before", f"alert-{i}", bytes([side, 2, 21, 3, 3, 0, 2, 2, 42])
        yield "tls-before", f"other-protocol-{i}", bytes([side, 9]) + b"GET / HTTP/1.0\r\n\r\n"
    yield "tls-inside", "both-ways", bytes([0, 0, 9, 1, 4, 2, 1, 0, 5, 3, 0, 99, 4, 4])
    yield "tls-inside", "records", bytes([0, 78, 32, 1]) * 3 + bytes([1, 4, 1, 4]) * 4 + bytes([2, 78, 0, 3, 3, 78, 0])
    yield "tls-inside", "spoiled", bytes([0, 1, 0, 0, 253, 7, 23, 3, 3, 0, 1, 9, 9, 4, 0, 1, 0, 0])
    yield "tls-inside", "ended", bytes([0, 1, 0, 0, 4, 254])
    yield "tls-inside", "broken-off", bytes([0, 1, 0, 0, 4, 255, 0, 1, 0, 0, 4])
    yield "packets", "clock-and-times", struct.pack(">II", 90_000, 0x7FFFFFFF) + bytes.fromhex(
        "47410030075080000000fe00000001e0000080c00a31000100031100010001"
    )
    for name, parts in transport_streams():
        yield "table-sections", name, b"".join(parts)
        for choice in (0, 1):
            yield "distribution", f"{name}-{choice}", bytes([choice, 200, 1]) + b"".join(parts)
    # One table of two fields and a text, and a message for it; a table that holds itself.
    table = bytes([0, 3, 2, 1, 3, 12, 15, 0])
    yield "endian-tables", "text", table + bytes([0]) + struct.pack("<IHII", 7, 9, 2, 14) + b"ab\0"
    yield "endian-tables", "itself", bytes([0, 1, 5, 0, 8])


def write(folder, order_of_kinds):
    for target, name, data in seeds(order_of_kinds):
        path = pathlib.Path(folder) / target
        path.mkdir(parents=True, exist_ok=True)
        (path / name).write_bytes(data)
