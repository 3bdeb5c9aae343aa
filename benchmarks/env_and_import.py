"""Measures what users feel of the foundation: the time to import velmorpy (target: well under
0.2 s), and the time and memory of creating and disposing environments (target: memory flat
over 10,000 of them).

Run:  python benchmarks/env_and_import.py
"""
import gc
import os
import statistics
import subprocess
import sys
import time


def import_time_ms(repeats=7):
    samples = []
    for _ in range(repeats):
        out = subprocess.run([sys.executable, "-X", "importtime", "-c", "import velmorpy"],
                             capture_output=True, text=True, check=True).stderr
        line = [l for l in out.splitlines() if l.rstrip().endswith("| velmorpy")][0]
        samples.append(int(line.split("|")[1]) / 1000.0)
    return statistics.median(samples)


def rss_mb():
    with open("/proc/self/statm") as f:
        return int(f.read().split()[1]) * os.sysconf("SC_PAGE_SIZE") / 2**20


def env_churn(n):
    import velmorpy as vp
    t0 = time.perf_counter()
    for _ in range(n):
        e = vp.Env(params={"OutputFlag": 0})
        e.setParam("TimeLimit", 10)
        e.dispose()
    gc.collect()
    return (time.perf_counter() - t0) / n * 1e6


if __name__ == "__main__":
    print(f"import velmorpy (median of 7, cumulative): {import_time_ms():.1f} ms")
    env_churn(1000)
    before = rss_mb()
    per_env = env_churn(10000)
    print(f"Env create+setParam+dispose: {per_env:.1f} us each; "
          f"RSS change over 10,000: {rss_mb() - before:+.2f} MB")
