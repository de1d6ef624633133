# SPDX-License-Identifier: Apache-2.0
"""Ends what a session left behind when the process that ran it is gone.

Started by session.py with a pipe as its standard input, which closes when the session's process
ends in whatever way, kill -9 included. It then ends every process that carries the session's mark
in its environment, also those that detached themselves, and removes the session's folder.
"""

import os
import shutil
import signal
import sys
import time
from pathlib import Path

MARK = "LUMIVORA_SESSION"


def processes_with(variable: str, value: str) -> list[int]:
    """The processes that were started with that variable, this one left out."""
    wanted = f"{variable}={value}".encode()
    found = []
    for entry in Path("/proc").iterdir():
        if not entry.name.isdigit() or int(entry.name) == os.getpid():
            continue
        try:
            if wanted in (entry / "environ").read_bytes().split(b"\0"):
                found.append(int(entry.name))
        except OSError:
            continue  # someone else's, or just ended
    return found


def marked_processes(mark: str) -> list[int]:
    return processes_with(MARK, mark)


def programs(processes: list[int]) -> dict[int, str]:
    """Names of the programs that processes run."""
    names = {}
    for pid in processes:
        try:
            command = Path(f"/proc/{pid}/cmdline").read_bytes().split(b"\0")[0].decode()
        except OSError:
            continue  # just ended
        names[pid] = Path(command).name
    return names


def end_marked_processes(mark: str, grace: float = 2.0) -> None:
    """Asks all to end, and kills what is left after the grace time in seconds."""
    for number in (signal.SIGTERM, signal.SIGKILL):
        for pid in marked_processes(mark):
            try:
                os.kill(pid, number)
            except ProcessLookupError:
                pass
        deadline = time.monotonic() + grace
        while marked_processes(mark):
            if time.monotonic() > deadline:
                break
            time.sleep(0.05)


def main() -> None:
    mark, folder = sys.argv[1:3]
    sys.stdin.buffer.read()
    end_marked_processes(mark)
    shutil.rmtree(folder, ignore_errors=True)


if __name__ == "__main__":
    main()
