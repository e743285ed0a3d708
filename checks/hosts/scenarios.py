"""What a receiver has to bear whose services are on another host. Each scenario throws Failure, and judges figures."""
import subprocess
import sys
import time

import network
import strangers as crowds
from playing import LIVE, MEDIA, Player, connect, percentile, play_many
from programs import Failure, seconds_of, wait_until

# In seconds. What is cut right after a sign of life is noticed after four of them; so there is a little time left.
HEARTBEAT = 0.9
NOTICED = 3 * HEARTBEAT + 1
QUEUE = 1024  # messages that may wait for a connection, as built in
PORTS = {"tvservice": 7401, "mmservice": 7402}
LINES = 21  # a second of one kind: 20, and the one about the others


class Stage:
    """Both hosts with all their programs."""

    def __init__(self, net, services, receiver, judge):
        self.net, self.services, self.receiver, self.judge = net, services, receiver, judge
        self.tv_service = services.start_service("tvserviced")
        self.mm_service = services.start_service("mmserviced")
        self.start_host()

    def start_host(self):
        self.host = self.receiver.start_host()
        self.player = Player(self.host)
        connect(self.host)

    def lasting(self):
        return {"TV service": self.tv_service, "MM service": self.mm_service, "framework process": self.host}

    def refused(self):
        """How many both services have turned away."""
        return sum(service.statistics()[name]["refused"]
                   for service, name in ((self.tv_service, "tvservice"), (self.mm_service, "mmservice")))

    def settle(self):
        """Until nothing is under way."""
        wait_until(lambda: not self.host.ask("bundles") and
                   all(one["connected"] and one["queued"] == 0 for one in self.host.statistics().values()), "rest")


def warm_up(stage):
    """A request without an answer, and some strangers, so that all have the threads, files and memory that they will
    ever have."""
    stage.tv_service.ask("fault", "mute", "on")
    request = stage.player.play("0:0", LIVE)
    stage.player.wait([request], 10)
    stage.tv_service.ask("fault", "mute", "off")
    wait_until(lambda: stage.host.ask("runlog", "1"), "the run log has the drop")
    for service in PORTS:
        come(stage, "keys", 200, service).wait()
    stage.judge("requests dropped that a service has not answered", int(stage.player.dropped(request) is not None),
                "requests", 1, 1)


def clean_line(stage, local, count):
    """The same requests through the other host and through sockets of this one, in turns."""
    came, trips = {}, {}
    sides = {"other host": stage.player, "socket": local}
    for name in sides:
        came[name], trips[name] = [], []
    share = count // 10
    for _ in range(10):
        for name, player in sides.items():
            requests, answers = play_many(player, share, 100, 60)
            if any(player.dropped(one) for one in requests):
                raise Failure(f"{name}: a request was dropped")
            came[name] += answers
            trips[name] += filter(None, map(player.round_trip, requests))
    stage.judge("requests over a clean line, answered", len({one[0] for one in came["other host"]}), "requests",
                len({one[0] for one in came["socket"]}), count)
    stage.judge("answers that differ from those over a socket",
                sum(a != b for a, b in zip(came["other host"], came["socket"])) +
                abs(len(came["other host"]) - len(came["socket"])), "answers", 0, 0)
    for name, times in trips.items():
        for part in (50, 99):
            stage.judge(f"round trip, {name}, p{part}", round(percentile(times, part / 100) * 1e6), "us")


