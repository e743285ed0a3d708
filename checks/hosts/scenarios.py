"""What a receiver has to bear whose services are on another host. Each scenario throws Failure, and judges figures."""
import json
import signal
import subprocess
import sys
import time

import network
import programs
import raw_clients
from playing import LIVE, MEDIA, Player, connect, percentile, play_many
from programs import Failure, seconds_of, wait_until

# In seconds. What is cut right after a sign of life is noticed at the look after the third missing one.
HEARTBEAT = 0.9
NOTICED = 3 * HEARTBEAT + 1
QUEUE = 1024  # messages that may wait for a connection, as built in
PORTS = {"tvservice": 7401, "mmservice": 7402}
LINES = 21  # a second of one kind: 20, and the one about the others
STREAMS = 64  # that one key may have with a service
# Connections of a kind to one service at a time. Those of one byte fill all places for handshakes, and those that show
# a key more than its streams.
JUNK = {"junk": 250, "keys": 250, "plain": 250, "one-byte": 400, "unproven": 80}
NOTIFICATION, LONG_NOTIFICATION = (json.dumps({"info": {"strParam1": "x" * size}}) for size in (500, 4_000))
LONG_NOTIFICATIONS = 1000  # of which a queue without a bound for all would be full for each stream
SLOWEST_PLAY = 2000  # ms
# In KiB. A stream has the TLS library's session with a record each way, at most 50, and a receive buffer, which doubles
# from 64 to 128 for a message of 65,000 bytes. A connection that has not proven its key has at most 170, mostly the
# first message that it announces, and there are at most 256 of them.
STREAM_MEMORY = STREAMS * (50 + 128) + 256 * 170
QUEUED_MEMORY = QUEUE * 1  # of a stream: the short notifications above, with their heads
# What waits for all clients of a service, in buffers that double: four queues, and a MiB of each stream.
ALL_QUEUED_MEMORY = 2 * (4 * programs.QUEUE_BYTES // 1024 + STREAMS * 1024)
KEPT_MEMORY = 1024
WARM_MEMORY = 8 * 1024  # of tables and libraries, and what lies between them
GIVEN_BACK = 1.5  # seconds after a crowd has gone, when a service has given its memory back
WRONG_KEYS = 25  # clients a second
PACES = {**raw_clients.PACES, "wrong-keys": WRONG_KEYS}


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
        """How many both services have rejected."""
        return sum(
            service.statistics()[name]["refused"]
            for service, name in ((self.tv_service, "tvservice"), (self.mm_service, "mmservice"))
        )

    def settle(self):
        """Until nothing is under way."""
        wait_until(
            lambda: not self.host.ask("bundles")
            and all(one["connected"] and one["queued"] == 0 for one in self.host.statistics().values()),
            "rest",
        )


def warm_up(stage):
    """A request without an answer, and as many handshakes and streams at a time as a service ever has, so that all have
    the threads, files and memory that they will ever have: the C library keeps for later what was freed."""
    cold = {name: program.size()[2] for name, program in stage.lasting().items()}
    stage.tv_service.ask("fault", "mute", "on")
    request = stage.player.play("0:0", LIVE)
    stage.player.wait([request], 10)
    stage.tv_service.ask("fault", "mute", "off")
    wait_until(lambda: stage.host.ask("runlog", "1"), "the run log has the drop")
    for _ in range(2):
        for them in (
            [come(stage, "keys", 200, service) for service in PORTS],
            [come(stage, "one-byte", 4 * PACES["one-byte"], service) for service in PORTS],
            both(stage, "hold", 200, stdin=subprocess.DEVNULL),
        ):
            if any(one.wait() != 0 for one in them):
                raise Failure(f"warming up: they ended with {[one.returncode for one in them]}")
    time.sleep(GIVEN_BACK)
    for name in ("TV service", "MM service"):
        stage.judge(
            f"memory that the {name} keeps after many handshakes and streams",
            max(stage.lasting()[name].size()[2] - cold[name], 0),
            "KiB",
            0,
            WARM_MEMORY,
        )
    stage.judge(
        "requests dropped that a service has not answered",
        int(stage.player.dropped(request) is not None),
        "requests",
        1,
        1,
    )


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
    stage.judge(
        "requests over a clean line, answered",
        len({one[0] for one in came["other host"]}),
        "requests",
        len({one[0] for one in came["socket"]}),
        count,
    )
    stage.judge(
        "answers that differ from those over a socket",
        sum(a != b for a, b in zip(came["other host"], came["socket"]))
        + abs(len(came["other host"]) - len(came["socket"])),
        "answers",
        0,
        0,
    )
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
    stage.judge(
        "of which answered once",
        sum(told.count(one) == 1 for one in requests),
        "requests",
        count - len(dropped),
        count - len(dropped),
    )
    trips = [one for one in map(stage.player.round_trip, requests) if one]
    stage.judge("round trip over that line, p50", round(percentile(trips, 0.5) * 1e3), "ms")
    stage.judge("round trip over that line, p99", round(percentile(trips, 0.99) * 1e3), "ms")
    stage.judge("time for all of them", round(seconds), "s")
    stage.settle()


def noticed_after(log, words, begin, when):
    """How long after a moment a program has said something, from a line of its log on."""
    wait_until(lambda: log.find(words, begin), f'{log.path.name}: "{words}"', 2 * NOTICED)
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
        stage.judge(
            f"a cut is noticed by the {name} after",
            round(noticed_after(log, "disconnected", begins[name], when) * 1e3),
            "ms",
            0,
            round(NOTICED * 1e3),
        )
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
    stage.judge(
        "first play after the cut answered after", round((stage.player.finished(request) - mended) * 1e3), "ms", 0, 5000
    )
    connect(stage.host)
    stage.settle()
    after = stage.host.statistics()["tvservice"]
    counted = sum(after[name] - before[name] for name in ("sent", "dropped", "refused"))
    stage.judge("messages of the cut that no counter has", flood + 2 - counted, "messages", 0, 0)


def pause(stage, seconds):
    """The framework process is stopped for many heartbeats, over a line on which an acknowledgement takes its time."""
    stage.settle()
    stage.net.worsen(0, 50, 10)
    stage.net.use("far")
    stage.player.play_one()
    logs = (stage.tv_service.log, stage.mm_service.log, stage.host.log)
    for log in logs:
        log.read()
    begins = [len(log.lines) for log in logs]
    stage.host.process.send_signal(signal.SIGSTOP)
    time.sleep(seconds)
    stage.host.process.send_signal(signal.SIGCONT)
    stage.player.play_one()
    time.sleep(NOTICED)
    stage.judge(
        f"connections lost while the framework process was stopped for {seconds} s",
        sum(
            "disconnected" in line["text"]
            for log, begin in zip(logs, begins)
            for line in (log.read() or log.lines)[begin:]
        ),
        "connections",
        0,
        0,
    )
    stage.net.use("near")
    stage.player.play_one()


def tls_clients(stage, kind, count, service, *words, **options):
    """Clients from the receiver's host that speak TLS; see tls-clients.cpp."""
    return subprocess.Popen(
        [
            *stage.receiver.prefix,
            stage.receiver.binaries / "check-hosts-clients",
            kind,
            f"tcp://{network.SERVICE_HOST}:{PORTS[service]}",
            str(count),
            *map(str, words),
        ],
        text=True,
        stdout=subprocess.PIPE,
        **options,
    )


def come(stage, kind, count, service="tvservice"):
    """Clients that nobody knows, from the receiver's host."""
    if kind in ("keys", "wrong-keys"):
        return tls_clients(stage, "unknown-keys", count, service, WRONG_KEYS if kind == "wrong-keys" else 0)
    words = [kind, network.SERVICE_HOST, str(PORTS[service]), str(count)]
    return subprocess.Popen([*stage.receiver.prefix, sys.executable, network.HERE / "raw_clients.py", *words])


class Lines:
    """Those that the services' logs have about clients that they reject, from now on."""

    def __init__(self, stage):
        self.logs = [service.log for service in (stage.tv_service, stage.mm_service)]
        for log in self.logs:
            log.read()
        self.begins = [len(log.lines) for log in self.logs]
        self.begun = time.monotonic()

    def judge(self, stage, what):
        for log in self.logs:
            log.read()
        most = max(
            sum("rejected" in line["text"] for line in log.lines[begin:])
            for log, begin in zip(self.logs, self.begins)
        )
        if not most:
            raise Failure(f"no log has a line about {what}")
        seconds = int(time.monotonic() - self.begun) + 2  # of the clock, those included that are not whole
        stage.judge(
            f"lines of a service's log about {what}, at most {LINES} a second", most, "lines", 0, LINES * seconds
        )


def trips_among(stage, them, what):
    """Round trips until those clients have all been rejected."""
    trips = round_trips(stage.player, lambda: any(one.poll() is None for one in them))
    if any(one.returncode != 0 for one in them):
        raise Failure(f"{what}: they ended with {[one.returncode for one in them]}")
    return trips


def wait_for_refusals(stage, expected, what):
    wait_until(lambda: stage.refused() >= expected, f"{what}: {stage.refused()} of {expected} refusals are counted", 15)


def unknown_clients(stage, count):
    """Those with unknown keys and those without any, as fast as they can come, while others go on playing."""
    begun = stage.refused()
    for number, (what, kind) in enumerate((("with unknown keys", "keys"), ("without keys", "plain")), 1):
        lines = Lines(stage)
        trips = trips_among(stage, [come(stage, kind, count)], what)
        wait_for_refusals(stage, begun + number * count, what)
        lines.judge(stage, f"clients {what}")
        stage.judge(f"plays while clients {what} come as fast as they can", len(trips), "requests", 1)
        stage.judge(
            f"round trip while clients {what} come as fast as they can, p99",
            round(percentile(trips, 0.99) * 1e6),
            "us",
            0,
            100_000,
        )
    stage.player.play_one()
    stage.judge(
        "clients with unknown keys or none, refused and counted",
        stage.refused() - begun,
        "clients",
        2 * count,
        2 * count,
    )
    if stage.host.statistics()["tvservice"]["reconnects"] > 2:
        raise Failure("an honest connection was lost to unknown clients")


def crowd(stage, rounds, seconds):
    """Unknown clients of each kind that come to both services at an even pace; what an honest one notices of them."""
    for kind, pace in PACES.items():
        begun, lines, ratios = stage.refused(), Lines(stage), []
        for _ in range(rounds):
            end = time.monotonic() + seconds
            quiet = round_trips(stage.player, lambda end=end: time.monotonic() < end)
            them = [come(stage, kind, pace * seconds, service) for service in PORTS]
            ratios.append(percentile(trips_among(stage, them, kind), 0.99) / percentile(quiet, 0.99))
        expected = rounds * pace * seconds * len(PORTS)
        wait_for_refusals(stage, begun + expected, kind)
        stage.judge(
            f"crowd of unknown clients, {kind}: refused and counted",
            stage.refused() - begun,
            "connections",
            expected,
            expected,
        )
        stage.judge(
            f"crowd of unknown clients, {kind}: p99 beside that without them, median of the rounds",
            round(percentile(ratios, 0.5) * 100),
            "%",
            0,
            200,
        )
        lines.judge(stage, f"the crowd of unknown clients, {kind}")


def round_trips(player, wanted):
    """Those of requests that are played as long as more are wanted."""
    trips = []
    while wanted():
        requests, answers = play_many(player, 20, 20, 60)
        if len(answers) != len(requests):
            raise Failure(f"{len(answers)} answers to {len(requests)} requests")
        trips += filter(None, map(player.round_trip, requests))
    return trips


class Watch:
    """Honest plays beside clients that break the rules with a known key, and what these make the services use."""

    def __init__(self, stage):
        self.stage = stage
        self.services = {"TV service": stage.tv_service, "MM service": stage.mm_service}
        self.before, self.peaks = self.sizes(), self.sizes()
        self.trips = []
        self.counted = {name: self.counters(service) for name, service in self.services.items()}

    @staticmethod
    def counters(service):
        return service.statistics()[programs.SERVICES[service.name]]

    def sizes(self):
        return {name: service.size() for name, service in self.services.items()}

    def grown(self, counter):
        """What each service has counted since the beginning."""
        return {
            name: self.counters(service)[counter] - self.counted[name][counter]
            for name, service in self.services.items()
        }

    def play(self):
        """A request to each service."""
        for uri in (LIVE, MEDIA):
            self.trips.append(self.stage.player.play_one(uri=uri))
        for name, size in self.sizes().items():
            self.peaks[name] = max(self.peaks[name], size, key=lambda one: one[2])

    def play_until_over(self, them, what):
        """Plays, at least once, while those clients are there."""
        self.play()
        while any(one.poll() is None for one in them):
            self.play()
        if any(one.returncode != 0 for one in them):
            raise Failure(f"{what}: they ended with {[one.returncode for one in them]}")

    def expect(self, counter, expected, what):
        """That each service counts just so many."""
        wait_until(
            lambda: all(count >= expected[name] for name, count in self.grown(counter).items()),
            f"{what}: {expected} in '{counter}'; there are {self.grown(counter)}",
        )
        total = sum(expected.values())
        self.stage.judge(f"{what}: counted in '{counter}'", sum(self.grown(counter).values()), "", total, total)

    def judge(self, what, most, kept=KEPT_MEMORY):
        """The slowest play, and memory in KiB: at most so much at a time, and so much afterwards."""
        self.stage.judge(
            f"{what}: slowest of {len(self.trips)} plays meanwhile", round(max(self.trips) * 1e3), "ms", 0, SLOWEST_PLAY
        )
        wait_until(
            lambda: all(size[:2] <= self.before[name][:2] for name, size in self.sizes().items()),
            f"{what}: descriptors and threads are given back",
        )
        time.sleep(GIVEN_BACK)
        for name, after in self.sizes().items():
            before = self.before[name][2]
            self.stage.judge(
                f"{what}: memory of the {name} meanwhile", max(self.peaks[name][2] - before, 0), "KiB", 0, most
            )
            self.stage.judge(f"{what}: memory of the {name} afterwards", max(after[2] - before, 0), "KiB", 0, kept)


def both(stage, kind, count, *words, **options):
    """Clients of both services with the receiver's own key."""
    return [tls_clients(stage, kind, count, service, stage.receiver.key_file, *words, **options) for service in PORTS]


def made_by(them):
    """How many connections the clients of each service have made."""
    return dict(zip(("TV service", "MM service"), (int(one.stdout.read()) for one in them)))


def known_key(stage, records, updates):
    """What somebody can do who has the receiver's key, beside the receiver that goes on playing."""
    watch = Watch(stage)
    them = both(stage, "garbage", records)
    watch.play_until_over(them, "garbage")
    watch.expect("refused", made_by(them), f"{records:,} records of garbage to each service, with a known key")
    watch.judge("garbage with a known key", STREAM_MEMORY)
    for size, count in ((36, records), (65_000, records // 100)):
        watch = Watch(stage)
        watch.play_until_over(both(stage, "messages", count, size), f"messages of {size} bytes")
        what = f"unknown messages of {size:,} bytes"
        watch.expect("undecodable", dict.fromkeys(watch.services, count), what)
        watch.judge(what, STREAM_MEMORY)
    watch = Watch(stage)
    watch.play_until_over(both(stage, "key-updates", updates), "new keys")
    watch.judge(f"{updates:,} new keys on a connection to each service", STREAM_MEMORY)


def hold(stage, count, notifications):
    """Somebody who has the receiver's key takes all connections that the key may have, and never reads."""
    most = STREAM_MEMORY + STREAMS * QUEUED_MEMORY
    # At first the C library keeps some of the memory for later; then there is enough.
    for when, kept in (("at first", most), ("again", KEPT_MEMORY)):
        watch = Watch(stage)
        them = both(stage, "hold", count, stdin=subprocess.PIPE)
        accepted = [int(one.stdout.readline()) for one in them]
        # Each service has the receiver itself, too.
        stage.judge(
            f"{count} connections at once to each service with a known key, {when}: accepted",
            sum(accepted),
            "connections",
            2 * (STREAMS - 1),
            2 * (STREAMS - 1),
        )
        watch.expect(
            "refused", dict.fromkeys(watch.services, count - STREAMS + 1), f"connections beyond those of a key, {when}"
        )
        for number in range(notifications):
            stage.tv_service.ask("emit", "TvServicePlayInfo", NOTIFICATION)
            if number % 20 == 0:
                watch.play()
        stage.judge(
            f"messages that wait for clients that never read, {when}",
            watch.counters(stage.tv_service)["queued"],
            "messages",
            1,
            STREAMS * QUEUE,
        )
        for one in them:
            one.stdin.close()
        watch.play_until_over(them, "clients that never read")
        watch.judge(f"clients that never read, {when}", most, kept)
    watch = Watch(stage)
    them = both(stage, "hold", count, stdin=subprocess.PIPE)
    for one in them:
        one.stdout.readline()
    for number in range(LONG_NOTIFICATIONS):
        stage.tv_service.ask("emit", "TvServicePlayInfo", LONG_NOTIFICATION)
        if number % 20 == 0:
            watch.play()
    for one in them:
        one.stdin.close()
    watch.play_until_over(them, "clients that never read")
    watch.judge("clients that never read long notifications", STREAM_MEMORY + ALL_QUEUED_MEMORY, most)


def reconnects(stage, rounds):
    """The receiver connects anew, again and again, beside clients of all kinds."""
    watch = Watch(stage)
    them, succeeded, slowest = [], 0, 0.0

    def crowd_again():
        """Every kind is there at any time."""
        for kind, count in JUNK.items():
            for service in PORTS:
                if not any(one.poll() is None for k, s, one in them if (k, s) == (kind, service)):
                    them.append(
                        (
                            kind,
                            service,
                            tls_clients(stage, kind, count, service, stage.receiver.key_file)
                            if kind in ("junk", "unproven")
                            else come(stage, kind, count, service),
                        )
                    )

    for _ in range(rounds):
        crowd_again()
        stage.host.kill()
        begun = time.monotonic()
        stage.start_host()
        slowest = max(slowest, time.monotonic() - begun)
        crowd_again()
        watch.play()
        succeeded += 1
    wait_until(lambda: all(one.poll() is not None for _, _, one in them), "the junk comes to its end", 60)
    if any(one.returncode != 0 for _, _, one in them):
        raise Failure(f"junk: ended with {[(kind, one.returncode) for kind, _, one in them]}")
    names = dict(zip(PORTS, watch.services))
    expected = dict.fromkeys(watch.services, 0)
    for kind, service, _ in them:
        expected[names[service]] += JUNK[kind]
    watch.expect("refused", expected, "junk connections while a receiver restarts")
    stage.judge("restarts of a receiver among them that got its connections", succeeded, "restarts", rounds, rounds)
    stage.judge("slowest of them", round(slowest * 1e3), "ms", 0, 5000)
    watch.judge("junk while a receiver restarts", STREAM_MEMORY)


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
    stage.judge(
        "a receiver that restarts has its connections after", round((time.monotonic() - begun) * 1e3), "ms", 0, 5000
    )
    stage.player.play_one(uri=MEDIA)
    # Its old connections have ended before, and nothing is left of them.
    wait_until(
        lambda: stage.tv_service.log.find("disconnected"), "the service notices that the receiver was killed", NOTICED
    )
    stage.net.move_services()
    moved = time.monotonic()
    wait_until(lambda: not stage.host.statistics()["tvservice"]["connected"], "the move is noticed", 2 * NOTICED)
    wait_until(lambda: all(one["connected"] for one in stage.host.statistics().values()), "the host is found again", 30)
    stage.judge("connections to a host that has moved", round((time.monotonic() - moved) * 1e3), "ms", 0, 10_000)
    stage.player.play_one()


def growth(stage, before):
    """What the programs have more of than before."""

    def grown():
        return {
            name: [now - then for now, then in zip(program.size(), before[name])]
            for name, program in stage.lasting().items()
        }

    stage.settle()
    wait_until(lambda: all(one[0] <= 0 and one[1] <= 0 for one in grown().values()), f"nothing grows; {grown()}", 10)
    for name, (descriptors, threads, kibibytes) in grown().items():
        stage.judge(f"descriptors' growth, {name}", max(descriptors, 0), "descriptors", 0, 0)
        stage.judge(f"threads' growth, {name}", max(threads, 0), "threads", 0, 0)
        stage.judge(f"memory's growth, {name}", max(kibibytes, 0), "KiB", 0, 1024)
