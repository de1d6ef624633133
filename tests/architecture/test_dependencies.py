# SPDX-License-Identifier: Apache-2.0
"""Dependencies between the subsystems point one way: each folder includes only what it may."""

import pathlib
import re
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]

# A folder with sources of ours, and the others that it may include. The longest folder that fits
# a file counts. Keep it in step with the table of targets in docs/architecture.md.
ALLOWED = {
    "direct2d": set(),
    "app/core": set(),
    "vcam/framechannel": set(),
    "effects": {"app/core", "direct2d"},
    "vcam/capture": {"app/core", "direct2d"},
    "vcam": {"app/core", "vcam/framechannel", "vcam/capture", "effects"},
    "virtual_devices": {"app/core", "vcam/framechannel"},
    "assets": set(),
    "gui": {"app/core", "vcam/capture", "assets"},
    "app": {"app/core", "vcam", "vcam/capture", "virtual_devices", "gui", "assets"},
    "tools": {"virtual_devices"},
}
INCLUDE = re.compile(r'^\s*#\s*include\s+"([^"]+)"', re.MULTILINE)


def folder_of(path):
    fits = [folder for folder in ALLOWED if path.startswith(folder + "/")]
    return max(fits, key=len, default=None)


def includes():
    """Yields (file, its folder, the included file, that one's folder)."""
    for folder in sorted({name.split("/")[0] for name in ALLOWED}):
        for source in sorted((ROOT / folder).rglob("*")):
            if source.suffix not in {".h", ".cpp"}:
                continue
            name = source.relative_to(ROOT).as_posix()
            for included in INCLUDE.findall(source.read_text(encoding="utf-8")):
                yield name, folder_of(name), included, folder_of(included)


class Dependencies(unittest.TestCase):
    def test_every_folder_includes_only_what_it_may(self):
        wrong = [
            f"{name} includes {included}"
            for name, folder, included, target in includes()
            if target is not None and target != folder and target not in ALLOWED[folder]
        ]
        self.assertEqual(wrong, [])

    def test_allowed_dependencies_have_no_cycle(self):
        done, under_way = set(), []

        def visit(folder):
            self.assertNotIn(folder, under_way, f"cycle through {under_way}")
            if folder in done:
                return
            under_way.append(folder)
            for other in ALLOWED[folder]:
                visit(other)
            under_way.pop()
            done.add(folder)

        for folder in ALLOWED:
            visit(folder)

    def test_the_sources_are_seen(self):
        self.assertGreater(sum(1 for _ in includes()), 100)

    def test_shared_code_has_no_platform_conditionals(self):
        conditional = re.compile(r"^\s*#\s*(if|ifdef|ifndef|elif)\b.*(_WIN32|__linux__|Q_OS_)", re.MULTILINE)
        wrong = [
            source.relative_to(ROOT).as_posix()
            for folder in ("app", "effects", "gui", "vcam", "virtual_devices")
            for source in (ROOT / folder).rglob("*")
            if source.suffix in {".h", ".cpp"}
            and conditional.search(source.read_text(encoding="utf-8"))
        ]
        self.assertEqual(wrong, [])


if __name__ == "__main__":
    unittest.main()
