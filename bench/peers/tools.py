#!/usr/bin/env python3
"""tools.py PROGRAMS PROCESSES ROUNDS: what Debian's tools and the library's visits cost a process
and scan, as Markdown. PROGRAMS is the folder of the built benchmarks.

Each tool runs twice a round, with few scans and with many. The difference of the CPU times (user
and system, as the kernel accounts them to the ended child) is what the scans more have cost;
starting up falls out. The rounds go through all tools in turn."""
import os
import shutil
import statistics
import subprocess
import sys

HERE = os.path.dirname(os.path.abspath(__file__))


def cpu_seconds(command, text):
    """The CPU time of `command` and all it waited for, with `text` on its standard input."""
    child = subprocess.Popen(command, stdin=subprocess.PIPE, stdout=subprocess.DEVNULL)
    try:
        child.stdin.write(text)
        child.stdin.close()
    except BrokenPipeError:
        pass  # a tool that does not read it
    _, status, usage = os.wait4(child.pid, 0)
    child.returncode = os.waitstatus_to_exitcode(status)
    if child.returncode != 0:
        sys.exit(f"{command[0]} failed with status {child.returncode}")
    return usage.ru_utime + usage.ru_stime


def processes_now():
    return sum(name.isdigit() for name in os.listdir("/proc"))


class Tool:
    """`command` makes the command line of a number of scans."""

    def __init__(self, name, command, few, many, whole_machine):
        self.name, self.command, self.few, self.many = name, command, few, many
        self.whole_machine = whole_machine
        self.microseconds = []

    def measure(self, pids):
        text = " ".join(pids).encode()
        seen = processes_now() if self.whole_machine else len(pids)
        few = cpu_seconds(self.command(self.few), text)
        many = cpu_seconds(self.command(self.many), text)
        self.microseconds.append((many - few) / (self.many - self.few) / seen * 1e6)


def main():
    programs, count, rounds = sys.argv[1], sys.argv[2], int(sys.argv[3])
    ps = ["ps", "-eo", "pid,ppid,stat,nlwp,rss,args"]
    tools = [
        Tool("Task Warden", lambda n: [f"{programs}/visit_pids", str(n)], 1, 41, False),
        # One more process with each scan; an empty run is a scan of that process alone.
        Tool("ps, threads and size", lambda n: ["sh", "-c", 'n=$1; shift; while [ "$n" -gt 0 ]; do '
             '"$@"; n=$((n - 1)); done', "sh", str(n), *ps], 1, 6, True),
        Tool("pidstat -v -r", lambda n: ["pidstat", "-v", "-r", "-p", "ALL", "1", str(n)], 1, 3,
             True),
        Tool("psutil", lambda n: ["/usr/bin/python3", f"{HERE}/psutil_scan.py", str(n)], 1, 4,
             False),
    ]
    missing = [tool for tool in ("ps", "pidstat") if shutil.which(tool) is None]
    if missing:
        sys.exit("not installed: " + ", ".join(missing))

    start_ps = [cpu_seconds(["ps", "-o", ps[2], "-p", str(os.getpid())], b"")
                for _ in range(10)]
    with subprocess.Popen([f"{programs}/hold_population", count], stdin=subprocess.PIPE,
                          stdout=subprocess.PIPE, text=True) as population:
        pids = population.stdout.readline().split()
        if len(pids) != int(count):
            sys.exit("no population")
        for _ in range(rounds):
            for tool in tools:
                tool.measure(pids)
        seen = processes_now()
        population.stdin.close()

    # ps starts anew for each scan, which no difference of scans takes out.
    start_us = statistics.median(start_ps) / seen * 1e6
    ours = statistics.median(tools[0].microseconds)
    print(f"| tool, {count} processes | CPU µs a process and scan | ours beside it |")
    print("|---|---|---|")
    for tool in tools:
        cost = statistics.median(tool.microseconds)
        cost -= start_us if tool.name.startswith("ps,") else 0
        print(f"| {tool.name} | {cost:.1f} | {ours / cost:.2f} |")


if __name__ == "__main__":
    main()
