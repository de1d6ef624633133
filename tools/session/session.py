# SPDX-License-Identifier: Apache-2.0
"""Sessions to run the programs in: the user's own, or a private one.

A private session has D-Bus, PipeWire, WirePlumber and a display of its own and touches nothing of
the user's. Used by run.py, the benchmarks and the end-to-end tests.
"""

import fcntl
import json
import os
import re
import select
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time
from collections.abc import Callable, Mapping, Sequence
from pathlib import Path
from typing import Self

import guard
from screenshot import Screenshot

BUS_CONFIG = """<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>session</type>
  <listen>unix:path={socket}</listen>
  <policy context="default">
    <allow send_destination="*" eavesdrop="true"/>
    <allow eavesdrop="true"/>
    <allow own="*"/>
  </policy>
</busconfig>
"""  # no service folders: nothing of the machine's is started through this bus

# No seat, no hardware: only what links clients to the nodes that programs offer.
WIREPLUMBER_CONFIG = """wireplumber.profiles = {
  lumivora-private = {
    inherits = [ main-embedded ]
    hardware.audio = disabled
    hardware.bluetooth = disabled
    hardware.video-capture = disabled
  }
}
"""

# Variables that would lead a program out of the private session.
FOREIGN_PREFIXES = ("DBUS_", "PIPEWIRE_", "PULSE_", "WAYLAND_", "XDG_", "GST_", "QT_", "GTK_")
FOREIGN_NAMES = ("DISPLAY", "XAUTHORITY", "SESSION_MANAGER", "DESKTOP_SESSION")

END_GRACE_S = 5.0

FOLDER_PREFIX = "lumivora-"
LOCK = "session.lock"
STALE_AFTER_S = 60  # a younger folder may be about to be locked


class SessionError(Exception):
    """Something of the session did not work; the text says what and where to read on."""


class Service:
    """One process of the session, in a process group of its own, its output in a log file."""

    def __init__(
        self,
        name: str,
        command: Sequence[str],
        environment: Mapping[str, str],
        log: Path,
        *,
        pass_fds: Sequence[int] = (),
        stdin: int = subprocess.DEVNULL,
        capture: bool = False,
    ) -> None:
        self.name = name
        self.log = log
        with log.open("ab") as output:
            try:
                self.process = subprocess.Popen(
                    command,
                    env=environment,
                    stdin=stdin,
                    stdout=subprocess.PIPE if capture else output,
                    stderr=output,
                    pass_fds=pass_fds,
                    start_new_session=True,
                )
            except OSError as error:
                raise SessionError(f"Cannot start {name}: {error}") from error

    @property
    def pid(self) -> int:
        return self.process.pid

    def running(self) -> bool:
        return self.process.poll() is None

    def signal(self, number: int) -> None:
        if self.running():
            self.process.send_signal(number)

    def kill(self) -> None:
        """Ends the process at once, as a crash would."""
        self.signal(signal.SIGKILL)
        self.process.wait()

    def stop(self, grace: float = END_GRACE_S) -> int:
        """Asks the process to end, insists after the grace time, and gives its exit status."""
        self.signal(signal.SIGTERM)
        try:
            return self.process.wait(grace)
        except subprocess.TimeoutExpired:
            self.kill()
            return self.process.returncode

    def wait(self, timeout: float) -> int:
        """Waits for the process to end by itself."""
        try:
            return self.process.wait(timeout)
        except subprocess.TimeoutExpired as error:
            raise SessionError(f"{self.name} did not end in {timeout:.0f} s; see {self.log}") from error

    def log_text(self) -> str:
        return self.log.read_text(errors="replace")


class StandIn(Service):
    """The stand-in hardware."""

    def command(self, line: str) -> None:
        """Gives it one of the commands that lumivora-standin --help lists."""
        self.process.stdin.write(line.encode() + b"\n")
        self.process.stdin.flush()


def wait_until(condition: Callable[[], object], timeout: float, what: str) -> None:
    """Polls the condition until it holds; a SessionError names what never came."""
    deadline = time.monotonic() + timeout
    while not condition():
        if time.monotonic() > deadline:
            raise SessionError(f"{what} within {timeout:.0f} s")
        time.sleep(0.02)


def remove_stale_folders() -> None:
    """Removes what sessions left that were killed together with their guard."""
    for lock in Path(tempfile.gettempdir()).glob(f"{FOLDER_PREFIX}*/{LOCK}"):
        try:
            if time.time() - lock.stat().st_mtime < STALE_AFTER_S:
                continue
            with lock.open("r+") as file:
                fcntl.flock(file, fcntl.LOCK_EX | fcntl.LOCK_NB)
                shutil.rmtree(lock.parent, ignore_errors=True)
        except OSError:
            continue  # in use, or someone else's


