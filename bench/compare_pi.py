#!/usr/bin/env python3
"""Whole computations of Pi: Kelvane against the GMP program and against Arb, alternating in one run.

Usage: bench/compare_pi.py DIGITS [ROUNDS] [THREADS...]

Builds what it needs (preset "bench"), runs the GMP program, then Arb (when Debian's libflint-arb-dev is there) and
Kelvane with each number of threads, ROUNDS times (default 5), and prints medians: seconds, the ratio of medians, and
Kelvane's peak memory beside the figure shown. The GMP program runs on one thread: series, division and root,
mpz_get_str. Kelvane's time is that of its own line "Total Computation Time", which contains the same steps, with all
checks on. Checks that the last digits are the same.
"""

import os
import statistics
import sys
import tempfile

from whole_runs import BUILD, build, kelvane, peer, same_tail


def main():
    if len(sys.argv) < 2:
        sys.exit(__doc__)
    digits = int(sys.argv[1])
    rounds = int(sys.argv[2]) if len(sys.argv) > 2 else 5
    threads = [int(t) for t in sys.argv[3:]] or [1, 2]
    build()
    has_arb = os.path.exists(os.path.join(BUILD, "bench", "flint_constants"))
    gmp, arb, ours = [], {t: [] for t in threads}, {t: [] for t in threads}
    with tempfile.TemporaryDirectory(prefix="kelvane-bench-") as folder:
        for _ in range(rounds):
            gmp.append(peer("gmp_pi", digits))
            for t in threads:
                if has_arb:
                    arb[t].append(peer("flint_constants", "pi", digits, t))
                    same_tail("Arb", arb[t][-1], gmp[0])
                ours[t].append(kelvane([], 0, digits, t, folder))
                same_tail("Kelvane", ours[t][-1], gmp[0])

    def median(runs, key):
        return statistics.median(run[key] for run in runs)

    def plural(t):
        return f"{t} thread{'s' if t > 1 else ''}"

    print(f"Pi, {digits:,} digits, medians of {rounds} alternating runs, seconds")
    print("| program | compute | with conversion | with output and verification | times faster than GMP | than Arb "
          "| memory shown | peak |")
    print("|---|---|---|---|---|---|---|---|")
    base = median(gmp, "total")
    print(f"| GMP, 1 thread | {median(gmp, 'compute'):.2f} | {base:.2f} | | 1.00 | | | |")
    for t in threads:
        if has_arb:
            m = median(arb[t], "total")
            print(f"| Arb, {plural(t)} | {median(arb[t], 'compute'):.2f} | {m:.2f} | | {base / m:.2f} | 1.00 | | |")
    for t in threads:
        m = median(ours[t], "compute")
        beside_arb = f"{median(arb[t], 'total') / m:.2f}" if has_arb else ""
        print(
            f"| Kelvane, {plural(t)} | | {m:.2f} | {median(ours[t], 'total'):.2f} | {base / m:.2f} | {beside_arb} "
            f"| {ours[t][0]['shown']} | {median(ours[t], 'peak'):.0f} MiB |"
        )


if __name__ == "__main__":
    main()
