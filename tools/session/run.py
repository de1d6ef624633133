# SPDX-License-Identifier: Apache-2.0
"""Runs Lumivora Control: with a desktop in its session, without one in a private session."""

import argparse
import json
import os
import signal
import sys
import time
from pathlib import Path

from channel import ChannelWatch
from measure import Measurement
from session import Client, PrivateSession, Service, Session, SessionError, wait_until

DESCRIPTION = """\
Runs Lumivora Control.

Without a desktop: starts private D-Bus, PipeWire and WirePlumber services, a display in memory, a
stand-in for the camera, the application and a client of its virtual camera; shows what the client
gets every second, and ends with a table. Nothing of your own session is touched, and nothing keeps
running.

On a desktop: starts the application in your session, says what to open, and keeps running until you
quit it from its tray menu or press Ctrl-C.
"""

EPILOG = """\
examples:
  ./dev run                          try it: ten seconds of live picture, then a table
  ./dev run --seconds 60 --report r.json
  ./dev run --video talk.mp4         with a film as the camera's picture
  ./dev run --private --keep         on a desktop, without touching it; until Ctrl-C
  ./dev run --desktop --standin      in your session, without the maker's camera

Pictures, reports and the log of each process are kept in build/run/.
Exit status: 0 when the client got a live picture, 1 otherwise.
"""

# From the start of the application until its first picture; it waits 2.5 s before it opens a camera,
# and looks again every 2 s. Generous, because a busy machine is slow.
LIVE_TIMEOUT_S = 60
LEAST_LIVE_S = 0.9
LEAST_LIVE_FRAMES = 15
WINDOW_TIMEOUT_S = 15


FORMATS = ("YUY2", "I420", "NV12", "BGRA", "BGRx", "RGB", "MJPG")


def parse_arguments() -> argparse.Namespace:
    parser = argparse.ArgumentParser(
        prog="./dev run",
        description=DESCRIPTION,
        epilog=EPILOG,
        formatter_class=argparse.RawDescriptionHelpFormatter,
    )
    parser.add_argument(
        "--seconds", type=float, default=10, metavar="N",
        help="length of the live picture that is measured (default: 10)",
    )  # fmt: skip
    parser.add_argument("--report", type=Path, metavar="FILE", help="write the table as JSON")
    parser.add_argument(
        "--keep", action="store_true", help="keep everything running after the table, until Ctrl-C"
    )
    where = parser.add_mutually_exclusive_group()
    where.add_argument(
        "--desktop", action="store_true",
        help="use this session's PipeWire and display (default: when there are both)",
    )  # fmt: skip
    where.add_argument(
        "--private", action="store_true", help="use private services even when there is a desktop"
    )
    standin = parser.add_argument_group("stand-in camera")
    standin.add_argument(
        "--standin", action="store_true",
        help="on a desktop: offer a stand-in camera, and measure with it",
    )  # fmt: skip
    standin.add_argument("--rate", metavar="FPS", help="frames a second (default: 30)")
    standin.add_argument(
        "--format", choices=FORMATS, metavar="FORMAT",
        help=f"what it offers: {', '.join(FORMATS)} (default: {FORMATS[0]})",
    )  # fmt: skip
    standin.add_argument("--video", type=Path, metavar="FILE", help="play this film")
    parser.add_argument("--build-dir", type=Path, default=Path("build/release"), help=argparse.SUPPRESS)
    arguments = parser.parse_args()
    if arguments.seconds < 1:
        parser.error("--seconds must be at least 1")
    if arguments.video is not None and not arguments.video.is_file():
        parser.error(f"there is no film {arguments.video}")
    if arguments.report is not None and not arguments.report.absolute().parent.is_dir():
        parser.error(f"there is no folder for {arguments.report}")
    return arguments


def has_desktop() -> bool:
    """A display to draw on and a PipeWire that serves it."""
    runtime = os.environ.get("XDG_RUNTIME_DIR")
    display = os.environ.get("WAYLAND_DISPLAY") or os.environ.get("DISPLAY")
    return bool(display and runtime and (Path(runtime) / "pipewire-0").exists())


def standin_arguments(arguments: argparse.Namespace) -> list[str]:
    result = []
    for name in ("rate", "format"):
        if (value := getattr(arguments, name)) is not None:
            result += [f"--{name}", value]
    if arguments.video is not None:
        result += ["--video", str(arguments.video.resolve())]
    return result


def check_running(*services: Service) -> None:
    for service in services:
        if not service.running():
            raise SessionError(
                f"{service.name} ended by itself with status {service.process.returncode}; "
                f"see {service.log}"
            )


def follow(client: Client, measurement: Measurement, seconds: float, *services: Service) -> None:
    """Prints a line for every second of the client's, until it has had its length of picture."""
    deadline = time.monotonic() + LIVE_TIMEOUT_S + seconds
    while client.service.running() and time.monotonic() < deadline:
        check_running(*services)
        for line in client.poll(0.2):
            if line["delivered"] == 0:
                waiting = "placeholder picture" if line["opened"] else "no virtual camera yet"
                print(f"{line['t']:5.0f} s   {waiting}", flush=True)
                continue
            measurement.live()
            print(
                f"{line['t']:5.0f} s   {line['fps']:5.1f} frames/s   "
                f"latency {line['latency_ms']:6.1f} ms   {line['delivered']:5d} frames delivered",
                flush=True,
            )


