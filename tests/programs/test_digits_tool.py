"""kelvane-digits as its users run it, on files made here byte by byte."""

import collections
import hashlib
import os
import pty
import random
import re
import signal
import struct
import subprocess
import unittest
import xml.etree.ElementTree

from session import SHORT, ProgramTest

TOOL = os.environ["KELVANE_DIGITS"]


def compressed(digits, radix=10, first="3.", per_file=2**64 - 1, number=0, **changes):
    """One compressed file of the set that holds the digits."""
    mine = digits[per_file * number:][:per_file]
    per_word = 19 if radix == 10 else 16
    fields = {"FileVersion": "1.1.0", "Base": radix, "FirstDigits": first,
              "TotalDigits": "%020d" % (len(digits) if len(mine) < per_file else 0), "Blocksize": per_file,
              "BlockID": number, **changes}
    head = "#Compressed Digit File\r\n\r\n" + "".join(f"{k}:\t{v}\r\n\r\n" for k, v in fields.items() if v is not None)
    words = [int(mine[i:i + per_word].ljust(per_word, "0"), radix) for i in range(0, len(mine), per_word)]
    return head.encode() + b"EndHeader\r\n\r\n\0" + struct.pack(f"<{len(words)}Q", *words)


class Tool(ProgramTest):
    def setUp(self):
        super().setUp()
        chosen = random.Random(1)
        self.digits = "".join(chosen.choices("0123456789", k=25_000))
        self.hexadecimal = "".join(chosen.choices("0123456789abcdef", k=20_000))
        self.put("pi.txt", "3." + self.digits)
        self.put("hex.txt", "3." + self.hexadecimal)
        self.put("pi.kcd", compressed(self.digits))
        self.put("hex.kcd", compressed(self.hexadecimal, 16))
        for number in range(4):
            self.put(f"set - {number}.kcd", compressed(self.digits, per_file=7001, number=number))

    def path(self, name):
        return os.path.join(self.folder, name)

    def put(self, name, contents):
        with open(self.path(name), "wb") as file:
            file.write(contents if isinstance(contents, bytes) else contents.encode())

    def get(self, name):
        with open(self.path(name), "rb") as file:
            return file.read()

    def tool(self, *arguments, status=0, stdout=subprocess.PIPE):
        """Runs the tool; returns its output, and its messages as self.messages."""
        done = subprocess.run([TOOL, *map(str, arguments)], cwd=self.folder, stdout=stdout, stderr=subprocess.PIPE,
                              timeout=120)
        self.messages = done.stderr.decode()
        self.assertEqual(done.returncode, status, (arguments, done.stdout, self.messages))
        if status == 2:
            self.assertRegex(self.messages, "^kelvane-digits: .")
        return (done.stdout or b"").decode()


