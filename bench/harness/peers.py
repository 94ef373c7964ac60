"""The servers that are compared. Each runs as a private instance: on a port of 127.0.0.1 of its
own, in a temporary folder of its own, storing nothing, and is ended with the run.
"""

import os
import pathlib
import pwd
import shutil
import socket
import subprocess
import tempfile
import time

from harness import machine

SECONDS_TO_START = 10


class Place:
    """A temporary folder, the user that everything runs as, and the programs that were built."""

    def __init__(self, build):
        self._root = pathlib.Path(tempfile.mkdtemp(prefix="bench-"))
        # Root would have the service wait for somebody to log in, so nobody runs it.
        self.user = pwd.getpwnam("nobody") if os.geteuid() == 0 else None
        self._root.chmod(0o711)
        # The build folder may lie where that user cannot look, so the programs move.
        for program in ("TesselCore", "bench/bench-bare", "bench/bench-load",
                        "bench/bench-direct"):
            shutil.copy2(build / program, self._root)
        self._folders = 0

    def close(self):
        shutil.rmtree(self._root, ignore_errors=True)

    def program(self, name):
        return str(self._root / name)

    def new_folder(self):
        self._folders += 1
        folder = self._root / str(self._folders)
        folder.mkdir(mode=0o700)
        self.hand_over(folder)
        return folder

    def hand_over(self, path):
        if self.user:
            os.chown(path, self.user.pw_uid, self.user.pw_gid)

    def identity(self):
        """For subprocess: whom to run as."""
        if not self.user:
            return {}
        return {"user": self.user.pw_uid, "group": self.user.pw_gid, "extra_groups": []}


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


class Peer:
    """One server. Subclasses say how it is started and how it is talked to."""

    program = None  # found in PATH

    def __init__(self, name, place):
        self.name = name
        self.place = place
        self.folder = place.new_folder()
        self.port = free_port()
        self.process = None
        self.prepare()

    def prepare(self):
        """Writes the configuration."""

    def command(self):
        raise NotImplementedError

    def dialect(self):
        """The options by which bench-load talks to it."""
        raise NotImplementedError

    def address(self):
        """The options by which bench-load finds it."""
        return ["--port", str(self.port)]

    def found_program(self):
        return shutil.which(self.program, path=os.environ["PATH"] + ":/usr/sbin:/usr/local/sbin")

    def environment(self):
        return {"HOME": str(self.folder), "PATH": os.environ["PATH"]}

    def write(self, name, text):
        path = self.folder / name
        path.write_text(text, encoding="utf-8")
        self.place.hand_over(path)
        return str(path)

    def output(self):
        return subprocess.DEVNULL

    def start(self):
        with open(self.folder / "errors", "wb") as errors:
            self.process = subprocess.Popen(
                self.command(), stdin=subprocess.DEVNULL, stdout=self.output(), stderr=errors,
                cwd=self.folder, env=self.environment(), **self.place.identity())
        end = time.monotonic() + SECONDS_TO_START
        while not self.is_listening():
            if self.process.poll() is not None or time.monotonic() > end:
                raise RuntimeError(f"{self.name} does not start: {self.errors()}")
            time.sleep(0.01)
        return self

    def is_listening(self):
        with socket.socket() as probe:
            return probe.connect_ex(("127.0.0.1", self.port)) == 0

    def errors(self):
        try:
            return (self.folder / "errors").read_text(errors="replace")[-500:].strip()
        except OSError:
            return ""

    @property
    def pid(self):
        return self.process.pid

    def after_measurement(self):
        machine.wait_until_idle(self.pid)

    def before_start(self):
        """Before each start of a measurement of starting."""

    def stop(self):
        if self.process is None:
            return
        self.process.terminate()
        try:
            self.process.wait(5)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait()
        self.process = None


