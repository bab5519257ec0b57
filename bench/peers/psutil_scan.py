#!/usr/bin/env python3
"""psutil_scan.py PASSES <PIDS: reads of each process what a visit of Task Warden reads."""
import sys

import psutil

processes = [psutil.Process(int(pid)) for pid in sys.stdin.read().split()]
for _ in range(int(sys.argv[1])):
    for process in processes:
        with process.oneshot():
            process.name()
            process.cmdline()
            process.status()
            process.ppid()
            process.memory_info()
            process.num_threads()
            process.num_fds()
