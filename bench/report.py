#!/usr/bin/env python3
"""report.py FILE...: the medians and ratios of benchmark results (Google Benchmark's JSON), as
Markdown. Fails if a result is an error or lacks what it is compared with."""
import json
import re
import statistics
import sys

# What the groups are called, by what one thing of theirs is.
WORK = [
    (r"visit/(\d+)", r"visit, \1 processes of 14 descriptors", "process"),
    (r"visit/mixed(\d+)", r"visit, 1000 processes, \1 with 1000 and 2 with 10000 descriptors",
     "process"),
    (r"maps/live", "maps of a live process, 5 totals", "area"),
    (r"maps/made", "maps with the names of Android, 5 totals", "area"),
    (r"smaps/live", "smaps of a live process, 18 totals", "area"),
    (r"smaps/made", "smaps with the names of Android, 18 totals", "area"),
    (r"threads/(\d+)", r"names of \1 threads", "thread"),
    (r"scan/(\d+)", r"scan with nothing new, \1 processes", "process"),
    (r"pass/(\d+)", r"pass over \1 processes, of which 1 % ran", "process"),
    (r"idle/(\d+)", r"visit of \1 processes that did not run", "process"),
    (r"all_ran/(\d+)", r"pass over \1 processes that all ran", "process"),
    (r"iterator/(\d+)", r"pass over \1 processes, of which 1 % ran", "process"),
    (r"rescan/(\d+)", r"scan that lists only if pids are new, \1 processes", "process"),
    (r"peers/(\d+)", r"visit, \1 processes of 14 descriptors", "process"),
    (r"peers/mixed(\d+)", r"visit, 1000 processes, \1 with 1000 and 2 with 10000 descriptors",
     "process"),
]

BESIDE = {
    "every_visit": "the same, every visit reading",
    "cpu_clocks": "CPU clocks alone",
    "transcription": "plain transcription",
    "raw": "raw calls",
    "raw_own": "raw calls that ours makes",
    "iterator": "an iterator over tasks inside the kernel",
    "libproc2": "libproc2, all, with a count",
    "libproc2_select": "libproc2, by pid, with a count",
}

# The most that ours may cost beside another.
GOALS = [
    (r"visit/\d+", {"transcription": 0.62, "raw": 0.70, "raw_own": 1.08}),
    (r"visit/mixed50", {"transcription": 0.36, "raw": 0.37}),
    (r"maps/live", {"transcription": 0.70, "raw": 1.08}),
    (r"smaps/live", {"transcription": 0.55, "raw": 1.05}),
    (r"threads/100", {"transcription": 0.80, "raw": 1.10}),
    (r"scan/3000", {"raw": 1.05}),
    (r"pass/3000", {"every_visit": 0.10, "raw": 0.07}),
    (r"iterator/3000", {"iterator": 1.50}),
    (r"idle/3000", {"every_visit": 0.05}),
    (r"all_ran/1000", {"every_visit": 1.02}),
    (r"rescan/3000", {"raw": 1.05}),
    (r"peers/\d+", {"libproc2": 0.62, "libproc2_select": 0.62}),
    (r"peers/mixed50", {"libproc2": 0.36, "libproc2_select": 0.36}),
]

NANOSECONDS = {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}


def load(paths):
    """{group: {variant: [CPU nanoseconds an item, one a repetition]}}, the slices' counts, and the
    ratios that a group formed itself."""
    times, visited, ratios = {}, {}, {}
    for path in paths:
        with open(path, encoding="utf-8") as file:
            for run in json.load(file)["benchmarks"]:
                if run["run_type"] != "iteration":
                    continue
                name = re.sub(r"/(iterations|repeats|min_time):.*", "", run["name"])
                if run.get("error_occurred"):
                    sys.exit(f"{name}: {run['error_message']}")
                group, variant = name.rsplit("/", 1)
                if "visited" in run:
                    visited.setdefault(group, []).append(run["visited"])
                    continue
                if "ratio" in run:
                    ratios.setdefault(group, []).append(run["ratio"])
                    continue
                cost = run["cpu_time"] * NANOSECONDS[run["time_unit"]] / run["items"]
                times.setdefault(group, {}).setdefault(variant, []).append(cost)
    return times, visited, ratios


def lookup(table, group):
    return next((row for row in table if re.fullmatch(row[0], group)), None)