class Bare(Peer):
    """The yardstick; what it answers, and how, is decided at its start."""

    COMMAND = ("bare-command", "Success MACOSX|")
    APPS = ("bare-apps", "Success |")

    def __init__(self, name, place, words=COMMAND, answers="one"):
        self._dialect, self._answer = words
        self._answers = answers
        super().__init__(name, place)

    def command(self):
        return [self.place.program("bench-bare"), "--port", str(self.port),
                "--answer", self._answer, "--answers", self._answers]

    def dialect(self):
        return ["--dialect", self._dialect]


class Service(Peer):
    """TesselCore, in a home folder of its own."""

    def __init__(self, name, place, output_to_file=False, log_file=False, new_home=False):
        self._output_to_file = output_to_file
        self._log_file = log_file
        self._new_home = new_home
        self._output = None
        super().__init__(name, place)

    def prepare(self):
        if self._log_file:
            # The service logs to it only when it finds it.
            self.write("tesselLog.txt", "")
        if self._output_to_file:
            self._output = open(self.folder / "output", "ab")

    def output(self):
        return self._output or subprocess.DEVNULL

    def command(self):
        return [self.place.program("TesselCore")]

    def key_file(self):
        return self.folder / "Library/Application Support/Velto/tesselAuth.key"

    def is_listening(self):
        try:
            return "</root>" in self.key_file().read_text(encoding="utf-8")
        except OSError:
            return False

    def dialect(self):
        return ["--dialect", "command"]

    def address(self):
        return ["--key-file", str(self.key_file())]

    def before_start(self):
        if self._new_home:
            shutil.rmtree(self.folder / "Library", ignore_errors=True)

    def after_measurement(self):
        super().after_measurement()
        for file in ("output", "tesselLog.txt"):
            path = self.folder / file
            if path.exists():
                os.truncate(path, 0)

    def stop(self):
        super().stop()
        if self._output:
            self._output.close()


class AppsPort:
    """A service that runs already, asked on its apps-communication port."""

    def __init__(self, service):
        self._service = service
        self.name = service.name

    def dialect(self):
        return ["--dialect", "apps"]

    def address(self):
        return self._service.address()

    @property
    def pid(self):
        return self._service.pid

    def after_measurement(self):
        self._service.after_measurement()


class Redis(Peer):
    program = "redis-server"

    def command(self):
        return [self.found_program(), "--port", str(self.port), "--bind", "127.0.0.1",
                "--save", "", "--appendonly", "no", "--dir", str(self.folder)]

    def dialect(self):
        return ["--dialect", "redis"]


class Mpd(Peer):
    program = "mpd"

    def prepare(self):
        self._configuration = self.write("mpd.conf", f"""
bind_to_address "127.0.0.1"
port "{self.port}"
log_file "/dev/null"
zeroconf_enabled "no"
audio_output {{
    type "null"
    name "none"
}}
""")

    def command(self):
        return [self.found_program(), "--no-daemon", self._configuration]

    def dialect(self):
        return ["--dialect", "mpd"]


class Mosquitto(Peer):
    program = "mosquitto"

    def prepare(self):
        self._configuration = self.write("mosquitto.conf", f"""
listener {self.port} 127.0.0.1
allow_anonymous true
persistence false
set_tcp_nodelay true
max_queued_messages 0
log_type error
""")

    def command(self):
        return [self.found_program(), "-c", self._configuration]

    def dialect(self):
        return ["--dialect", "mosquitto"]


class Dbus(Peer):
    program = "dbus-daemon"

    def prepare(self):
        self._configuration = self.write("bus.conf", f"""<busconfig>
  <listen>tcp:host=127.0.0.1,port={self.port},family=ipv4</listen>
  <auth>ANONYMOUS</auth>
  <allow_anonymous/>
  <policy context="default">
    <allow send_destination="*"/>
    <allow receive_sender="*"/>
    <allow own="*"/>
  </policy>
</busconfig>
""")

    def command(self):
        return [self.found_program(), f"--config-file={self._configuration}", "--nofork",
                "--nopidfile"]

    def dialect(self):
        return ["--dialect", "dbus"]
