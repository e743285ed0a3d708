"""Tests what the receivers do with answers that a real receiver gives rarely."""

import unittest

from tvservice import BadAnswer, messages, steps

FIRST, LATER = "2026-11-21T08:30:40.792Z", "2026-11-21T08:31:00.000Z"


def listed(*tracks, time=FIRST):
    """Notifications as the receiver lists them, each numbered like its track."""
    name = "TvServiceMtsAudioTrackInfoNotify"
    return [{"number": track, "time": time, "message": name, "arguments": {"track": track}} for track in tracks]


def run(generator, answers, asked=None):
    """Runs steps with these answers to their commands, and returns their result."""
    answers = iter(answers)
    answer = None
    while True:
        try:
            step = generator.send(answer)
        except StopIteration as end:
            return end.value
        if isinstance(step, steps.Pause):
            answer = None
            continue
        if asked is not None:
            asked.append(step.words)
        answer = next(answers)


class Feeds(unittest.TestCase):
    def setUp(self):
        self.feed = steps.Feed([])
        run(self.feed.start(), [listed(4, 5)])

    def next(self, *answers):
        asked = []
        notification = run(self.feed.next(timeout=None), answers, asked)
        self.assertIsInstance(notification.content, messages.TvServiceMtsAudioTrackInfoNotify)
        return notification.content.track, [words[1] for words in asked]

    def test_ask_again_until_there_is_a_new_notification(self):
        self.assertEqual(self.next(listed(5), listed(5), listed(5, 6)), (6, [4, 4, 4]))

    def test_return_all_notifications_of_an_answer(self):
        self.assertEqual(self.next(listed(5, 6, 7)), (6, [4]))
        self.assertEqual(self.next(), (7, []))
        self.assertEqual(self.next(listed(7, 8)), (8, [6]))

    def test_count_what_the_receiver_dropped(self):
        self.assertEqual(self.next(listed(9, 10)), (9, [4]))
        self.assertEqual(self.feed.missed, 3)

    def test_begin_anew_when_the_receiver_was_restarted(self):
        for answer in ([], listed(5, 6, time=LATER)):
            with self.subTest(answer):
                self.setUp()
                self.assertEqual(self.next(answer, listed(1, 2, time=LATER)), (1, [4, 0]))
                self.assertEqual(self.feed.missed, 0)

    def test_start_before_the_first_notification(self):
        self.feed = steps.Feed([])
        run(self.feed.start(), [[]])
        self.assertEqual(self.next([], listed(1)), (1, [0, 0]))

    def test_reject_an_answer_that_is_no_list(self):
        with self.assertRaises(BadAnswer):
            self.next({})


class Requests(unittest.TestCase):
    def test_reject_the_answer_of_another_command_with_that_name(self):
        for answer in (None, [], {"queued": 1}, {"queued": 1, "request": 3}):
            with self.subTest(answer), self.assertRaises(BadAnswer):
                run(steps.submit("play", "0:0", "dvb://1.1.1"), [answer])

    def test_reject_an_answer_about_no_request(self):
        with self.assertRaises(BadAnswer):
            run(steps.outcome_of("control-1", None), [[]])


if __name__ == "__main__":
    unittest.main()
