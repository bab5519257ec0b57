#!/usr/bin/env python3
"""soak.py BUILD MINUTES: the watch program over processes that come and go, of which some leak by
known amounts and some stand still. Prints what was planted and what was reported, and what the
watch and the listener held at the start and at the end; the exit status is 1 when a leak went
unreported, anything else was reported, or something was not given back.

BUILD is the build folder. Run it in namespaces of its own (unshare --net --pid --fork
--mount-proc) where that is allowed: others' processes and records are then out of sight."""
import collections
import contextlib
import json
import os
import re
import resource
import signal
import subprocess
import sys
import tempfile
import time

BUILD, MINUTES = sys.argv[1], float(sys.argv[2])
WATCH, CHILD = f"{BUILD}/taskwarden", f"{BUILD}/storm/storm_child"

# A generation of leaks: each stands until its numbers are its baseline (3 s of age, a visit each 2
# s), leaks in steps, and stands again until the last step has been seen.
STAND_S, STEPS, STEP_S, SETTLE_S = 8, 44, 0.5, 6
WARM_UP_S = 15

# Of the table: a slot, the note beside it, and how many there are in the static one.
SLOT_BYTES, NOTE_BYTES, STATIC_SLOTS = (
    int(number) for number in subprocess.check_output([f"{BUILD}/storm/storm", "sizes"]).split())
# What one process takes at most, alone on its pages: a slot or a note may lie in two.
PROCESS_KB = 4 * resource.getpagesize() // 1024
MARGIN_KB = 256  # of anonymous memory that is not the table's
UNIT = f"{os.path.dirname(os.path.abspath(__file__))}/../packaging/taskwarden.service.in"

# How far a number may have grown above the last one reported: to half as much again, and not
# further than this.
STEP_KB = {"Event_ResidentSize": 10240, "Event_VssKgsl": 51200}

# The kernel sums it up lazily (Documentation/filesystems/proc.rst, VmRSS).
RESIDENT_BLUR_KB = 512

# What the library may have to say among processes that come and go, and of each record.
EXPECTED_LINES = re.compile(
    r"taskwarden  client socket connectting|socket (size|data|sendbuff) = .*|"
    r">> failed to open proc N's (status|fd dir|maps|smaps|task dir).*|"
    r"taskwarden: watching N processes; a pass takes N ms( in N slices)?")


