# SPDX-License-Identifier: Apache-2.0
"""What the end-to-end tests have in common: the whole system in a private session.

The modules of tools/session are on the path that ctest sets (PYTHONPATH).
"""

import os
import unittest
from pathlib import Path

import channel
import guard
from display import Display
from session import Client, PrivateSession, Service, wait_until

ROOT = Path(__file__).resolve().parents[2]
BINARIES = Path(os.environ.get("LUMIVORA_BINARIES", ROOT / "build" / "debug" / "bin"))
LOGS = Path(os.environ.get("LUMIVORA_E2E_LOGS", BINARIES.parent / "e2e"))

SERVICE = "lumivora-virtual-devices"


class Scenario(unittest.TestCase):
    """A private session with the stand-in camera; each test has one of its own."""

    def setUp(self) -> None:
        self.session = PrivateSession(BINARIES, LOGS / self._testMethodName)
        self.addCleanup(self.session.close)
        print(f"logs: {self.session.logs}", flush=True)
        self.session.start_services()
        self.standin = self.session.start_standin()

    def start_hidden(self, name: str = "application") -> Service:
        """Starts the application and puts its window away: its preview is a client too."""
        application = self.session.start_application(name=name)
        with Display(self.session.environment["DISPLAY"]) as display:
            display.wait_for_window()
            display.hide_window()
        return application

    def live_client(self, name: str = "client") -> Client:
        client = self.session.start_probe(name=name)
        client.wait_live(30)
        return client

    def wait_for_log(self, service: Service, text: str, timeout: float = 15) -> None:
        seen = service.log_text().count(text)
        wait_until(
            lambda: service.log_text().count(text) > seen,
            timeout,
            f"{service.name} did not write '{text}'",
        )

    def client_count(self) -> int | None:
        return channel.client_count(self.session.runtime_dir)

    def producing(self) -> bool:
        """Whether the frame channel has a producer that has not closed it."""
        try:
            data = (self.session.runtime_dir / channel.CHANNEL).read_bytes()[: channel.HEADER.size]
        except FileNotFoundError:
            return False
        return channel.read_header(data).state != 3

    def service_processes(self) -> list[int]:
        """The virtual device service, which the application started."""
        here = guard.processes_with("XDG_RUNTIME_DIR", str(self.session.runtime_dir))
        return [pid for pid, name in guard.programs(here).items() if name == SERVICE]
