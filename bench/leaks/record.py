#!/usr/bin/env python3
"""Records samples of Debian's servers under a small, bounded load, healthy and with a planted leak.

  record.py OUT.csv [--minutes M] [--interval SECONDS] [--build COMMAND]

  record.py --tidy IN.csv OUT.csv    every third look, without the build; of the processes of a leaking
                                     server only the one that grew most stays "-leaking"

Starts redis, PostgreSQL, nginx, a JVM and CPython twice each, in a temporary folder and on sockets
there, and ends them afterwards. The second of each leaks: keys that nobody deletes, statements that
are prepared and never freed, connections that stay open, objects in a list. With --build a command
runs over and over beside them, such as a compiler. Needs redis-server, postgresql, nginx-light, a JDK.
"""
import argparse
import csv
import glob
import os
import pwd
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import threading
import time

COLUMNS = ["time", "pid", "start", "name", "resident_kb", "threads", "open_files",
           "open_files_limit", "swap_kb"]

JAVA = """
import java.util.*;
public class Work {
  static final List<byte[]> lost = new ArrayList<>();
  public static void main(String[] args) throws Exception {
    boolean leaks = args.length > 0;
    Map<Integer, byte[]> cache = new LinkedHashMap<>() {
      protected boolean removeEldestEntry(Map.Entry<Integer, byte[]> e) { return size() > 4000; }
    };
    for (int i = 0;; ++i) {
      for (int j = 0; j < 40; ++j) cache.put((i * 40 + j) % 9000, new byte[2000]);
      if (leaks) lost.add(new byte[3000]);
      Thread.sleep(20);
    }
  }
}
"""

PYTHON = """
import sys, time
lost, cache = [], {}
for i in range(10**9):
    cache[i % 3000] = [str(j) for j in range(40)]
    if len(sys.argv) > 1: lost.append(bytearray(3000))
    time.sleep(0.02)
"""

NGINX = """
daemon off; master_process on; worker_processes 1; pid {0}/nginx.pid; error_log {0}/nginx.log;
events {{ worker_connections 900; }}
http {{ access_log off; keepalive_timeout 3600; keepalive_requests 1000000;
  server {{ listen unix:{0}/nginx.sock; location / {{ return 200 "well"; }} }} }}
"""


class Servers:
    """What was started, and the threads that keep it busy until `stop` is set."""

    def __init__(self, folder):
        self.folder = folder
        self.children = []
        self.stop = threading.Event()

    def start(self, command, user=None, **options):
        def prepare():
            os.setpgid(0, 0)
            if user:
                os.setgid(user.pw_gid)
                os.setuid(user.pw_uid)
        child = subprocess.Popen(command, preexec_fn=prepare, stdin=subprocess.DEVNULL,
                                 stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, **options)
        self.children.append(child)
        return child.pid

    def keep(self, work):
        def run():
            while not self.stop.is_set():
                try:
                    work(self.stop)
                except OSError as error:
                    print("load:", error, file=sys.stderr)
                self.stop.wait(1)
        threading.Thread(target=run, daemon=True).start()

    def end(self):
        self.stop.set()
        for child in self.children:
            try:
                os.killpg(child.pid, signal.SIGTERM)
            except ProcessLookupError:
                pass
        time.sleep(3)
        for child in self.children:
            if child.poll() is None:
                os.killpg(child.pid, signal.SIGKILL)
            child.wait()


def connect(path):
    for _ in range(100):
        try:
            client = socket.socket(socket.AF_UNIX)
            client.connect(path)
            client.settimeout(10)
            return client
        except OSError:
            client.close()
            time.sleep(0.1)
    raise OSError("nobody answers at " + path)


def redis(servers, leaks):
    folder = tempfile.mkdtemp(dir=servers.folder)
    path = folder + "/redis.sock"
    pid = servers.start(["redis-server", "--port", "0", "--unixsocket", path, "--save", "",
                         "--dir", folder])

    def load(stop):
        client = connect(path)
        n = 0
        while not stop.wait(0.02):
            lines = "".join(f"SET key{(n * 10 + i) % 20000} {'v' * 100}\r\n" for i in range(10))
            if leaks:
                lines += f"RPUSH lost{n} {'x' * 2000}\r\n"
            client.sendall(lines.encode())
            client.recv(65536)
            n += 1
    servers.keep(load)
    return [pid]


def postgres(servers, leaks):
    user = pwd.getpwnam("postgres")
    folder = tempfile.mkdtemp(dir=servers.folder)
    os.chmod(servers.folder, 0o711)
    os.chown(folder, user.pw_uid, user.pw_gid)
    binaries = sorted(glob.glob("/usr/lib/postgresql/*/bin"))[-1]
    run = dict(user=user, cwd=folder, env={"PATH": binaries + ":/usr/bin:/bin"})
    servers.start([binaries + "/initdb", "-D", folder + "/data", "-A", "trust"], **run)
    servers.children.pop().wait()
    pid = servers.start([binaries + "/postgres", "-D", folder + "/data", "-k", folder,
                         "-c", "listen_addresses=", "-c", "shared_buffers=32MB"], **run)
    connect(folder + "/.s.PGSQL.5432").close()
    time.sleep(2)
    script = folder + "/load.sql"
    with open(script, "w") as file:
        file.write("SELECT sum(i) FROM generate_series(1, 2000) i;\n")
        if leaks:
            file.write("\\set n random(1, 1000000000)\n"
                       "DO $$ BEGIN EXECUTE 'PREPARE lost_' || (:n)::text || "
                       "' AS SELECT * FROM pg_class WHERE oid = $1'; "
                       "EXCEPTION WHEN OTHERS THEN NULL; END $$;\n")
    servers.start([binaries + "/pgbench", "-h", folder, "-n", "-f", script, "-T", "100000",
                   "-R", "20", "postgres"], **run)
    return [pid]