class Child:
    """A process that grows on command; tests/support/child_program.cpp tells the commands."""

    def __init__(self, name):
        self.process = subprocess.Popen([name], executable=CHILD, stdin=subprocess.PIPE,
                                        stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
        self.pid = self.process.pid
        self._answer()

    def command(self, line):
        self.process.stdin.write(f"{line}\n".encode())
        self.process.stdin.flush()
        self._answer()

    def _answer(self):
        if self.process.stdout.read(1) != b".":
            raise RuntimeError(f"no answer from process {self.pid}")

    def end(self):
        self.process.kill()
        self.process.wait()
        self.process.stdin.close()
        self.process.stdout.close()


def status(pid):
    with open(f"/proc/{pid}/status", encoding="utf-8", errors="replace") as file:
        fields = (line.split(":", 1) for line in file)
        return {key: value.split()[0] for key, value in fields if value.strip()}


class Leak:
    """What is leaked, how it is called, and how much of it there is in truth."""

    def __init__(self, kind, event, step, truth, exec_at=None, also=()):
        self.kind, self.event, self.step, self.truth = kind, event, step, truth
        self.exec_at, self.also = exec_at, set(also)
        self.child = Child(f"leak-{kind}")
        self.names = [f"leak-{kind}#{self.child.pid}"]
        self.at_start = self.at_exec = self.at_end = None

    def leak(self, step):
        if step == self.exec_at:
            name = f"new-{self.kind}"
            self.child.command(f"exec {name}")
            self.names.append(f"{name}#{self.child.pid}")
            self.at_exec = self.amount()
        # Until the new name's baseline has been taken, nothing more.
        if self.exec_at is None or not self.exec_at <= step < self.exec_at + STAND_S / STEP_S:
            self.child.command(self.step)

    def amount(self):
        return self.truth(self.child.pid)


def threads_of(pid):
    return int(status(pid)["Threads"])


def resident_kb_of(pid):
    return int(status(pid)["VmRSS"])


def descriptors_of(pid):
    return len(os.listdir(f"/proc/{pid}/fd"))


def mapped_kb_of(pid, needle):
    areas = 0
    with open(f"/proc/{pid}/maps", encoding="utf-8", errors="replace") as file:
        for line in file:
            if needle in line:
                start, end = (int(part, 16) for part in line.split()[0].split("-"))
                areas += end - start
    return areas // 1024


def plant(device):
    leaks = [
        Leak("threads", "Event_ThreadAmount", "threads Thread- 2", threads_of,
             also=["Event_ResidentSize"]),
        Leak("descriptors", "Event_OpenFileAmount", "sockets 3", descriptors_of,
             also=["Event_OpenFileFDSize"]),
        Leak("resident", "Event_ResidentSize", "anon 1024", resident_kb_of),
        Leak("renamed", "Event_OpenFileAmount", "files 5", descriptors_of, exec_at=STEPS // 4,
             also=["Event_OpenFileFDSize"]),
    ]
    if device is not None:
        leaks.append(Leak("mapped", "Event_VssKgsl", f"map {device}",
                          lambda pid: mapped_kb_of(pid, device)))
        leaks[-1].child.command(leaks[-1].step)  # growth from nothing is not told
    return leaks


@contextlib.contextmanager
def device_file():
    """A file that counts as graphics memory when it is mapped; None for who may not make one."""
    path = f"/dev/kgsl-soak-{time.time_ns()}"
    try:
        with open(path, "wb") as file:
            file.truncate(4096 << 10)
    except OSError:
        yield None
        return
    try:
        yield path
    finally:
        os.remove(path)


@contextlib.contextmanager
def running(command, **options):
    """A program that is ended, by its own pid, when the block is left."""
    process = subprocess.Popen(command, stdin=subprocess.DEVNULL, **options)
    try:
        yield process
    finally:
        process.kill()
        process.wait()


@contextlib.contextmanager
def standing():
    """Processes that hold much or little, none of which grows: they keep still, or start others
    that end at once or after some time."""
    still = [Child(f"still-{i}") for i in range(20)]
    for i, child in enumerate(still):
        child.command(("threads Pool- 50", "sockets 200", "anon 32768", "files 20")[i % 4])
    with contextlib.ExitStack() as ends:
        for child in still:
            ends.callback(child.end)
        pids = {child.pid for child in still}
        for life in ["0.0$((RANDOM % 10))"] * 4 + ["0.$RANDOM"] * 4 + ["7"] * 8:
            loop = f"sleep 4.$RANDOM; while :; do sleep {life}; done"
            pids.add(ends.enter_context(running(["bash", "-c", loop])).pid)
        yield pids


Event = collections.namedtuple("Event", "pid name event before after")
RULE = re.compile(r"^(Event_\w+)\n"
                  r"-> audit evnet by proc (\d+) \"(.*)\": .*?(\d+) -> (\d+)$", re.MULTILINE)


def events_in(report):
    return [Event(int(pid), name, event, int(before), int(after))
            for event, pid, name, before, after in RULE.findall(report)]


def covers(event, reported, truth):
    """Whether nothing more was due after `reported`, and no more was reported than there was."""
    more_due = truth * 2 > reported * 3 or truth > reported + STEP_KB.get(event, truth)
    blur = RESIDENT_BLUR_KB if event == "Event_ResidentSize" else 0
    return reported <= truth + blur and not more_due


class Judge:
    def __init__(self):
        self.faults = []

    def require(self, holds, what):
        if not holds:
            self.faults.append(what)

    def leak(self, leak, events, records):
        """Judges what was reported of one leak, and returns the last number."""
        pid, who = leak.child.pid, f"leak of {leak.kind} by {leak.child.pid}"
        own = [e for e in events if e.pid == pid]
        told = [e for e in own if e.event == leak.event]
        self.require(told, f"{who}: not reported")
        self.require({e.event for e in own} <= leak.also | {leak.event},
                     f"{who}: reported as another: {own}")
        self.require({e.name for e in told} == set(leak.names), f"{who}: names {told}")
        # A new name starts afresh: from what there was then.
        after_exec = [e for e in told if len(leak.names) > 1 and e.name == leak.names[1]]
        self.require(not after_exec or after_exec[0].before == leak.at_exec,
                     f"{who}: not measured from {leak.at_exec}: {after_exec[:1]}")
        # The first event of a name and kind only takes an inventory; of mappings all are sent.
        unsent = 0 if leak.event == "Event_VssKgsl" else 1
        due = [(e.name, e.after) for name in leak.names
               for e in [e for e in told if e.name == name][unsent:]]
        sent = [(r["name"], r["value"]) for r in records
                if r["pid"] == pid and r["event"] == leak.event]
        # Where passes are long, each name of the renamed may have had no second event.
        self.require(sent == due and (due or leak.exec_at is not None), f"{who}: records {sent} where {due} are due")
        last = told[-1].after if told else 0
        self.require(covers(leak.event, last, leak.at_end),
                     f"{who}: {leak.at_end} in the end, last reported {last}")
        return last


Held = collections.namedtuple("Held", "descriptors table_kb other_kb resident_kb peak_kb")


def slots():
    with open("/proc/sys/kernel/pid_max", encoding="ascii") as file:
        return max(STATIC_SLOTS, int(file.read()))


def held_by(pid, has_table):
    """Descriptors and anonymous memory, that of the table apart: the smallest writable area that has
    room for it, but for what shares a page with others."""
    sizes, areas = [], []
    with open(f"/proc/{pid}/smaps", encoding="utf-8", errors="replace") as file:
        for line in file:
            words = line.split()
            if not words[0].endswith(":"):
                areas.append({"writable": words[1].startswith("rw")})
            elif words[0] in ("Size:", "Rss:", "Anonymous:"):
                areas[-1][words[0]] = int(words[1])
    if has_table:
        sizes = [area for area in areas
                 if area["writable"] and
                 area["Size:"] >= slots() * (SLOT_BYTES + NOTE_BYTES) // 1024 - 8]
    table = min(sizes, key=lambda area: area["Size:"])["Anonymous:"] if sizes else 0
    return Held(descriptors_of(pid), table, sum(area["Anonymous:"] for area in areas) - table,
                sum(area["Rss:"] for area in areas), int(status(pid)["VmHWM"]))


def last_pid():
    """The pid given last, of a process made for the purpose."""
    with subprocess.Popen(["true"]) as process:
        return process.pid


class PidCount:
    """How many pids have been given out, which begin again at 300 (RESERVED_PIDS in the kernel's
    kernel/pid.c) after the last. Looked at more often than once a round."""

    def __init__(self):
        self.last, self.given = last_pid(), 0

    def look(self):
        now = last_pid()
        self.given += now - self.last if now >= self.last else slots() - self.last + now
        self.last = now


def watched():
    """How many processes there are that the watch has slots for."""
    return sum(name.isdigit() and int(name) >= 300 for name in os.listdir("/proc"))


def memory_max_kb():
    """What the service may take."""
    with open(UNIT, encoding="ascii") as file:
        return int(re.search(r"^MemoryMax=(\d+)M$", file.read(), re.MULTILINE)[1]) * 1024


def is_under_way(event, listener):
    """Whether these are the connections of records that arrive at the listener: 64 at most."""
    return (event.pid == listener.pid and event.event.startswith("Event_OpenFile")
            and event.after <= event.before + 64)


def generation(device):
    leaks = plant(device)
    time.sleep(STAND_S)
    for leak in leaks:
        leak.at_start = leak.amount()
    begin = time.monotonic()
    for step in range(STEPS):
        for leak in leaks:
            leak.leak(step)
        time.sleep(max(0.0, begin + (step + 1) * STEP_S - time.monotonic()))
    time.sleep(SETTLE_S)
    for leak in leaks:
        leak.at_end = leak.amount()
        leak.child.end()
    return leaks


def log_kinds(text):
    lines = (re.sub(r"\d+", "N", re.sub(r"^E/.*?: ", "", line)) for line in text.splitlines())
    return collections.Counter(re.sub(r'(data|sendbuff) = .*', r"\1 = ...", line)
                               for line in lines)


def soak(judge, folder):
    """Runs the whole of it and prints the tables."""
    report, log, records = (f"{folder}/{name}" for name in ("report", "log", "records"))
    leaks, pids = [], PidCount()
    with contextlib.ExitStack() as ends:
        device = ends.enter_context(device_file())
        quiet = ends.enter_context(standing())
        listener = ends.enter_context(running([WATCH, "listen", "--json"],
                                              stdout=ends.enter_context(open(records, "wb"))))
        time.sleep(1)
        watch = ends.enter_context(running(
            [WATCH, "watch", "--no-service", "--interest", "leak-mapped"],
            stdout=ends.enter_context(open(report, "wb")),
            stderr=ends.enter_context(open(log, "wb")),
            env=os.environ | {"STATE_DIRECTORY": folder, "RUNTIME_DIRECTORY": folder}))
        programs = {"watch": watch, "listen": listener}
        quiet.add(listener.pid)
        time.sleep(WARM_UP_S)
        pids.look()
        pids.given = 0
        at_start = {name: held_by(p.pid, name == "watch") for name, p in programs.items()}
        began = time.monotonic()
        while not leaks or time.monotonic() - began < MINUTES * 60 - WARM_UP_S - 40:
            leaks += generation(device)
            pids.look()
        lasted = time.monotonic() - began
        live = watched()
        at_end = {name: held_by(p.pid, name == "watch") for name, p in programs.items()}
        for name, program in programs.items():
            judge.require(program.poll() is None, f"{name} has ended")
    with open(report, encoding="utf-8", errors="replace") as file:
        events = events_in(file.read())
    with open(records, encoding="utf-8") as file:
        arrived = [json.loads(line) for line in file]
    with open(log, encoding="utf-8", errors="replace") as file:
        kinds = log_kinds(file.read())

    print(f"{lasted:.0f} s; {pids.given} pids given out; {len(quiet)} processes that stood still, "
          f"{len(leaks)} that leaked\n")
    print_leaks(judge, leaks, events, arrived)
    known = {leak.child.pid for leak in leaks}
    # Where others' processes are in sight, they may grow as they like.
    apart = os.getpid() == 1
    wrong = [e for e in events if not is_under_way(e, listener) and
             (e.pid in quiet or e.pid == watch.pid or (apart and e.pid not in known))]
    judge.require(not wrong, f"reported, but did not leak: {wrong}")
    print_held(judge, at_start, at_end, live)
    print("| lines of the log | kind |\n|---|---|")
    for kind, count in sorted(kinds.items()):
        print(f"| {count} | `{kind}` |")
        judge.require(EXPECTED_LINES.fullmatch(kind) or not apart, f"log: {kind}")


def print_leaks(judge, leaks, events, records):
    print("| leak | processes | events | records | planted in the last | last reported of it |")
    print("|---|---|---|---|---|---|")
    for kind in dict.fromkeys(leak.kind for leak in leaks):
        alike = [leak for leak in leaks if leak.kind == kind]
        told = [judge.leak(leak, events, records) for leak in alike]
        own = {leak.child.pid for leak in alike}
        print(f"| {kind} | {len(alike)} | {sum(e.pid in own for e in events)} | "
              f"{sum(r['pid'] in own for r in records)} | {alike[-1].at_start} to "
              f"{alike[-1].at_end} | {told[-1]} |")


def print_held(judge, at_start, at_end, live):
    print("\n| held | start | end |\n|---|---|---|")
    for name, start in at_start.items():
        end = at_end[name]
        for field, what in (("descriptors", "descriptors"), ("table_kb", "table, kB"),
                            ("other_kb", "other anonymous memory, kB"),
                            ("resident_kb", "resident size, kB"),
                            ("peak_kb", "most that was resident, kB")):
            if field != "table_kb" or name == "watch":
                print(f"| {name}: {what} | {getattr(start, field)} | {getattr(end, field)} |")
        judge.require(end.descriptors == start.descriptors, f"{name}: descriptors")
        judge.require(end.other_kb <= start.other_kb + MARGIN_KB, f"{name}: memory")
    print(f"| most that {live} live processes take in the table, kB | | {live * PROCESS_KB} |")
    watch = at_end["watch"]
    judge.require(watch.table_kb <= live * PROCESS_KB, "watch: table")
    judge.require(watch.peak_kb < memory_max_kb() // 2, "watch: more than half of MemoryMax")
    print()


def main():
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(1))
    with contextlib.suppress(ValueError):
        resource.setrlimit(resource.RLIMIT_NOFILE, (4096, 4096))
    while os.getpid() == 1 and last_pid() < 300:  # those are not watched
        pass
    judge = Judge()
    with tempfile.TemporaryDirectory() as folder:
        soak(judge, folder)
    for fault in judge.faults:
        print(f"FAULT: {fault}", file=sys.stderr)
    print(f"\n{'nothing' if not judge.faults else len(judge.faults)} wrong")
    return 1 if judge.faults else 0


if __name__ == "__main__":
    sys.exit(main())
