# SPDX-License-Identifier: Apache-2.0
"""A picture of a display, and PNG files of it."""

import struct
import zlib
from dataclasses import dataclass
from pathlib import Path


def _chunk(kind: bytes, data: bytes) -> bytes:
    checksum = zlib.crc32(kind + data)
    return struct.pack(">I", len(data)) + kind + data + struct.pack(">I", checksum)


@dataclass(frozen=True)
class Screenshot:
    """Rows of R G B from top to bottom, each padded to a multiple of 4 bytes."""

    width: int
    height: int
    data: bytes

    @property
    def _stride(self) -> int:
        return (self.width * 3 + 3) & ~3

    def rows(self) -> list[bytes]:
        return [
            self.data[y * self._stride : y * self._stride + self.width * 3]
            for y in range(self.height)
        ]

    def colours(self) -> int:
        """How many colours there are; 1 means that nothing is shown."""
        return len({row[x : x + 3] for row in self.rows()[::4] for x in range(0, len(row), 12)})

    def save(self, file: Path) -> Path:
        """Writes the picture as PNG."""
        header = struct.pack(">IIBBBBB", self.width, self.height, 8, 2, 0, 0, 0)
        pixels = b"".join(b"\0" + row for row in self.rows())
        file.write_bytes(
            b"\x89PNG\r\n\x1a\n"
            + _chunk(b"IHDR", header)
            + _chunk(b"IDAT", zlib.compress(pixels, 6))
            + _chunk(b"IEND", b"")
        )
        return file
