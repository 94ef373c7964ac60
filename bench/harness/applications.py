"""What the service does with applications by itself: removes them and finds them."""

import json
import os
import pathlib
import subprocess
import time

from harness import report
from harness.rounds import Contestant
from harness.sections import Section

APPLICATIONS = 500
LOOKUPS = 2000
PREFIX = "com.example.application"
# What has changed a shorter time ago is looked at again and again, because it might change still.
SECONDS_TO_SETTLE = 2.5

SERVICE = "TesselCore"


def run(place, command, **popen):
    """Runs a program to its end: its time by the clock and on the processor in nanoseconds, and the
    figures that it tells itself.
    """
    start = time.monotonic_ns()
    with subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                          stderr=subprocess.PIPE, text=True, **place.identity(), **popen) as child:
        told = child.stderr.read()
        _, status, usage = os.wait4(child.pid, 0)
        child.returncode = os.waitstatus_to_exitcode(status)
    end = time.monotonic_ns()
    if child.returncode != 0:
        raise RuntimeError(f"{command[0]} failed: {told.strip()}")
    return {"time": end - start, "cpu": (usage.ru_utime + usage.ru_stime) * 1e9,
            **(json.loads(told) if told else {})}


class Removal(Section):
    """A tree of empty files, a thousand in a folder."""

    def __init__(self, place, rounds, processors, files, count):
        super().__init__(place, rounds, processors)
        self._files = files
        self._count = count
        self._trees = []

    def measure(self):
        contestants = [Contestant(None, SERVICE), Contestant(None, "rm -rf")]
        # All of them first: ext4 spends half a millisecond on a new file when many have just gone.
        self._trees = [self._make_tree() for _ in range(self._count * len(contestants))]
        results = self.rounds.in_turn(contestants, self._once, self._count)
        return results, [self._table(results)]

    def _once(self, contestant):
        tree = self._trees.pop()
        if contestant.name == SERVICE:
            command = [self.place.program("bench-direct"), "remove", "--path", str(tree)]
        else:
            command = ["rm", "-rf", str(tree)]
        figures = run(self.place, command)
        if tree.exists():
            raise RuntimeError(f"{contestant.name} has left {tree}")
        return figures

    def _make_tree(self):
        tree = self.place.new_folder() / "tree"
        run(self.place, [self.place.program("bench-direct"), "make-tree", "--path", str(tree),
                         "--files", str(self._files)])
        return tree

    def _table(self, results):
        yardstick = results["rm -rf"]
        rows = []
        for name, figures in results.items():
            told = "memory before" in figures[0]
            rows.append([
                name, f"{report.median(figures, 'time', 1e-9):.2f}",
                f"{report.median(figures, 'cpu', 1e-9):.2f}",
                report.Ratio(figures, yardstick, "time"), report.Ratio(figures, yardstick, "cpu"),
                f"{report.median(figures, 'memory before'):.0f}" if told else "",
                f"{report.median(figures, 'memory after'):.0f}" if told else ""])
        return report.table(
            f"Removal of {self._files} files", ["", "s", "CPU s", "ratio", "CPU ratio",
                                                "kB before", "kB after"], rows,
            [f"Medians of {self._count} rounds. Beside deleting, TesselCore logs every file, to "
             "/dev/null here. The second", "that it waits before a removal is left out."])


class Lookup(Section):
    """Applications by their identifier, among many."""

    def measure(self):
        home = self._make_applications()
        time.sleep(SECONDS_TO_SETTLE)
        contestants = [Contestant(None, SERVICE), Contestant(None, "GLib (gio, gtk-launch)")]

        def once(contestant):
            kind = "lookup" if contestant.name == SERVICE else "lookup-gio"
            environment = {**os.environ, "HOME": str(home), "XDG_DATA_HOME": str(home / "share"),
                           "XDG_DATA_DIRS": str(home / "none")}
            return run(self.place, [
                self.place.program("bench-direct"), kind, "--cpu", str(self.server), "--count",
                str(LOOKUPS), "--identifier", PREFIX, "--applications", str(APPLICATIONS)],
                env=environment)

        results = self.rounds.in_turn(contestants, once)
        return results, [self._table(results, contestants[1].name)]

    def _make_applications(self):
        home = self.place.new_folder()
        for number in range(APPLICATIONS):
            identifier = f"{PREFIX}{number}"
            self._write(home / f"Applications/Application {number}.app/Contents/Info.plist",
                        '<?xml version="1.0" encoding="UTF-8"?>\n<plist version="1.0"><dict>'
                        f"<key>CFBundleIdentifier</key><string>{identifier}</string>"
                        "<key>CFBundleExecutable</key><string>Program</string></dict></plist>\n")
            self._write(home / f"share/applications/{identifier}.desktop",
                        f"[Desktop Entry]\nType=Application\nName=Application {number}\n"
                        "Exec=/bin/true\n")
        home.chmod(0o755)
        return home

    @staticmethod
    def _write(path, text):
        path.parent.mkdir(parents=True, exist_ok=True)
        pathlib.Path(path).write_text(text, encoding="utf-8")

    @staticmethod
    def _table(results, yardstick):
        rows = [[name, f"{report.median(figures, 'p50', 1e-3):.1f}",
                 f"{report.median(figures, 'p99', 1e-3):.1f}",
                 report.Ratio(figures, results[yardstick], "p50"),
                 f"{report.median(figures, 'first', 1e-6):.1f}",
                 f"{report.median(figures, 'none', 1e-3):.1f}",
                 f"{report.median(figures, 'memory before'):.0f}",
                 f"{report.median(figures, 'memory after'):.0f}"]
                for name, figures in results.items()]
        return report.table(
            f"Finding one of {APPLICATIONS} applications by its identifier",
            ["", "p50 us", "p99 us", "p50 ratio", "first ms", "none us", "kB before", "kB after"],
            rows,
            ["first: when nothing is known yet. none: an identifier that no application has, for "
             "which TesselCore looks at all of",
             "them again. GLib finds desktop files by their names, TesselCore bundles by what is in "
             "them."])
