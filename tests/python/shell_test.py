"""Tests the clients of shells, blocking and asyncio, with a shell that answers as each test wants."""

import asyncio
import contextlib
import os
import pathlib
import socket
import tempfile
import threading
import unittest
from unittest import mock

import tvservice
from tvservice import shell as shell_module

DONE = b'{"status":0}\n'
TIMEOUT = 60  # seconds, for what is immediate


class FakeShell:
    """Answers the requests in order, on any connection, with the given bytes; b"" answers nothing, None closes the
    connection."""

    def __init__(self, path, answers):
        self.requests = []
        self.received = threading.Semaphore(0)  # released for each request
        self.answers = iter(answers)
        self.connections = []
        self.listener = socket.socket(socket.AF_UNIX)
        self.listener.bind(str(path))
        self.listener.listen()
        self.thread = threading.Thread(target=self._accept)
        self.thread.start()

    def _accept(self):
        threads = []
        while True:
            try:
                connection, _ = self.listener.accept()
            except OSError:
                break
            self.connections.append(connection)
            threads.append(threading.Thread(target=self._serve, args=(connection,)))
            threads[-1].start()
        for thread in threads:
            thread.join()

    def _serve(self, connection):
        with connection, connection.makefile("rb") as lines, contextlib.suppress(OSError):  # the client may leave
            for line in lines:
                self.requests.append(line)
                self.received.release()
                answer = next(self.answers)
                if answer is None:
                    return
                for part in answer if isinstance(answer, list) else [answer]:
                    connection.sendall(part)

    def close(self):
        self.listener.shutdown(socket.SHUT_RDWR)
        self.listener.close()
        for connection in self.connections:
            with contextlib.suppress(OSError):
                connection.shutdown(socket.SHUT_RDWR)
        self.thread.join()


