#!/usr/bin/env python3
"""whole.py PROGRAMS WATCH MINUTES: what the watch program costs as a whole, as Markdown. PROGRAMS is
the folder of the built benchmarks, WATCH the `taskwarden` program.

Run it in a network namespace of its own (unshare -n) where that is allowed: the record socket's
name can be held once in each. In a pid namespace of its own the population is all there is."""
import contextlib
import glob
import json
import os
import statistics
import subprocess
import sys
import threading
import time

PROGRAMS, WATCH, MINUTES = sys.argv[1], sys.argv[2], float(sys.argv[3])

# A leak of 10 a second, begun when any baseline has been taken: the name must be 3 s old, and
# visits are 2 s apart. The line printed is the time of its beginning.
LEAK = """
import sys, threading, time
time.sleep(8)
print(time.monotonic(), flush=True)
kept = []
while True:
    if sys.argv[1] == "descriptors":
        kept.append(open("/dev/null"))
    else:
        threading.Thread(target=threading.Event().wait, daemon=True).start()
    time.sleep(0.1)
"""
LEAKS_OF_A_KIND = 5
RECORD_DEADLINE_S = 60


@contextlib.contextmanager
def running(command, **options):
    """A program that is ended, by its own pid, when the block is left."""
    child = subprocess.Popen(command, **options)
    try:
        yield child
    finally:
        child.kill()
        child.wait()


@contextlib.contextmanager
def population(count, kind=""):
    with running([f"{PROGRAMS}/hold_population", f"{kind}{count}"], stdin=subprocess.PIPE,
                 stdout=subprocess.PIPE, text=True) as holder:
        if len(holder.stdout.readline().split()) != count:
            sys.exit("no population")
        yield
        holder.stdin.close()
        holder.wait()


def watch(*options):
    return running([WATCH, "watch", "--no-service", *options], stdin=subprocess.DEVNULL,
                   stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)


def processes_now():
    return sum(name.isdigit() and int(name) >= 300 for name in os.listdir("/proc"))


def cpu_seconds(pid):
    """Of all threads, to the nanosecond; the program ends none."""
    total = 0
    for path in glob.glob(f"/proc/{pid}/task/*/schedstat"):
        with open(path, encoding="ascii") as file:
            total += int(file.read().split()[0])
    return total / 1e9


def resident_kb(pid):
    """The resident size, and the part of it that is no file's."""
    with open(f"/proc/{pid}/status", encoding="utf-8", errors="replace") as file:
        fields = dict(line.split(":", 1) for line in file if ":" in line)
    return int(fields["VmRSS"].split()[0]), int(fields["RssAnon"].split()[0])


def steady(count):
    """Both kinds of visit side by side, so that they meet the same machine."""
    kinds = {"watch": [], "watch --every-visit": ["--every-visit"],
             "watch --no-judge --no-feed": ["--no-judge", "--no-feed"]}
    with contextlib.ExitStack() as ends:
        ends.enter_context(population(count))
        children = {kind: ends.enter_context(watch(*options)) for kind, options in kinds.items()}
        time.sleep(10)  # baselines are taken and the ranking announced
        begin = time.monotonic()
        cpu = {kind: cpu_seconds(child.pid) for kind, child in children.items()}
        time.sleep(MINUTES * 60)
        for kind, child in children.items():
            if child.poll() is not None:
                sys.exit("the watch has ended")
            share = (cpu_seconds(child.pid) - cpu[kind]) / (time.monotonic() - begin)
            resident, anonymous = resident_kb(child.pid)
            print(f"| {kind}, {count} idle processes ({processes_now()} watched) | "
                  f"{share * 100:.3f} % | {resident} | {anonymous} |", flush=True)


# The most that a pass may cost beside one that reads every process.
PASS_GOALS = {300: 0.35, 3000: 0.15, 10000: 0.12}


