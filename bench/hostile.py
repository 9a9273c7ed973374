#!/usr/bin/env python3
"""What held connections cost the development host, and what a well-behaved
client gets meanwhile. For each step, the bench holds N idle connections
(connected, nothing sent) and M slow ones (a request head trickled a byte a
second; the host closes a head that is not whole in 10 s, and the bench opens
another in its place), then makes requests one after another on fresh
connections for a while and measures their latency (p50, p99), the host's
CPU (all its threads), its threads and its descriptors.

    bench/hostile.py HOST_BINARY OUT_DIR [SECONDS_PER_STEP]

Prints a Markdown table and writes OUT_DIR/hostile.dat for the plot (the
steps with as many idle as slow connections).
"""
import os
import re
import resource
import selectors
import socket
import subprocess
import sys
import time

SLOW_HEAD = b"GET /api/isp/FakeRatio HTTP/1.1\r\nHost: 127.0.0.1\r\nX-Slow: " + b"x" * 64
REQUEST = b"GET /api/isp/FakeRatio HTTP/1.1\r\nHost: 127.0.0.1\r\nConnection: close\r\n\r\n"
STEPS = [(0, 0), (250, 250), (500, 500), (1000, 0), (0, 1000), (1000, 1000), (2500, 2500)]


def host_stat(pid):
    with open(f"/proc/{pid}/stat") as f:
        fields = f.read().rsplit(")", 1)[1].split()
    cpu = (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")
    threads = len(os.listdir(f"/proc/{pid}/task"))
    fds = len(os.listdir(f"/proc/{pid}/fd"))
    return cpu, threads, fds


class Held:
    """Idle and slow connections, kept at their counts."""

    def __init__(self, port, idle, slow):
        self.port = port
        self.selector = selectors.DefaultSelector()
        self.idle = [self.connect() for _ in range(idle)]
        self.slow = {}
        for _ in range(slow):
            self.open_slow()
        self.refused = 0

    def connect(self):
        s = socket.create_connection(("127.0.0.1", self.port))
        s.setblocking(False)
        return s

    def open_slow(self):
        s = self.connect()
        self.slow[s] = 0
        self.selector.register(s, selectors.EVENT_READ)

    def tick(self):
        """One byte more of each slow head; heads the host closed are opened again."""
        for s in list(self.slow):
            at = self.slow[s]
            try:
                s.send(SLOW_HEAD[at:at + 1])
                self.slow[s] = (at + 1) % len(SLOW_HEAD)
            except OSError:
                self.replace(s)
        for key, _ in self.selector.select(timeout=0):
            try:
                data = key.fileobj.recv(4096)
            except OSError:
                data = b""
            self.refused += data.startswith(b"HTTP/1.1 503")
            self.replace(key.fileobj)

    def replace(self, s):
        self.selector.unregister(s)
        del self.slow[s]
        s.close()
        self.open_slow()

    def close(self):
        for s in self.idle + list(self.slow):
            s.close()


def request(port):
    start = time.monotonic()
    with socket.create_connection(("127.0.0.1", port), timeout=10) as s:
        s.sendall(REQUEST)
        answer = b""
        while chunk := s.recv(4096):
            answer += chunk
    return time.monotonic() - start, int(answer[9:12] or 0)


def percentile(values, p):
    values = sorted(values)
    return values[min(len(values) - 1, int(len(values) * p / 100))]


def main():
    binary, out = sys.argv[1], sys.argv[2]
    seconds = float(sys.argv[3]) if len(sys.argv) > 3 else 10
    soft, hard = resource.getrlimit(resource.RLIMIT_NOFILE)
    resource.setrlimit(resource.RLIMIT_NOFILE, (hard, hard))
    limit = min(hard, 65536)
    # 2,500 + 2,500 held heads wait within the bound of 8 per served connection.
    host = subprocess.Popen([binary, "--listen", "127.0.0.1:0", "--log", "/dev/null", "--max-connections", "1000"],
                            stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
    port = int(re.search(r"serving http://[0-9.]+:(\d+)/", host.stdout.readline()).group(1))
    print(f"descriptors: this process {limit}, the host's bound of waiting heads 8000 (--max-connections 1000)")
    print()
    print("| idle | slow | requests | p50 ms | p99 ms | other statuses | host CPU (cores) | threads | descriptors |")
    print("|---:|---:|---:|---:|---:|---:|---:|---:|---:|")
    rows = []
    try:
        for idle, slow in STEPS:
            if idle + slow + 100 > limit:
                print(f"| {idle} | {slow} | skipped: over this process's {limit} descriptors | | | | | | |")
                continue
            held = Held(port, idle, slow)
            time.sleep(1)
            cpu0, _, _ = host_stat(host.pid)
            wall0 = time.monotonic()
            latencies, others, next_tick = [], 0, 0.0
            threads = fds = 0
            while time.monotonic() - wall0 < seconds:
                if time.monotonic() >= next_tick:
                    held.tick()
                    next_tick = time.monotonic() + 1
                    _, threads, fds = host_stat(host.pid)
                took, status = request(port)
                latencies.append(took * 1000)
                others += status != 200
                time.sleep(0.02)  # a client's pace, not a load test
            cpu1, _, _ = host_stat(host.pid)
            cores = (cpu1 - cpu0) / (time.monotonic() - wall0)
            held.close()
            row = (idle, slow, len(latencies), percentile(latencies, 50), percentile(latencies, 99), others,
                   cores, threads, fds)
            rows.append(row)
            print("| {} | {} | {} | {:.1f} | {:.1f} | {} | {:.3f} | {} | {} |".format(*row), flush=True)
            time.sleep(1)
    finally:
        host.terminate()
        host.wait(timeout=10)
    # The plot follows the steps that hold as many idle as slow connections.
    with open(os.path.join(out, "hostile.dat"), "w") as f:
        for row in (r for r in rows if r[0] == r[1]):
            f.write("{} {:.2f} {:.2f} {:.4f} {} {}\n".format(row[0] + row[1], row[3], row[4], row[6], row[7], row[8]))


if __name__ == "__main__":
    main()
