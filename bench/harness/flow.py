"""What flows through the service: messages between applications, news of them, and pen data."""

from harness import machine, peers, report
from harness.rounds import Contestant, load
from harness.sections import BARE, BARE_AGAIN, SERVICE, Section, running

SIZES = {32: "32 bytes", 65536: "64 KiB"}
LISTENERS = 100
EVENTS_A_SECOND = 1000
PARTS = 10


class Spoken:
    """A server that runs already, asked in another dialect than its own."""

    def __init__(self, peer, dialect):
        self._peer = peer
        self._dialect = dialect
        self.name = peer.name

    def dialect(self):
        return ["--dialect", self._dialect]

    def address(self):
        return self._peer.address()

    @property
    def pid(self):
        return self._peer.pid

    def after_measurement(self):
        self._peer.after_measurement()


def relay(name, place):
    return peers.Bare(name, place, answers="relay")


class Channels(Section):
    """A message from one application to another."""

    def measure(self):
        bare, again = relay(BARE, self.place), relay(BARE_AGAIN, self.place)
        service = peers.Service(SERVICE, self.place)
        others = [
            peers.Mosquitto("mosquitto", self.place),
            peers.Redis("redis PUBLISH", self.place),
            peers.Dbus("dbus-daemon, a call without an answer", self.place),
        ]
        raw, texts = {}, []
        with running(bare, again, service, *others):
            contestants = [Contestant(peer) for peer in (
                Spoken(bare, "bare-channel"), Spoken(again, "bare-channel"),
                Spoken(service, "channel"), *others)]
            for size, size_name in SIZES.items():
                for title, key, server, client in self.settings():
                    results = self.rounds.measure(
                        "passing", contestants, server, client, ["--size", str(size)])
                    raw[f"{key}, {size}"] = results
                    texts.append(report.times_table(
                        f"{size_name} from application to application, {title}", results, BARE))
        return raw, texts


class Registrations(Section):
    """Many registered applications are told of one more."""

    def measure(self):
        bare, again = relay(BARE, self.place), relay(BARE_AGAIN, self.place)
        service = peers.Service(SERVICE, self.place)
        others = [peers.Redis("redis PUBLISH", self.place),
                  peers.Mosquitto("mosquitto", self.place)]
        raw, texts = {}, []
        with running(bare, again, service, *others):
            contestants = [Contestant(peer) for peer in (
                Spoken(bare, "bare-registration"), Spoken(again, "bare-registration"),
                Spoken(service, "registration"), *others)]
            for title, key, server, client in self.settings():
                results = self.rounds.measure(
                    "passing", contestants, server, client, ["--receivers", str(LISTENERS)])
                raw[key] = results
                texts.append(report.times_table(
                    f"{LISTENERS} registered applications told of one more, until the last has "
                    f"it, {title}", results, BARE))
        return raw, texts


class PenEvents(Section):
    """A pen event in the driver until its bytes are at the client."""

    EVENTS = {"touch": "one text", "drag": "a pressure and a text"}

    def measure(self):
        bare = peers.Bare(BARE, self.place, answers="pen")
        again = peers.Bare(BARE_AGAIN, self.place, answers="pen")
        together = peers.Bare("bare server, one send an event", self.place, answers="pen-all")
        service = peers.Service(SERVICE, self.place)
        raw, texts = {}, []
        with running(bare, again, together, service):
            contestants = [Contestant(peer) for peer in (
                *(Spoken(peer, "bare-pen") for peer in (bare, again, together)),
                Spoken(service, "pen"))]
            for event, event_name in self.EVENTS.items():
                for title, key, server, client in self.settings():
                    results = self.rounds.measure(
                        "pen", contestants, server, client, ["--event", event])
                    raw[f"{key}, {event}"] = results
                    texts.append(report.times_table(
                        f"Pen event to client, {event_name}, {title}", results, BARE))
        return raw, texts


class PenSustained(Section):
    """Pen events at a steady rate for long: none lost, processor time and memory flat."""

    def __init__(self, place, rounds, processors, seconds):
        super().__init__(place, rounds, processors)
        self._seconds = seconds

    def measure(self):
        service = peers.Service(SERVICE, self.place)
        with running(service):
            machine.pin(service.pid, self.server)
            results = load(self.place, "pen-sustained", [
                "--cpu", str(self.other), "--process", str(service.pid), "--dialect", "pen",
                *service.address(), "--event", "drag", "--rate", str(EVENTS_A_SECOND),
                "--seconds", str(self._seconds)], seconds=self._seconds + 60)
            machine.wait_until_idle(service.pid)
        return results, [self._table(results)]

    def _table(self, results):
        share = EVENTS_A_SECOND * 1e-7  # of a processor, in percent
        rows = [[f"tenth {part + 1}", f"{results[f'cpu{part}'] * 1e-3:.2f}",
                 f"{results[f'cpu{part}'] * share:.2f}",
                 f"{results[f'resident{part}'] / 1024:.2f}"] for part in range(PARTS)]
        return report.table(
            f"{EVENTS_A_SECOND} pen events a second for {self._seconds} s, one core each",
            ["", "server CPU us an event", "% of a processor", "resident MB"], rows,
            [f"{results['count']:,.0f} events, none lost; until the client has them: p50 "
             f"{results['p50'] * 1e-3:.1f} us, p99 {results['p99'] * 1e-3:.1f} us, longest "
             f"{results['max'] * 1e-6:.1f} ms."])