def nginx(servers, leaks):
    folder = tempfile.mkdtemp(dir=servers.folder)
    with open(folder + "/nginx.conf", "w") as file:
        file.write(NGINX.format(folder))
    pid = servers.start(["nginx", "-p", folder, "-c", folder + "/nginx.conf"])
    kept = []

    def load(stop):
        n = 0
        while not stop.wait(0.02):
            client = connect(folder + "/nginx.sock")
            client.sendall(b"GET / HTTP/1.1\r\nHost: x\r\n\r\n")
            client.recv(4096)
            n += 1
            if leaks and n % 150 == 0:
                kept.append(client)
            else:
                client.close()
    servers.keep(load)
    return [pid]


def jvm(servers, leaks):
    folder = tempfile.mkdtemp(dir=servers.folder)
    with open(folder + "/Work.java", "w") as file:
        file.write(JAVA)
    subprocess.run(["javac", "-d", folder, folder + "/Work.java"], check=True)
    return [servers.start(["java", "-Xmx400m", "-XX:+UseSerialGC", "-cp", folder, "Work"]
                          + ["leak"] * leaks)]


def cpython(servers, leaks):
    return [servers.start(["python3", "-c", PYTHON] + ["leak"] * leaks)]


KINDS = {"redis": redis, "postgres": postgres, "nginx": nginx, "jvm": jvm, "cpython": cpython}


def stat(pid):
    with open(f"/proc/{pid}/stat", errors="replace") as file:
        fields = file.read().rpartition(")")[2].split()
    return int(fields[1]), int(fields[19])  # parent, start


def sample(pid, start, name, now):
    with open(f"/proc/{pid}/status", errors="replace") as file:
        status = dict(line.split(":", 1) for line in file if ":" in line)
    kb = lambda key: status.get(key, "").split()[:1] or [""]
    with open(f"/proc/{pid}/limits") as file:
        limit = next(line.split()[3] for line in file if line.startswith("Max open files"))
    return [round(now, 1), pid, start, name, *kb("VmRSS"), *kb("Threads"),
            len(os.listdir(f"/proc/{pid}/fd")), limit if limit.isdigit() else "", *kb("VmSwap")]


def tidy(source, target):
    with open(source, newline="") as file:
        header, *rows = csv.reader(file)
    looks = sorted({float(row[0]) for row in rows})[::3]
    rows = [row for row in rows if float(row[0]) in set(looks) and row[3] != "build"]
    first, last, grew = {}, {}, {}
    for row in rows:
        levels = [float(row[4] or 0) + 1, float(row[6] or 0) + 1]
        first.setdefault(row[1], levels)
        last[row[1]] = max(b / a for a, b in zip(first[row[1]], levels))
        grew[row[3]] = max(grew.get(row[3], (0, "")), (last[row[1]], row[1]))
    for row in rows:
        if row[3].endswith("-leaking") and grew[row[3]][1] != row[1]:
            row[3] = row[3].removesuffix("-leaking")
    with open(target, "w", newline="") as file:
        csv.writer(file, lineterminator="\n").writerows([header] + rows)


def main():
    if len(sys.argv) == 4 and sys.argv[1] == "--tidy":
        return tidy(sys.argv[2], sys.argv[3])
    parser = argparse.ArgumentParser()
    parser.add_argument("out")
    parser.add_argument("--minutes", type=float, default=25)
    parser.add_argument("--interval", type=float, default=2)
    parser.add_argument("--build")
    options = parser.parse_args()
    folder = tempfile.mkdtemp(prefix="leaks-")
    servers = Servers(folder)
    owners = {}  # pid of the first process -> name
    try:
        for kind, start in KINDS.items():
            for leaks in (False, True):
                for pid in start(servers, leaks):
                    owners[pid] = kind + ("-leaking" if leaks else "")
        if options.build:
            build = f"while :; do {options.build}; done"
            owners[servers.start(["sh", "-c", build])] = "build"
        begin = time.monotonic()
        with open(options.out, "w", newline="") as file:
            out = csv.writer(file, lineterminator="\n")
            out.writerow(COLUMNS)
            while time.monotonic() - begin < options.minutes * 60:
                now = time.monotonic() - begin
                parents, starts = {}, {}
                for entry in os.listdir("/proc"):
                    if entry.isdigit():
                        try:
                            parents[int(entry)], starts[int(entry)] = stat(entry)
                        except (OSError, IndexError):
                            pass
                for pid in sorted(parents):
                    ancestor = pid
                    while ancestor in parents and ancestor not in owners:
                        ancestor = parents[ancestor]
                    if ancestor in owners:
                        try:
                            out.writerow(sample(pid, starts[pid], owners[ancestor], now))
                        except (OSError, StopIteration):
                            pass
                file.flush()
                time.sleep(max(0, now + options.interval - (time.monotonic() - begin)))
    finally:
        servers.end()
        shutil.rmtree(folder, ignore_errors=True)


if __name__ == "__main__":
    main()