class Session:
    """Runs programs in the session that this process is in; everything ends with the block."""

    def __init__(self, binaries: Path, logs: Path) -> None:
        self.binaries = binaries.resolve()
        self.logs = logs.resolve()
        self.logs.mkdir(parents=True, exist_ok=True)
        self._services: list[Service] = []

        # Short, because the paths of sockets have a limit of 107 bytes.
        remove_stale_folders()
        self.folder = Path(tempfile.mkdtemp(prefix=FOLDER_PREFIX))
        self.mark = self.folder.name
        self._lock = (self.folder / LOCK).open("w")
        fcntl.flock(self._lock, fcntl.LOCK_EX)
        guard_end, self._alive = os.pipe()
        self._guard = subprocess.Popen(
            [sys.executable, guard.__file__, self.mark, str(self.folder)],
            stdin=guard_end,
            start_new_session=True,
        )
        os.close(guard_end)
        self.environment = dict(os.environ)
        self.environment[guard.MARK] = self.mark

    @property
    def runtime_dir(self) -> Path:
        return Path(self.environment["XDG_RUNTIME_DIR"])

    def __enter__(self) -> Self:
        return self

    def __exit__(self, *_: object) -> None:
        self.close()

    def close(self) -> None:
        """Ends every process, the last started first, and removes the session's folder."""
        for service in reversed(self._services):
            service.stop()
            for stream in (service.process.stdin, service.process.stdout):
                if stream is not None:
                    stream.close()
        self._services.clear()
        if self._alive >= 0:
            os.close(self._alive)  # the guard ends what detached itself, and the folder
            self._alive = -1
            self._guard.wait()
            self._lock.close()

    def services(self, name: str) -> list[Service]:
        """The processes of that name that were started here and still run."""
        return [service for service in self._services if service.name == name and service.running()]

    # Starting

    def start(
        self, name: str, command: Sequence[str], kind: type = Service, **options: object
    ) -> Service:
        """Starts any program in the session; its log is NAME.log, appended to within a session.

        kind is the class that stands for the process, Service or one made from it.
        """
        log = self.logs / f"{name}.log"
        if not any(service.name == name for service in self._services):
            log.unlink(missing_ok=True)
        service = kind(name, command, self.environment, log, **options)
        self._services.append(service)
        return service

    def start_standin(self, *arguments: str) -> "StandIn":
        """The camera that the application looks for."""
        return self.start(
            "standin",
            [str(self.binaries / "lumivora-standin"), *arguments],
            kind=StandIn,
            stdin=subprocess.PIPE,
        )

    def start_application(self, *arguments: str, name: str = "application") -> Service:
        return self.start(name, [str(self.binaries / "lumivora-control"), *arguments])

    def start_probe(self, *arguments: str, name: str = "client") -> "Client":
        """A client of a camera; its figures come once a second."""
        report = self.logs / f"{name}.json"
        snapshot = self.logs / f"{name}.png"
        for file in (report, snapshot):
            file.unlink(missing_ok=True)
        service = self.start(
            name,
            [
                str(self.binaries / "lumivora-probe"),
                "--live-lines",
                f"--report={report}",
                f"--snapshot={snapshot}",
                *arguments,
            ],
            capture=True,
        )
        return Client(service, report, snapshot)

    def screenshot(self) -> Screenshot:
        """What the display shows."""
        raw = self.folder / "screenshot.raw"
        shot = self.start(
            "screenshot",
            [
                "gst-launch-1.0", "-v", "ximagesrc", "num-buffers=1", "show-pointer=false",
                "!", "videoconvert", "!", "video/x-raw,format=RGB",
                "!", "filesink", f"location={raw}",
            ],
        )  # fmt: skip
        if shot.wait(30) != 0:
            raise SessionError(f"The display could not be saved; see {shot.log}")
        sizes = re.findall(r"width=\(int\)(\d+), height=\(int\)(\d+)", shot.log_text())
        width, height = sizes[-1]
        return Screenshot(int(width), int(height), raw.read_bytes())


