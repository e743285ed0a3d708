"""Tests the decoder alone and with the golden messages. Environment: TVCTL, the program; GOLDEN, the folder."""

import json
import os
import pathlib
import unittest

import golden
from codec import Codec, SchemaError, WireError


def scalar(name, offset, size, signed=False):
    return {"name": name, "offset": offset, "size": size, "kind": "scalar", "signed": signed}


def pointer(name, offset, kind, **more):
    return {"name": name, "offset": offset, "size": 8, "kind": kind, **more}


def record(name, size, fields):
    return {"name": name, "size": size, "fields": fields}


# A test service, small enough to write its messages by hand.
INNER = record("Inner_t", 9, [scalar("tag", 0, 1), pointer("text", 1, "string")])
OUTER = record(
    "Outer_t",
    21,
    [
        pointer("inners", 0, "sequence", record="Inner_t"),
        {"name": "flag", "offset": 8, "size": 4, "kind": "flag"},
        {"name": "inner", "offset": 12, "size": 9, "kind": "record", "record": "Inner_t"},
    ],
)
MESSAGES = [
    {
        "name": "Outer",
        "size": 21,
        "arguments": [{"name": "outer", "offset": 0, "size": 21, "kind": "record", "record": "Outer_t"}],
    },
    {"name": "Lists", "size": 16, "arguments": [pointer("texts", 0, "stringList"), pointer("words", 8, "uint32List")]},
    {"name": "Nothing", "size": 1, "arguments": []},
]


def schema(messages=None, records=None, version=1):
    service = {"name": "s", "messages": messages or MESSAGES, "records": records or [INNER, OUTER]}
    return {"version": version, "services": [service]}


OUTER_CONTENT = {
    "outer": {
        "inners": [{"tag": 1, "text": "a"}, {"tag": 2, "text": ""}],
        "flag": True,
        "inner": {"tag": 3, "text": "ü"},
    }
}
OUTER_BYTES = bytes.fromhex(
    "00000002 00000015 00000001 03 00000002 0000002a"  # two inners at 21, true, 3, 2 bytes at 42
    "01 00000001 00000027 02 00000000 00000029"  # the array; "a" at 39, "" at 41
    "6100 00 c3bc00"
)
LISTS_CONTENT = {"texts": ["x", "yz"], "words": [7, 0xFFFFFFFF]}
LISTS_BYTES = bytes.fromhex(
    "02000000 10000000 02000000 25000000" "01000000 20000000 02000000 22000000" "7800 797a00" "07000000 ffffffff"
)


