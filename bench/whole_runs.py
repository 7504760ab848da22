"""What the comparisons of whole computations share: the build, and one run of Kelvane through its menus."""

import os
import re
import subprocess
import sys
import tempfile

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
BUILD = os.path.join(ROOT, "build", "bench")


def build():
    for command in (["cmake", "--preset", "bench"], ["cmake", "--build", "--preset", "bench", "-j2"]):
        subprocess.run(command, cwd=ROOT, check=True, stdout=subprocess.DEVNULL)


def peer(program, *arguments):
    """A peer's line: compute S convert S tail DDDDD"""
    command = [os.path.join(BUILD, "bench", program), *map(str, arguments)]
    out = subprocess.run(command, capture_output=True, text=True, check=True).stdout
    m = re.search(r"compute ([0-9.]+) convert ([0-9.]+) tail ([0-9]+)", out)
    return {"compute": float(m[1]), "total": float(m[1]) + float(m[2]), "tail": m[3]}


def kelvane(constant, algorithm, digits, threads, folder):
    """constant: the menu answers that choose it, none for Pi. Digits are not written to a file."""
    lines = ["3", *constant, "2", algorithm, "5", threads, "3", digits, "4", 0, 0, ""]
    with tempfile.TemporaryFile() as output:
        process = subprocess.Popen([os.path.join(BUILD, "kelvane")], stdin=subprocess.PIPE, stdout=output, cwd=folder)
        process.stdin.write("\n".join(map(str, lines)).encode())
        process.stdin.close()
        _, status, usage = os.wait4(process.pid, 0)
        process.returncode = os.waitstatus_to_exitcode(status)
        output.seek(0)
        text = re.sub("\033\\[[0-9;]*m", "", output.read().decode())
    if process.returncode != 0 or "Last Digits" not in text:
        sys.exit(text)
    return {
        "compute": float(re.search(r"Total Computation Time: +([0-9.]+)", text)[1]),
        "total": float(re.search(r"Total Time \(with output \+ verify\): +([0-9.]+)", text)[1]),
        "tail": re.findall(r"([0-9]{5}) :  [0-9,]+\s", text)[-1],
        "shown": re.findall(r"Memory Needed: +(.*)", text)[-1].strip(),
        "peak": usage.ru_maxrss / 1024,
    }


def same_tail(name, run, expected):
    if run["tail"] != expected["tail"]:
        sys.exit(f"{name}: the last digits differ, {run['tail']} and {expected['tail']}")
