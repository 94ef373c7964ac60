"""What is measured. Each section starts what it needs, measures, and gives its raw figures and
its tables; a new measurement is a new section here.
"""

import contextlib
import time

from harness import machine, peers, report
from harness.rounds import Contestant, load

BARE = "bare server"
BARE_AGAIN = "bare server, another one"
SERVICE = "TesselCore"
WINDOW = 1000
CLIENTS = (50, 250, 500, 1000)


@contextlib.contextmanager
def running(*servers):
    started = []
    try:
        for server in servers:
            started.append(server.start())
        yield
    finally:
        for server in started:
            server.stop()


class Section:
    """A part of the run. `measure` gives raw figures for the results file and texts to print."""

    def __init__(self, place, rounds, processors):
        self.place = place
        self.rounds = rounds
        self.server, self.other = processors

    def settings(self):
        """What it is called, and the processors of server and client."""
        yield "client and server on one core", "one core", self.server, self.server
        if self.other != self.server:
            yield "one core each", "two cores", self.server, self.other

    def measure(self):
        raise NotImplementedError


class RoundTrip(Section):
    def measure(self):
        bare = peers.Bare(BARE, self.place)
        # What differs between two of a kind is the noise of the measurement.
        again = peers.Bare(BARE_AGAIN, self.place)
        services = [
            peers.Service(SERVICE, self.place),
            peers.Service(f"{SERVICE}, output to a file", self.place, output_to_file=True),
            peers.Service(f"{SERVICE}, log file on", self.place, log_file=True),
        ]
        others = [peers.Redis("redis PING", self.place), peers.Mpd("mpd ping", self.place)]
        everybody = [bare, again, *services, *others]
        raw, texts = {}, []
        with running(*everybody):
            for title, key, server, client in self.settings():
                results = self.rounds.measure(
                    "round-trip", [Contestant(peer) for peer in everybody], server, client)
                raw[key] = results
                texts.append(report.times_table(f"Round trip of platform|, {title}", results, BARE))
        return raw, texts


class Turns(Section):
    def measure(self):
        bare = peers.Bare(BARE, self.place, words=peers.Bare.APPS)
        service = peers.Service(SERVICE, self.place)
        redis = peers.Redis("redis PING", self.place)
        raw, texts = {}, []
        with running(bare, service, redis):
            apps = peers.AppsPort(service)
            contestants = [
                Contestant(peer, f"{peer.name}, {clients}", ["--clients", str(clients)])
                for clients in CLIENTS for peer in (bare, apps, redis)
            ]
            for title, key, server, client in self.settings():
                results = self.rounds.measure("round-trip", contestants, server, client)
                raw[key] = results
                texts.append(self._table(title, results))
        return raw, texts

    @staticmethod
    def _table(title, results):
        rows = []
        for clients in CLIENTS:
            yardstick = results[f"{BARE}, {clients}"]
            for name in (BARE, SERVICE, "redis PING"):
                figures = results[f"{name}, {clients}"]
                least = results[f"{name}, {CLIENTS[0]}"]
                rows.append([
                    f"{clients} clients: {name}",
                    f"{report.median(figures, 'p50', 1e-3):.1f}",
                    f"{report.median(figures, 'p99', 1e-3):.1f}",
                    f"{report.median(figures, 'cpu', 1e-3):.2f}",
                    report.Ratio(figures, yardstick, "p50"),
                    report.Ratio(figures, yardstick, "cpu"),
                    report.Ratio(figures, least, "p50"),
                    report.Ratio(figures, least, "cpu"),
                ])
        return report.table(
            f"Clients of the apps-communication port that ask in turn, {title}",
            ["", "p50 us", "p99 us", "server CPU us", "p50 ratio", "CPU ratio",
             f"p50 to {CLIENTS[0]} clients", f"CPU to {CLIENTS[0]} clients"], rows)


class Connecting(Section):
    def measure(self):
        bare = peers.Bare(BARE, self.place, words=peers.Bare.APPS)
        again = peers.Bare(BARE_AGAIN, self.place, words=peers.Bare.APPS)
        service = peers.Service(SERVICE, self.place)
        others = [peers.Redis("redis PING", self.place), peers.Mpd("mpd ping", self.place)]
        raw, texts = {}, []
        with running(bare, again, service, *others):
            contestants = [Contestant(peer)
                           for peer in (bare, again, peers.AppsPort(service), *others)]
            for title, key, server, client in self.settings():
                results = self.rounds.measure("connecting", contestants, server, client)
                raw[key] = results
                texts.append(
                    report.times_table(f"Connect and first answer, {title}", results, BARE))
        return raw, texts


