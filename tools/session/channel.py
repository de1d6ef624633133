# SPDX-License-Identifier: Apache-2.0
"""Watches the frame channel from outside: which of the camera's frames the application wrote.

The layout is the one in vcam/framechannel/FrameChannelLayout.h, the stamp the one that
tools/probe/FrameStamp.cpp draws; both are read here a second time on purpose, so that a measurement
does not rest on the code that it measures.
"""

import mmap
import os
import struct
import threading
import time
import zlib
from dataclasses import dataclass
from pathlib import Path

CHANNEL = Path("lumivora-control") / "LumivoraCamVideo"
COUNTER = Path("lumivora-control") / "GlobalLumivoraInstanceCounterSM"

HEADER = struct.Struct("<6I4xII")  # up to the height
SLOT_HEAD = 32

COLUMNS = 64
ROW_HEIGHT = 16
TOP_MARK = b"\xa6\x35"

POLL_S = 0.004


@dataclass(frozen=True)
class Header:
    write_sequence: int
    ready_sequence: int
    state: int
    slots: tuple[int, int, int]
    width: int
    height: int


def read_header(data: mmap.mmap) -> Header:
    write, ready, state, *slots, width, height = HEADER.unpack_from(data)
    return Header(write, ready, state, (slots[0], slots[1], slots[2]), width, height)


def read_number(data: mmap.mmap, header: Header) -> int | None:
    """The frame number in the newest slot; none without a valid stamp."""
    pixels = header.slots[header.ready_sequence % 3] + SLOT_HEAD
    value = 0
    for index in range(2 * COLUMNS):
        column, row = index % COLUMNS, index // COLUMNS
        x = (2 * column + 1) * header.width // (2 * COLUMNS)
        y = row * ROW_HEIGHT + ROW_HEIGHT // 2
        value = value << 1 | (data[pixels + (y * header.width + x) * 4 + 1] > 127)
    code = value.to_bytes(16)
    if code[:2] != TOP_MARK or zlib.crc32(code[:12]) != int.from_bytes(code[12:]):
        return None
    return int.from_bytes(code[2:6])


def client_count(runtime_dir: Path) -> int | None:
    """The client counter as it stands; none when there is none."""
    try:
        return struct.unpack("<I", (runtime_dir / COUNTER).read_bytes()[:4])[0]
    except (OSError, struct.error):
        return None


class ChannelWatch:
    """Notes which frame each sequence number stood for, from a thread of its own."""

    def __init__(self, runtime_dir: Path) -> None:
        self._file = runtime_dir / CHANNEL
        self._seen: list[tuple[int, int, int]] = []  # producer, sequence, frame number
        self._producer = 0
        self.frames = 0  # seen so far, whether they carry a number or not
        self._stop = threading.Event()
        self._thread = threading.Thread(target=self._watch, daemon=True)
        self._thread.start()

    def close(self) -> None:
        self._stop.set()
        self._thread.join()

    def frames_between(self, first: int, last: int) -> int:
        """How many frames with numbers from first to last the application wrote.

        A frame that this watch slept through counts too: its sequence number lies between others.
        """
        inside = [entry for entry in list(self._seen) if first <= entry[2] <= last]
        total = 0
        for producer in {entry[0] for entry in inside}:
            sequences = [entry[1] for entry in inside if entry[0] == producer]
            total += max(sequences) - min(sequences) + 1
        return total

    def _watch(self) -> None:
        while not self._stop.is_set():
            try:
                with self._file.open("rb") as file:
                    inode = os.fstat(file.fileno()).st_ino
                    with mmap.mmap(file.fileno(), 0, prot=mmap.PROT_READ) as data:
                        self._producer += 1
                        self._follow(data, inode)
            except (OSError, ValueError, struct.error, IndexError):
                self._stop.wait(0.02)  # no producer yet, or one that just left

    def _follow(self, data: mmap.mmap, inode: int) -> None:
        """Notes frames until the producer closes the channel or another takes its place."""
        last = 0
        checked = time.monotonic()
        while not self._stop.wait(POLL_S):
            header = read_header(data)
            if header.ready_sequence != last:
                last = header.ready_sequence
                self.frames += 1
                number = read_number(data, header)
                # Read while slot and number belong together.
                if number is not None and read_header(data).write_sequence < last + 3:
                    self._seen.append((self._producer, last, number))
            if time.monotonic() - checked > 0.1:
                checked = time.monotonic()
                if header.state == 3 or self._file.stat().st_ino != inode:
                    return
