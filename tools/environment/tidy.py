# SPDX-License-Identifier: Apache-2.0
"""Runs clang-tidy over the files of a build, leaving out those that passed it as they are.

tidy.py BUILD-FOLDER STAMP-FOLDER [FILE...]

A file's verdict depends on its own text, on every header of ours that it includes, and on the
rules; a stamp named after the hash of all that notes a pass. Ninja knows each object's headers.
"""

import hashlib
import json
import os
import subprocess
import sys
import time
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

PROJECT = Path.cwd()
KEEP_STAMPS_S = 30 * 24 * 3600


def project_files(build: Path) -> dict[Path, list[Path]]:
    """Each source that the build compiles, with the files of ours that it is made of."""
    lines = subprocess.run(
        ["ninja", "-C", build, "-t", "deps"], check=True, capture_output=True, text=True
    ).stdout.splitlines()
    headers: dict[str, list[Path]] = {}
    current: list[Path] = []
    for line in lines:
        if line.startswith("    "):
            path = (build / line.strip()).resolve()
            if path.is_relative_to(PROJECT) and path.exists():
                current.append(path)
        elif line:
            current = headers.setdefault(line.split(":")[0], [])
    sources = {}
    for entry in json.loads((build / "compile_commands.json").read_text()):
        source = Path(entry["file"])
        if source.is_relative_to(PROJECT) and not source.is_relative_to(build):
            sources[source] = headers[entry["output"]]
    return sources


def environment() -> bytes:
    version = subprocess.run(["clang-tidy", "--version"], check=True, capture_output=True).stdout
    return version + os.environ.get("LUMIVORA_ENVIRONMENT", "").encode()


def rules(source: Path) -> list[Path]:
    """The rule files that hold for a source."""
    folders = [folder for folder in source.parents if folder.is_relative_to(PROJECT)]
    return [path for folder in folders if (path := folder / ".clang-tidy").exists()]


def main() -> int:
    build, stamps = (Path(argument).resolve() for argument in sys.argv[1:3])
    wanted = [Path(argument).resolve() for argument in sys.argv[3:]]
    stamps.mkdir(parents=True, exist_ok=True)
    common = environment()

    pending: dict[Path, Path] = {}
    for source, inputs in sorted(project_files(build).items()):
        digest = hashlib.sha256(common)
        for path in [*rules(source), source, *sorted(inputs)]:
            digest.update(str(path.relative_to(PROJECT)).encode() + path.read_bytes())
        stamp = stamps / digest.hexdigest()[:32]
        if stamp.exists():
            stamp.touch()
        elif not wanted or source in wanted:
            pending[source] = stamp

    def check(source: Path) -> bool:
        result = subprocess.run(
            ["clang-tidy", "-p", build, "--quiet", source],
            stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
        )  # fmt: skip
        # Standard error counts the warnings in the system's headers; it matters only in a failure.
        passed = result.returncode == 0
        print(f"  {source.relative_to(PROJECT)}{'' if passed else ': FAILED'}", flush=True)
        if passed:
            pending[source].touch()
        else:
            print(result.stdout or result.stderr, flush=True)
        return passed

    with ThreadPoolExecutor(os.cpu_count()) as pool:
        passed = all(list(pool.map(check, pending)))
    for stamp in stamps.iterdir():
        if stamp.stat().st_mtime < time.time() - KEEP_STAMPS_S:
            stamp.unlink()
    return 0 if passed else 1


if __name__ == "__main__":
    sys.exit(main())
