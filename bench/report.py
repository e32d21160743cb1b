#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Runs the benchmark programs named in bench/figures/*.tsv and prints one table of figures.

usage: report.py BUILD_DIR [--repeats N] [--program NAME]...

Each program runs REPEATS times, the programs interleaved (A B C A B C ...); a program with a
figure measured pinned runs once pinned (taskset -c 0 on the program, inherited by every process it
starts) and once unpinned in each round. A figure's value is the median over the repeats; its ratio
is value / baseline, from the pinned runs when it has them. The table goes to standard output and,
as JSON, to BUILD_DIR/bench-table.json. Exit status 1 only when a program fails to run (or a
pinned process is found on another CPU); a missed target is reported, not an error.
"""
import argparse
import json
import os
import re
import statistics
import subprocess
import sys
import time
from pathlib import Path

FIGURES_DIR = Path(__file__).resolve().parent / "figures"
RUNS = ("pinned+unpinned", "unpinned")
TARGET = re.compile(r"^(<=|>=|=)(-?[0-9]+(?:\.[0-9]+)?)$")
# Suffixes Google Benchmark appends to a registered name for its run options.
OPTION_SUFFIX = re.compile(r"/(?:iterations:\d+|repeats:\d+|min_time:[0-9.]+s?|real_time|manual_time)$")
PINNED_CPU = "0"


class FigureError(Exception):
    pass


def parse_figures(directory):
    """Every figure line of directory/*.tsv, as dicts; raises FigureError on a malformed line."""
    figures = []
    for path in sorted(directory.glob("*.tsv")):
        for number, line in enumerate(path.read_text().splitlines(), 1):
            if not line.strip() or line.startswith("#"):
                continue
            fields = line.split("\t")
            where = f"{path.name}:{number}"
            if len(fields) != 8:
                raise FigureError(f"{where}: {len(fields)} tab-separated fields, expected 8")
            name, program, bench, metric, base_program, base_bench, target, runs = fields
            if not all(fields):
                raise FigureError(f"{where}: an empty field")
            if (base_program == "-") != (base_bench == "-"):
                raise FigureError(f"{where}: baseline program and benchmark must both be '-' or neither")
            if target != "-" and not TARGET.match(target):
                raise FigureError(f"{where}: target '{target}' is not -, <=X, >=X or =X")
            if runs not in RUNS:
                raise FigureError(f"{where}: runs '{runs}' is not pinned+unpinned or unpinned")
            if any(f["name"] == name for f in figures):
                raise FigureError(f"{where}: figure '{name}' is listed twice")
            figures.append(dict(name=name, program=program, bench=bench, metric=metric,
                                base_program=None if base_program == "-" else base_program,
                                base_bench=None if base_bench == "-" else base_bench,
                                target=target, runs=runs))
    return figures


def plan(figures):
    """{program: {"benches": set, "pinned": bool}} for every program a figure names."""
    programs = {}
    for figure in figures:
        pinned = figure["runs"] == "pinned+unpinned"
        for program, bench in ((figure["program"], figure["bench"]),
                               (figure["base_program"], figure["base_bench"])):
            if program is None:
                continue
            entry = programs.setdefault(program, {"benches": set(), "pinned": False})
            entry["benches"].add(bench)
            entry["pinned"] |= pinned
    return programs


def descendants(root_pid):
    """Pids of root_pid and of every process below it, from /proc."""
    parents = {}
    for entry in os.listdir("/proc"):
        if not entry.isdigit():
            continue
        try:
            stat = Path(f"/proc/{entry}/stat").read_text()
        except OSError:
            continue
        parents[int(entry)] = int(stat.rsplit(")", 1)[1].split()[1])
    found, frontier = {root_pid}, [root_pid]
    while frontier:
        pid = frontier.pop()
        for child, parent in parents.items():
            if parent == pid and child not in found:
                found.add(child)
                frontier.append(child)
    return found


def allowed_cpus(pid):
    """(program name, Cpus_allowed_list) of pid, or None when it is gone."""
    try:
        status = Path(f"/proc/{pid}/status").read_text()
    except OSError:
        return None
    fields = dict(line.split(":\t", 1) for line in status.splitlines() if ":\t" in line)
    return fields.get("Name", "?").strip(), fields.get("Cpus_allowed_list", "?").strip()


def run_program(build, program, benches, pinned, out_file):
    """Runs one program; returns (error text or None, {process name: cpu lists seen}).

    The program's output goes to out_file with .log for .json. While a pinned run lasts, the driver
    keeps off the benchmark's CPU and samples the CPUs allowed to every process of the run: often
    while the program starts its broker and processes, then once a second.
    """
    path = build / "bench" / program
    pattern = "^(" + "|".join(re.escape(b) for b in sorted(benches)) + ")(/|$)"
    command = [str(path), f"--benchmark_filter={pattern}", f"--benchmark_out={out_file}",
               "--benchmark_out_format=json"]
    if pinned:
        command = ["taskset", "-c", PINNED_CPU] + command
    log_file = Path(out_file).with_suffix(".log")
    own_cpus = os.sched_getaffinity(0)
    elsewhere = own_cpus - {int(PINNED_CPU)}
    seen = {}
    try:
        with open(log_file, "w") as log:
            process = subprocess.Popen(command, stdout=log, stderr=subprocess.STDOUT)
            if pinned and elsewhere:
                os.sched_setaffinity(0, elsewhere)
            started = time.monotonic()
            while pinned and process.poll() is None:
                for pid in descendants(process.pid):
                    found = allowed_cpus(pid)
                    if found is not None and found[0] != "taskset":
                        seen.setdefault(found[0], set()).add(found[1])
                time.sleep(0.1 if time.monotonic() - started < 2 else 1.0)
            process.wait()
    except OSError as error:
        return f"{program}: {error}", seen
    finally:
        os.sched_setaffinity(0, own_cpus)
    if process.returncode != 0:
        tail = log_file.read_text(errors="replace").strip().splitlines()[-3:]
        return f"{program} exited with {process.returncode}: {' / '.join(tail)}", seen
    return None, seen


def read_results(out_file, benches):
    """{benchmark name: JSON entry} of one run's output; raises FigureError on a failed benchmark."""
    document = json.loads(Path(out_file).read_text())
    results = {}
    for entry in document.get("benchmarks", []):
        if entry.get("run_type", "iteration") != "iteration":
            continue
        name = entry["name"]
        while OPTION_SUFFIX.search(name):
            name = OPTION_SUFFIX.sub("", name)
        if entry.get("error_occurred"):
            raise FigureError(f"{name}: {entry.get('error_message', 'failed')}")
        results[name] = entry
        results[entry["name"]] = entry
    missing = [b for b in benches if b not in results]
    if missing:
        raise FigureError(f"no result for {', '.join(sorted(missing))}")
    return results


def median(samples, program, bench, metric):
    values = [run[program][bench][metric] for run in samples if metric in run[program][bench]]
    if not values:
        raise FigureError(f"{program} {bench}: no metric '{metric}'")
    return statistics.median(values)


def verdict(target, measured):
    if target == "-" or measured is None:
        return "-"
    op, bound = TARGET.match(target).groups()
    bound = float(bound)
    met = {"<=": measured <= bound, ">=": measured >= bound, "=": measured == bound}[op]
    return "yes" if met else "no"


def table_rows(figures, samples):
    """One row per figure and mode; the target is judged on the pinned row when there is one."""
    rows = []
    for figure in figures:
        modes = ("pinned", "unpinned") if figure["runs"] == "pinned+unpinned" else ("unpinned",)
        for mode in modes:
            runs = samples[mode]
            value = median(runs, figure["program"], figure["bench"], figure["metric"])
            baseline = ratio = None
            if figure["base_program"]:
                baseline = median(runs, figure["base_program"], figure["base_bench"], figure["metric"])
                ratio = value / baseline if baseline else None
            judged = mode == modes[0]
            measured = ratio if figure["base_program"] else value
            rows.append(dict(figure=figure["name"], value=value, baseline=baseline, ratio=ratio,
                             target=figure["target"] if judged else "-",
                             met=verdict(figure["target"], measured) if judged else "-",
                             runs=mode, metric=figure["metric"], repeats=len(runs)))
    return rows


def number(value, digits=3):
    if value is None:
        return "-"
    return f"{value:.{digits}g}" if abs(value) < 1000 else f"{value:.0f}"


def print_table(rows):
    header = ("figure", "value", "baseline", "ratio", "target", "met", "runs")
    lines = [(r["figure"], number(r["value"]), number(r["baseline"]), number(r["ratio"]), r["target"],
              r["met"], r["runs"]) for r in rows]
    widths = [max([len(h)] + [len(line[i]) for line in lines]) for i, h in enumerate(header)]
    for line in [header] + lines:
        print("  ".join(cell.ljust(widths[i]) for i, cell in enumerate(line)).rstrip())


def main():
    parser = argparse.ArgumentParser(description="Runs the benchmarks and prints the table of figures.")
    parser.add_argument("build", type=Path, help="the build directory (its bench/ holds the programs)")
    parser.add_argument("--repeats", type=int, default=int(os.environ.get("VASK_BENCH_REPEATS", "3")),
                        help="runs of each program and mode (default 3)")
    parser.add_argument("--program", action="append", default=[],
                        help="only the figures of this program (and their baselines); repeatable")
    args = parser.parse_args()
    if args.repeats < 1:
        parser.error("--repeats must be at least 1")
    try:
        figures = parse_figures(FIGURES_DIR)
    except FigureError as error:
        print(f"bench: {error}", file=sys.stderr)
        return 1
    if args.program:
        figures = [f for f in figures if f["program"] in args.program]
        if not figures:
            parser.error(f"no figure of {', '.join(args.program)}")
    programs = plan(figures)
    results_dir = args.build / "bench" / "results"
    results_dir.mkdir(parents=True, exist_ok=True)

    samples = {"pinned": [], "unpinned": []}
    failures = []
    failed_programs = set()
    for repeat in range(1, args.repeats + 1):
        run = {"pinned": {}, "unpinned": {}}
        for program, entry in sorted(programs.items()):
            for mode in ("pinned", "unpinned") if entry["pinned"] else ("unpinned",):
                out_file = results_dir / f"{program}.{mode}.{repeat}.json"
                print(f"bench: round {repeat}/{args.repeats}: {program} ({mode})", file=sys.stderr, flush=True)
                error, seen = run_program(args.build, program, entry["benches"], mode == "pinned", out_file)
                if error is None and mode == "pinned":
                    stray = {name: sorted(cpus) for name, cpus in seen.items() if cpus != {PINNED_CPU}}
                    if stray:
                        error = f"{program}: processes not pinned to CPU {PINNED_CPU}: {stray}"
                    elif not seen:
                        print(f"bench: {program} ended before its CPUs could be checked", file=sys.stderr)
                    else:
                        print(f"bench: on CPU {PINNED_CPU}: {', '.join(sorted(seen))}", file=sys.stderr)
                if error is None:
                    try:
                        run[mode][program] = read_results(out_file, entry["benches"])
                    except (OSError, ValueError, KeyError, FigureError) as problem:
                        error = f"{program}: {problem}"
                if error is not None:
                    failures.append(f"round {repeat}, {mode}: {error}")
                    failed_programs.add(program)
        for mode in run:
            if run[mode]:
                samples[mode].append(run[mode])

    usable = [f for f in figures
              if f["program"] not in failed_programs and f["base_program"] not in failed_programs]
    # A program that failed in any round leaves its figures out rather than reporting fewer repeats.
    try:
        rows = table_rows(usable, samples)
    except FigureError as error:
        failures.append(str(error))
        rows = []
    print_table(rows)
    table = {"repeats": args.repeats, "figures": rows, "failures": failures}
    (args.build / "bench-table.json").write_text(json.dumps(table, indent=2) + "\n")
    for failure in failures:
        print(f"bench: {failure}", file=sys.stderr)
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