class Looking(Tool):
    def test_info(self):
        for name, lines in {
            "pi.txt": ["Format:         text", "Radix:          10", "Digits:         25,000"],
            "hex.kcd": ["Format:         compressed, version 1.1.0", "Radix:          16", "Digits:         20,000"],
            "set - 2.kcd": ["Digits:         25,000", "Per file:       7,001", "Files:          0 to 3",
                            "First digits:   3." + self.digits[:50] + "..."],
        }.items():
            text = self.tool("info", name)
            for line in lines:
                self.assertIn(line + "\n", text)
        os.remove(self.path("set - 1.kcd"))
        self.put("set - 2.kcd", self.get("set - 2.kcd")[:-1])
        text = self.tool("info", "pi.txt", "set - 0.kcd", status=1)
        self.assertIn("Files:          0, 3\nMissing:        1\nDamaged:\n  set - 2.kcd: Error Reading File\n", text)
        os.remove(self.path("set - 3.kcd"))
        os.remove(self.path("set - 2.kcd"))
        self.assertIn("do not state where the digits end", self.tool("info", "set - 0.kcd"))

    def test_print(self):
        for name in ("pi.txt", "pi.kcd", "set - 3.kcd"):
            for start, end in ((1, 1), (7001, 7002), (1, 25000), (24999, 25000), (19, 20)):
                self.assertEqual(self.tool("print", name, start, end), self.digits[start - 1:end] + "\n")
        self.assertEqual(self.tool("print", "-g", "hex.kcd", "1,001", "1,057"),
                         " ".join(self.hexadecimal[i:i + 10] for i in range(1000, 1050, 10)) + " :  1,050\n" +
                         self.hexadecimal[1050:1057] + " :  1,057\n")
        self.tool("print", "pi.kcd", 25000, 25001, status=2)
        self.assertIn("Out of range. The file has 25,000 digits.", self.messages)
        for arguments in ((5, 4), (0, 4), ("x", 4), (5,)):
            self.tool("print", "pi.kcd", *arguments, status=2)

    def test_find(self):
        for pattern in (self.digits[6995:7009], self.digits[-5:], self.digits[:3], "00"):
            places = [m.start() + 1 for m in re.finditer(f"(?={pattern})", self.digits)]
            for name in ("pi.txt", "set - 1.kcd"):
                self.assertEqual(self.tool("find", "-n", "100000", name, pattern).split(), list(map(str, places)))
        self.assertEqual(self.tool("find", "-n", "1", "-s", places[3] + 1, "pi.kcd", "00"), f"{places[4]}\n")
        self.assertEqual(self.tool("find", "-s", "99999999", "pi.kcd", "1", status=1), "")
        self.assertEqual(self.tool("find", "pi.kcd", "0" * 30, status=1), "")
        place = self.hexadecimal.index("abc") + 1
        self.assertEqual(self.tool("find", "hex.txt", "ABC").split()[0], str(place))
        for pattern in ("a", "1.", "", "-1"):
            self.tool("find", "pi.kcd", "--", pattern, status=2)

    def test_compare(self):
        for other in ("pi.txt", "pi.kcd", "set - 0.kcd"):
            self.assertEqual(self.tool("compare", "pi.txt", other), "The same 25,000 digits.\n")
        for place in (0, 7000, 7001, 24999):
            wrong = self.digits[:place] + str((int(self.digits[place]) + 1) % 10) + self.digits[place + 1:]
            self.put("wrong.kcd", compressed(wrong))
            text = self.tool("compare", "set - 0.kcd", "wrong.kcd", status=1)
            self.assertIn(f"The first difference is digit {place + 1:,}.\n", text)
            lines = text.split("\n")
            column = lines[3].index("^")
            self.assertEqual((lines[1][column], lines[2][column]), (self.digits[place], wrong[place]))
        self.put("short.txt", "3." + self.digits[:20000])
        self.assertEqual(self.tool("compare", "short.txt", "pi.kcd", status=1),
                         "The first 20,000 digits are the same; pi.kcd has 5,000 more.\n")
        self.put("two.txt", "2." + self.digits)
        self.assertIn("before the point differ: 3. and 2.", self.tool("compare", "pi.kcd", "two.txt", status=1))
        self.tool("compare", "pi.kcd", "hex.kcd", status=2)
        self.assertIn("Radix does not match.", self.messages)

    def test_hash(self):
        for name, first, digits, radix in (("pi.txt", "3", self.digits, 10), ("set - 0.kcd", "3", self.digits, 10),
                                           ("hex.kcd", "3", self.hexadecimal, 16)):
            text = self.tool("hash", name)
            value = 0
            for digit in first + digits:
                value = (value * radix + int(digit, radix)) % (2**61 - 1)
            self.assertIn(f"modulo 2^61 - 1:       {value}\n", text)
            self.assertIn(hashlib.sha1((first + "." + digits).encode()).hexdigest(), text)

    def test_the_residue_is_the_one_of_the_computation(self):
        self.run_program("3", "3", "12345", "0")
        report = next(f for f in os.listdir(self.folder) if re.fullmatch(r"Pi - \d+-\d+\.txt", f))
        residue = re.search(r"modulo 2\^61 - 1: +(\d+)", self.get(report).decode()).group(1)
        self.assertIn(f" {residue}\n", self.tool("hash", "Pi - Dec - Chudnovsky.txt"))

    def test_stats(self):
        for name, digits, radix in (("set - 0.kcd", self.digits, 10), ("hex.txt", self.hexadecimal, 16)):
            text = self.tool("stats", "-o", "picture.svg", name)
            counts = collections.Counter(digits)
            for digit in "0123456789abcdef"[:radix]:
                self.assertRegex(text, rf"\n  {digit} +{counts[digit]:,} ")
            mean = len(digits) / radix
            chi = sum((count - mean) ** 2 / mean for count in counts.values())
            self.assertIn(f"Chi-square:  {chi:.4f} with {radix - 1} degrees of freedom, p = 0.", text)
            root = xml.etree.ElementTree.fromstring(self.get("picture.svg"))
            bars = [e for e in root.iter("{http://www.w3.org/2000/svg}title")]
            self.assertEqual([e.text for e in bars], [f"{counts[d]:,}" for d in "0123456789abcdef"[:radix]])


