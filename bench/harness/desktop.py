"""What the service does to the files of a desktop, beside tools that do the same to the same files.

The tools are programs that start, work and end for every file; the service runs already, and the
time of its answer holds the way to it and back.
"""

import pathlib
import plistlib
import resource
import shutil
import socket
import statistics
import struct
import subprocess
import time
import xml.etree.ElementTree
import zlib

from harness import machine, peers, report
from harness.rounds import Contestant
from harness.sections import SERVICE, Section, running

SIDE = 128
HANDLERS = 10000
EXTENSIONS = 50
PATIENCE = 60
# What takes seconds needs fewer rounds.
MOST_ROUNDS = 5


class Contained(peers.Service):
    """TesselCore in a sandbox that has the folders of the Mac, which this machine need not have."""

    def prepare(self):
        super().prepare()
        self.shared = self.make_folder("Shared")
        self.applications = self.make_folder("Applications")

    def make_folder(self, name):
        folder = self.folder / name
        folder.mkdir()
        self.place.hand_over(folder)
        return folder

    def command(self):
        words = ["bwrap", "--die-with-parent", "--tmpfs", "/", "--ro-bind", "/usr", "/usr"]
        for name in ("bin", "sbin", "lib", "lib64"):
            path = pathlib.Path("/", name)
            if path.is_symlink():
                words += ["--symlink", str(path.readlink()), str(path)]
            elif path.exists():
                words += ["--ro-bind", str(path), str(path)]
        words += ["--proc", "/proc", "--dev", "/dev", "--bind", str(self.folder), str(self.folder)]
        words += ["--bind", str(self.shared), "/Users/Shared"]
        words += ["--bind", str(self.applications), "/Applications"]
        words += ["--ro-bind", self.place.program("TesselCore"), "/TesselCore", "/TesselCore"]
        return words

    @property
    def pid(self):
        """Not the sandbox's, which waits for it."""
        process = self.process.pid
        children = pathlib.Path(f"/proc/{process}/task/{process}/children").read_text("ascii")
        return int(children.split()[0])


class Connection:
    """An authorized client of the command port."""

    def __init__(self, service):
        keys = xml.etree.ElementTree.parse(service.key_file()).getroot()
        self._socket = socket.create_connection(
            ("127.0.0.1", int(keys.findtext("commandPort"))), PATIENCE)
        self._received = b""
        if self.ask("auth " + keys.findtext("authKey")) != "authOk":
            raise RuntimeError("the key was refused")
        # What is plugged in is told unasked.
        self._receive()

    def ask(self, command):
        self._socket.sendall(command.encode() + b"|")
        return self._receive()

    def _receive(self):
        while b"|" not in self._received:
            more = self._socket.recv(65536)
            if not more:
                raise RuntimeError("the service has closed the connection")
            self._received += more
        message, _, self._received = self._received.partition(b"|")
        return message.decode()

    def close(self):
        self._socket.close()


class Work:
    """One row: something that is done again and again, and whose processor's time it takes."""

    def __init__(self, name, do, processor_time, prepare=lambda: None):
        self.name = name
        self.do = do
        self.processor_time = processor_time
        self.prepare = prepare

    def measure(self, milliseconds):
        """Medians of one round, in nanoseconds."""
        times, processor = [], []
        end = time.monotonic_ns() + milliseconds * 1000000
        while not times or time.monotonic_ns() < end:
            self.prepare()
            cpu, start = self.processor_time(), time.monotonic_ns()
            self.do()
            times.append(time.monotonic_ns() - start)
            processor.append((self.processor_time() - cpu) * 1e9)
        return {"time": statistics.median(times), "cpu": statistics.median(processor)}


def time_of_children():
    usage = resource.getrusage(resource.RUSAGE_CHILDREN)
    return usage.ru_utime + usage.ru_stime


def run(*command):
    subprocess.run([str(word) for word in command], check=True, stdin=subprocess.DEVNULL,
                   stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)


