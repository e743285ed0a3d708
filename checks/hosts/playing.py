"""Plays through a receiver, and reads the results from its answers and from the manager's log."""
import re

from programs import Failure, seconds_of, wait_until

DROP_LIMIT = 5.0  # seconds; a request that has waited longer for answers is dropped at the next check
LATEST_DROP = 7.5  # seconds; checks run every second, and another request postpones them
LIVE, MEDIA = "dvb://1.1.1", "rtp://239.0.0.1:5004"
# Of both services; they cannot play all of them.
URIS = (LIVE, MEDIA, "dvb://1.2.3", "file:///no/such/film.ts", "dvb://9.9.9", "http://127.0.0.1/film.mp4")
STEP = re.compile(
    r"(?P<what>Sending|Receiving|finished|Found) req_?id (?P<id>[\w-]+)"
    r"(?:, ?ResOperation::(?:Sending|Waiting)(?P<phase>\w+))?"
)


def percentile(values, part):
    return sorted(values)[min(len(values) - 1, int(len(values) * part))]


class Player:
    """Plays through one framework process, as its only user."""

    def __init__(self, host):
        self.host = host
        self.parsed = 0  # lines of the log
        self.steps = {}  # request: {(what, phase): seconds}, from the manager's log

    def play(self, terminal, uri):
        """Returns the request's id."""
        return self.host.ask("play", terminal, uri)["request"]

    def read_log(self):
        self.host.log.read()
        for line in self.host.log.lines[self.parsed :]:
            step = STEP.search(line["text"])
            if step:
                self.steps.setdefault(step["id"], {}).setdefault((step["what"], step["phase"]), seconds_of(line))
        self.parsed = len(self.host.log.lines)

    def finished(self, request):
        """Returns the time of the answer, or None."""
        return self.steps.get(request, {}).get(("finished", None))

    def dropped(self, request):
        """Returns the time of the drop, or None."""
        steps = self.steps.get(request, {})
        return next((when for (what, _), when in steps.items() if what == "Found"), None)

    def wait(self, requests, limit):
        """Waits until each request was answered or dropped. Fails if one was dropped too early or too late."""

        def all_done():
            self.read_log()
            return all(self.finished(request) or self.dropped(request) for request in requests)

        wait_until(all_done, f"requests {requests[0]} to {requests[-1]} are answered or dropped", limit, 0.002)
        for request in requests:
            if self.dropped(request):
                self.check_drop(request)

    def check_drop(self, request):
        sent = max(when for (what, _), when in self.steps[request].items() if what == "Sending")
        waited = self.dropped(request) - sent
        if not DROP_LIMIT <= waited <= LATEST_DROP:
            raise Failure(f"request {request} was dropped after {waited:.3f} s")

    def answers(self, requests):
        """Returns the answers to recent requests in order of arrival: (request, terminal, result, uri)."""
        return [
            (answer["reqId"], answer["terminal"], answer["result"], answer["uri"])
            for answer in self.host.ask("answers", "1000")
            if answer["reqId"] in requests
        ]

    def play_one(self, terminal="0:0", uri=LIVE, limit=LATEST_DROP):
        """Plays one request, waits for its answer, and returns how many seconds that took."""
        request = self.play(terminal, uri)
        self.wait([request], limit)
        if not self.finished(request):
            raise Failure(f"request {request} was dropped")
        self.check_answer(request, terminal, uri)
        return self.finished(request) - min(self.steps[request].values())

    def check_answer(self, request, terminal, uri):
        # The client may be notified slightly after the log line.
        wait_until(
            lambda: self.answers({request}) == [(request, terminal, 0, uri)],
            lambda: f"one answer with result 0 to request {request} for {uri}; there are {self.answers({request})}",
            2,
        )

    def round_trip(self, request):
        """Returns the seconds from the manager's start to its answer, or None for a request to both services."""
        steps = self.steps[request]
        begin, end = steps.get(("Sending", "Start")), steps.get(("Receiving", "Start"))
        return end - begin if begin and end else None


def play_many(player, count, at_once, limit):
    """Plays on `at_once` terminals at a time. Returns the requests, and all answers in order of arrival."""
    requests, answers = [], []
    for begin in range(0, count, at_once):
        batch = [player.play(f"0:{i}", URIS[(begin + i * 7) % len(URIS)]) for i in range(min(at_once, count - begin))]
        player.wait(batch, limit)
        answered = {request for request in batch if player.finished(request)}
        wait_until(
            lambda answered=answered: answered <= {answer[0] for answer in player.answers(answered)},
            "all answers arrive",
            2,
        )
        answers += player.answers(set(batch))
        requests += batch
    return requests, answers


def connect(host):
    """Waits until a framework process is connected to both services."""
    wait_until(lambda: all(counters["connected"] for counters in host.statistics().values()), "both services connected")