class Converting(Tool):
    def test_every_way(self):
        self.tool("convert", "pi.txt", "a.kcd")
        self.assertEqual(self.get("a.kcd"), compressed(self.digits))
        self.tool("convert", "-d", "7001", "a.kcd", "b.kcd")
        for number in range(4):
            self.assertEqual(self.get(f"b - {number}.kcd"), self.get(f"set - {number}.kcd"))
        self.tool("convert", "b - 3.kcd", "c.txt")
        self.assertEqual(self.get("c.txt"), self.get("pi.txt"))
        self.tool("convert", "-d", "5000", "hex.txt", "h.kcd")  # the last file is full
        self.tool("convert", "h - 0.kcd", "h.txt")
        self.assertEqual(self.get("h.txt"), self.get("hex.txt"))
        self.assertIn("no file of the set states where the digits end; its files end at 20,000", self.messages)

    def test_refusals(self):
        before = self.get("pi.kcd")
        for arguments, message in (
            (("hex.txt", "pi.kcd"), "pi.kcd: The file exists."),
            (("-d", "100", "pi.txt", "set.kcd"), "set - 0.kcd: The file exists."),
            (("pi.txt", "pi.dat"), "pi.dat: Invalid Extension"),
            (("-d", "99", "pi.txt", "x.kcd"), "Invalid Digits per File"),
            (("-d", "100", "pi.kcd", "x.txt"), "only compressed files can be split"),
            (("none.txt", "x.kcd"), "none.txt: Unable to open file. (No such file or directory)"),
            (("pi.txt", "no/x.kcd"), "no/x.kcd: Unable to create file. (No such file or directory)"),
            (("empty.txt", "x.kcd"), "empty.txt: There are no digits after the point."),
        ):
            self.put("empty.txt", "3.")
            self.tool("convert", *arguments, status=2)
            self.assertIn(message, self.messages)
        self.assertEqual(self.get("pi.kcd"), before)
        self.tool("convert", "-f", "hex.txt", "pi.kcd")
        self.assertEqual(self.get("pi.kcd"), self.get("hex.kcd"))

    def test_full_disk(self):
        for name in ("full.txt", "full.kcd", "full - 2.kcd"):
            os.symlink("/dev/full", self.path(name))
        for arguments, name in ((("pi.kcd", "full.txt"), "full.txt"), (("pi.txt", "full.kcd"), "full.kcd"),
                                (("-d", "7001", "pi.txt", "full.kcd"), "full - 2.kcd")):
            self.tool("convert", *arguments, status=2)
            self.assertIn(f"{name}: Error writing to file. (No space left on device)", self.messages)
        self.assertFalse(os.path.exists(self.path("full - 0.kcd")))
        with open("/dev/full", "wb") as full:
            self.tool("print", "pi.kcd", 1, 20, status=2, stdout=full)

    def test_damaged_files(self):
        good = compressed(self.digits)
        later = "This .kcd file is of a later format version."
        for contents, message in (
            (good[:10], None),  # taken for text, which it is not
            (good[:100], "Error Reading File"),
            (good[:-1], "Error Reading File"),
            (good + b"\0", "Error Reading File"),
            (compressed(self.digits, FileVersion=None), "No version # found."),
            (compressed(self.digits, FileVersion="2.0.0"), later),
            (compressed(self.digits, Base=12), "Unsupported Radix"),
            (compressed(self.digits, Blocksize=99), "Invalid Digits per File"),
            (compressed(self.digits, Blocksize=None), "Invalid Digits per File"),
            (compressed(self.digits, TotalDigits=2**64 - 1), "Error Reading File"),
            (compressed(self.digits, BlockID=2**63), "This file is out of range."),
            (good[:-800] + b"\xff" * 800, "Invalid Digit: "),
            (b"", None), (b"3.14x", "Invalid Digit"), (b"\xff" * 1000, "Invalid Digit"),
        ):
            self.put("bad.kcd", contents)
            with self.subTest(message=message, size=len(contents)):
                for arguments in (("hash", "bad.kcd"), ("convert", "-f", "bad.kcd", "out.txt"), ("stats", "bad.kcd"),
                                  ("compare", "bad.kcd", "pi.txt"), ("find", "bad.kcd", "0" * 30)):
                    self.tool(*arguments, status=2)
                    if message:
                        self.assertIn("bad.kcd: " + message, self.messages)
                self.assertFalse(os.path.exists(self.path("out.txt")), "half a result under its final name")
        self.tool("hash", ".", status=2)
        os.remove(self.path("set - 2.kcd"))
        self.tool("hash", "set - 0.kcd", status=2)
        self.assertIn("set - 2.kcd: Unable to open file #2 (No such file or directory)", self.messages)
        os.mkdir(self.path("set - 2.kcd"))
        self.tool("hash", "set - 0.kcd", status=2)
        self.assertIn("set - 2.kcd: Unable to open file #2 (Is a directory)", self.messages)


