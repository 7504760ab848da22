"""Runs the built program as its users do: with answers from a pipe, or at a terminal.

    result = run("3", "3", "1000", "0")        # one line of input each, then the input ends
    result.status, result.text                 # exit status; standard output without colours
    result.raw                                 # with them

    with Terminal() as terminal:               # a pseudo-terminal
        terminal.expect("option: ")
        terminal.send("6\n")
        status = terminal.wait()

The program is the one named by the environment variable KELVANE_PROGRAM. It runs in a fresh directory unless
told otherwise, which is kept as result.folder until the test ends.
"""

import os
import pty
import re
import select
import signal
import subprocess
import sys
import tempfile
import time
import unittest

PROGRAM = os.environ["KELVANE_PROGRAM"]
SHORT = os.environ.get("KELVANE_SHORT", "0") not in ("", "0")
# The thread sanitizer holds a signal back until the program's next call, which a program waiting for input never makes.
SIGNALS_WAIT = os.environ.get("KELVANE_SANITIZER") == "thread"
# What the address sanitizer writes to the terminal now and then, when a thread ends the process whose stack it
# does not know. Its findings read differently and end the program with a status of their own.
SANITIZER_NOTE = re.compile(r"==\d+==WARNING: ASan is ignoring requested __asan_handle_no_return:.*?issues/189\r?\n", re.S)
RESET = "\033[39;49m"
TIMEOUT = 120  # seconds; only a program that hangs comes near


def plain(text):
    """The text without colour sequences."""
    return re.sub("\033\\[[0-9;]*m", "", text)


class Result:
    def __init__(self, raw, status, folder):
        self.raw = raw.decode("utf-8", "surrogateescape")
        self.text = plain(self.raw)
        self.status = status
        self.folder = folder


class ProgramTest(unittest.TestCase):
    """A test case with a directory of its own for each test."""

    def setUp(self):
        holder = tempfile.TemporaryDirectory(prefix="kelvane-test-")
        self.addCleanup(holder.cleanup)
        self.folder = holder.name

    def run_program(self, *answers, **options):
        options.setdefault("folder", self.folder)
        return run(*answers, **options)


def run(*answers, folder=None, environment=None, stdout=subprocess.PIPE, timeout=TIMEOUT):
    """Runs the program on one line per answer; a bytes answer is taken as it is."""
    lines = [a if isinstance(a, bytes) else (str(a) + "\n").encode() for a in answers]
    done = subprocess.run(
        [PROGRAM],
        input=b"".join(lines),
        stdout=stdout,
        stderr=subprocess.STDOUT if stdout == subprocess.PIPE else None,
        cwd=folder,
        env={**os.environ, **(environment or {})},
        timeout=timeout,
    )
    return Result(done.stdout or b"", done.returncode, folder)


def peak_memory(command, folder, answers=b"", output=subprocess.DEVNULL):
    """Runs a command; returns its exit status and the most memory it held, in KiB.

    The system counts what a process held before it became the command, so a small process starts it.
    """
    starter = (
        "import os, subprocess, sys\n"
        "process = subprocess.Popen(sys.argv[1:])\n"
        "_, status, usage = os.wait4(process.pid, 0)\n"
        "print(os.waitstatus_to_exitcode(status), usage.ru_maxrss, file=sys.stderr)\n"
    )
    done = subprocess.run([sys.executable, "-c", starter, *command], input=answers, cwd=folder, stdout=output,
                          stderr=subprocess.PIPE, timeout=10 * TIMEOUT, check=True)
    status, peak = done.stderr.split()[-2:]
    return int(status), int(peak)


class Terminal:
    """The program at a pseudo-terminal. Leaving the with-block ends it if it still runs."""

    def __init__(self, folder=None):
        self.raw = b""
        self.status = None
        self.pid, self.fd = pty.fork()
        if self.pid == 0:
            if folder is not None:
                os.chdir(folder)
            os.execv(PROGRAM, [PROGRAM])

    def __enter__(self):
        return self

    def __exit__(self, *_):
        if self.status is None:
            os.kill(self.pid, signal.SIGKILL)
            os.waitpid(self.pid, 0)
        os.close(self.fd)

    def _read(self, seconds):
        """Takes over what the program has written; False when nothing came or nothing more can."""
        if not select.select([self.fd], [], [], seconds)[0]:
            return False
        try:
            piece = os.read(self.fd, 65536)
        except OSError:  # how Linux reports that the other side is closed
            return False
        self.raw += piece
        return piece != b""

    def expect(self, text, timeout=TIMEOUT):
        """Waits until the text has been written since the last expect; returns everything since then."""
        wanted = text.encode()
        end = time.monotonic() + timeout
        while wanted not in self.raw:
            if time.monotonic() > end or not self._read(1) and self._ended():
                raise AssertionError(f"{text!r} did not come; the program wrote {self.raw!r}")
        cut = self.raw.index(wanted) + len(wanted)
        seen, self.raw = self.raw[:cut], self.raw[cut:]
        return seen.decode("utf-8", "surrogateescape")

    def _ended(self):
        if self.status is None:
            pid, status = os.waitpid(self.pid, os.WNOHANG)
            if pid != 0:
                self.status = os.waitstatus_to_exitcode(status)
        return self.status is not None

    def send(self, text):
        os.write(self.fd, text.encode())

    def kill(self, number):
        os.kill(self.pid, number)

    def wait(self, timeout=TIMEOUT):
        """Waits for the end; returns the exit status (negative: the signal) and what was written meanwhile."""
        end = time.monotonic() + timeout
        while not self._ended():
            if time.monotonic() > end:
                raise AssertionError(f"the program does not end; it wrote {self.raw!r}")
            self._read(0.1)
        while self._read(0.1):
            pass
        return self.status, SANITIZER_NOTE.sub("", self.raw.decode("utf-8", "surrogateescape"))