def passes(count):
    """The cycle in a host that counts passes, both kinds side by side."""
    with contextlib.ExitStack() as ends:
        ends.enter_context(population(count, "busy"))
        hosts = {kind: ends.enter_context(running([f"{PROGRAMS}/cycle_cost", kind,
                                                   str(int(MINUTES * 60))],
                                                  text=True, stdout=subprocess.PIPE))
                 for kind in ("ran", "every")}
        figures = {kind: host.stdout.readline().split() for kind, host in hosts.items()}
        costs = {kind: float(found[2]) for kind, found in figures.items()}
        ratio, goal = costs["ran"] / costs["every"], PASS_GOALS[count]
        slices = {kind: int(found[1]) / int(found[0]) for kind, found in figures.items()}
        print(f"| {count} | {costs['ran'] / 1e3:.2f} | {slices['ran']:.1f} | "
              f"{costs['every'] / 1e3:.2f} | {slices['every']:.1f} | {ratio:.3f} | "
              f"≤ {goal}{'' if ratio <= goal else ' **missed**'} |", flush=True)


def empty():
    with running([f"{PROGRAMS}/empty"]) as child:
        time.sleep(0.5)
        resident, anonymous = resident_kb(child.pid)
        print(f"| an empty C++ program | | {resident} | {anonymous} |", flush=True)


class Arrivals:
    """When each pid's first record came to `taskwarden listen`."""

    def __init__(self, lines):
        self.times = {}
        self.changed = threading.Condition()
        threading.Thread(target=self._take, args=(lines,), daemon=True).start()

    def _take(self, lines):
        for line in lines:
            with self.changed:
                self.times.setdefault(json.loads(line)["pid"], time.monotonic())
                self.changed.notify()

    def wait_for(self, pids):
        with self.changed:
            return self.changed.wait_for(lambda: set(pids) <= set(self.times), RECORD_DEADLINE_S)


def first_records():
    with contextlib.ExitStack() as ends:
        ends.enter_context(population(300))
        listener = ends.enter_context(running([WATCH, "listen", "--json"], text=True,
                                              stdout=subprocess.PIPE))
        arrivals = Arrivals(listener.stdout)
        time.sleep(1)
        ends.enter_context(watch())
        leaks = {"descriptors": [], "threads": []}
        for _ in range(LEAKS_OF_A_KIND):
            for kind, started in leaks.items():
                command = [sys.executable, "-c", LEAK, kind]
                started.append(ends.enter_context(running(command, text=True,
                                                          stdout=subprocess.PIPE)))
                time.sleep(0.37)  # so that they begin anywhere between two visits
        if not arrivals.wait_for([leak.pid for kind in leaks.values() for leak in kind]):
            sys.exit("a leak was not recorded in time")
        for kind, started in leaks.items():
            waits = [arrivals.times[leak.pid] - float(leak.stdout.readline()) for leak in started]
            print(f"| {kind} | {statistics.median(waits):.1f} s | {max(waits):.1f} s |")


def pass_low_pids():
    """A fresh pid namespace begins at 1, and pids below 300 are not watched."""
    while (pid := os.posix_spawn("/bin/true", ["true"], {})) < 300:
        os.waitpid(pid, 0)
    os.waitpid(pid, 0)


def main():
    pass_low_pids()
    print(f"| {MINUTES:g} minutes | CPU share | resident kB | of it anonymous |")
    print("|---|---|---|---|")
    for count in (300, 3000):
        steady(count)
    empty()
    print("\n| processes, 2 % busy | CPU ms a pass | slices a pass | every visit reading: CPU ms | "
          "slices | ratio | goal |")
    print("|---|---|---|---|---|---|---|")
    for count in PASS_GOALS:
        passes(count)
    print("\n| a leak of 10 a second, of | first record after, median | longest of "
          f"{LEAKS_OF_A_KIND} |")
    print("|---|---|---|")
    first_records()


if __name__ == "__main__":
    main()