class Usage(Tool):
    def test_help_version_and_wrong_usage(self):
        self.assertIn("compare A B", self.tool("--help"))
        self.assertIn("-d, --digits-per-file", self.tool("convert", "--help"))
        self.assertRegex(self.tool("--version"), r"^kelvane-digits \d")
        for arguments in ((), ("none",), ("hash",), ("hash", "-z", "pi.kcd")):
            self.tool(*arguments, status=2)
            self.assertIn("Try kelvane-digits --help.", self.messages)

    def test_progress_at_a_terminal_and_interruption(self):
        digits = 19 * 10**10  # a file of zeros without disk space: far more than is read here
        head = compressed("", TotalDigits="%020d" % digits)
        with open(self.path("zeros.kcd"), "wb") as file:
            file.write(head)
            file.truncate(len(head) + digits // 19 * 8)
        process, fd = pty.fork()
        if process == 0:
            os.chdir(self.folder)
            os.execv(TOOL, [TOOL, "stats", "zeros.kcd"])
        seen = b""
        while b"remaining" not in seen:
            seen += os.read(fd, 4096)
        self.assertRegex(seen.decode(), r"\rCounting +[0-9.]+%  \d+ million digits/s, remaining \d+ s")
        os.kill(process, signal.SIGINT)
        _, status, usage = os.wait4(process, 0)
        os.close(fd)
        self.assertEqual(os.waitstatus_to_exitcode(status), -signal.SIGINT)
        if not SHORT:
            self.assertLess(usage.ru_maxrss, 100 * 1024)

    @unittest.skipIf(SHORT, "sanitizers take memory themselves")
    def test_memory_does_not_grow_with_the_file(self):
        size = 200_000_000
        block = self.digits * 40
        with open(self.path("large.txt"), "wb") as file:
            file.write(b"3.")
            for _ in range(size // len(block)):
                file.write(block.encode())
        for arguments in (("convert", "large.txt", "large.kcd"), ("hash", "large.kcd"), ("stats", "large.txt"),
                          ("find", "large.kcd", "0" * 40), ("compare", "large.txt", "large.kcd"),
                          ("convert", "-f", "large.kcd", "large.txt")):
            process = subprocess.Popen([TOOL, *arguments], cwd=self.folder, stdout=subprocess.DEVNULL)
            _, status, usage = os.wait4(process.pid, 0)
            process.returncode = os.waitstatus_to_exitcode(status)
            self.assertEqual(process.returncode, 1 if arguments[0] == "find" else 0, arguments)
            self.assertLess(usage.ru_maxrss, 40 * 1024, arguments)  # KiB


if __name__ == "__main__":
    unittest.main()
