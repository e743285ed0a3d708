"""Tests the messages, records and results of the module."""

import json
import pathlib
import unittest

from tvservice import BadAnswer, Result, answers, messages, name_of_result

GOLDEN = pathlib.Path(__file__).resolve().parents[1] / "golden"
ALL = {
    **messages.TVSERVICE_REQUESTS,
    **messages.TVSERVICE_NOTIFICATIONS,
    **messages.MMSERVICE_REQUESTS,
    **messages.MMSERVICE_NOTIFICATIONS,
}


class Messages(unittest.TestCase):
    def test_keep_the_content_of_each_golden_message(self):
        seen = set()
        for file in GOLDEN.glob("*.json"):
            golden = json.loads(file.read_text(encoding="utf-8"))
            seen.add(golden["message"])
            for value in golden["values"]:
                with self.subTest(message=golden["message"], value=value["name"]):
                    message = ALL[golden["message"]].from_json(value["content"])
                    self.assertEqual(message.to_json(), value["content"])
        self.assertEqual(seen, set(ALL))

    def test_are_empty_by_default(self):
        self.assertEqual(
            messages.TvServiceAudioReq().to_json(),
            {"request": {"terminal": {"type": 0, "id": 0}, "intParam1": 0, "intParam2": 0}},
        )

    def test_name_the_member_that_is_missing_or_wrong(self):
        content = messages.TvServiceInfo(infos=[messages.TvServiceInfo_t()]).to_json()
        for change, problem in (
            (lambda info: info.pop("uri"), "TvServiceInfo.infos[0]: no member uri"),
            (lambda info: info.update(result="1"), "TvServiceInfo.infos[0].result: expected int, not '1'"),
            (lambda info: info.update(result=True), "TvServiceInfo.infos[0].result: expected int, not True"),
            (lambda info: info.update(terminal=[]), "TvServiceInfo.infos[0].terminal: expected an object, not []"),
        ):
            info = json.loads(json.dumps(content["infos"][0]))
            change(info)
            with self.assertRaises(BadAnswer) as caught:
                messages.TvServiceInfo.from_json({"infos": [info]})
            self.assertTrue(str(caught.exception).startswith(problem), caught.exception)

    def test_ignore_members_of_a_newer_receiver(self):
        made = messages.TvServiceTerminal_t.from_json({"type": 1, "id": 2, "colour": "red"})
        self.assertEqual(made, messages.TvServiceTerminal_t(type=1, id=2))


class Notifications(unittest.TestCase):
    HEAD = {"number": 1, "time": "2026-11-21T08:30:40.792Z", "message": "TvServiceMtsAudioTrackInfoNotify"}

    def content(self, **members):
        return answers.Notification.from_json({**self.HEAD, **members}).content

    def test_have_the_message_that_they_name(self):
        self.assertEqual(self.content(arguments={"track": 3}), messages.TvServiceMtsAudioTrackInfoNotify(track=3))

    def test_have_no_content_when_it_was_too_long_or_is_unknown(self):
        self.assertIsNone(self.content(arguments={}, omittedBytes=300_000))
        self.assertIsNone(self.content(arguments={"track": 3}, message="TvServiceNew"))


class Results(unittest.TestCase):
    def test_have_names(self):
        self.assertEqual((Result.UNKNOWN_CHANNEL, str(Result.UNKNOWN_CHANNEL)), (2, "unknown channel"))
        self.assertEqual((name_of_result(6), name_of_result(-1)), ("locked", "unknown"))


if __name__ == "__main__":
    unittest.main()
