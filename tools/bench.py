# SPDX-License-Identifier: Apache-2.0
"""Measures the areas of benchmarks/goals.json and compares the figures with their goals."""

import json
import statistics
import subprocess
import sys
from pathlib import Path

PROJECT = Path(__file__).resolve().parent.parent
BINARIES = PROJECT / "build/release/bin"
RESULTS = PROJECT / "build/bench"
REPETITIONS = 5
MS_PER_UNIT = {"ns": 1e-6, "us": 1e-3, "ms": 1.0, "s": 1e3}


class BenchError(Exception):
    pass


def run(command: list[str]) -> None:
    """Lets the benchmark's own progress through, and stands for its failure."""
    try:
        subprocess.run(command, check=True, cwd=PROJECT)
    except (OSError, subprocess.CalledProcessError) as error:
        raise BenchError(f"{command[0]} failed: {error}") from error


def measure_executable(area: str, raw: Path) -> dict[str, float]:
    """The median time of each benchmark of bench_<area>, in milliseconds, by its name."""
    run([
        str(BINARIES / f"bench_{area}"),
        f"--benchmark_out={raw}",
        "--benchmark_out_format=json",
        f"--benchmark_repetitions={REPETITIONS}",
        "--benchmark_enable_random_interleaving=true",  # a busy moment hits figure and baseline alike
        "--benchmark_display_aggregates_only=true",
    ])  # fmt: skip
    times: dict[str, list[float]] = {}
    for entry in json.loads(raw.read_text())["benchmarks"]:
        if entry.get("error_occurred"):
            raise BenchError(f"{entry['name']}: {entry['error_message']}")
        if entry["run_type"] == "iteration":
            milliseconds = entry["real_time"] * MS_PER_UNIT[entry["time_unit"]]
            times.setdefault(entry["run_name"], []).append(milliseconds)
    return {name: statistics.median(values) for name, values in times.items()}


def measure_command(command: list[str], raw: Path) -> dict[str, float]:
    """The figures that the command writes as JSON to the file named after it."""
    run([*command, str(raw)])
    return json.loads(raw.read_text())


def judge(goal: dict, figures: dict[str, float]) -> dict:
    """One row of the table: the figure, alone or as a ratio to its baseline, and the verdict."""
    try:
        value = figures[goal["figure"]]
        if "baseline" in goal:
            value /= figures[goal["baseline"]]
    except KeyError as error:
        raise BenchError(f"'{goal['what']}': nothing measured {error}") from error
    met = goal.get("at_least", value) <= value <= goal.get("at_most", value)
    return {**goal, "value": value, "met": met}


def goal_text(goal: dict) -> str:
    bounds = [f"{sign} {goal[key]:g}" for key, sign in (("at_least", "≥"), ("at_most", "≤")) if key in goal]
    return " and ".join(bounds) or "-"


def print_table(area: str, rows: list[dict]) -> None:
    width = max(len(row["what"]) for row in rows)
    print(f"\n{area:<{width}}  {'figure':>10} {'unit':<5}  {'goal':<10}  verdict")
    for row in rows:
        verdict = "met" if row["met"] else "MISSED"
        unit = row.get("unit", "x" if "baseline" in row else "")
        print(
            f"{row['what']:<{width}}  {row['value']:>10.3f} {unit:<5}  {goal_text(row):<10}  {verdict}"
        )


def main() -> int:
    areas = json.loads((PROJECT / "benchmarks/goals.json").read_text())
    check_only = sys.argv[1:2] == ["--check"]  # asked before the build, which takes longer
    wanted = sys.argv[2 if check_only else 1 :] or list(areas)
    for area in wanted:
        if area not in areas:
            known = ", ".join(areas)
            print(f"dev: There is no benchmark area '{area}'; the areas are {known}.", file=sys.stderr)
            return 2
    if check_only:
        return 0

    RESULTS.mkdir(parents=True, exist_ok=True)
    results = {}
    try:
        for area in wanted:
            print(f"Measuring {area} ...", flush=True)
            raw = RESULTS / f"{area}.raw.json"
            command = areas[area].get("command")
            figures = measure_command(command, raw) if command else measure_executable(area, raw)
            results[area] = [judge(goal, figures) for goal in areas[area]["goals"]]
            report = {"area": area, "goals": results[area], "figures": figures}
            (RESULTS / f"{area}.json").write_text(json.dumps(report, indent=2) + "\n")
    except BenchError as error:
        print(f"dev: {error}", file=sys.stderr)
        return 1

    for area, rows in results.items():
        print_table(area, rows)
    missed = sum(not row["met"] for rows in results.values() for row in rows)
    print(f"\n{missed} of the goals missed." if missed else "\nAll goals met.")
    return 1 if missed else 0


if __name__ == "__main__":
    sys.exit(main())