def lossy_line(stage, count):
    """50 ms each way, give or take 10, and every twentieth packet lost."""
    stage.net.worsen(5, 50, 10)
    stage.net.use("far")
    begun = time.monotonic()
    requests, answers = play_many(stage.player, count, 20, 120)
    seconds = time.monotonic() - begun
    stage.net.use("near")
    dropped = [one for one in requests if stage.player.dropped(one)]
    stage.judge("requests over a line with 5 % loss and 50 ms delay", len(requests), "requests", count, count)
    stage.judge("of which dropped at their limit", len(dropped), "requests", 0, count // 50)
    told = [one[0] for one in answers]
    stage.judge("of which answered once", sum(told.count(one) == 1 for one in requests), "requests",
                count - len(dropped), count - len(dropped))
    trips = [one for one in map(stage.player.round_trip, requests) if one]
    stage.judge("round trip over that line, p50", round(percentile(trips, 0.5) * 1e3), "ms")
    stage.judge("round trip over that line, p99", round(percentile(trips, 0.99) * 1e3), "ms")
    stage.judge("time for all of them", round(seconds), "s")
    stage.settle()


def noticed_after(log, words, begin, when):
    """How long after a moment a program has said something, from a line of its log on."""
    wait_until(lambda: log.find(words, begin), f"{log.path.name}: \"{words}\"", 2 * NOTICED)
    return seconds_of(log.find(words, begin)) - when


def cut(stage, seconds, flood):
    """The line is pulled out, and a request is made that cannot get through."""
    stage.settle()
    logs = {"TV service": stage.tv_service.log, "framework process": stage.host.log}
    for log in logs.values():
        log.read()
    begins = {name: len(log.lines) for name, log in logs.items()}
    before = stage.host.statistics()["tvservice"]
    memory = stage.host.size()[2]
    when = time.time()
    stage.net.cut()
    lost = stage.player.play("0:0", LIVE)
    for name, log in logs.items():
        stage.judge(f"a cut is noticed by the {name} after",
                    round(noticed_after(log, "disconnected", begins[name], when) * 1e3), "ms", 0, round(NOTICED * 1e3))
    most = 0
    for _ in range(flood):
        stage.host.ask("send-key", "1")
        most = max(most, stage.host.statistics()["tvservice"]["queued"])
    stage.judge("messages that waited during the cut", most, "messages", min(flood, QUEUE), QUEUE)
    stage.judge("memory that they took", max(stage.host.size()[2] - memory, 0), "KiB", 0, 1024)
    stage.player.wait([lost], 10)
    if not stage.player.dropped(lost) or stage.player.answers({lost}):
        raise Failure("a request was answered through a line that was cut")
    wait_until(lambda: stage.host.statistics()["tvservice"]["queued"] == 0, "what waited is dropped", 8)
    time.sleep(max(0, when + seconds - time.time()))
    mended = time.time()
    stage.net.mend()
    request = stage.player.play("0:0", LIVE)
    stage.player.wait([request], 15)
    stage.player.check_answer(request, "0:0", LIVE)
    stage.judge("first play after the cut answered after", round((stage.player.finished(request) - mended) * 1e3), "ms",
                0, 5000)
    connect(stage.host)
    stage.settle()
    after = stage.host.statistics()["tvservice"]
    counted = sum(after[name] - before[name] for name in ("sent", "dropped", "refused"))
    stage.judge("messages of the cut that no counter has", flood + 2 - counted, "messages", 0, 0)


def come(stage, kind, count, service="tvservice"):
    """Strangers, from the receiver's host."""
    words = [kind, network.SERVICE_HOST, str(PORTS[service]), str(count), stage.services.key]
    return subprocess.Popen([*stage.receiver.prefix, sys.executable, network.HERE / "strangers.py", *words])


class Lines:
    """Those that the services' logs have about strangers, from now on."""

    def __init__(self, stage):
        self.logs = [service.log for service in (stage.tv_service, stage.mm_service)]
        for log in self.logs:
            log.read()
        self.begins = [len(log.lines) for log in self.logs]
        self.begun = time.monotonic()

    def judge(self, stage, what):
        for log in self.logs:
            log.read()
        most = max(sum("turned away" in line["text"] for line in log.lines[begin:])
                   for log, begin in zip(self.logs, self.begins))
        if not most:
            raise Failure(f"no log has a line about {what}")
        seconds = int(time.monotonic() - self.begun) + 2  # of the clock, those included that are not whole
        stage.judge(f"lines of a service's log about {what}, at most {LINES} a second", most, "lines", 0,
                    LINES * seconds)


def trips_among(stage, them, what):
    """Round trips until those strangers have all been turned away."""
    trips = round_trips(stage.player, lambda: any(one.poll() is None for one in them))
    if any(one.returncode != 0 for one in them):
        raise Failure(f"{what}: they ended with {[one.returncode for one in them]}")
    return trips


def wait_for_refusals(stage, expected, what):
    wait_until(lambda: stage.refused() >= expected, f"{what}: {stage.refused()} of {expected} refusals are counted", 15)


def strangers(stage, count):
    """Those with unknown keys and those without any, as fast as they can come, while others go on playing."""
    begun = stage.refused()
    for number, (what, kind) in enumerate((("with unknown keys", "keys"), ("without keys", "plain")), 1):
        lines = Lines(stage)
        trips = trips_among(stage, [come(stage, kind, count)], what)
        wait_for_refusals(stage, begun + number * count, what)
        lines.judge(stage, f"strangers {what}")
        stage.judge(f"plays while strangers {what} come as fast as they can", len(trips), "requests", 1)
        stage.judge(f"round trip while strangers {what} come as fast as they can, p99",
                    round(percentile(trips, 0.99) * 1e6), "us", 0, 100_000)
    stage.player.play_one()
    stage.judge("strangers refused and counted", stage.refused() - begun, "strangers", 2 * count, 2 * count)
    if stage.host.statistics()["tvservice"]["reconnects"] > 2:
        raise Failure("an honest connection was lost to strangers")


def crowd(stage, rounds, seconds):
    """Strangers of each kind that come to both services at an even pace; what an honest client notices of them."""
    for kind, pace in crowds.PACES.items():
        begun, lines, ratios = stage.refused(), Lines(stage), []
        for _ in range(rounds):
            end = time.monotonic() + seconds
            quiet = round_trips(stage.player, lambda end=end: time.monotonic() < end)
            them = [come(stage, kind, pace * seconds, service) for service in PORTS]
            ratios.append(percentile(trips_among(stage, them, kind), 0.99) / percentile(quiet, 0.99))
        expected = rounds * pace * seconds * len(PORTS)
        wait_for_refusals(stage, begun + expected, kind)
        stage.judge(f"crowd of strangers, {kind}: refused and counted", stage.refused() - begun, "connections",
                    expected, expected)
        stage.judge(f"crowd of strangers, {kind}: p99 beside that without them, median of the rounds",
                    round(percentile(ratios, 0.5) * 100), "%", 0, 200)
        lines.judge(stage, f"the crowd of strangers, {kind}")


def round_trips(player, wanted):
    """Those of requests that are played as long as more are wanted."""
    trips = []
    while wanted():
        requests, answers = play_many(player, 20, 20, 60)
        if len(answers) != len(requests):
            raise Failure(f"{len(answers)} answers to {len(requests)} requests")
        trips += filter(None, map(player.round_trip, requests))
    return trips


def restarts(stage):
    """A service is killed and comes back, then the framework process, then the services' host moves."""
    stage.settle()
    stage.tv_service.kill()
    stage.tv_service = stage.services.start_service("tvserviced")
    stage.judge("play after the service's restart", round(stage.player.play_one() * 1e3), "ms", 0, 5000)
    connect(stage.host)
    stage.host.kill()
    begun = time.monotonic()
    stage.start_host()
    stage.judge("a receiver that restarts has its connections after", round((time.monotonic() - begun) * 1e3), "ms", 0,
                5000)
    stage.player.play_one(uri=MEDIA)
    # Its old connections have ended before, and nothing is left of them.
    wait_until(lambda: stage.tv_service.log.find("disconnected"), "the service notices that the receiver was killed",
               NOTICED)
    stage.net.move_services()
    moved = time.monotonic()
    wait_until(lambda: not stage.host.statistics()["tvservice"]["connected"], "the move is noticed", 2 * NOTICED)
    wait_until(lambda: all(one["connected"] for one in stage.host.statistics().values()), "the host is found again", 30)
    stage.judge("connections to a host that has moved", round((time.monotonic() - moved) * 1e3), "ms", 0, 10_000)
    stage.player.play_one()


def growth(stage, before):
    """What the programs have more of than before."""
    def grown():
        return {name: [now - then for now, then in zip(program.size(), before[name])]
                for name, program in stage.lasting().items()}
    stage.settle()
    wait_until(lambda: all(one[0] <= 0 and one[1] <= 0 for one in grown().values()), f"nothing grows; {grown()}", 10)
    for name, (descriptors, threads, kibibytes) in grown().items():
        stage.judge(f"descriptors' growth, {name}", max(descriptors, 0), "descriptors", 0, 0)
        stage.judge(f"threads' growth, {name}", max(threads, 0), "threads", 0, 0)
        stage.judge(f"memory's growth, {name}", max(kibibytes, 0), "KiB", 0, 1024)
