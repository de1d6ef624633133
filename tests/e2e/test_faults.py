# SPDX-License-Identifier: Apache-2.0
"""What goes wrong around the camera path, and how it comes right again without anyone's help."""

import os
import signal
import time
import unittest

from display import Display
from scenario import Scenario
from session import wait_until

ALREADY_RUNNING_EXIT = 1


class Faults(Scenario):
    def placeholder_comes(self, client) -> None:
        before = client.line["placeholders"]
        client.wait_for(
            lambda line: line["placeholders"] > before and line["fps"] == 0,
            15,
            "The placeholder picture did not come",
        )

    def test_camera_that_stalls_is_restarted(self) -> None:
        application = self.start_hidden()
        client = self.live_client()

        # The watchdog looks every 2 s: this way a look falls into the third second of the stall.
        self.wait_for_log(application, "areAnyClientsConnected() == TRUE")
        time.sleep(1.5)
        self.standin.command("stall 3")

        self.wait_for_log(application, "restarting VCam physical grabber - elapsed >= 2000")
        client.wait_live()
        self.assertEqual(client.report()["opened"], 1)

    def test_camera_that_vanishes_is_used_again_when_it_returns(self) -> None:
        self.start_hidden()
        client = self.live_client()

        self.standin.command("vanish")
        client.wait_for(lambda line: line["fps"] == 0, 10, "The picture did not stop")
        self.standin.command("return")

        client.wait_live()
        self.assertEqual(client.report()["opened"], 1)

    def test_killed_client_is_no_longer_counted_and_the_camera_stops(self) -> None:
        self.start_hidden()
        client = self.live_client()
        self.assertEqual(self.client_count(), 1)

        client.service.kill()
        killed = time.monotonic()

        wait_until(lambda: self.client_count() == 0, 4, "The dead client was still counted")
        wait_until(lambda: not self.producing(), 4, "The capture went on without a client")
        self.assertLess(time.monotonic() - killed, 4)

    def test_one_of_two_clients_killed_leaves_the_other_its_picture(self) -> None:
        self.start_hidden()
        staying = self.live_client("staying")
        leaving = self.live_client("leaving")
        self.assertEqual(self.client_count(), 2)

        leaving.service.kill()

        wait_until(lambda: self.client_count() == 1, 4, "The dead client was still counted")
        time.sleep(4.5)  # two looks of the watchdog
        staying.poll()
        staying.wait_live()
        self.assertEqual(staying.report()["opened"], 1)

    def test_client_keeps_the_camera_over_a_crash_of_the_application(self) -> None:
        application = self.start_hidden()
        client = self.live_client()

        application.kill()
        self.placeholder_comes(client)
        self.start_hidden()
        client.wait_live()

        report = client.report()
        self.assertEqual(report["opened"], 1)
        self.assertEqual(report["torn"], 0)

    def test_killed_service_is_started_again_and_serves_clients(self) -> None:
        self.start_hidden()
        client = self.live_client()
        (service,) = self.service_processes()

        os.kill(service, signal.SIGKILL)

        wait_until(
            lambda: self.service_processes() not in ([], [service]),
            15,
            "The application did not start the service again",
        )
        client.wait_live(30)  # a new stream: the node was another one
        self.live_client("newcomer")

    def test_pipewire_restart_is_survived_by_application_and_service(self) -> None:
        application = self.start_hidden()
        client = self.live_client()
        services = self.service_processes()

        for name in ("wireplumber", "pipewire"):
            for service in self.session.services(name):
                service.kill()
        self.session.start_pipewire()
        self.session.start_wireplumber()

        client.wait_for(lambda line: line["opened"] == 2, 30, "The virtual camera did not return")
        client.wait_live(30)
        self.assertTrue(application.running())
        self.assertEqual(self.service_processes(), services)

    def test_second_application_says_so_and_ends(self) -> None:
        first = self.start_hidden()

        second = self.session.start_application(name="second")
        with Display(self.session.environment["DISPLAY"]) as display:
            display.wait_for_window()
            for window in display.visible_windows():
                display.close_window(window)

        self.assertEqual(second.wait(15), ALREADY_RUNNING_EXIT)
        self.assertTrue(first.running())

    def test_second_producer_is_refused_and_the_first_goes_on(self) -> None:
        self.start_hidden()
        client = self.live_client()
        # Another folder for temporary files, so another lock: only the channel keeps them apart.
        elsewhere = self.session.folder / "elsewhere"
        elsewhere.mkdir()
        self.session.environment["TMPDIR"] = str(elsewhere)

        second = self.session.start_application(name="second")
        with Display(self.session.environment["DISPLAY"]) as display:
            display.wait_for_window()
        time.sleep(3)

        self.assertTrue(second.running())
        client.poll()
        client.wait_live()
        second.stop()
        report = client.report()
        self.assertEqual(report["opened"], 1)
        self.assertEqual(report["torn"], 0)

    def test_application_told_to_end_does_so_in_order(self) -> None:
        for number in (signal.SIGTERM, signal.SIGINT):
            with self.subTest(signal.Signals(number).name):
                application = self.start_hidden()
                client = self.live_client(f"client-{number}")
                application.signal(number)
                self.assertEqual(application.wait(10), 0)
                self.assertFalse(self.producing())
                client.service.stop()


if __name__ == "__main__":
    unittest.main()
