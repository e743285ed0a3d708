"""Tests the start and the end of receivers of one's own."""

import os
import pathlib
import tempfile
import unittest
from unittest import mock

from tvservice import MM_SERVICE, NotAvailable, Receiver
from tvservice.local import PROGRAMS_VARIABLE, LocalReceiver, ProcessError


class LocalReceivers(unittest.TestCase):
    def test_leave_nothing_behind(self):
        with LocalReceiver() as receiver:
            processes, folder = list(receiver.processes.values()), receiver.folder
            receiver.play("0:0", "dvb://1.1.1")
        self.assertEqual([process.poll() for process in processes], [0, 0, 0])
        self.assertFalse(pathlib.Path(folder).exists())
        with self.assertRaises(NotAvailable):
            Receiver(folder).terminals()

    def test_run_side_by_side(self):
        with LocalReceiver() as one, LocalReceiver() as other:
            one.play("0:0", "dvb://1.1.1")
            self.assertEqual((len(one.terminals()), other.terminals()), (1, []))

    def test_do_not_use_the_configuration_of_another_one(self):
        with tempfile.TemporaryDirectory() as folder:
            config = pathlib.Path(folder) / "tvservice-adapter" / "config.toml"
            config.parent.mkdir()
            config.write_text("malformed", encoding="utf-8")
            others = {"RUNTIME_DIRECTORY": "/no/such", "TVSA_QUEUE_MESSAGES": "none", "XDG_CONFIG_HOME": folder}
            with mock.patch.dict(os.environ, others), LocalReceiver() as receiver:
                receiver.play("0:0", "dvb://1.1.1")

    def test_start_a_killed_program_again(self):
        with LocalReceiver() as receiver:
            receiver.kill(MM_SERVICE)
            receiver.start_process(MM_SERVICE)
            receiver.fault(MM_SERVICE, "mute")
            self.assertEqual(receiver.faults(MM_SERVICE)["mute"], True)

    def test_report_a_program_that_ended_unexpectedly(self):
        with self.assertRaises(ProcessError) as caught:
            with LocalReceiver() as receiver:
                receiver.processes[MM_SERVICE].kill()
                receiver.processes[MM_SERVICE].wait()
        self.assertIn("mmserviced had ended unexpectedly, with -9", str(caught.exception))

    def test_let_the_error_of_a_test_through(self):
        with self.assertRaises(ZeroDivisionError):
            with LocalReceiver() as receiver:
                receiver.processes[MM_SERVICE].kill()
                raise ZeroDivisionError

    def test_say_why_the_framework_process_did_not_start(self):
        with self.assertRaises(ProcessError) as caught:
            with LocalReceiver(["no-such"]):
                pass
        self.assertIn("frame-host ended with 1", str(caught.exception))
        self.assertIn("libno-such-application.so", str(caught.exception))

    def test_say_why_a_service_did_not_start(self):
        with self.assertRaises(ProcessError) as caught:
            with LocalReceiver(environment={"TVSA_QUEUE_MESSAGES": "none"}):
                pass
        self.assertIn("tvserviced did not become ready", str(caught.exception))
        self.assertIn("TVSA_QUEUE_MESSAGES: not a number", str(caught.exception))

    def test_say_where_programs_are_searched(self):
        with mock.patch.dict(os.environ, {PROGRAMS_VARIABLE: "/no/such"}):
            with self.assertRaises(ProcessError) as caught:
                with LocalReceiver():
                    pass
        self.assertIn("no program tvserviced: install it, or set TVSERVICE_PROGRAMS", str(caught.exception))


if __name__ == "__main__":
    unittest.main()
