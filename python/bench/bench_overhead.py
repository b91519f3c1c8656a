#!/usr/bin/env python3
"""Per-call cost of the Python layers against ka-sim, beside the C figure.

    /usr/bin/python3 python/bench/bench_overhead.py [--queries N] [--frames N]

Starts ka-sim on a free port (stopped by its pid at the end) and measures,
in one run and against the same simulated arm, the median time of:
  - a joint-angle query (ka_get_joint_degree, a full TCP round trip) from C,
    through ka_api.lowlevel, and through Arm.joints();
  - one streamed joint target (ka_movej_canfd, sent without reply) likewise,
    reported also as the sustained rate in frames per second.
The C figures come from python/bench/round_trip.c, compiled here with cc
against the same shared library and run against the same simulator.
"""

from __future__ import annotations

import argparse
import ctypes
import os
import re
import signal
import statistics
import subprocess
import sys
import tempfile
import time
from typing import Callable, List, Tuple

HERE = os.path.dirname(os.path.abspath(__file__))
ROOT = os.path.normpath(os.path.join(HERE, "..", ".."))
BUILD = os.path.join(ROOT, "build", "default")
sys.path.insert(0, os.path.join(ROOT, "python"))
os.environ.setdefault("KA_API_LIBRARY", os.path.join(BUILD, "libka_api.so"))

import ka_api  # noqa: E402
from ka_api import lowlevel as ll  # noqa: E402


def start_simulator() -> Tuple[subprocess.Popen, int]:
    simulator = os.environ.get("KA_SIM", os.path.join(BUILD, "sim", "ka-sim"))
    process = subprocess.Popen([simulator, "--port", "0"], stdout=subprocess.PIPE, text=True)
    assert process.stdout is not None
    line = process.stdout.readline()  # the first line names the port
    found = re.search(r"listening on [\d.]+:(\d+)", line)
    if not found:
        os.kill(process.pid, signal.SIGTERM)
        raise SystemExit("ka-sim did not start: %r" % line)
    return process, int(found.group(1))


def c_figures(port: int, queries: int, frames: int) -> Tuple[float, float]:
    with tempfile.TemporaryDirectory() as scratch:
        program = os.path.join(scratch, "round_trip")
        subprocess.run(
            ["cc", "-O2", "-I", os.path.join(ROOT, "include"), os.path.join(HERE, "round_trip.c"), "-o", program,
             "-L", BUILD, "-Wl,-rpath," + BUILD, "-lka_api"],
            check=True,
        )  # fmt: skip
        out = subprocess.run([program, str(port), str(queries), str(frames)], check=True, capture_output=True, text=True)
    query_us, stream_us = (float(v) for v in out.stdout.split())
    return query_us, stream_us


def median_us(call: Callable[[], object], count: int) -> float:
    samples: List[int] = []
    clock = time.perf_counter_ns
    for _ in range(count):
        start = clock()
        call()
        samples.append(clock() - start)
    return statistics.median(samples) / 1000.0


def rate_hz(call: Callable[[], object], count: int) -> float:
    start = time.perf_counter()
    for _ in range(count):
        call()
    return count / (time.perf_counter() - start)


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--queries", type=int, default=2000)
    parser.add_argument("--frames", type=int, default=20000)
    args = parser.parse_args()
    process, port = start_simulator()
    try:
        # Pythonic and low-level calls run first and last around the C run, so drift shows.
        with ka_api.Arm("127.0.0.1", port) as arm:
            handle = arm.handle
            buffer = (ctypes.c_float * ll.KA_JOINTS)()
            joints = arm.joints()
            for _ in range(200):
                arm.joints()
            low_query = median_us(lambda: ll.ka_get_joint_degree(handle, buffer), args.queries)
            py_query = median_us(arm.joints, args.queries)
            low_stream = median_us(lambda: ll.ka_movej_canfd(handle, buffer, False, 0.0), args.frames)
            py_stream = median_us(lambda: arm.movej_canfd(joints), args.frames)
            py_rate = rate_hz(lambda: arm.movej_canfd(joints), args.frames)
        c_query, c_stream = c_figures(port, args.queries, args.frames)
    finally:
        os.kill(process.pid, signal.SIGTERM)
        process.wait()
    print("%-42s %10s %10s %10s" % ("median per call, microseconds", "C", "lowlevel", "Arm"))
    print("%-42s %10.1f %10.1f %10.1f" % ("query (ka_get_joint_degree, round trip)", c_query, low_query, py_query))
    print("%-42s %10.2f %10.2f %10.2f" % ("stream (ka_movej_canfd, one target)", c_stream, low_stream, py_stream))
    print("Arm query / C query: %.2fx (goal <= 1.5x)" % (py_query / c_query))
    print("Arm.movej_canfd sustained: %.0f frames/s (goal >= 20000)" % py_rate)
    return 0


if __name__ == "__main__":
    sys.exit(main())
