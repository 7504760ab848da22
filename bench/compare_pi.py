#!/usr/bin/env python3
"""Whole computations of Pi: Kelvane against the GMP program, alternating in one run.

Usage: bench/compare_pi.py DIGITS [ROUNDS] [THREADS...]

Builds what it needs (preset "bench"), runs the peer and then Kelvane with each number of threads, ROUNDS times
(default 5), and prints medians: seconds, the ratio of medians, and Kelvane's peak memory beside the figure shown.
The peer runs on one thread: series, division and root, mpz_get_str. Kelvane's time is that of its own line
"Total Computation Time", which contains the same steps, with all checks on.
"""

import os
import re
import statistics
import subprocess
import sys
import tempfile

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
BUILD = os.path.join(ROOT, "build", "bench")


def plain(text):
    return re.sub("\033\\[[0-9;]*m", "", text)


def peer(digits):
    out = subprocess.run([os.path.join(BUILD, "bench", "gmp_pi"), str(digits)], capture_output=True, text=True, check=True)
    return {key: float(value) for key, value in re.findall(r"([a-z+]+) ([0-9.]+)", out.stdout)}


def kelvane(digits, threads, folder):
    answers = f"3\n5\n{threads}\n3\n{digits}\n4\n0\n0\n".encode()
    with tempfile.TemporaryFile() as output:
        process = subprocess.Popen([os.path.join(BUILD, "kelvane")], stdin=subprocess.PIPE, stdout=output, cwd=folder)
        process.stdin.write(answers)
        process.stdin.close()
        _, status, usage = os.wait4(process.pid, 0)
        process.returncode = os.waitstatus_to_exitcode(status)
        output.seek(0)
        text = plain(output.read().decode())
    if process.returncode != 0 or "Last Digits" not in text:
        sys.exit(text)
    return {
        "compute": float(re.search(r"Total Computation Time: +([0-9.]+)", text)[1]),
        "total": float(re.search(r"Total Time \(with output \+ verify\): +([0-9.]+)", text)[1]),
        "shown": re.findall(r"Memory Needed: +(.*)", text)[-1].strip(),
        "peak": usage.ru_maxrss / 1024,
    }


def main():
    if len(sys.argv) < 2:
        sys.exit(__doc__)
    digits = int(sys.argv[1])
    rounds = int(sys.argv[2]) if len(sys.argv) > 2 else 5
    threads = [int(t) for t in sys.argv[3:]] or [1, 2]
    for command in (["cmake", "--preset", "bench"], ["cmake", "--build", "--preset", "bench", "-j2"]):
        subprocess.run(command, cwd=ROOT, check=True, stdout=subprocess.DEVNULL)
    peers, ours = [], {t: [] for t in threads}
    with tempfile.TemporaryDirectory(prefix="kelvane-bench-") as folder:
        for _ in range(rounds):
            peers.append(peer(digits))
            for t in threads:
                ours[t].append(kelvane(digits, t, folder))
    def median(runs, key):
        return statistics.median(run[key] for run in runs)

    print(f"Pi, {digits:,} digits, medians of {rounds} alternating runs, seconds")
    print("| program | compute | with conversion | with output and verification | times faster | memory shown | peak |")
    print("|---|---|---|---|---|---|---|")
    base = median(peers, "total")
    print(f"| GMP, 1 thread | {median(peers, 'compute'):.2f} | {base:.2f} | | 1.00 | | |")
    for t in threads:
        m = median(ours[t], "compute")
        print(
            f"| Kelvane, {t} thread{'s' if t > 1 else ''} | | {m:.2f} | {median(ours[t], 'total'):.2f} | {base / m:.2f} "
            f"| {ours[t][0]['shown']} | {median(ours[t], 'peak'):.0f} MiB |"
        )


if __name__ == "__main__":
    main()
