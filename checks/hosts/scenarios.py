"""What a receiver must withstand if its services run on another host. Scenarios raise Failure and judge figures."""
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

# In seconds. A cut right after a heartbeat is noticed at the check that follows the third missing heartbeat.
HEARTBEAT = 0.9
NOTICED = 3 * HEARTBEAT + 1
QUEUE = 1024  # messages; the default limit of a connection's queue
PORTS = {"tvservice": 7401, "mmservice": 7402}
LINES = 21  # log lines a second of one kind: 20, and one about the suppressed ones
STREAMS = 64  # connections of one key to a service
# Connections of a kind to one service at a time. The one-byte clients fill all slots for handshakes; the unproven ones
# are more than the connections of one key.
JUNK = {"junk": 250, "keys": 250, "plain": 250, "one-byte": 400, "unproven": 80}
NOTIFICATION, LONG_NOTIFICATION = (json.dumps({"info": {"strParam1": "x" * size}}) for size in (500, 4_000))
LONG_NOTIFICATIONS = 1000  # would fill every connection's queue if there were no limit on all of them together
SLOWEST_PLAY = 2000  # ms
# In KiB. A connection has a TLS session with a record each way, at most 50, and a receive buffer, which doubles from 64
# to 128 for a message of 65,000 bytes. A connection that has not proven its key takes at most 170, mostly for the first
# message that it announces; there are at most 256 of them.
STREAM_MEMORY = STREAMS * (50 + 128) + 256 * 170
QUEUED_MEMORY = QUEUE * 1  # of a connection: the short notifications above, with their headers
# Queued for all clients of a service, in buffers that double: four queues, and a MiB for each connection.
ALL_QUEUED_MEMORY = 2 * (4 * programs.QUEUE_BYTES // 1024 + STREAMS * 1024)
KEPT_MEMORY = 1024
LEAKED_MEMORY = 64  # more in use than before: a service keeps nothing of its peers but counts
WARM_MEMORY = 8 * 1024  # for tables, libraries and fragmentation
RELEASE_TIME = 1.5  # seconds; a service has released the memory of its clients that long after they have disconnected
WRONG_KEYS = 25  # clients a second
RATES = {**raw_clients.RATES, "wrong-keys": WRONG_KEYS}


class Stage:
    """Both hosts with all their programs."""

    def __init__(self, net, services, receiver, judge):
        self.net, self.services, self.receiver, self.judge = net, services, receiver, judge
        self.tv_service = services.start_service("tvserviced", count_heap=True)
        self.mm_service = services.start_service("mmserviced", count_heap=True)
        self.start_host()

    def start_host(self):
        self.host = self.receiver.start_host()
        self.player = Player(self.host)
        connect(self.host)

    def programs(self):
        return {"TV service": self.tv_service, "MM service": self.mm_service, "framework process": self.host}

    def refused(self):
        """Returns how many clients the two services have rejected."""
        return sum(
            service.statistics()[name]["refused"]
            for service, name in ((self.tv_service, "tvservice"), (self.mm_service, "mmservice"))
        )

    def settle(self):
        """Waits until both services are connected and nothing is pending."""
        wait_until(
            lambda: not self.host.ask("bundles")
            and all(counters["connected"] and counters["queued"] == 0 for counters in self.host.statistics().values()),
            "no pending requests or messages",
        )


def warm_up(stage):
    """Makes a request without an answer, and the maximum number of concurrent handshakes and connections. After this
    the programs have all their threads, files and memory: the C library keeps freed memory for reuse."""
    cold = {name: program.size()[2] for name, program in stage.programs().items()}
    stage.tv_service.ask("fault", "mute", "on")
    request = stage.player.play("0:0", LIVE)
    stage.player.wait([request], 10)
    stage.tv_service.ask("fault", "mute", "off")
    wait_until(lambda: stage.host.ask("runlog", "1"), "the run log has the drop")
    for _ in range(2):
        for clients in (
            [unknown_clients(stage, "keys", 200, service) for service in PORTS],
            [unknown_clients(stage, "one-byte", 4 * RATES["one-byte"], service) for service in PORTS],
            known_clients(stage, "hold", 200, stdin=subprocess.DEVNULL),
        ):
            if any(client.wait() != 0 for client in clients):
                raise Failure(f"warming up: clients ended with {[client.returncode for client in clients]}")
    time.sleep(RELEASE_TIME)
    for name in ("TV service", "MM service"):
        stage.judge(
            f"memory that the {name} keeps after many handshakes and connections",
            max(stage.programs()[name].size()[2] - cold[name], 0),
            "KiB",
            0,
            WARM_MEMORY,
        )
    stage.judge(
        "unanswered requests that were dropped",
        int(stage.player.dropped(request) is not None),
        "requests",
        1,
        1,
    )


def clean_link(stage, local, count):
    """Plays the same requests through the other host and through local sockets, in turns."""
    received, trips = {}, {}
    players = {"other host": stage.player, "socket": local}
    for name in players:
        received[name], trips[name] = [], []
    share = count // 10
    for _ in range(10):
        for name, player in players.items():
            requests, answers = play_many(player, share, 100, 60)
            if any(player.dropped(request) for request in requests):
                raise Failure(f"{name}: a request was dropped")
            received[name] += answers
            trips[name] += filter(None, map(player.round_trip, requests))
    stage.judge(
        "requests answered over a clean link",
        len({answer[0] for answer in received["other host"]}),
        "requests",
        len({answer[0] for answer in received["socket"]}),
        count,
    )
    stage.judge(
        "answers that differ from those over a local socket",
        sum(a != b for a, b in zip(received["other host"], received["socket"]))
        + abs(len(received["other host"]) - len(received["socket"])),
        "answers",
        0,
        0,
    )
    for name, times in trips.items():
        for part in (50, 99):
            stage.judge(f"round trip, {name}, p{part}", round(percentile(times, part / 100) * 1e6), "us")


def lossy_link(stage, count):
    """Plays over a link that delays packets by 40 to 60 ms each way and drops one in twenty."""
    stage.net.impair(5, 50, 10)
    stage.net.use("far")
    started = time.monotonic()
    requests, answers = play_many(stage.player, count, 20, 120)
    seconds = time.monotonic() - started
    stage.net.use("near")
    dropped = [request for request in requests if stage.player.dropped(request)]
    stage.judge("requests over a link with 5 % loss and 50 ms delay", len(requests), "requests", count, count)
    stage.judge("of which dropped after the time limit", len(dropped), "requests", 0, count // 50)
    answered = [answer[0] for answer in answers]
    stage.judge(
        "of which answered once",
        sum(answered.count(request) == 1 for request in requests),
        "requests",
        count - len(dropped),
        count - len(dropped),
    )
    trips = [trip for trip in map(stage.player.round_trip, requests) if trip]
    stage.judge("round trip over the lossy link, p50", round(percentile(trips, 0.5) * 1e3), "ms")
    stage.judge("round trip over the lossy link, p99", round(percentile(trips, 0.99) * 1e3), "ms")
    stage.judge("duration of all requests over the lossy link", round(seconds), "s")
    stage.settle()


def noticed_after(log, words, begin, when):
    """Returns how long after the time `when` a program logged `words`. Searches its log from line `begin` on."""
    wait_until(lambda: log.find(words, begin), f'{log.path.name}: "{words}"', 2 * NOTICED)
    return seconds_of(log.find(words, begin)) - when


def cut(stage, seconds, flood):
    """Cuts the link for a time, during which requests cannot reach the services."""
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
            f"time until the {name} notices the cut",
            round(noticed_after(log, "disconnected", begins[name], when) * 1e3),
            "ms",
            0,
            round(NOTICED * 1e3),
        )
    most = 0
    for _ in range(flood):
        stage.host.ask("send-key", "1")
        most = max(most, stage.host.statistics()["tvservice"]["queued"])
    stage.judge("messages queued during the cut", most, "messages", min(flood, QUEUE), QUEUE)
    stage.judge("memory of the queued messages", max(stage.host.size()[2] - memory, 0), "KiB", 0, 1024)
    stage.player.wait([lost], 10)
    if not stage.player.dropped(lost) or stage.player.answers({lost}):
        raise Failure("a request was answered although the link was cut")
    wait_until(lambda: stage.host.statistics()["tvservice"]["queued"] == 0, "queued messages are dropped", 8)
    time.sleep(max(0, when + seconds - time.time()))
    restored = time.time()
    stage.net.restore()
    request = stage.player.play("0:0", LIVE)
    stage.player.wait([request], 15)
    stage.player.check_answer(request, "0:0", LIVE)
    stage.judge(
        "time from the end of the cut to the first answer",
        round((stage.player.finished(request) - restored) * 1e3),
        "ms",
        0,
        5000,
    )
    connect(stage.host)
    stage.settle()
    after = stage.host.statistics()["tvservice"]
    counted = sum(after[name] - before[name] for name in ("sent", "dropped", "refused"))
    stage.judge("messages of the cut that were not counted", flood + 2 - counted, "messages", 0, 0)


def pause(stage, seconds):
    """Stops the framework process for many heartbeats, on a link that delays acknowledgements."""
    stage.settle()
    stage.net.impair(0, 50, 10)
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
    """Starts clients on the receiver's host that use TLS; see tls-clients.cpp."""
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


def unknown_clients(stage, kind, count, service="tvservice"):
    """Starts clients on the receiver's host whose keys the service does not know, or that have none."""
    if kind in ("keys", "wrong-keys"):
        return tls_clients(stage, "unknown-keys", count, service, WRONG_KEYS if kind == "wrong-keys" else 0)
    words = [kind, network.SERVICE_HOST, str(PORTS[service]), str(count)]
    return subprocess.Popen([*stage.receiver.prefix, sys.executable, network.HERE / "raw_clients.py", *words])


class RejectionLines:
    """Counts the lines about rejected clients in the services' logs, from now on."""

    def __init__(self, stage):
        self.logs = [service.log for service in (stage.tv_service, stage.mm_service)]
        for log in self.logs:
            log.read()
        self.begins = [len(log.lines) for log in self.logs]
        self.started = time.monotonic()

    def judge(self, stage, what):
        for log in self.logs:
            log.read()
        most = max(
            sum("rejected" in line["text"] for line in log.lines[begin:]) for log, begin in zip(self.logs, self.begins)
        )
        if not most:
            raise Failure(f"no log has a line about {what}")
        seconds = int(time.monotonic() - self.started) + 2  # of the clock, with partial seconds at both ends
        stage.judge(f"log lines of a service about {what}, at most {LINES} a second", most, "lines", 0, LINES * seconds)


def trips_beside(stage, clients, what):
    """Returns the round trips of requests until all those clients have been rejected."""
    trips = round_trips(stage.player, lambda: any(client.poll() is None for client in clients))
    if any(client.returncode != 0 for client in clients):
        raise Failure(f"{what}: clients ended with {[client.returncode for client in clients]}")
    return trips


def wait_for_refusals(stage, expected, what):
    wait_until(
        lambda: stage.refused() >= expected,
        lambda: f"{what}: {stage.refused()} of {expected} are counted as refused",
        15,
    )


def full_speed(stage, count):
    """Clients with unknown keys, and clients without keys, connect as fast as they can while the receiver plays."""
    before = stage.refused()
    for number, (what, kind) in enumerate((("with unknown keys", "keys"), ("without keys", "plain")), 1):
        lines = RejectionLines(stage)
        trips = trips_beside(stage, [unknown_clients(stage, kind, count)], what)
        wait_for_refusals(stage, before + number * count, what)
        lines.judge(stage, f"clients {what}")
        stage.judge(f"plays while clients {what} connect at full speed", len(trips), "requests", 1)
        stage.judge(
            f"round trip while clients {what} connect at full speed, p99",
            round(percentile(trips, 0.99) * 1e6),
            "us",
            0,
            100_000,
        )
    stage.player.play_one()
    stage.judge(
        "clients with unknown keys or none, counted as refused",
        stage.refused() - before,
        "clients",
        2 * count,
        2 * count,
    )
    if stage.host.statistics()["tvservice"]["reconnects"] > 2:
        raise Failure("the receiver lost a connection because of unknown clients")


def constant_rate(stage, rounds, seconds):
    """Unknown clients of each kind connect to both services at a constant rate. Measures the receiver's slowdown."""
    for kind, rate in RATES.items():
        before, lines, ratios = stage.refused(), RejectionLines(stage), []
        for _ in range(rounds):
            end = time.monotonic() + seconds
            quiet = round_trips(stage.player, lambda end=end: time.monotonic() < end)
            clients = [unknown_clients(stage, kind, rate * seconds, service) for service in PORTS]
            ratios.append(percentile(trips_beside(stage, clients, kind), 0.99) / percentile(quiet, 0.99))
        expected = rounds * rate * seconds * len(PORTS)
        wait_for_refusals(stage, before + expected, kind)
        stage.judge(
            f"unknown clients at a constant rate, {kind}: counted as refused",
            stage.refused() - before,
            "connections",
            expected,
            expected,
        )
        stage.judge(
            f"unknown clients at a constant rate, {kind}: p99 relative to that without them, median of the rounds",
            round(percentile(ratios, 0.5) * 100),
            "%",
            0,
            200,
        )
        lines.judge(stage, f"unknown clients at a constant rate, {kind}")


def round_trips(player, proceed):
    """Plays while proceed() is true, and returns the round trips."""
    trips = []
    while proceed():
        requests, answers = play_many(player, 20, 20, 60)
        if len(answers) != len(requests):
            raise Failure(f"{len(answers)} answers to {len(requests)} requests")
        trips += filter(None, map(player.round_trip, requests))
    return trips


class Watch:
    """Plays while clients with a known key violate the protocol, and measures the resources that the services use."""

    def __init__(self, stage):
        self.stage = stage
        self.services = {"TV service": stage.tv_service, "MM service": stage.mm_service}
        self.before, self.peaks = self.sizes(), self.sizes()
        self.allocated = self.heaps()
        self.trips = []
        self.counted = {name: self.counters(service) for name, service in self.services.items()}

    @staticmethod
    def counters(service):
        return service.statistics()[programs.SERVICES[service.name]]

    def sizes(self):
        return {name: service.size() for name, service in self.services.items()}

    def heaps(self):
        return {name: service.allocated() for name, service in self.services.items()}

    def grown(self, counter):
        """Returns by how much each service's counter has grown since the beginning."""
        return {
            name: self.counters(service)[counter] - self.counted[name][counter]
            for name, service in self.services.items()
        }

    def play(self):
        """Plays through each service once."""
        for uri in (LIVE, MEDIA):
            self.trips.append(self.stage.player.play_one(uri=uri))
        for name, size in self.sizes().items():
            self.peaks[name] = max(self.peaks[name], size, key=lambda each: each[2])

    def play_until_end(self, clients, what):
        """Plays at least once, and until those clients have ended."""
        self.play()
        while any(client.poll() is None for client in clients):
            self.play()
        if any(client.returncode != 0 for client in clients):
            raise Failure(f"{what}: clients ended with {[client.returncode for client in clients]}")

    def expect(self, counter, expected, what):
        """Requires exactly the expected growth of each service's counter."""
        wait_until(
            lambda: all(count >= expected[name] for name, count in self.grown(counter).items()),
            lambda: f"{what}: {expected} in '{counter}'; there are {self.grown(counter)}",
        )
        total = sum(expected.values())
        self.stage.judge(f"{what}: counted in '{counter}'", sum(self.grown(counter).values()), "", total, total)

    def judge(self, what, most, kept=KEPT_MEMORY):
        """Judges the slowest play, and the growth of memory in KiB: at most `most` at a time, and `kept` afterwards."""
        self.stage.judge(
            f"{what}: slowest of {len(self.trips)} plays meanwhile", round(max(self.trips) * 1e3), "ms", 0, SLOWEST_PLAY
        )
        wait_until(
            lambda: all(size[:2] <= self.before[name][:2] for name, size in self.sizes().items()),
            f"{what}: descriptors and threads are released",
        )
        time.sleep(RELEASE_TIME)
        for name, after in self.sizes().items():
            before = self.before[name][2]
            self.stage.judge(
                f"{what}: memory of the {name} meanwhile", max(self.peaks[name][2] - before, 0), "KiB", 0, most
            )
            self.stage.judge(f"{what}: memory of the {name} afterwards", max(after[2] - before, 0), "KiB", 0, kept)
        for name, after in self.heaps().items():
            growth = max(after - self.allocated[name], 0)
            self.stage.judge(f"{what}: of it in use by the {name}", growth, "KiB", 0, LEAKED_MEMORY)


def known_clients(stage, kind, count, *words, **options):
    """Starts clients of both services that use the receiver's key."""
    return [tls_clients(stage, kind, count, service, stage.receiver.key_file, *words, **options) for service in PORTS]


def connections_of(clients):
    """Returns how many connections the clients of each service have made."""
    return dict(zip(("TV service", "MM service"), (int(client.stdout.read()) for client in clients)))


def known_key(stage, records, updates):
    """Attacks by clients that have the receiver's key, while the receiver plays."""
    watch = Watch(stage)
    clients = known_clients(stage, "garbage", records)
    watch.play_until_end(clients, "garbage")
    watch.expect("refused", connections_of(clients), f"{records:,} garbage records to each service, with a known key")
    watch.judge("garbage with a known key", STREAM_MEMORY)
    for size, count in ((36, records), (65_000, records // 100)):
        watch = Watch(stage)
        watch.play_until_end(known_clients(stage, "messages", count, size), f"messages of {size} bytes")
        what = f"unknown messages of {size:,} bytes"
        watch.expect("undecodable", dict.fromkeys(watch.services, count), what)
        watch.judge(what, STREAM_MEMORY)
    watch = Watch(stage)
    watch.play_until_end(known_clients(stage, "key-updates", updates), "key updates")
    watch.judge(f"{updates:,} key updates on a connection to each service", STREAM_MEMORY)


def hold(stage, count, notifications):
    """Clients with the receiver's key occupy all connections that the key may have, and never read."""
    most = STREAM_MEMORY + STREAMS * QUEUED_MEMORY
    # In the first round the C library keeps some of the memory, which the second round reuses.
    for when, kept in (("at first", most), ("again", KEPT_MEMORY)):
        watch = Watch(stage)
        clients = known_clients(stage, "hold", count, stdin=subprocess.PIPE)
        accepted = [int(client.stdout.readline()) for client in clients]
        # The receiver itself has a connection to each service, too.
        stage.judge(
            f"{count} connections at once to each service with a known key, {when}: accepted",
            sum(accepted),
            "connections",
            2 * (STREAMS - 1),
            2 * (STREAMS - 1),
        )
        watch.expect(
            "refused",
            dict.fromkeys(watch.services, count - STREAMS + 1),
            f"connections beyond the limit of a key, {when}",
        )
        for number in range(notifications):
            stage.tv_service.ask("emit", "TvServicePlayInfo", NOTIFICATION)
            if number % 20 == 0:
                watch.play()
        stage.judge(
            f"messages queued for clients that never read, {when}",
            watch.counters(stage.tv_service)["queued"],
            "messages",
            1,
            STREAMS * QUEUE,
        )
        for client in clients:
            client.stdin.close()
        watch.play_until_end(clients, "clients that never read")
        watch.judge(f"clients that never read, {when}", most, kept)
    watch = Watch(stage)
    clients = known_clients(stage, "hold", count, stdin=subprocess.PIPE)
    for client in clients:
        client.stdout.readline()
    for number in range(LONG_NOTIFICATIONS):
        stage.tv_service.ask("emit", "TvServicePlayInfo", LONG_NOTIFICATION)
        if number % 20 == 0:
            watch.play()
    for client in clients:
        client.stdin.close()
    watch.play_until_end(clients, "clients that never read")
    watch.judge("clients that never read long notifications", STREAM_MEMORY + ALL_QUEUED_MEMORY, most)


def reconnects(stage, rounds):
    """Restarts the receiver again and again while clients of all kinds attack."""
    watch = Watch(stage)
    clients, succeeded, slowest = [], 0, 0.0

    def replace_ended():
        """Keeps clients of every kind running."""
        for kind, count in JUNK.items():
            for service in PORTS:
                if not any(client.poll() is None for k, s, client in clients if (k, s) == (kind, service)):
                    clients.append(
                        (
                            kind,
                            service,
                            tls_clients(stage, kind, count, service, stage.receiver.key_file)
                            if kind in ("junk", "unproven")
                            else unknown_clients(stage, kind, count, service),
                        )
                    )

    for _ in range(rounds):
        replace_ended()
        stage.host.kill()
        started = time.monotonic()
        stage.start_host()
        slowest = max(slowest, time.monotonic() - started)
        replace_ended()
        watch.play()
        succeeded += 1
    wait_until(lambda: all(client.poll() is not None for _, _, client in clients), "the junk clients end", 60)
    if any(client.returncode != 0 for _, _, client in clients):
        raise Failure(f"junk: clients ended with {[(kind, client.returncode) for kind, _, client in clients]}")
    names = dict(zip(PORTS, watch.services))
    expected = dict.fromkeys(watch.services, 0)
    for kind, service, _ in clients:
        expected[names[service]] += JUNK[kind]
    what = "junk connections while a receiver restarts"
    watch.expect("refused", expected, what)
    stage.judge("restarts of a receiver beside junk that succeeded", succeeded, "restarts", rounds, rounds)
    stage.judge("slowest restart beside junk", round(slowest * 1e3), "ms", 0, 5000)
    # What the receivers' connections allocate amid the junk keeps a page here and there resident.
    watch.judge("junk while a receiver restarts", STREAM_MEMORY, WARM_MEMORY)


def restarts(stage):
    """Kills and restarts a service, then the framework process; then the services' host changes its address."""
    stage.settle()
    stage.tv_service.kill()
    stage.tv_service = stage.services.start_service("tvserviced", count_heap=True)
    stage.judge("play after the service's restart", round(stage.player.play_one() * 1e3), "ms", 0, 5000)
    connect(stage.host)
    stage.host.kill()
    started = time.monotonic()
    stage.start_host()
    stage.judge(
        "time until a restarted receiver is connected", round((time.monotonic() - started) * 1e3), "ms", 0, 5000
    )
    stage.player.play_one(uri=MEDIA)
    # The service must have noticed the end of the old connections, too.
    wait_until(
        lambda: stage.tv_service.log.find("disconnected"), "the service notices that the receiver was killed", NOTICED
    )
    stage.net.move_services()
    moved = time.monotonic()
    wait_until(lambda: not stage.host.statistics()["tvservice"]["connected"], "the new address is noticed", 2 * NOTICED)
    wait_until(lambda: all(counters["connected"] for counters in stage.host.statistics().values()), "reconnected", 30)
    stage.judge(
        "time to reconnect to a host with a new address", round((time.monotonic() - moved) * 1e3), "ms", 0, 10_000
    )
    stage.player.play_one()


def growth(stage, before):
    """Requires that the programs use no more resources than before."""

    def grown():
        return {
            name: [now - then for now, then in zip(program.size(), before[name])]
            for name, program in stage.programs().items()
        }

    stage.settle()
    wait_until(
        lambda: all(each[0] <= 0 and each[1] <= 0 for each in grown().values()), lambda: f"no growth; {grown()}", 10
    )
    for name, (descriptors, threads, kibibytes) in grown().items():
        stage.judge(f"growth of descriptors, {name}", max(descriptors, 0), "descriptors", 0, 0)
        stage.judge(f"growth of threads, {name}", max(threads, 0), "threads", 0, 0)
        stage.judge(f"growth of memory, {name}", max(kibibytes, 0), "KiB", 0, 1024)