class TheCodec(unittest.TestCase):
    def setUp(self):
        self.codec = Codec(schema())

    def test_reads_and_writes_nested_records_depth_first(self):
        self.assertEqual(self.codec.decode("s", "Outer", OUTER_BYTES, "big"), OUTER_CONTENT)
        self.assertEqual(self.codec.encode("s", "Outer", OUTER_CONTENT, "big"), OUTER_BYTES)

    def test_reads_and_writes_lists(self):
        self.assertEqual(self.codec.decode("s", "Lists", LISTS_BYTES, "little"), LISTS_CONTENT)
        self.assertEqual(self.codec.encode("s", "Lists", LISTS_CONTENT, "little"), LISTS_BYTES)

    def test_reads_and_writes_a_message_without_arguments(self):
        self.assertEqual(self.codec.decode("s", "Nothing", b"\0", "little"), {})
        self.assertEqual(self.codec.encode("s", "Nothing", {}, "little"), b"\0")

    def test_keeps_every_byte_of_a_string_that_is_not_utf8(self):
        content = self.codec.decode("s", "Lists", self.patched(LISTS_BYTES, 0x22, b"\xff"), "little")
        self.assertEqual(content["texts"][1], "\udcffz")
        self.assertEqual(self.codec.encode("s", "Lists", content, "little"), self.patched(LISTS_BYTES, 0x22, b"\xff"))

    def test_rejects_a_message_cut_short_at_any_byte(self):
        for message, data, order in (("Outer", OUTER_BYTES, "big"), ("Lists", LISTS_BYTES, "little")):
            for size in range(len(data)):
                with self.subTest(message=message, size=size), self.assertRaises(WireError):
                    self.codec.decode("s", message, data[:size], order)

    def test_reports_how_short_a_message_is(self):
        self.expect_error("Outer", OUTER_BYTES[:20], "big", "the message has 20 bytes, its arguments alone take 21")
        self.expect_error("Nothing", b"", "big", "the message has 0 bytes, its arguments alone take 1")

    def test_names_the_field_whose_block_is_cut_off(self):
        self.expect_error(
            "Outer",
            OUTER_BYTES[:-1],
            "big",
            "outer.inner.text: its block of 3 bytes at byte 42 exceeds the message of 44 bytes",
        )

    def test_rejects_bytes_after_the_last_block(self):
        self.expect_error("Outer", OUTER_BYTES + b"\0\0", "big", "2 bytes follow the message's last block")
        self.expect_error("Nothing", b"\0\0", "big", "1 bytes follow the message's last block")

    def test_rejects_a_wrong_count(self):
        self.expect_error(
            "Outer",
            self.patched(OUTER_BYTES, 3, b"\1"),
            "big",
            "outer.inners[0].text: its block is at byte 39, but the next block begins at byte 30",
        )
        self.expect_error(
            "Lists",
            self.patched(LISTS_BYTES, 8, b"\xff\xff\xff\xff"),
            "little",
            "words: its block of 17179869180 bytes at byte 37 exceeds the message of 45 bytes",
        )

    def test_rejects_a_count_without_an_array_and_an_array_without_a_count(self):
        self.expect_error("Lists", self.patched(LISTS_BYTES, 12, b"\0"), "little", "words: count 2 with a null pointer")
        bytes_without_count = self.patched(LISTS_BYTES, 8, b"\0")
        self.expect_error("Lists", bytes_without_count, "little", "words: count 0 with a pointer to byte 37")

    def test_rejects_an_offset_outside_the_message(self):
        self.expect_error(
            "Outer",
            self.patched(OUTER_BYTES, 35, b"\xff"),
            "big",
            "outer.inners[1].text: its block is at byte 4278190121, but the next block begins at byte 41",
        )

    def test_rejects_an_offset_to_another_block(self):
        self.expect_error(
            "Lists",
            self.patched(LISTS_BYTES, 0x1C, b"\x20"),
            "little",
            "texts[1]: its block is at byte 32, but the next block begins at byte 34",
        )

    def test_rejects_a_string_without_its_terminator(self):
        self.expect_error(
            "Lists",
            self.patched(LISTS_BYTES, 0x21, b"x"),
            "little",
            "texts[0]: the string of 1 bytes at byte 32 is not terminated",
        )

    def test_rejects_the_other_byte_order(self):
        self.expect_error(
            "Lists",
            LISTS_BYTES,
            "big",
            "texts: its block is at byte 268435456, but the next block begins at byte 16",
        )

    def test_rejects_content_that_does_not_fit(self):
        wrong = {"outer": {**OUTER_CONTENT["outer"], "inner": {"tag": 256, "text": ""}}}
        with self.assertRaises(WireError):
            self.codec.encode("s", "Outer", wrong, "big")
        with self.assertRaisesRegex(WireError, "^wanted texts, words, got texts$"):
            self.codec.encode("s", "Lists", {"texts": []}, "big")

    def test_rejects_an_unknown_message(self):
        with self.assertRaisesRegex(WireError, "^the service s has no message Inner$"):
            self.codec.decode("s", "Inner", b"", "big")

    def test_rejects_an_unsupported_schema(self):
        gap = [{"name": "Gap", "size": 5, "arguments": [scalar("a", 0, 1), scalar("b", 2, 2)]}]
        wide = [{"name": "Wide", "size": 8, "arguments": [scalar("a", 0, 8)]}]
        for wrong, problem in (
            (schema(version=2), "schema version 2, expected 1"),
            (schema(messages=gap), "Gap: field b is at 2, not at 1"),
            (schema(messages=wide), "field a: a scalar of 8 bytes"),
            (schema(records=[OUTER]), "there is no record Inner_t"),
            (schema(records=[{**INNER, "size": 10}, OUTER]), "Inner_t: its fields take 9 bytes, its size is 10"),
        ):
            with self.subTest(problem), self.assertRaises(SchemaError) as caught:
                Codec(wrong)
            self.assertEqual(str(caught.exception), problem)

    @staticmethod
    def patched(data, place, patch):
        return data[:place] + patch + data[place + len(patch) :]

    def expect_error(self, message, data, order, problem):
        with self.assertRaises(WireError) as caught:
            self.codec.decode("s", message, data, order)
        self.assertEqual(str(caught.exception), problem)


class GoldenMessages(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.codec = Codec(golden.schema_of(os.environ["TVCTL"]))
        cls.files = {path.name: path.read_text("utf-8") for path in pathlib.Path(os.environ["GOLDEN"]).glob("*.json")}

    def test_are_read_in_both_byte_orders(self):
        for name, text in self.files.items():
            file = json.loads(text)
            for value in file["values"] + file["accepted"]:
                for order in ("little", "big"):
                    with self.subTest(file=name, value=value["name"], order=order):
                        data = bytes.fromhex(value[order])
                        content = self.codec.decode(file["service"], file["message"], data, order)
                        self.assertEqual(content, value["content"])

    def test_match_the_encoder(self):
        wanted = golden.files(self.codec)
        self.assertEqual(sorted(self.files), sorted(wanted))
        for name, text in wanted.items():
            self.assertEqual(self.files[name], text, f"{name}; tests/decoder/golden.py generates the files again")


if __name__ == "__main__":
    unittest.main()
