"""Zaps on four terminals at once, and looks at the picture after each zap."""
import concurrent.futures
import random
import threading
import time

import sources
from receiver import text_in
from tvservice import Error, GivenUp, NotShown, Receiver, TimedOut

TERMINALS = ("0:0", "1:0", "2:0", "3:0")
ANSWER_LIMIT = 5  # seconds
SOUND_LIMIT = 5
MOST_REPORTED = 10


class Zaps:
    """Thread-safe results of zaps."""

    def __init__(self, receiver, all_sources, seed):
        self.receiver, self.sources = receiver, all_sources
        self._random = {terminal: random.Random(f"{seed} {terminal}") for terminal in TERMINALS}
        self._lock = threading.Lock()
        self.done = 0
        self.times = {}  # kind of the source: milliseconds
        self.problems = {"hang": [], "refused": [], "wrong": []}

    def run(self, count):
        """Zaps `count` times, then stops all terminals."""
        share = count // len(TERMINALS)
        with concurrent.futures.ThreadPoolExecutor(len(TERMINALS)) as zappers:
            with concurrent.futures.ThreadPoolExecutor(2) as readers:
                for zapper in [zappers.submit(self._zap, terminal, share, readers) for terminal in TERMINALS]:
                    zapper.result()
        self.receiver.stop(TERMINALS)

    def _zap(self, terminal, count, readers):
        choice = self._random[terminal]
        last = None
        with Receiver(self.receiver.folder) as control:
            read = None
            for _ in range(count):
                last = choice.choice([source for source in self.sources if source is not last])
                if self._play(control, terminal, last):
                    check = self._listen(terminal, last) if not last.texts else self._look(terminal, last, readers)
                    if read:
                        read.result()  # of the previous picture: few wait in memory
                    read = check
            if read:
                read.result()

    def _play(self, control, terminal, source):
        """Returns whether the terminal shows the source."""
        what = f"{terminal} {source.uri}"
        try:
            request = control.play(terminal, source.uri, timeout=ANSWER_LIMIT)
        except (GivenUp, TimedOut) as error:
            self._report("hang", f"{what}: {error}")
        except NotShown as error:
            self._report("refused", f"{what}: {error}")
        else:
            with self._lock:
                self.done += 1
                self.times.setdefault(source.kind, []).append(request.duration_ms)
            return True
        with self._lock:
            self.done += 1
        return False

    def _look(self, terminal, source, readers):
        try:
            picture = self.receiver.picture(source.service, terminal)
        except Error as error:
            self._report("wrong", f"{terminal} {source.uri}: {error}")
            return None

        def read():
            text = text_in(picture)
            if text not in source.texts:
                self._report("wrong", f"{terminal} {source.uri}: {text or 'no text'}")

        return readers.submit(read)

    def _listen(self, terminal, source):
        """The level of sound needs a moment to be heard."""
        deadline = time.monotonic() + SOUND_LIMIT
        try:
            while (pitch := self.receiver.pitch(source.service, terminal)) != sources.PITCH:
                if time.monotonic() > deadline:
                    self._report("wrong", f"{terminal} {source.uri}: {pitch} Hz")
                    return
                time.sleep(0.02)
        except Error as error:
            self._report("wrong", f"{terminal} {source.uri}: {error}")

    def _report(self, problem, text):
        with self._lock:
            self.problems[problem].append(text)
            if len(self.problems[problem]) <= MOST_REPORTED:
                print(f"{problem}: {text}", flush=True)
