# SPDX-License-Identifier: Apache-2.0
"""Measures the camera's way to one client, with no effect active and the window hidden.

The same client first opens the camera itself: what the way through the application adds is the
difference of the two medians.
"""

import argparse
import json
import sys
import time
from pathlib import Path

from display import Display
from measure import Measurement
from session import Client, PrivateSession, SessionError

LIVE_TIMEOUT_S = 60


def until_the_end(client: Client, seconds: float, measurement: Measurement | None = None) -> None:
    """Waits until the client has had its length of picture."""
    deadline = time.monotonic() + LIVE_TIMEOUT_S + seconds
    while client.service.running() and time.monotonic() < deadline:
        for line in client.poll(0.5):
            if line["delivered"] > 0 and measurement is not None:
                measurement.live()


def measure(binaries: Path, logs: Path, seconds: float, direct_seconds: float) -> dict[str, float]:
    with PrivateSession(binaries, logs) as session:
        session.start_services()
        session.start_standin()

        direct = session.start_probe(
            "--target=Lumivora Camera", f"--seconds={direct_seconds}", f"--wait={LIVE_TIMEOUT_S}",
            name="direct",
        )  # fmt: skip
        until_the_end(direct, direct_seconds)
        baseline = direct.report()

        application = session.start_application()
        with Display(session.environment["DISPLAY"]) as display:
            display.wait_for_window()
            display.hide_window()  # its preview would be a second client
        measurement = Measurement(session, application)
        client = session.start_probe(f"--seconds={seconds}", f"--wait={LIVE_TIMEOUT_S}")
        until_the_end(client, seconds, measurement)
        through = measurement.finish(client)

    if not through["delivered"] or not baseline["delivered"]:
        raise SessionError(f"The client got no live picture; see {logs}")
    return {
        "delivered_fps": through["fps"],
        "added_latency_ms": round(through["latency_ms_p50"] - baseline["latency_ms_p50"], 2),
        "cpu_percent": through["cpu_percent"],
        "torn": through["torn"],
        "direct_fps": round(baseline["fps"], 2),
        "direct_latency_ms_p50": round(baseline["latency_ms_p50"], 2),
        "latency_ms_p50": through["latency_ms_p50"],
        "latency_ms_p99": through["latency_ms_p99"],
        "offered": through["offered"],
        "processed": through["processed"],
        "delivered": through["delivered"],
    }


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--json", type=Path, metavar="FILE", help="write the figures as JSON")
    parser.add_argument("--build-dir", type=Path, default=Path("build/release"))
    parser.add_argument("--seconds", type=float, default=60, help="length of the measurement")
    parser.add_argument("--direct-seconds", type=float, default=15, help="... of the camera itself")
    arguments = parser.parse_args()
    logs = arguments.build_dir.resolve().parent / "bench" / "camera"
    try:
        figures = measure(
            arguments.build_dir / "bin", logs, arguments.seconds, arguments.direct_seconds
        )
    except SessionError as error:
        print(f"{error}.", file=sys.stderr)
        return 1
    for name, value in figures.items():
        print(f"{name:<24}{value:>10}")
    if arguments.json is not None:
        arguments.json.write_text(json.dumps(figures, indent=2) + "\n")
    return 0


if __name__ == "__main__":
    sys.exit(main())
