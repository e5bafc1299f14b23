#!/usr/bin/env python3
"""Compares the engines of the storage and network packages with their peers.

All contenders run in turns, round after round, so that whatever else the machine does meets all of
them alike. Told are medians over the rounds, and ratios of medians. Needs the release build of
storage_bench and network_bench, and the Debian packages fio, iperf3 and e2fsprogs.

    cmake --preset release && cmake --build --preset release --target storage_bench network_bench
    bench/io_compare.py                  # both; about five minutes
    bench/io_compare.py storage --rounds 3 --megabytes 512 --directory /var/tmp
"""

import argparse
import json
import os
import pathlib
import re
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent


def run(command, **options):
    """The command's standard output; ends the comparison when it fails."""
    done = subprocess.run(command, capture_output=True, text=True, check=False, **options)
    if done.returncode != 0:
        sys.exit(f"{' '.join(command)} failed:\n{done.stdout}{done.stderr}")
    return done.stdout


def bench(program, name, environment=None):
    """One benchmark of ours, one iteration: its entry in the report."""
    out = run([str(program), f"--benchmark_filter=^{name}$", "--benchmark_format=json"],
              env={**os.environ, **(environment or {})})
    entry = json.loads(out)["benchmarks"][0]
    if entry.get("error_occurred"):
        sys.exit(f"{name}: {entry['error_message']}")
    return entry


class Figures:
    """What was measured: by name, one value for each round."""

    def __init__(self):
        self.values = {}

    def add(self, name, value):
        self.values.setdefault(name, []).append(value)

    def median(self, name):
        return statistics.median(self.values[name])

    def best(self, *names):
        return max(self.median(name) for name in names)

    def show(self, unit, scale):
        for name, values in self.values.items():
            spread = f"{min(values) / scale:9.1f} ... {max(values) / scale:9.1f}"
            print(f"  {name:34s} {self.median(name) / scale:9.1f} {unit}   ({spread})")


def tell(title, ratio, goal):
    print(f"  {title:62s} {ratio:6.2f}   goal {goal:4.2f}   {'reached' if ratio >= goal else 'MISSED'}")


class Storage:
    """Reads of one file and writes of fresh ones beside it, all past the page cache."""

    engines = ("io_uring", "libaio")

    def __init__(self, arguments):
        self.program = ROOT / arguments.build / "bench/storage/storage_bench"
        self.folder = tempfile.mkdtemp(prefix="tarvex-bench-", dir=arguments.directory)
        self.file = os.path.join(self.folder, "disk")
        self.size = arguments.megabytes << 20
        self.scan, self.random, self.verify = Figures(), Figures(), Figures()

    def prepare(self):
        run(["fio", "--name=fill", f"--filename={self.file}", f"--size={self.size}", "--rw=write",
             "--bs=1m", "--direct=1", "--ioengine=io_uring", "--iodepth=32", "--end_fsync=1"])

    def close(self):
        shutil.rmtree(self.folder)

    def fio(self, engine, *options):
        out = run(["fio", "--name=peer", f"--ioengine={engine}", "--direct=1", "--iodepth=32",
                   f"--size={self.size}", "--output-format=json", *options])
        return json.loads(out[out.index("{"):])["jobs"][0]

    def timed(self, command):
        begin = time.monotonic()
        run(command)
        return self.size / (time.monotonic() - begin)

    def ours(self, name):
        return bench(self.program, name, {"TARVEX_BENCH_FILE": self.file})

    def round(self):
        source = f"--filename={self.file}"
        for engine in self.engines:
            job = self.fio(engine, source, "--rw=read", "--bs=1m")
            self.scan.add(f"fio {engine}", job["read"]["bw_bytes"])
        self.scan.add("ours", self.ours("SequentialScan/uring:1/iterations:1/manual_time")["bytes_per_second"])
        self.scan.add("ours, threads", self.ours("SequentialScan/uring:0/iterations:1/manual_time")["bytes_per_second"])
        self.scan.add("dd iflag=direct bs=1M", self.timed(["dd", f"if={self.file}", "of=/dev/null", "bs=1M", "iflag=direct"]))
        self.scan.add("dd iflag=direct", self.timed_dd_default())
        self.scan.add("badblocks", self.timed(["badblocks", self.file]))

        for engine in self.engines:
            job = self.fio(engine, source, "--rw=randread", "--bs=4k", "--number_ios=200000")
            self.random.add(f"fio {engine}", job["read"]["iops"])
        self.random.add("ours", self.ours("RandomRead/uring:1/iterations:1/manual_time")["items_per_second"])
        self.random.add("ours, threads", self.ours("RandomRead/uring:0/iterations:1/manual_time")["items_per_second"])

        fresh = (f"--filename={self.file}.fresh", "--rw=write", "--bs=1m", "--unlink=1", "--end_fsync=1")
        for engine in self.engines:
            job = self.fio(engine, *fresh)
            self.verify.add(f"write, fio {engine}", job["write"]["bw_bytes"])
        for engine in self.engines:
            job = self.fio(engine, *fresh, "--verify=crc32c", "--do_verify=1",
                           "--verify_state_save=0")
            elapsed = (job["write"]["runtime"] + job["read"]["runtime"]) / 1000
            self.verify.add(f"write and verify, fio {engine}", self.size / elapsed)
        entry = self.ours("WriteAndVerify/iterations:1/manual_time")
        self.verify.add("write and verify, ours", entry["bytes_per_second"])
        self.verify.add("  its writing", entry["write"])
        self.verify.add("  its reading", entry["verify"])

    def timed_dd_default(self):
        """dd with its own block of 512 bytes, over so much that it takes about a second."""
        blocks = 16384
        begin = time.monotonic()
        run(["dd", f"if={self.file}", "of=/dev/null", "iflag=direct", f"count={blocks}"])
        return blocks * 512 / (time.monotonic() - begin)

    def show(self):
        print("\nSequential read scan")
        self.scan.show("MB/s", 1e6)
        print("\nRandom read of 4 KiB, 32 in flight")
        self.random.show("reads/s", 1)
        print("\nWrite and verify")
        self.verify.show("MB/s", 1e6)
        read = self.scan.best("fio io_uring", "fio libaio")
        write = self.verify.best("write, fio io_uring", "write, fio libaio", "  its writing")
        limit = 1 / (1 / write + 1 / max(read, self.scan.median("ours")))
        ours = self.verify.median("write and verify, ours")
        print(f"  {'limit 1/(1/write + 1/read), of the best':34s} {limit / 1e6:9.1f} MB/s")
        print("\nRatios of medians")
        scan = self.scan.median("ours")
        tell("scan, to the better fio", scan / read, 0.95)
        tell("scan, to dd iflag=direct bs=1M", scan / self.scan.median("dd iflag=direct bs=1M"), 1.3)
        tell("scan, to badblocks", scan / self.scan.median("badblocks"), 2.5)
        tell("random read, to the better fio", self.random.median("ours") / self.random.best("fio io_uring", "fio libaio"), 0.95)
        tell("write and verify, to the limit", ours / limit, 0.85)
        tell("write and verify, to the better fio --verify=crc32c",
             ours / self.verify.best("write and verify, fio io_uring", "write and verify, fio libaio"), 1.0)