class PrivateSession(Session):
    """A session of its own, without hardware, for as long as the block lasts.

    with PrivateSession(Path("build/release/bin"), Path("build/run")) as session:
        session.start_services()
        session.start_standin()
        session.start_application()
    """

    def __init__(self, binaries: Path, logs: Path) -> None:
        super().__init__(binaries, logs)
        self.environment = self._private_environment()

    def _private_environment(self) -> dict[str, str]:
        environment = {
            name: value
            for name, value in os.environ.items()
            if not name.startswith(FOREIGN_PREFIXES) and name not in FOREIGN_NAMES
        }
        for name, folder in (
            ("HOME", "home"),
            ("TMPDIR", "tmp"),
            ("XDG_RUNTIME_DIR", "runtime"),
            ("XDG_CONFIG_HOME", "config"),
            ("XDG_DATA_HOME", "data"),
            ("XDG_STATE_HOME", "state"),
            ("XDG_CACHE_HOME", "cache"),
        ):
            path = self.folder / folder
            path.mkdir(mode=0o700)
            environment[name] = str(path)
        # The list of plugins takes a second to make, and is the same for every session.
        environment["GST_REGISTRY"] = str(self.logs / "gst-registry.bin")
        environment[guard.MARK] = self.mark
        return environment

    def start_services(self, *, display: bool = True) -> None:
        """D-Bus, PipeWire, WirePlumber and, where wanted, a display; returns when they answer."""
        self.start_bus()
        self.start_pipewire()
        self.start_wireplumber()
        if display:
            self.start_display()

    def start_bus(self) -> Service:
        address = self.runtime_dir / "bus"
        config = self.folder / "bus.conf"
        config.write_text(BUS_CONFIG.format(socket=address))
        service = self.start("dbus", ["dbus-daemon", f"--config-file={config}", "--nofork"])
        self.environment["DBUS_SESSION_BUS_ADDRESS"] = f"unix:path={address}"
        self._wait_for_socket(service, address)
        return service

    def start_pipewire(self) -> Service:
        service = self.start("pipewire", ["pipewire"])
        self._wait_for_socket(service, self.runtime_dir / "pipewire-0")
        return service

    def start_wireplumber(self) -> Service:
        fragments = self.folder / "config" / "wireplumber" / "wireplumber.conf.d"
        fragments.mkdir(parents=True, exist_ok=True)
        (fragments / "50-private.conf").write_text(WIREPLUMBER_CONFIG)
        return self.start("wireplumber", ["wireplumber", "--profile=lumivora-private"])

    def start_display(self, size: str = "1280x800x24") -> Service:
        """A display in memory, on a number that is free."""
        reader, writer = os.pipe()
        try:
            service = self.start(
                "xvfb",
                ["Xvfb", "-displayfd", str(writer), "-screen", "0", size, "-nolisten", "tcp", "-noreset"],
                pass_fds=[writer],
            )
            os.close(writer)
            writer = -1
            # The whole line: the display takes it amiss when nobody reads to the end.
            number = b""
            while not number.endswith(b"\n") and select.select([reader], [], [], 20)[0]:
                if not (more := os.read(reader, 16)):
                    break
                number += more
        finally:
            os.close(reader)
            if writer >= 0:
                os.close(writer)
        if not number.endswith(b"\n"):
            raise SessionError(f"The display did not start; see {service.log}")
        self.environment["DISPLAY"] = f":{number.decode().strip()}"
        return service

    def _wait_for_socket(self, service: Service, path: Path) -> None:
        def answers() -> bool:
            if not service.running():
                raise SessionError(f"{service.name} ended; see {service.log}")
            with socket.socket(socket.AF_UNIX) as probe:
                return probe.connect_ex(str(path)) == 0

        wait_until(answers, 20, f"{service.name} did not answer (see {service.log})")


class Client:
    """A running lumivora-probe and the figures that it prints."""

    def __init__(self, service: Service, report: Path, snapshot: Path) -> None:
        self.service = service
        self.report_file = report
        self.snapshot = snapshot
        self.line: dict[str, float] = {}
        self._unread = b""
        os.set_blocking(service.process.stdout.fileno(), False)

    def poll(self, timeout: float = 0.0) -> list[dict[str, float]]:
        """The lines that have come since the last call, waiting so many seconds for the first."""
        stream = self.service.process.stdout
        select.select([stream], [], [], timeout)
        self._unread += stream.read() or b""
        *lines, self._unread = self._unread.split(b"\n")
        fresh = [json.loads(line) for line in lines if line.strip()]
        if fresh:
            self.line = fresh[-1]
        return fresh

    def wait_for(self, condition: Callable[[dict[str, float]], bool], timeout: float, what: str) -> dict:
        """Reads lines until one fulfils the condition, and gives that one."""
        deadline = time.monotonic() + timeout
        while time.monotonic() < deadline:
            for line in self.poll(0.5):
                if condition(line):
                    return line
            if not self.service.running():
                break
        raise SessionError(f"{what} within {timeout:.0f} s; last seen: {self.line}; see {self.service.log}")

    def wait_live(self, timeout: float = 20.0) -> dict:
        """Waits for a second in which the picture moved."""
        return self.wait_for(lambda line: line["fps"] > 5, timeout, "No live picture came")

    def report(self, timeout: float = 10.0) -> dict:
        """Ends the client, unless it has, and gives its report."""
        self.service.stop(timeout)
        if not self.report_file.exists():
            raise SessionError(f"The client left no report; see {self.service.log}")
        return json.loads(self.report_file.read_text())
