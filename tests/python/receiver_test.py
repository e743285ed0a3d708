"""Tests both kinds of receivers, blocking and asyncio, with a real one."""

import asyncio
import os
import subprocess
import unittest

import tvservice
from tvservice import MM_SERVICE, TV_SERVICE, messages
from tvservice.local import LocalReceiver, program

LIVE, OTHER, MEDIA = "dvb://1.1.1", "dvb://1.2.3", "rtp://239.0.0.1:5004"
TIMEOUT = 60  # seconds, for what is immediate
TRACK = messages.TvServiceMtsAudioTrackInfoNotify


class Receivers:
    """The tests of both kinds. A subclass has `receiver` and `next`."""

    @classmethod
    def setUpClass(cls):
        cls.local = LocalReceiver()
        cls.local.__enter__()

    @classmethod
    def tearDownClass(cls):
        cls.local.__exit__(None, None, None)

    def tearDown(self):
        for service in (TV_SERVICE, MM_SERVICE):
            self.local.clear_faults(service)

    def notifications(self, *names, timeout=TIMEOUT):
        made = self.receiver.notifications(*names, timeout=timeout)
        self.addCleanup(made.close)
        return made

    def tvctl(self, *words):
        """Returns the exit code."""
        return subprocess.run(
            [program("tvctl"), *words],
            env={**os.environ, "RUNTIME_DIRECTORY": self.local.folder},
            stdout=subprocess.DEVNULL,
            stderr=subprocess.DEVNULL,
            check=False,
        ).returncode

    def test_play_and_stop_until_terminals_show_it(self):
        request = self.receiver.play(["0:0", "1:0"], LIVE)
        self.assertEqual(
            [(each.terminal, each.uri, each.result, each.result_name) for each in request.terminals],
            [("0:0", LIVE, 0, "done"), ("1:0", LIVE, 0, "done")],
        )
        self.assertEqual((request.state, request.asker, request.is_pending), ("answered", "shell", False))
        shown = {each.terminal: each for each in self.receiver.terminals()}
        self.assertEqual((shown["1:0"].uri, shown["1:0"].req_id), (LIVE, request.id))
        stopped = self.receiver.stop("0:0")
        self.assertEqual(self.receiver.requests(2), [request, stopped])
        self.assertEqual(self.receiver.request(stopped.id), stopped)

    def test_fail_like_tvctl_when_a_terminal_does_not_show_it(self):
        with self.assertRaises(tvservice.NotShown) as caught:
            self.receiver.play("0:0", "dvb://9.9.9")
        error = caught.exception
        self.assertEqual((error.result, error.name), (tvservice.Result.UNKNOWN_CHANNEL, "unknown channel"))
        self.assertEqual(error.code, self.tvctl("play", "0:0", "dvb://9.9.9"))
        self.assertIn("0:0 refused: unknown channel (2)", str(error))

    def test_fail_like_tvctl_when_a_command_is_wrong(self):
        with self.assertRaises(tvservice.CommandFailed) as caught:
            self.receiver.play("one", LIVE)
        self.assertIn("expected TYPE:ID", str(caught.exception))
        self.assertEqual(caught.exception.code, self.tvctl("play", "one", LIVE))

    def test_fail_like_tvctl_when_a_process_does_not_run(self):
        with self.assertRaises(tvservice.NotAvailable) as caught:
            self.receiver.statistics("nobody")
        self.assertEqual(caught.exception.code, self.tvctl("--target", "nobody", "stats"))

    def test_say_which_service_stayed_silent(self):
        self.receiver.play("0:0", LIVE)
        self.receiver.fault(TV_SERVICE, "mute")
        request = self.receiver.send_play("0:0", OTHER)
        with self.assertRaises(tvservice.TimedOut) as caught:
            self.receiver.wait(request, timeout=0)
        self.assertIn(f"request {request}", str(caught.exception))
        self.assertEqual([each.req_id for each in self.receiver.bundles()], [request])
        with self.assertRaises(tvservice.GivenUp) as caught:
            self.receiver.wait(request)
        self.assertIn("TV service did not answer", str(caught.exception))
        self.assertEqual((caught.exception.code, caught.exception.request.state), (8, "given up"))

    def test_make_services_misbehave(self):
        self.receiver.fault(MM_SERVICE, "wrong")
        self.receiver.fault(MM_SERVICE, "delay", 1)
        self.assertEqual(
            {name: self.receiver.faults(MM_SERVICE)[name] for name in ("wrong", "mute", "delay")},
            {"wrong": True, "mute": False, "delay": 1},
        )
        with self.assertRaises(tvservice.NotShown) as caught:
            self.receiver.play("0:0", MEDIA)
        self.assertEqual(caught.exception.result, tvservice.Result.WRONG_BY_FAULT)
        self.receiver.clear_faults(MM_SERVICE)
        self.receiver.play("0:0", MEDIA)

    def test_count_messages_and_list_channels(self):
        before = {each.service: each for each in self.receiver.statistics()}
        self.receiver.play("0:0", LIVE)
        after = {each.service: each for each in self.receiver.statistics()}
        self.assertTrue(after["tvservice"].connected)
        self.assertGreater(after["tvservice"].sent, before["tvservice"].sent)
        self.assertEqual([each.service for each in self.receiver.statistics(MM_SERVICE)], ["mmservice"])
        self.assertIn(LIVE, [channel.uri for channel in self.receiver.channels()])

    def test_read_the_notifications_from_now_on(self):
        before = self.notifications(TRACK)
        self.receiver.emit(TRACK(track=1))
        self.next(before)
        notifications = self.notifications(TRACK)
        for track in (2, 3):
            self.receiver.emit(TRACK(track=track))
        received = [self.next(notifications) for _ in range(2)]
        self.assertEqual([each.content for each in received], [TRACK(track=2), TRACK(track=3)])
        self.assertEqual((received[0].message, notifications.missed), ("TvServiceMtsAudioTrackInfoNotify", 0))

    def test_read_only_the_wanted_notifications(self):
        notifications = self.notifications("TvServiceMtsAudioTrackInfoNotify")
        self.receiver.play("0:0", LIVE)
        self.receiver.emit(TRACK(track=3))
        self.assertEqual(self.next(notifications).content, TRACK(track=3))

    def test_read_more_notifications_than_one_answer_has(self):
        notifications = self.notifications(TRACK)
        for track in range(120):
            self.receiver.emit(TRACK(track=track))
        self.assertEqual([self.next(notifications).content.track for _ in range(120)], list(range(120)))

    def test_time_out_without_a_notification_and_go_on(self):
        notifications = self.notifications(TRACK, timeout=0.01)
        with self.assertRaises(tvservice.TimedOut) as caught:
            self.next(notifications)
        self.assertIn("no TvServiceMtsAudioTrackInfoNotify within 0.01 s", str(caught.exception))
        notifications.timeout = TIMEOUT
        self.receiver.emit(TRACK(track=4))
        self.assertEqual(self.next(notifications).content, TRACK(track=4))

    def test_reject_the_name_of_no_notification(self):
        with self.assertRaises(ValueError) as caught:
            self.notifications("TvServiceReq")
        self.assertIn("TvServiceReq is not a notification; there are: TvServiceInfo, ", str(caught.exception))


