# SPDX-License-Identifier: Apache-2.0
"""Figures of the camera's way through the application, taken while a client watches."""

import os
import time
from pathlib import Path

from channel import ChannelWatch
from session import Client, Service, Session

TICKS = os.sysconf("SC_CLK_TCK")


def processor_seconds(pid: int) -> float:
    """Processor time that a process has used so far, all its threads."""
    stat = Path(f"/proc/{pid}/stat").read_text()
    fields = stat.rpartition(")")[2].split()
    return (int(fields[11]) + int(fields[12])) / TICKS  # user and system


class ProcessorUse:
    """Share of one core that a process uses from now on."""

    def __init__(self, service: Service) -> None:
        self._pid = service.pid
        self._time = time.monotonic()
        self._used = processor_seconds(self._pid)

    def percent(self) -> float:
        elapsed = time.monotonic() - self._time
        return 100 * (processor_seconds(self._pid) - self._used) / elapsed


class Measurement:
    """What happened between camera and client while the client had a live picture.

    Made before the client gets its picture; live() is called when it has one, finish() at the end.
    """

    def __init__(self, session: Session, application: Service) -> None:
        self._application = application
        self._channel = ChannelWatch(session.runtime_dir)
        self._processor: ProcessorUse | None = None
        self.live_seconds = 0.0  # once finished

    def live(self) -> None:
        if self._processor is None:
            self._processor = ProcessorUse(self._application)

    def finish(self, client: Client) -> dict[str, object]:
        """Ends the client and gives the figures, all of them for the time between the client's
        first and last live frame."""
        percent = 0.0
        if self._processor is not None and self._application.running():
            percent = self._processor.percent()
        seen = client.report()
        self._channel.close()
        self.live_seconds = seen["live_seconds"]
        first, last = seen.get("first_number"), seen.get("last_number")
        offered = last - first + 1 if first is not None else 0
        return {
            "offered": offered,
            "processed": self._channel.frames_between(first, last) if offered else 0,
            "delivered": seen["delivered"],
            "dropped": offered - seen["delivered"],
            "torn": seen["torn"],
            "fps": round(seen["fps"], 2),
            "latency_ms_p50": round(seen["latency_ms_p50"], 2),
            "latency_ms_p99": round(seen["latency_ms_p99"], 2),
            "cpu_percent": round(percent, 1),
        }