def take_screenshot(session: Session, file: Path) -> str:
    """Saves the display once it shows something."""
    if "DISPLAY" not in session.environment or "WAYLAND_DISPLAY" in session.environment:
        return ""  # a Wayland desktop does not hand out pictures of itself
    shot = session.screenshot()

    def shows_something() -> bool:
        nonlocal shot
        if shot.colours() > 1:
            return True
        time.sleep(0.5)
        shot = session.screenshot()
        return shot.colours() > 1

    try:
        wait_until(shows_something, WINDOW_TIMEOUT_S, "The application showed no window")
    except SessionError as error:
        print(f"{error}; see {session.logs / 'application.log'}", file=sys.stderr)
        return ""
    return str(shot.save(file))


def print_table(result: dict[str, object]) -> None:
    rows = [
        ("frames offered by the camera", f"{result['offered']}"),
        ("frames processed", f"{result['processed']}"),
        ("frames delivered to the client", f"{result['delivered']}"),
        ("frames dropped", f"{result['dropped']}"),
        ("frames torn", f"{result['torn']}"),
        ("frame rate", f"{result['fps']:.2f} frames/s"),
        ("latency, median", f"{result['latency_ms_p50']:.1f} ms"),
        ("latency, 99th percentile", f"{result['latency_ms_p99']:.1f} ms"),
        ("processor use of the application", f"{result['cpu_percent']:.1f} % of one core"),
        ("picture at the client", result["snapshot"] or "none"),
        ("screenshot", result["screenshot"] or "none"),
    ]
    print()
    for name, value in rows:
        print(f"  {name:<34}{value}")
    print(flush=True)


def measure(session: Session, arguments: argparse.Namespace) -> bool:
    """Starts camera, application and client, prints the table; true with a live picture."""
    standin = session.start_standin(*standin_arguments(arguments))
    application = session.start_application()
    measurement = Measurement(session, application)
    client = session.start_probe(f"--seconds={arguments.seconds}", f"--wait={LIVE_TIMEOUT_S}")
    follow(client, measurement, arguments.seconds, standin, application)
    result = measurement.finish(client)

    result["snapshot"] = str(client.snapshot) if client.snapshot.exists() else ""
    result["screenshot"] = take_screenshot(session, session.logs / "screenshot.png")
    print_table(result)
    if arguments.report is not None:
        arguments.report.write_text(json.dumps(result, indent=2) + "\n")

    if measurement.live_seconds < LEAST_LIVE_S:
        print(
            f"The client got no live picture: {result['processed']} frames were processed and "
            f"{result['delivered']} reached it; see application.log, service.log and client.log in "
            f"{session.logs}.",
            file=sys.stderr,
        )
        return False
    return True


def keep_running(*services: Service) -> None:
    try:
        while all(service.running() for service in services):
            time.sleep(0.2)
    except KeyboardInterrupt:
        print()


def run_private(arguments: argparse.Namespace, binaries: Path, output: Path) -> bool:
    with PrivateSession(binaries, output) as session:
        print("Starting private D-Bus, PipeWire, WirePlumber and display", flush=True)
        session.start_services()
        live = measure(session, arguments)
        if arguments.keep:
            names = ("XDG_RUNTIME_DIR", "DBUS_SESSION_BUS_ADDRESS", "DISPLAY")
            print("Still running; Ctrl-C ends it. To join the session from another terminal:")
            print("  export " + " ".join(f"{name}={session.environment[name]}" for name in names))
            sys.stdout.flush()
            keep_running(*session.services("application"))
        return live


def run_on_desktop(arguments: argparse.Namespace, binaries: Path, output: Path) -> bool:
    with Session(binaries, output) as session:
        if arguments.standin:
            live = measure(session, arguments)
            application = session.services("application")[0]
        else:
            application = session.start_application()
            live = False
        print(
            "Lumivora Control runs in your session: its icon is in the tray.\n"
            "Open a program that uses a camera, for example a video call or a browser's camera test "
            'page,\nand choose the camera "Lumivora Control". Quit from the tray menu, or press '
            "Ctrl-C here.",
            flush=True,
        )
        channel = ChannelWatch(session.runtime_dir)
        try:
            while application.running():
                time.sleep(0.2)
                if not live and channel.frames >= LEAST_LIVE_FRAMES:
                    live = True
                    print("The camera is in use: the virtual camera shows its picture.", flush=True)
        except KeyboardInterrupt:
            print()
        finally:
            channel.close()
        if application.process.returncode not in (0, None):
            raise SessionError(
                f"The application ended with status {application.process.returncode}; "
                f"see {application.log}"
            )
        return live


def main() -> int:
    arguments = parse_arguments()
    binaries = arguments.build_dir / "bin"
    output = arguments.build_dir.resolve().parent / "run"
    for name in ("lumivora-control", "lumivora-standin", "lumivora-probe"):
        if not (binaries / name).exists():
            print(f"There is no {binaries / name}: './dev build release' makes it.", file=sys.stderr)
            return 1

    # Ended from outside is ended in order too, also where Ctrl-C was being ignored.
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(1))
    signal.signal(signal.SIGINT, signal.default_int_handler)
    desktop = arguments.desktop or (has_desktop() and not arguments.private)
    try:
        run = run_on_desktop if desktop else run_private
        return 0 if run(arguments, binaries, output) else 1
    except SessionError as error:
        print(f"{error}.", file=sys.stderr)
    except KeyboardInterrupt:
        print("\nStopped.", file=sys.stderr)
    return 1


if __name__ == "__main__":
    sys.exit(main())
