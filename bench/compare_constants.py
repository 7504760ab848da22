#!/usr/bin/env python3
"""Whole computations: Kelvane against Arb (Log(2), Zeta(3), Catalan's and Euler's constant) and against GMP on one
thread (e, Sqrt(2), golden ratio), alternating in one run.

Usage: bench/compare_constants.py DIGITS [ROUNDS] [THREADS] [NAME...]

Needs Debian's libflint-arb-dev. Builds what it needs (preset "bench"), runs for each constant the peer and then
Kelvane's algorithms on the same number of threads (default 2), ROUNDS times (default 5), and prints medians: seconds
with the conversion to decimal digits, the ratio of medians, and Kelvane's peak memory beside the figure shown. Checks
that the last digits are the same. NAME: log2, zeta3, catalan, gamma (default: these), e, sqrt2, golden.
"""

import statistics
import sys
import tempfile

from whole_runs import build, kelvane, peer, same_tail

# Menu answers that choose the constant, and the names of its algorithms.
CONSTANTS = {
    "log2": (["1", "5", "2"], ["Log(2), Machin 1", "Log(2), Machin 2"]),
    "zeta3": (["1", "6"], ["Zeta(3), Amdeberhan-Zeiberger 1", "Zeta(3), Amdeberhan-Zeiberger 2"]),
    "catalan": (["1", "8"], ["Catalan, Lupas", "Catalan, Huvent"]),
    "gamma": (["1", "9"], ["Euler's constant, Brent-McMillan", "Euler's constant, refined"]),
    "e": (["1", "2"], ["e, exp(1)", "e, exp(-1)"]),
    "sqrt2": (["1", "0", "2"], ["Sqrt(2), Newton"]),
    "golden": (["1", "1"], ["Golden ratio, Newton"]),
}
WITH_GMP = ["e", "sqrt2", "golden"]


def main():
    if len(sys.argv) < 2:
        sys.exit(__doc__)
    digits = int(sys.argv[1])
    rounds = int(sys.argv[2]) if len(sys.argv) > 2 else 5
    threads = int(sys.argv[3]) if len(sys.argv) > 3 else 2
    names = sys.argv[4:] or [name for name in CONSTANTS if name not in WITH_GMP]
    build()
    print(f"{digits:,} digits, {threads} threads, medians of {rounds} alternating runs, seconds")
    print("| constant, formula | peer | Kelvane | times faster | memory shown | peak |")
    print("|---|---|---|---|---|---|")
    with tempfile.TemporaryDirectory(prefix="kelvane-bench-") as folder:
        for name in names:
            answers, algorithms = CONSTANTS[name]
            peers, ours = [], [[] for _ in algorithms]
            for _ in range(rounds):
                if name in WITH_GMP:
                    peers.append(peer("gmp_constants", name, digits))
                else:
                    peers.append(peer("flint_constants", name, digits, threads))
                for i, runs in enumerate(ours):
                    runs.append(kelvane(answers, i, digits, threads, folder))
                    same_tail(algorithms[i], runs[-1], peers[-1])
            base = statistics.median(run["total"] for run in peers)
            for label, runs in zip(algorithms, ours):
                m = statistics.median(run["compute"] for run in runs)
                peak = statistics.median(run["peak"] for run in runs)
                print(f"| {label} | {base:.2f} | {m:.2f} | {base / m:.2f} | {runs[0]['shown']} | {peak:.0f} MiB |",
                      flush=True)


if __name__ == "__main__":
    main()
