# SPDX-License-Identifier: Apache-2.0
"""A person's first minutes: the command that shows everything, its report and its end."""

import json
import os
import signal
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

import guard
from display import Display
from scenario import BINARIES, LOGS, ROOT, Scenario
from session import wait_until

RUN = ROOT / "tools" / "session" / "run.py"
REPORT_KEYS = {
    "offered", "processed", "delivered", "dropped", "torn", "fps", "latency_ms_p50",
    "latency_ms_p99", "cpu_percent", "snapshot", "screenshot",
}  # fmt: skip


def link_binaries(build: Path) -> None:
    """Makes a build folder with the programs under test, so that a run's output goes beside it."""
    link = build / "bin"
    link.unlink(missing_ok=True)
    link.symlink_to(BINARIES.resolve())


class Run(unittest.TestCase):
    """The run command, as ./dev calls it."""

    def setUp(self) -> None:
        self.folder = LOGS / self._testMethodName
        self.folder.mkdir(parents=True, exist_ok=True)
        (self.folder / "build").mkdir(exist_ok=True)
        link_binaries(self.folder / "build")

    def command(self, *arguments: str) -> list[str]:
        build = f"--build-dir={self.folder / 'build'}"
        return [sys.executable, str(RUN), build, "--private", *arguments]

    def test_run_shows_a_live_picture_and_reports_it(self) -> None:
        report = self.folder / "report.json"
        ran = subprocess.run(
            self.command("--seconds=5", f"--report={report}"),
            stdout=subprocess.PIPE,
            stderr=subprocess.STDOUT,
            text=True,
            timeout=120,
        )
        print(ran.stdout)
        self.assertEqual(ran.returncode, 0)

        result = json.loads(report.read_text())
        self.assertEqual(set(result), REPORT_KEYS)
        self.assertGreaterEqual(result["offered"], result["processed"])
        self.assertGreaterEqual(result["processed"], result["delivered"])
        self.assertEqual(result["dropped"], result["offered"] - result["delivered"])
        # A sanity bound, not a goal: a busy machine may drop frames, the benchmark measures them.
        self.assertGreater(result["delivered"], 5 * 30 / 2)
        self.assertEqual(result["torn"], 0)
        self.assertGreater(result["latency_ms_p50"], 0)
        self.assertGreaterEqual(result["latency_ms_p99"], result["latency_ms_p50"])
        self.assertGreater(result["cpu_percent"], 0)
        for picture in ("snapshot", "screenshot"):
            self.assertTrue(Path(result[picture]).read_bytes().startswith(b"\x89PNG"), picture)

    def test_run_without_a_camera_says_so_and_fails(self) -> None:
        film = self.folder / "no-film.mp4"
        film.write_text("not a film")
        ran = subprocess.run(
            self.command("--seconds=1", f"--video={film}"),
            stderr=subprocess.PIPE,
            text=True,
            timeout=120,
        )
        self.assertEqual(ran.returncode, 1)
        self.assertIn("standin", ran.stderr)
        self.assertIn(".log", ran.stderr)
        self.assertNotIn("Traceback", ran.stderr)

    def test_run_stopped_in_any_way_leaves_nothing_behind(self) -> None:
        for number in (signal.SIGINT, signal.SIGTERM, signal.SIGKILL):
            with self.subTest(signal.Signals(number).name):
                self.stop_run_with(number)

    def stop_run_with(self, number: int) -> None:
        with tempfile.TemporaryDirectory() as folder:
            environment = os.environ | {"TMPDIR": folder}
            with subprocess.Popen(
                self.command("--seconds=60"), env=environment, start_new_session=True
            ) as run:

                def sessions() -> list[str]:
                    return [name for name in os.listdir(folder) if name.startswith("lumivora-")]

                wait_until(sessions, 30, "The run made no session")
                (mark,) = sessions()
                everything = {
                    "dbus-daemon", "pipewire", "wireplumber", "Xvfb", "lumivora-standin",
                    "lumivora-control", "lumivora-virtual-devices", "lumivora-probe",
                }  # fmt: skip
                wait_until(
                    lambda: set(guard.programs(guard.marked_processes(mark)).values()) >= everything,
                    30,
                    "The run did not start",
                )
                run.send_signal(number)
                run.wait(20)
            wait_until(lambda: not guard.marked_processes(mark), 15, "Something went on running")
            wait_until(lambda: not sessions(), 5, "The session's folder stayed")


class Desktop(Scenario):
    def test_run_on_a_desktop_joins_its_session_until_stopped(self) -> None:
        build = self.session.logs / "build"
        build.mkdir(exist_ok=True)
        link_binaries(build)
        run = self.session.start("run", [sys.executable, str(RUN), f"--build-dir={build}"])
        wait_until(lambda: "runs in your session" in run.log_text(), 15, "Nothing was said")
        client = self.live_client()
        wait_until(lambda: "The camera is in use" in run.log_text(), 5, "The picture went unseen")
        client.service.stop()
        self.assertEqual(len(self.service_processes()), 1)

        run.signal(signal.SIGINT)

        self.assertEqual(run.wait(20), 0)
        self.assertEqual(self.service_processes(), [])


class Window(Scenario):
    def test_window_shows_up_and_the_camera_stops_once_it_is_hidden(self) -> None:
        self.start_window()
        wait_until(lambda: self.client_count() == 1, 20, "The preview did not open the camera")
        shot = self.session.screenshot()
        shot.save(self.session.logs / "window.png")
        self.assertGreater(shot.colours(), 10)

        with Display(self.session.environment["DISPLAY"]) as display:
            display.hide_window()
        wait_until(lambda: self.client_count() == 0, 10, "The hidden preview was still counted")
        wait_until(lambda: not self.producing(), 4, "The capture went on without a client")

    def start_window(self) -> None:
        self.session.start_application()
        with Display(self.session.environment["DISPLAY"]) as display:
            display.wait_for_window()


class Clients(Scenario):
    def test_several_clients_get_the_same_picture(self) -> None:
        self.start_hidden()
        clients = [self.live_client(f"client-{number}") for number in range(3)]
        wait_until(lambda: self.client_count() == 3, 5, "Not every client was counted")
        for client in clients:
            client.poll()
            client.wait_live()
        for client in clients:
            report = client.report()
            self.assertEqual(report["torn"], 0)
            self.assertEqual(report["opened"], 1)
        wait_until(lambda: self.client_count() == 0, 5, "A client that left was still counted")


if __name__ == "__main__":
    unittest.main()
