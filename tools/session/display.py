# SPDX-License-Identifier: Apache-2.0
"""What a window manager would see and do on a private display, in the few words of X11 it takes."""

import socket
import struct
import time
from typing import Self

from session import wait_until

QUERY_TREE = 15
GET_WINDOW_ATTRIBUTES = 3
GET_GEOMETRY = 14
INTERN_ATOM = 16
SEND_EVENT = 25
SET_INPUT_FOCUS = 42
CLIENT_MESSAGE = 33
NO_WINDOW = 0
VIEWABLE = 2

FOCUS_PATIENCE_S = 3.0


class Display:
    """A connection to a display on this machine, given as in DISPLAY (":7")."""

    def __init__(self, name: str) -> None:
        self._socket = socket.socket(socket.AF_UNIX)
        self._socket.connect(f"/tmp/.X11-unix/X{name.lstrip(':')}")
        self._requests = 0
        self._socket.sendall(struct.pack("<BxHHHHxx", ord("l"), 11, 0, 0, 0))
        head = self._read(8)
        setup = self._read(4 * struct.unpack_from("<H", head, 6)[0])
        if head[0] != 1:
            raise OSError("The display refused the connection")
        vendor, formats = struct.unpack_from("<H", setup, 16)[0], setup[21]
        self._root = struct.unpack_from("<I", setup, 32 + (vendor + 3 & ~3) + 8 * formats)[0]

    def __enter__(self) -> Self:
        return self

    def __exit__(self, *_: object) -> None:
        self._socket.close()

    def visible_windows(self) -> dict[int, tuple[int, int]]:
        """Every visible top-level window, with its width and height."""
        tree = self._ask(QUERY_TREE, self._root)
        count = struct.unpack_from("<H", tree, 16)[0]
        windows = {}
        for window in struct.unpack_from(f"<{count}I", tree, 32):
            attributes = self._ask(GET_WINDOW_ATTRIBUTES, window)
            geometry = self._ask(GET_GEOMETRY, window)
            if attributes and geometry and attributes[26] == VIEWABLE:
                windows[window] = struct.unpack_from("<HH", geometry, 16)
        return windows

    def close_window(self, window: int) -> None:
        """Asks a window to close, as its close button does."""
        protocols, delete = self._atom(b"WM_PROTOCOLS"), self._atom(b"WM_DELETE_WINDOW")
        event = struct.pack("<BBHIIII12x", CLIENT_MESSAGE, 32, 0, window, protocols, delete, 0)
        self._send(struct.pack("<BBHII", SEND_EVENT, 0, 11, window, 0) + event)
        self._ask(QUERY_TREE, self._root)  # answered after it was sent on

    def wait_for_window(self, timeout: float = 30) -> None:
        wait_until(self.visible_windows, timeout, "The application showed no window")

    def hide_window(self) -> None:
        """Lets the application hide its window, which it does when it loses the focus."""

        def hidden() -> bool:
            # A window that just came may not have got the focus yet: it needs one to lose.
            for window in self.visible_windows():
                self._focus(window)
                time.sleep(0.05)
            self._focus(NO_WINDOW)
            # An application takes a short time without the focus for a mere change of windows.
            deadline = time.monotonic() + FOCUS_PATIENCE_S
            while self.visible_windows() and time.monotonic() < deadline:
                time.sleep(0.02)
            return not self.visible_windows()

        wait_until(hidden, 15, "The window stayed without the focus")

    def _focus(self, window: int) -> None:
        self._send(struct.pack("<BBHII", SET_INPUT_FOCUS, 0, 3, window, 0))
        self._ask(QUERY_TREE, self._root)  # answered after it was done

    def _atom(self, name: bytes) -> int:
        padded = name + bytes(-len(name) % 4)
        request = struct.pack("<BBHHxx", INTERN_ATOM, 0, 2 + len(padded) // 4, len(name))
        return struct.unpack_from("<I", self._answer(self._send(request + padded)), 8)[0]

    def _send(self, request: bytes) -> int:
        """Gives the number that an answer to the request carries."""
        self._socket.sendall(request)
        self._requests += 1
        return self._requests & 0xFFFF

    def _answer(self, number: int) -> bytes:
        """The answer to a request; empty when it was refused, the window being gone."""
        while True:
            answer = self._read(32)
            if answer[0] == 1:
                answer += self._read(4 * struct.unpack_from("<I", answer, 4)[0])
            # Others are refusals of requests that have no answer.
            if struct.unpack_from("<H", answer, 2)[0] == number:
                return answer if answer[0] == 1 else b""

    def _ask(self, request: int, window: int) -> bytes:
        return self._answer(self._send(struct.pack("<BxHI", request, 2, window)))

    def _read(self, count: int) -> bytes:
        data = b""
        while len(data) < count:
            more = self._socket.recv(count - len(data))
            if not more:
                raise OSError("The display has gone")
            data += more
        return data
