"""What is played through a receiver and what came of it, as its answers and the manager's log tell."""
import re

from programs import Failure, seconds_of, wait_until

DROP_LIMIT = 5.0  # a request whose answers stay out longer is dropped
LATEST_DROP = 7.5  # at the first look after that; looks come every second, and another request puts them off
LIVE, MEDIA = "dvb://1.1.1", "rtp://239.0.0.1:5004"
# Of both services, with what they cannot play.
URIS = (LIVE, MEDIA, "dvb://1.2.3", "file:///no/such/film.ts", "dvb://9.9.9", "http://127.0.0.1/film.mp4")
STEP = re.compile(
    r"(?P<what>Sending|Receiving|finished|Found) req_?id (?P<id>\w+)"
    r"(?:, ?ResOperation::(?:Sending|Waiting)(?P<phase>\w+))?"
)


def percentile(values, part):
    return sorted(values)[min(len(values) - 1, int(len(values) * part))]


class Player:
    """Plays through one framework process, whose only user it is."""

    def __init__(self, host):
        self.host = host
        self.asked = 0
        self.seen = 0  # lines of the log
        self.steps = {}  # by request, of what the manager logged: (what, phase): seconds

    def play(self, terminal, uri):
        """Returns the request's id: the manager numbers them."""
        self.host.ask("play", terminal, uri)
        self.asked += 1
        return str(self.asked)

    def read_log(self):
        self.host.log.read()
        for line in self.host.log.lines[self.seen :]:
            step = STEP.search(line["text"])
            if step:
                self.steps.setdefault(step["id"], {}).setdefault((step["what"], step["phase"]), seconds_of(line))
        self.seen = len(self.host.log.lines)

    def finished(self, request):
        """When it was answered, or nothing."""
        return self.steps.get(request, {}).get(("finished", None))

    def dropped(self, request):
        """When it was given up, or nothing."""
        steps = self.steps.get(request, {})
        return next((when for (what, _), when in steps.items() if what == "Found"), None)

    def wait(self, requests, limit):
        """Until each of them has been answered or dropped, those in time."""

        def over():
            self.read_log()
            return all(self.finished(one) or self.dropped(one) for one in requests)

        wait_until(over, f"requests {requests[0]} to {requests[-1]} come to an end", limit, 0.002)
        for one in requests:
            if self.dropped(one):
                self.check_drop(one)

    def check_drop(self, request):
        sent = max(when for (what, _), when in self.steps[request].items() if what == "Sending")
        waited = self.dropped(request) - sent
        if not DROP_LIMIT <= waited <= LATEST_DROP:
            raise Failure(f"request {request} was dropped after {waited:.3f} s")

    def answers(self, requests):
        """The answers to some of the latest requests, as they came: (request, terminal, result, uri)."""
        return [
            (one["reqId"], one["terminal"], one["result"], one["uri"])
            for one in self.host.ask("answers", "1000")
            if one["reqId"] in requests
        ]

    def play_one(self, terminal="0:0", uri=LIVE, limit=LATEST_DROP):
        """Has one request answered and returns how many seconds that took."""
        request = self.play(terminal, uri)
        self.wait([request], limit)
        if not self.finished(request):
            raise Failure(f"request {request} was dropped")
        self.check_answer(request, terminal, uri)
        return self.finished(request) - min(self.steps[request].values())

    def check_answer(self, request, terminal, uri):
        # The client is told in the same moment as the log.
        wait_until(
            lambda: self.answers({request}) == [(request, terminal, 0, uri)],
            f"one good answer to request {request} for {uri}; there are {self.answers({request})}",
            2,
        )

    def round_trip(self, request):
        """From the manager's sending the start to its answer, in seconds; nothing for one that needs both services."""
        steps = self.steps[request]
        begin, end = steps.get(("Sending", "Start")), steps.get(("Receiving", "Start"))
        return end - begin if begin and end else None


def play_many(player, count, at_once, limit):
    """Plays on as many terminals at a time as may be; returns the requests and all answers as they came."""
    requests, answers = [], []
    for begin in range(0, count, at_once):
        batch = [player.play(f"0:{i}", URIS[(begin + i * 7) % len(URIS)]) for i in range(min(at_once, count - begin))]
        player.wait(batch, limit)
        told = {one for one in batch if player.finished(one)}
        wait_until(lambda told=told: told <= {one[0] for one in player.answers(told)}, "all answers are told", 2)
        answers += player.answers(set(batch))
        requests += batch
    return requests, answers


def connect(host):
    """Waits until a framework process has all its services."""
    wait_until(lambda: all(one["connected"] for one in host.statistics().values()), "both services connected")