def compare(times):
    groups = [group for group in times if lookup(WORK, group)]
    if not groups:
        return
    print("| work | for one | ours µs | quartiles | beside | its µs | ratio | goal |")
    print("|---|---|---|---|---|---|---|---|")
    for group in groups:
        pattern, title, item = lookup(WORK, group)
        goals = (lookup(GOALS, group) or (None, {}))[1]
        ours = times[group].get("ours")
        if ours is None or set(goals) - set(times[group]):
            sys.exit(f"{group}: not all variants were measured")
        median = statistics.median(ours)
        quartiles = statistics.quantiles(ours, n=4) if len(ours) > 1 else [median] * 3
        for variant in [name for name in BESIDE if name in times[group]]:
            its = statistics.median(times[group][variant])
            ratio, goal = median / its, goals.get(variant)
            verdict = "" if goal is None else f"≤ {goal:.2f}{'' if ratio <= goal else ' **missed**'}"
            print(f"| {re.sub(pattern, title, group)} | {item} | {median / 1e3:.3f} | "
                  f"{quartiles[0] / 1e3:.3f} to {quartiles[2] / 1e3:.3f} | {BESIDE[variant]} | "
                  f"{its / 1e3:.3f} | {ratio:.3f} | {verdict} |")
    print()


def growth(times):
    """How the cost of one process changes with their number."""
    sizes = sorted((int(group.split("/")[1]), statistics.median(variants["ours"]))
                   for group, variants in times.items() if re.fullmatch(r"visit/\d+", group))
    if len(sizes) > 1:
        print(f"A process costs {sizes[-1][1] / sizes[0][1]:.2f} times as much among {sizes[-1][0]} "
              f"as among {sizes[0][0]}.\n")


def slices(visited):
    for group, counts in sorted(visited.items()):
        print(f"Of {group.split('/')[1]} processes, {statistics.median(counts):.0f} fit a slice of "
              "60 ms.\n")


def observers(ratios):
    for group, found in sorted(ratios.items()):
        ratio = statistics.median(found)
        print(f"With an observer of events, a visit of {group.split('/')[1]} processes in which "
              f"nothing happens costs {ratio:.3f} of one without "
              f"(≤ 1.02{'' if ratio <= 1.02 else ' **missed**'}).\n")


def bookkeeping(times):
    names = {"copy": "the copy of the entry", "names": "two names compared, and a copy to compare",
             "clock": "the clock, read twice"}
    pieces = times.get("bookkeeping/one visit")
    if pieces:
        print("| bookkeeping of one visit | ns |")
        print("|---|---|")
        for piece, title in names.items():
            print(f"| {title} | {statistics.median(pieces[piece]):.1f} |")
        print()


def pieces(times):
    """The kernel's part of a visit, call by call."""
    names = {"access": "access of the process's directory", "status": "status: open, read, close",
             "command_line": "command line: open, read, close",
             "size": "descriptor directory: open, fstat, close",
             "listing": "descriptor directory: open, getdents until 0, close"}
    for group in [group for group in times if group.startswith("pieces/")]:
        print(f"| system calls, {group.split('/')[1]} processes of 14 descriptors | µs a process |")
        print("|---|---|")
        for variant, title in names.items():
            print(f"| {title} | {statistics.median(times[group][variant]) / 1e3:.2f} |")
        print()


def experiment(times):
    """What it costs to ask whether a process has run since its last visit."""
    names = {"ours": "nothing: the whole visit", "cpu_clock": "access and the process's CPU clock",
             "schedstat": "access and one read of its schedstat",
             "stat": "access and one read of its stat"}
    for group in [group for group in times if group.startswith("experiment/")]:
        print(f"| experiment: asked of {group.split('/')[1]} idle processes | µs a process | "
              "part of a visit |")
        print("|---|---|---|")
        visit = statistics.median(times[group]["ours"])
        for variant, title in names.items():
            cost = statistics.median(times[group][variant])
            print(f"| {title} | {cost / 1e3:.3f} | {cost / visit:.3f} |")
        print()


def main():
    times, visited, ratios = load(sys.argv[1:])
    compare(times)
    growth(times)
    slices(visited)
    observers(ratios)
    pieces(times)
    bookkeeping(times)
    experiment(times)


if __name__ == "__main__":
    main()
