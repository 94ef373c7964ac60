"""The machine that measures: its processors, its noise, and what /proc tells about a process."""

import os
import pathlib
import platform
import time


def processors():
    """Two processors that share no core, or the only one there is, twice."""
    allowed = sorted(os.sched_getaffinity(0))
    first = allowed[0]
    siblings = _siblings(first)
    others = [number for number in allowed if number not in siblings] or allowed[1:]
    return first, others[0] if others else first


def _siblings(processor):
    path = pathlib.Path(f"/sys/devices/system/cpu/cpu{processor}/topology/thread_siblings_list")
    try:
        text = path.read_text(encoding="ascii").strip()
    except OSError:
        return {processor}
    found = set()
    for part in text.split(","):
        first, _, last = part.partition("-")
        found.update(range(int(first), int(last or first) + 1))
    return found


def describe():
    model = "unknown processor"
    for line in pathlib.Path("/proc/cpuinfo").read_text(encoding="utf-8").splitlines():
        if line.startswith("model name"):
            model = line.split(":", 1)[1].strip()
            break
    return {"processor": model, "processors": os.cpu_count(), "kernel": platform.release()}


def load_average():
    """How many threads wanted to run during the last minute."""
    return os.getloadavg()[0]


class Noise:
    """What share of the processors' time others had while we measured."""

    def __init__(self):
        self._before = self._ticks()

    @staticmethod
    def _ticks():
        with open("/proc/stat", encoding="ascii") as stat:
            fields = [int(field) for field in stat.readline().split()[1:9]]
        return sum(fields), fields[7]

    def stolen(self):
        """The share that the hypervisor gave to other machines."""
        total, stolen = self._ticks()
        return (stolen - self._before[1]) / max(total - self._before[0], 1)


def pin(process, processor):
    """Keeps all threads of a process on one processor."""
    for thread in os.listdir(f"/proc/{process}/task"):
        try:
            os.sched_setaffinity(int(thread), {processor})
        except ProcessLookupError:
            pass


def time_on_processor(process):
    """Seconds that all threads of a process have run: its own clock, as Linux numbers clocks."""
    scheduler_clock = 2
    return time.clock_gettime((~process << 3) | scheduler_clock)


def wait_until_idle(process, most=2.0):
    """Until a process has worked off what the last measurement left, such as closed connections."""
    end = time.monotonic() + most
    before = time_on_processor(process)
    while time.monotonic() < end:
        time.sleep(0.004)
        now = time_on_processor(process)
        if now - before < 0.0001:
            return
        before = now


def _kilobytes(path, names):
    values = {}
    for line in path.read_text(encoding="utf-8", errors="replace").splitlines():
        name, _, rest = line.partition(":")
        if name in names:
            values[names[name]] = int(rest.split()[0])
    return values


def memory(process):
    """Resident, proportional and peak memory in kB."""
    folder = pathlib.Path(f"/proc/{process}")
    return {
        **_kilobytes(folder / "status", {"VmRSS": "resident", "VmHWM": "peak"}),
        **_kilobytes(folder / "smaps_rollup", {"Pss": "proportional"}),
    }


def wake_ups(process):
    """How often the threads of a process have gone to sleep so far."""
    total = 0
    for status in pathlib.Path(f"/proc/{process}/task").glob("*/status"):
        for line in status.read_text(encoding="utf-8", errors="replace").splitlines():
            if line.startswith("voluntary_ctxt_switches:"):
                total += int(line.split()[1])
    return total


def threads(process):
    return len(os.listdir(f"/proc/{process}/task"))