class BlockingReceiver(Receivers, unittest.TestCase):
    def setUp(self):
        self.receiver = tvservice.Receiver(self.local.folder, timeout=TIMEOUT)
        self.addCleanup(self.receiver.close)

    def next(self, notifications):
        return next(notifications)

    def test_count_the_notifications_that_the_receiver_dropped(self):
        notifications, own = self.notifications(), self.notifications(TRACK)
        for track in range(1100):
            self.receiver.emit(TRACK(track=track))
        while self.next(own).content.track != 1099:
            pass
        first = self.next(notifications)
        self.assertGreaterEqual(notifications.missed, 100)
        self.assertEqual(first.content.track, notifications.missed)


class Waiting:
    """An AsyncReceiver whose coroutines are run to their end."""

    def __init__(self, receiver, loop):
        self.receiver, self.loop = receiver, loop

    def __getattr__(self, name):
        return lambda *words, **options: self.loop.run_until_complete(getattr(self.receiver, name)(*words, **options))


class AsyncioReceiver(Receivers, unittest.TestCase):
    def setUp(self):
        self.loop = asyncio.new_event_loop()
        self.addCleanup(self.loop.close)
        receiver = tvservice.AsyncReceiver(self.local.folder, timeout=TIMEOUT)
        self.addCleanup(receiver.close)
        self.receiver = Waiting(receiver, self.loop)

    def next(self, notifications):
        return self.loop.run_until_complete(notifications.__anext__())

    def test_serve_several_tasks(self):
        receiver = self.receiver.receiver

        async def play_all():
            async with await receiver.notifications(TRACK, timeout=TIMEOUT) as notifications:
                waiting = asyncio.ensure_future(notifications.__anext__())
                await asyncio.gather(*(receiver.play(f"0:{number}", LIVE) for number in range(8)))
                await receiver.emit(TRACK(track=5))
                return await waiting

        self.assertEqual(self.loop.run_until_complete(play_all()).content, TRACK(track=5))


if __name__ == "__main__":
    unittest.main()