class Desktop(Section):
    """Works beside each other, in turn."""

    def compare(self, title, works, yardsticks):
        contestants = [Contestant(None, work.name, [work]) for work in works]
        results = self.rounds.in_turn(
            contestants, lambda contestant: contestant.options[0].measure(self.rounds.milliseconds),
            min(self.rounds.count, MOST_ROUNDS))
        rows = []
        for name, figures in results.items():
            yardstick = results[yardsticks[name]]
            rows.append([name, f"{report.median(figures, 'time', 1e-6):.2f}",
                         f"{report.median(figures, 'cpu', 1e-6):.2f}",
                         report.Ratio(figures, yardstick, "time"),
                         report.Ratio(figures, yardstick, "cpu")])
        return results, [report.table(
            title, ["", "median ms", "CPU ms", "time ratio to the tool", "CPU ratio"], rows)]


class Icon(Desktop):
    """An icon of 128 by 128 pixels as a PNG file."""

    def measure(self):
        service = Contained(SERVICE, self.place)
        application = service.applications / "Bench.app"
        resources = application / "Contents/Resources"
        resources.mkdir(parents=True)
        icon = resources / "Bench.icns"
        drawing = service.folder / "drawing.png"
        drawing.write_bytes(self.drawing())
        run("png2icns", icon, drawing)
        extracted = service.make_folder("extracted")
        (application / "Contents/Info.plist").write_bytes(
            plistlib.dumps({"CFBundleIconFile": "Bench"}))
        with running(service):
            connection = Connection(service)

            def export():
                if connection.ask("getIcon /Applications/Bench.app") != "IconReady":
                    raise RuntimeError("the icon has not been written")

            tool = "icns2png -x"
            works = [
                Work("TesselCore getIcon", export, lambda: machine.time_on_processor(service.pid)),
                Work(tool, lambda: run("icns2png", "-x", "-o", extracted, icon), time_of_children),
            ]
            measured = self.compare(f"An icon of {icon.stat().st_size:,} bytes as PNG", works,
                                    dict.fromkeys((work.name for work in works), tool))
            connection.close()
        return measured

    @staticmethod
    def drawing():
        """A PNG file with areas of one colour and shades."""
        rows = b"".join(
            b"\0" + bytes(part for x in range(SIDE)
                          for part in ((x * y // 8) % 256, y if x < 64 else 40, x, 255))
            for y in range(SIDE))

        def chunk(kind, content):
            return (struct.pack(">I", len(content)) + kind + content +
                    struct.pack(">I", zlib.crc32(kind + content)))

        return (b"\x89PNG\r\n\x1a\n" +
                chunk(b"IHDR", struct.pack(">IIBBBBB", SIDE, SIDE, 8, 6, 0, 0, 0)) +
                chunk(b"IDAT", zlib.compress(rows)) + chunk(b"IEND", b""))


class FileTypes(Desktop):
    """Extensions associated in a list that holds many handlers already."""

    def measure(self):
        service = Contained(SERVICE, self.place)
        original = service.folder / "original.plist"
        original.write_bytes(plistlib.dumps({"LSHandlers": [
            {"LSHandlerContentTag": f"x{number}", "LSHandlerRoleAll": "org.example.editor",
             "LSHandlerContentTagClass": "public.filename-extension"}
            for number in range(HANDLERS)]}, fmt=plistlib.FMT_BINARY))
        converted = service.folder / "converted.plist"
        extensions = " ".join(f"new{number}" for number in range(EXTENSIONS))
        with running(service):
            connection = Connection(service)
            preferences = service.folder / "Library/Preferences/com.apple.LaunchServices.plist"

            def restore():
                shutil.copyfile(original, preferences)
                self.place.hand_over(preferences)

            def associate(words):
                if connection.ask("associateFileTypes " + words) != "True":
                    raise RuntimeError("nothing has been associated")

            def rewrite(times):
                for _ in range(times):
                    run("plistutil", "-i", original, "-f", "xml", "-o", converted)

            def of_service():
                return machine.time_on_processor(service.pid)

            one, many = "plistutil, list read and written once", f"plistutil, {EXTENSIONS} times"
            works = [
                Work("TesselCore, one extension", lambda: associate("new"), of_service, restore),
                Work(one, lambda: rewrite(1), time_of_children),
                Work(f"TesselCore, {EXTENSIONS} extensions in one command",
                     lambda: associate(extensions), of_service, restore),
                Work(many, lambda: rewrite(EXTENSIONS), time_of_children),
            ]
            measured = self.compare(
                f"Associations in a list of {HANDLERS:,} handlers "
                f"({original.stat().st_size:,} bytes)", works,
                {works[0].name: one, one: one, works[2].name: many, many: many})
            connection.close()
        return measured
