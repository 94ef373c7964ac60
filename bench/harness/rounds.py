"""Measures contestants in turn, over several rounds, so that what changes with time (the clock of
the processor, the neighbours) meets all of them alike.
"""

import json
import subprocess

from harness import machine

MOST_SECONDS = 60


class Contestant:
    """One row of a table: a server and what is asked of it."""

    def __init__(self, peer, name=None, options=()):
        self.peer = peer
        self.name = name or peer.name
        self.options = list(options)


def load(place, measurement, options, seconds=MOST_SECONDS, **popen):
    """Runs bench-load once and returns its figures."""
    done = subprocess.run(
        [place.program("bench-load"), measurement, *options], stdin=subprocess.DEVNULL,
        capture_output=True, text=True, timeout=seconds, **place.identity(), **popen)
    if done.returncode != 0:
        raise RuntimeError(f"{measurement} failed: {done.stderr.strip()}")
    return json.loads(done.stdout)


class Rounds:
    def __init__(self, place, count, milliseconds):
        self.place = place
        self.count = count
        self.milliseconds = milliseconds

    def in_turn(self, contestants, measure, count=None):
        """Lists of figures by contestant's name; each round begins with another contestant."""
        results = {contestant.name: [] for contestant in contestants}
        for number in range(count or self.count):
            first = number % len(contestants)
            for contestant in contestants[first:] + contestants[:first]:
                results[contestant.name].append(measure(contestant))
        return results

    def measure(self, measurement, contestants, server, client, options=()):
        """One measurement of running servers, kept on the processors SERVER and CLIENT."""

        def once(contestant):
            peer = contestant.peer
            machine.pin(peer.pid, server)
            try:
                figures = load(self.place, measurement, [
                    "--cpu", str(client), "--process", str(peer.pid),
                    "--milliseconds", str(self.milliseconds),
                    *peer.dialect(), *peer.address(), *options, *contestant.options])
            except RuntimeError as error:
                raise RuntimeError(f"{contestant.name}: {error}") from error
            peer.after_measurement()
            return figures

        return self.in_turn(contestants, once)

    def measure_start(self, contestants, server, client, count):
        """The same for the time that each contestant's command needs until it listens."""

        def once(contestant):
            peer = contestant.peer
            peer.before_start()
            return load(self.place, "start", [
                "--cpu", str(client), "--server-cpu", str(server), *peer.address(),
                "--", *peer.command()], cwd=peer.folder, env=peer.environment())

        return self.in_turn(contestants, once, count)
