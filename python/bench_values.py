#!/usr/bin/env python3
"""Times param.values(np.linspace(0, 10, 1_000_000)) against the C++ call.

    PYTHONPATH=build/python python3 python/bench_values.py [build/bench/qdparam_bench]

For each curve of the example set (Bezier, LinLog, Spline, Linear) it takes
the best of several rounds of the Python call, runs the benchmark program's
BM_HostApiValuesAtTimes (qd::Param::values on the same set, clip and times)
and prints both and their ratio. A measurement, not a test: a busy machine
moves the figures.
"""
import json
import pathlib
import subprocess
import sys
import time

import numpy as np

import qdparam

ROOT = pathlib.Path(__file__).resolve().parents[1]
CURVES = ["position_x", "size", "rotation", "opacity"]  # the benchmark's order
ROUNDS = 15


def python_ms(param, times):
    """The best time of one values() call, in ms."""
    best = float("inf")
    for _ in range(ROUNDS):
        start = time.perf_counter()
        param.values(times)
        best = min(best, time.perf_counter() - start)
    return best * 1e3


def cpp_ms(program):
    """The C++ call's time per curve in ms, from the benchmark program."""
    run = subprocess.run(
        [program, "--benchmark_filter=HostApiValuesAtTimes", "--benchmark_format=json",
         f"--benchmark_repetitions={ROUNDS // 3}"],
        check=True, capture_output=True, text=True)
    results = {}
    for row in json.loads(run.stdout)["benchmarks"]:
        if row.get("run_type") == "iteration":  # the best repetition, as for Python
            label = row["label"]
            results[label] = min(results.get(label, float("inf")), row["real_time"])  # ms
    return results


def main():
    program = sys.argv[1] if len(sys.argv) > 1 else ROOT / "build/bench/qdparam_bench"
    s = qdparam.load(ROOT / "examples/pip.xml")
    s.clip = (0.0, 10.0)
    times = np.linspace(0, 10, 1_000_000)
    cpp = cpp_ms(str(program)) if pathlib.Path(program).exists() else {}
    print(f"{'curve':<12}{'python ms':>10}{'c++ ms':>10}{'ratio':>8}")
    for name in CURVES:
        py = python_ms(s[name], times)
        native = cpp.get(name)
        ratio = f"{py / native:8.2f}" if native else "       -"
        native_text = f"{native:10.2f}" if native else "         -"
        print(f"{name:<12}{py:10.2f}{native_text}{ratio}")
    if not cpp:
        print(f"(no benchmark program at {program}: build it with -DQD_BUILD_BENCH=ON)")


if __name__ == "__main__":
    main()