class ShellClients:
    """The tests of both clients. A subclass has a method `new` that makes a client, and `call` to call its methods."""

    def setUp(self):
        temporary = tempfile.TemporaryDirectory()
        self.addCleanup(temporary.cleanup)
        self.folder = pathlib.Path(temporary.name)

    def serve(self, *answers):
        served = FakeShell(self.folder / "frame-host.shell", answers)
        self.addCleanup(served.close)
        return served

    def client(self, **options):
        made = self.new(folder=str(self.folder), **{"timeout": TIMEOUT, **options})
        self.addCleanup(made.close)
        return made

    def fails(self, kind, *answers):
        """Returns the error of a command that gets these answers."""
        self.serve(*answers)
        client = self.client()
        with self.assertRaises(kind) as caught:
            self.call(client.ask, "terminals")
        return caught.exception

    def test_returns_an_answer_that_arrives_in_parts(self):
        self.serve([b'{"output":"[1,', b' 2"}\n{"output":"]"}', b'\n{"status"', b":0}\n"])
        self.assertEqual(self.call(self.client().ask, "terminals"), [1, 2])

    def test_sends_words_that_need_no_quoting(self):
        served = self.serve(DONE, b'{"output":"text\\n"}\n' + DONE)
        client = self.client()
        self.assertIsNone(self.call(client.ask, "play", "0:0", 'file:///a "b"', 3))
        self.assertEqual(self.call(client.read, "stats"), "text\n")
        self.assertEqual(
            served.requests,
            [
                b'{"words": ["play", "0:0", "file:///a \\"b\\"", "3"], "json": true}\n',
                b'{"words": ["stats"], "json": false}\n',
            ],
        )

    def test_raises_the_explanation_of_a_failed_command(self):
        error = self.fails(
            tvservice.CommandFailed, b'{"output":"terminal \'x\'\\n"}\n{"status":-22,"error":"usage: play"}\n'
        )
        self.assertEqual((str(error), error.status, error.code), ("terminal 'x'\nusage: play", -22, 2))

    def test_names_a_failure_without_an_explanation(self):
        error = self.fails(tvservice.CommandFailed, b'{"status":-107}\n')
        self.assertEqual((str(error).split(",")[0], error.code), ("failed: ENOTCONN", 1))

    def test_rejects_malformed_answers(self):
        for answer in (
            b"no json\n",
            b"[]\n",
            b'{"status":true}\n',
            b'{"output":1}\n',
            DONE + b"{",
            b"[" * 200_000 + b"\n",
            b'{"output":"no json"}\n' + DONE,
        ):
            with self.subTest(answer[:40]):
                self.assertEqual(self.fails(tvservice.BadAnswer, answer).code, 6)
            self.doCleanups()
            self.setUp()

    def test_rejects_an_endless_answer(self):
        with mock.patch.object(shell_module, "LONGEST_ANSWER", 1000):
            self.assertIn("longer than 1000 bytes", str(self.fails(tvservice.BadAnswer, b"x" * 2000)))

    def test_does_not_take_a_late_answer_for_that_of_the_next_command(self):
        served = self.serve(b"", b'{"output":"2"}\n' + DONE)
        client = self.client()
        with self.assertRaises(tvservice.TimedOut) as caught:
            self.call(client.ask, "first", timeout=0.05)
        self.assertEqual(caught.exception.code, 4)
        self.assertEqual(self.call(client.ask, "second"), 2)
        self.assertEqual(len(served.connections), 2)

    def test_connects_again_when_the_process_has_closed_the_idle_connection(self):
        served = self.serve(DONE, b'{"output":"2"}\n' + DONE)
        client = self.client()
        self.call(client.ask, "first")
        served.connections[0].sendall(b'{"status":-1,"error":"evicted"}\n')
        served.connections[0].shutdown(socket.SHUT_RDWR)
        self.assertEqual(self.call(client.ask, "second"), 2)

    def test_reports_a_connection_that_ends_before_the_answer(self):
        self.assertEqual(self.fails(tvservice.NotAvailable, None).code, 3)

    def test_reports_a_process_that_does_not_run(self):
        with self.assertRaises(tvservice.NotAvailable) as caught:
            self.call(self.client().ask, "stats")
        self.assertIn(str(self.folder / "frame-host.shell"), str(caught.exception))
        self.assertEqual(caught.exception.code, 3)

    def test_rejects_the_shell_of_another_user(self):
        self.serve()
        with mock.patch.object(os, "geteuid", lambda: os.getuid() + 1):
            with self.assertRaises(tvservice.AccessDenied) as caught:
                self.call(self.client().ask, "stats")
        self.assertEqual(caught.exception.code, 5)

    def test_finds_the_folder_by_the_environment(self):
        for environment, path in (
            ({"RUNTIME_DIRECTORY": "/a", "XDG_RUNTIME_DIR": "/b"}, "/a/tvserviced.shell"),
            ({"RUNTIME_DIRECTORY": "", "XDG_RUNTIME_DIR": "/b"}, "/b/tvservice-adapter/tvserviced.shell"),
            ({}, f"/tmp/tvservice-adapter-{os.geteuid()}/tvserviced.shell"),
        ):
            with mock.patch.dict(os.environ, environment, clear=True):
                self.assertEqual(self.new("tvserviced").path, path)


class BlockingClient(ShellClients, unittest.TestCase):
    new = tvservice.Shell

    def call(self, method, *words, **options):
        return method(*words, **options)


class AsyncioClient(ShellClients, unittest.TestCase):
    new = tvservice.AsyncShell

    def setUp(self):
        super().setUp()
        self.loop = asyncio.new_event_loop()
        self.addCleanup(self.loop.close)

    def call(self, method, *words, **options):
        return self.loop.run_until_complete(method(*words, **options))

    def test_sends_the_commands_of_several_tasks_one_after_the_other(self):
        self.serve(*(b'{"output":"%d"}\n' % number + DONE for number in range(5)))
        client = self.client()

        async def ask_all():
            return await asyncio.gather(*(client.ask(number) for number in range(5)))

        self.assertEqual(self.loop.run_until_complete(ask_all()), list(range(5)))

    def test_can_be_used_after_a_command_was_cancelled(self):
        served = self.serve(b"", b'{"output":"2"}\n' + DONE)
        client = self.client()

        async def cancel_one():
            task = asyncio.ensure_future(client.ask("first"))
            await self.loop.run_in_executor(None, served.received.acquire)
            task.cancel()
            with self.assertRaises(asyncio.CancelledError):
                await task
            return await client.ask("second")

        self.assertEqual(self.loop.run_until_complete(cancel_one()), 2)
        self.loop.run_until_complete(self.loop.shutdown_default_executor())


if __name__ == "__main__":
    unittest.main()
