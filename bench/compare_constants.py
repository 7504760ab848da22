#!/usr/bin/env python3
"""Whole computations: Kelvane against Arb (Log(2), Zeta(3), Catalan's and Euler's constant) and against GMP on one
thread (e, Sqrt(2), golden ratio), alternating in one run.

Usage: bench/compare_constants.py DIGITS [ROUNDS] [THREADS] [NAME...]

Needs Debian's libflint-arb-dev. Builds what it needs (preset "bench"), runs for each constant the peer and then
Kelvane's algorithms on the same number of threads (default 2), ROUNDS times (default 5), and prints medians: seconds
with the conversion to decimal digits, the ratio of medians, and Kelvane's peak memory beside the figure shown. Checks
that the last digits are the same. NAME: log2, zeta3, catalan, gamma (default: these), e, sqrt2, golden.
"""

import os
import re
import statistics
import subprocess
import sys
import tempfile

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
BUILD = os.path.join(ROOT, "build", "bench")

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


def plain(text):
    return re.sub("\033\\[[0-9;]*m", "", text)


def peer(name, digits, threads):
    if name in WITH_GMP:
        command = [os.path.join(BUILD, "bench", "gmp_constants"), name, str(digits)]
    else:
        command = [os.path.join(BUILD, "bench", "flint_constants"), name, str(digits), str(threads)]
    out = subprocess.run(command, capture_output=True, text=True, check=True).stdout
    m = re.search(r"compute ([0-9.]+) convert ([0-9.]+) tail ([0-9]+)", out)
    return float(m[1]) + float(m[2]), m[3]


def kelvane(answers, algorithm, digits, threads, folder):
    lines = ["3", *answers, "2", str(algorithm), "5", str(threads), "3", str(digits), "4", "0", "0", ""]
    with tempfile.TemporaryFile() as output:
        process = subprocess.Popen([os.path.join(BUILD, "kelvane")], stdin=subprocess.PIPE, stdout=output, cwd=folder)
        process.stdin.write("\n".join(lines).encode())
        process.stdin.close()
        _, status, usage = os.wait4(process.pid, 0)
        process.returncode = os.waitstatus_to_exitcode(status)
        output.seek(0)
        text = plain(output.read().decode())
    if process.returncode != 0 or "Last Digits" not in text:
        sys.exit(text)
    return {
        "compute": float(re.search(r"Total Computation Time: +([0-9.]+)", text)[1]),
        "tail": re.findall(r"([0-9]{5}) :  [0-9,]+\s", text)[-1],
        "shown": re.findall(r"Memory Needed: +(.*)", text)[-1].strip(),
        "peak": usage.ru_maxrss / 1024,
    }


def main():
    if len(sys.argv) < 2:
        sys.exit(__doc__)
    digits = int(sys.argv[1])
    rounds = int(sys.argv[2]) if len(sys.argv) > 2 else 5
    threads = int(sys.argv[3]) if len(sys.argv) > 3 else 2
    names = sys.argv[4:] or [name for name in CONSTANTS if name not in WITH_GMP]
    for command in (["cmake", "--preset", "bench"], ["cmake", "--build", "--preset", "bench", "-j2"]):
        subprocess.run(command, cwd=ROOT, check=True, stdout=subprocess.DEVNULL)
    print(f"{digits:,} digits, {threads} threads, medians of {rounds} alternating runs, seconds")
    print("| constant, formula | peer | Kelvane | times faster | memory shown | peak |")
    print("|---|---|---|---|---|---|")
    with tempfile.TemporaryDirectory(prefix="kelvane-bench-") as folder:
        for name in names:
            answers, algorithms = CONSTANTS[name]
            peers, ours = [], [[] for _ in algorithms]
            for _ in range(rounds):
                seconds, tail = peer(name, digits, threads)
                peers.append(seconds)
                for i, runs in enumerate(ours):
                    runs.append(kelvane(answers, i, digits, threads, folder))
                    if runs[-1]["tail"] != tail:
                        sys.exit(f"{algorithms[i]}: the last digits differ, {runs[-1]['tail']} and {tail}")
            base = statistics.median(peers)
            for label, runs in zip(algorithms, ours):
                m = statistics.median(run["compute"] for run in runs)
                peak = statistics.median(run["peak"] for run in runs)
                print(f"| {label} | {base:.2f} | {m:.2f} | {base / m:.2f} | {runs[0]['shown']} | {peak:.0f} MiB |",
                      flush=True)


if __name__ == "__main__":
    main()