class Network:
    """Streams over the loopback address."""

    port = 5899

    def __init__(self, arguments):
        self.program = ROOT / arguments.build / "bench/network/network_bench"
        self.stream = Figures()

    def prepare(self):
        pass

    def close(self):
        pass

    def iperf(self, *options):
        server = subprocess.Popen(["iperf3", "--server", "--one-off", "--forceflush", "--bind", "127.0.0.1",
                                   "--port", str(self.port)], stdout=subprocess.PIPE, text=True)
        for line in server.stdout:
            if re.search("Server listening", line):
                break
        out = run(["iperf3", "--client", "127.0.0.1", "--port", str(self.port), "--time", "3",
                   "--json", *options])
        server.communicate()
        return json.loads(out)["end"]["sum_received"]["bits_per_second"] / 8

    def round(self):
        self.stream.add("iperf3", self.iperf())
        for connections in (1, 2):
            entry = bench(self.program, f"LoopbackStream/connections:{connections}/iterations:1/manual_time")
            self.stream.add(f"ours, {connections} connection(s)", entry["bytes_per_second"])
        self.stream.add("iperf3 --parallel 2", self.iperf("--parallel", "2"))
        self.stream.add("iperf3 --zerocopy", self.iperf("--zerocopy"))

    def show(self):
        print("\nLoopback stream (ours compares every byte)")
        self.stream.show("MB/s", 1e6)
        print("\nRatios of medians")
        peer = self.stream.median("iperf3")
        tell("one connection, to iperf3", self.stream.median("ours, 1 connection(s)") / peer, 1.2)
        tell("as the test runs (2 connections), to iperf3", self.stream.median("ours, 2 connection(s)") / peer, 1.2)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("what", nargs="?", choices=("all", "storage", "network"), default="all")
    parser.add_argument("--rounds", type=int, default=5)
    parser.add_argument("--megabytes", type=int, default=2048, help="size of the file")
    parser.add_argument("--directory", default="/var/tmp", help="on the disk to be measured")
    parser.add_argument("--build", default="build/release")
    arguments = parser.parse_args()
    missing = [tool for tool in ("fio", "iperf3", "badblocks", "dd") if not shutil.which(tool)]
    if missing:
        sys.exit(f"missing: {' '.join(missing)} (apt-get install fio iperf3 e2fsprogs)")

    kinds = {"storage": Storage, "network": Network}
    contests = [kinds[name](arguments) for name in kinds if arguments.what in ("all", name)]
    print(f"{arguments.rounds} rounds, load average before: {os.getloadavg()[0]:.2f}")
    try:
        for contest in contests:
            contest.prepare()
            for number in range(arguments.rounds):
                print(f"round {number + 1} of {type(contest).__name__.lower()}", file=sys.stderr)
                contest.round()
            contest.show()
    finally:
        for contest in contests:
            contest.close()
    print(f"\nload average after: {os.getloadavg()[0]:.2f}")


if __name__ == "__main__":
    main()