class Pipelined(Section):
    def measure(self):
        everybody = [
            peers.Bare(BARE, self.place, answers="each"),
            peers.Bare("bare server, one send a batch", self.place, answers="all"),
            peers.Service(SERVICE, self.place),
            peers.Service(f"{SERVICE}, output to a file", self.place, output_to_file=True),
            peers.Redis("redis PING", self.place),
            peers.Mpd("mpd ping", self.place),
            peers.Mosquitto("mosquitto, message to oneself", self.place),
            peers.Dbus("dbus-daemon Ping", self.place),
        ]
        raw, texts = {}, []
        with running(*everybody):
            contestants = [Contestant(peer) for peer in everybody]
            for title, key, server, client in self.settings():
                results = self.rounds.measure(
                    "pipeline", contestants, server, client, ["--window", str(WINDOW)])
                raw[key] = results
                texts.append(self._table(title, results))
        return raw, texts

    @staticmethod
    def _table(title, results):
        rows = []
        for name, figures in results.items():
            low, high = report.quartiles([figure["rate"] for figure in figures])
            rows.append([
                name,
                f"{report.median(figures, 'rate'):,.0f}",
                f"{low:,.0f}-{high:,.0f}",
                f"{report.median(figures, 'cpu', 1e-3):.2f}",
                report.Ratio(figures, results[BARE], "rate"),
            ])
        return report.table(
            f"Pipelined requests, at most {WINDOW} unanswered, {title}",
            ["", "answers a second", "middle half of the rounds", "server CPU us", "rate ratio"],
            rows)


class Start(Section):
    def __init__(self, place, rounds, processors, starts):
        super().__init__(place, rounds, processors)
        self._starts = starts

    def measure(self):
        contestants = [Contestant(peer) for peer in (
            peers.Bare(BARE, self.place),
            peers.Service(SERVICE, self.place),
            peers.Service(f"{SERVICE}, new home folder", self.place, new_home=True),
            peers.Redis("redis", self.place),
            peers.Mosquitto("mosquitto", self.place),
            peers.Dbus("dbus-daemon", self.place),
            peers.Mpd("mpd", self.place),
        )]
        results = self.rounds.measure_start(contestants, self.server, self.other, self._starts)
        rows = []
        for name, figures in results.items():
            times = sorted(figure["start"] for figure in figures)
            low, high = report.quartiles(times)
            rows.append([name, f"{report.median(figures, 'start', 1e-6):.2f}",
                         f"{low * 1e-6:.2f}-{high * 1e-6:.2f}", f"{times[-1] * 1e-6:.2f}"])
        return results, [report.table(
            f"From exec until listening (TesselCore: on all three ports), {self._starts} starts",
            ["", "median ms", "middle half", "slowest"], rows)]


class Memory(Section):
    """Resident memory and wake-ups when idle, then the peak under load."""

    def __init__(self, place, rounds, processors, seconds):
        super().__init__(place, rounds, processors)
        self._seconds = seconds

    def measure(self):
        service = peers.Service(SERVICE, self.place)
        everybody = [
            peers.Bare(BARE, self.place, answers="each"),
            service,
            peers.Redis("redis", self.place),
            peers.Mosquitto("mosquitto", self.place),
            peers.Dbus("dbus-daemon", self.place),
            peers.Mpd("mpd", self.place),
        ]
        with running(*everybody):
            results = self._idle(everybody)
            for peer in everybody:
                self._load(peer, "round-trip")
                self._load(peer, "pipeline", "--window", str(WINDOW))
                results[peer.name]["peak"] = machine.memory(peer.pid)["peak"]
            self._load(peers.AppsPort(service), "round-trip", "--clients", "500")
            results[SERVICE]["peak500"] = machine.memory(service.pid)["peak"]
            self._load(peers.AppsPort(service), "round-trip", "--clients", "1000")
            results[SERVICE]["peak1000"] = machine.memory(service.pid)["peak"]
            results[SERVICE]["after"] = machine.memory(service.pid)["resident"]
        return results, [self._table(results)]

    def _idle(self, everybody):
        # Until what belongs to the start is over.
        time.sleep(1)
        before = {peer.name: machine.wake_ups(peer.pid) for peer in everybody}
        time.sleep(self._seconds)
        after = {peer.name: machine.wake_ups(peer.pid) for peer in everybody}
        return {peer.name: {**machine.memory(peer.pid), "threads": machine.threads(peer.pid),
                            "wake-ups": after[peer.name] - before[peer.name]}
                for peer in everybody}

    def _load(self, peer, measurement, *options):
        load(self.place, measurement,
             ["--process", str(peer.pid), "--milliseconds", str(self.rounds.milliseconds),
              *peer.dialect(), *peer.address(), *options])
        peer.after_measurement()

    def _table(self, results):
        def megabytes(figures, key):
            return f"{figures[key] / 1024:.2f}" if key in figures else ""

        rows = [[name, megabytes(figures, "resident"), megabytes(figures, "proportional"),
                 figures["threads"], figures["wake-ups"], megabytes(figures, "peak"),
                 megabytes(figures, "peak500"), megabytes(figures, "peak1000")]
                for name, figures in results.items()]
        return report.table(
            "Memory in MB, and wake-ups when idle",
            ["", "idle, resident", "idle, proportional", "threads",
             f"wake-ups in {self._seconds} s", "peak under load", "with 500 clients",
             "with 1000"], rows,
            ["Load: round trips and pipelined requests; then, for TesselCore, clients that ask in "
             "turn."])
