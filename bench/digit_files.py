#!/usr/bin/env python3
"""Speed and memory of kelvane-digits on large files.

Usage: bench/digit_files.py TOOL FOLDER [DIGITS]

TOOL: the built kelvane-digits. FOLDER: takes about three times DIGITS bytes (10^9 if not given), which are removed
at the end. Prints for each command the seconds, digits per second and peak memory, and beside them how fast the
disk itself writes and reads. Files that have just been written are read from the system's cache.
"""

import os
import random
import subprocess
import sys
import time

tool, folder = os.path.abspath(sys.argv[1]), sys.argv[2]
digits = int(sys.argv[3]) if len(sys.argv) > 3 else 10**9
os.chdir(folder)


def run(what, *command, status=0):
    start = time.monotonic()
    process = subprocess.Popen(command, stdout=subprocess.DEVNULL)
    _, result, usage = os.wait4(process.pid, 0)
    seconds = time.monotonic() - start
    process.returncode = os.waitstatus_to_exitcode(result)
    assert process.returncode == status, (command, process.returncode)
    print(f"| {what} | {seconds:.2f} | {digits / seconds * 1e-9:.2f} | {usage.ru_maxrss / 1024:.0f} MiB |", flush=True)


def make_text(name):
    """Random digits, a block of them over and over: the tool looks at every digit all the same."""
    block = "".join(random.Random(1).choices("0123456789", k=10**6)).encode()
    with open(name, "wb") as file:
        file.write(b"3.")
        for _ in range(digits // len(block)):
            file.write(block)


made = ["kd.txt", "kd.kcd", "kd2.txt"] + [f"kds - {n}.kcd" for n in range(11)]
try:
    make_text("kd.txt")
    print("| command | seconds | 10^9 digits per second | peak memory |\n|---|---|---|---|")
    run("the disk: copy of the text, with sync", "dd", "if=kd.txt", "of=kd2.txt", "bs=4M", "conv=fsync", "status=none")
    os.remove("kd2.txt")
    run("read of the text from the cache", "dd", "if=kd.txt", "of=/dev/null", "bs=4M", "status=none")
    run("convert text to one .kcd", tool, "convert", "kd.txt", "kd.kcd")
    run("convert to a set of 10", tool, "convert", "-d", str(digits // 10 + 7), "kd.kcd", "kds.kcd")
    run("convert .kcd to text", tool, "convert", "kds - 0.kcd", "kd2.txt")
    run("compare text with .kcd", tool, "compare", "kd.txt", "kd.kcd")
    run("compare .kcd with a set", tool, "compare", "kd.kcd", "kds - 0.kcd")
    run("hash text", tool, "hash", "kd.txt")
    run("hash .kcd", tool, "hash", "kd.kcd")
    run("stats text", tool, "stats", "kd.txt")
    run("stats .kcd", tool, "stats", "kd.kcd")
    run("find in text, 12 digits that do not occur", tool, "find", "kd.txt", "000000000000", status=1)
    run("find in .kcd", tool, "find", "kd.kcd", "000000000000", status=1)
    run("info of the set", tool, "info", "kds - 3.kcd")
finally:
    for name in made:
        for path in (name, name + ".incomplete"):
            if os.path.exists(path):
                os.remove(path)
