"""Whole computations through the menu: texts, files, sums of the digits, memory, and what goes wrong."""

import hashlib
import os
import re
import signal
import struct
import subprocess
import unittest

from session import PROGRAM, RESET, SHORT, ProgramTest, Terminal, peak_memory

# SHA-1 of the decimal files, from programs independent of this one: (menu answers, file, {digits: sum}).
PI, E = ["1", "3"], ["1", "2"]
DECIMAL = [
    (PI, "Pi - Dec - Chudnovsky.txt", {
        100_000: "ddec8e3cd091057af4de7dd147bff14860c802e8",
        1_000_000: "ec497f9b8b0aad5fe967d0916bff266972081f50",
        10_000_000: "056fe739ad2e3b427691e4e62eef8936ce2a88e4"}),
    (PI + ["2", "1"], "Pi - Dec - Ramanujan.txt", {
        100_000: "ddec8e3cd091057af4de7dd147bff14860c802e8",
        1_000_000: "ec497f9b8b0aad5fe967d0916bff266972081f50"}),
    (E, "e - Dec - exp(1).txt", {
        100_000: "b3445a5287aa9377bb5980532c6d8d68f804c8f6",
        1_000_000: "f001945385dffa9ddacfbf750527a9311f9f89e7"}),
    (E + ["2", "1"], "e - Dec - exp(-1).txt", {
        100_000: "b3445a5287aa9377bb5980532c6d8d68f804c8f6",
        1_000_000: "f001945385dffa9ddacfbf750527a9311f9f89e7"}),
    (["1", "0", "2"], "Sqrt(2) - Dec - Newton.txt", {
        100_000: "d6db88d7e6a3fb3faeff0bf91b603c24215c4ea1",
        1_000_000: "b8119db7036ddda5623db68cc775973f81f4c288"}),
    (["1", "0", "3"], "Sqrt(3) - Dec - Newton.txt", {
        100_000: "8131463e1cef871e31fd20dd4f78f9aba45173ee",
        1_000_000: "b9bf7d51a0db326e2588ad36ab59303ee3bb6faa"}),
    (["1", "0", "9223372036854775809"], "Sqrt(9223372036854775809) - Dec - Newton.txt", {
        100_000: "372343536dd9bf6d8409316b5231fe7c6fb8b6ff",
        1_000_000: "ff943cfaed559153ca5b2cd044cc52320a3d8ca0"}),
    (["1", "1"], "Golden Ratio - Dec - Newton.txt", {
        100_000: "e9723f169e469c3b8f4dfb90bb29203f913fc1ee",
        1_000_000: "56aa94079642909dc0205c3c6f112f2a09a9ea80"}),
]

# The constants of more than one formula: (menu answers, name, {digits: sum}, short names of the algorithms).
SERIES = [
    (["1", "4", "2"], "ArcCoth(2)", {
        100_000: "c0c77b3ff49ae6ea2e48a1928a62ac59e72d0401",
        1_000_000: "dd596578a942f6fef13217a2a4bacbb55127f3a1"},
     ["Taylor"]),
    (["1", "4", "4294967295"], "ArcCoth(4294967295)", {
        100_000: "44fd74d1b60d527b87c16b305bbf39298d17748f",
        1_000_000: "cdfdace54d18b394ca9cf63db540c2316d6982c5"},
     ["Taylor"]),
    (["1", "5", "2"], "Log(2)", {
        100_000: "d15cf035aae4decac6fd7c6b771da56138540055",
        1_000_000: "ab49e7633f0a58b8f5417ae26c41ee62781da953"},
     ["Machin 1", "Machin 2"]),
    (["1", "5", "3"], "Log(3)", {
        100_000: "590530ba9086bf30d2593823bdce6435d57d2a17",
        1_000_000: "00f036f43772d9bd74c1bb20dc06f5a4906d5d4d"},
     ["Machin 1", "Machin 2"]),
    (["1", "5", "10"], "Log(10)", {
        100_000: "aa8a0425a8fb2560c27269d813c19d93f13bf137",
        1_000_000: "8411f1a56ce24711533f92e5959b0693f7ca8fc7"},
     ["Machin 1", "Machin 2"]),
    (["1", "5", "97"], "Log(97)", {
        100_000: "021e6210e071747956d0ff521ee959f167648aef",
        1_000_000: "bc8625ce56a163500fa383fe98b473b605343cba"},
     ["Machin 1", "Machin 2"]),
    (["1", "5", "2147483647"], "Log(2147483647)", {
        100_000: "c2be9e64c008768ae16ccdc97d0f0c9fcf974459",
        1_000_000: "6f8c2268276a6770f1412c6525fb18aadb8f3f91"},
     ["Machin 1", "Machin 2"]),
    (["1", "6"], "Zeta(3)", {
        100_000: "9013c3c3b1994bcb884b084c6a54ffa8e3479f18",
        1_000_000: "b14319246af13d0a2259b90c3b6b4cfe79f90d74"},
     ["Amdeberhan-Zeiberger 1", "Amdeberhan-Zeiberger 2"]),
    (["1", "7"], "Lemniscate", {
        100_000: "8807090c6140c2e86c7844cb64fe86e5f29746a4",
        1_000_000: "e7f9837445b03ad354d9920a0b518e586299b119"},
     ["Gauss", "Sebah"]),
    (["1", "8"], "Catalan", {
        100_000: "4427a84fa0c8ff3ce8a54250ed476d18b10d46e7",
        1_000_000: "133de8564f891a809b44eaa2bfe00627a291f34f"},
     ["Lupas", "Huvent"]),
    (["1", "9"], "Euler's Constant", {
        100_000: "bd754ef2afd500d0b33b8d9b113b7082fd54068b",
        1_000_000: "c6f52228344269abd8b30f7fd40d092aec753f63"},
     ["Brent-McMillan", "Brent-McMillan (Refined)"]),
]
for _answers, _name, _sums, _algorithms in SERIES:
    for _i, _algorithm in enumerate(_algorithms):
        DECIMAL.append((_answers + (["2", str(_i)] if _i else []), f"{_name} - Dec - {_algorithm}.txt", _sums))

# The same for 1,000,000 hexadecimal digits.
HEXADECIMAL = [
    (PI, "Pi - Hex - Chudnovsky.txt", "58fd919e5bf6e1ee34a98b3b27d73ed189d10ce1"),
    (E, "e - Hex - exp(1).txt", "a31ff07f88256956c9eafd944a1608c62a02900e"),
    (["1", "0", "2"], "Sqrt(2) - Hex - Newton.txt", "896f595a3e3adb928adf4dd383caa37d85084258"),
]

TOOL = os.environ["KELVANE_DIGITS"]


def sha1(path):
    with open(path, "rb") as file:
        return hashlib.sha1(file.read()).hexdigest()


def shown_bytes(text):
    """The largest number of bytes that is shown as this text, for example "322 MiB"."""
    number, unit = text.split()
    step = 10.0 ** -len(number.partition(".")[2])
    return (float(number) + step) * 1024 ** ["bytes", "KiB", "MiB", "GiB", "TiB"].index(unit)


class Report(ProgramTest):
    def test_holds_what_a_result_rests_on(self):
        self.assertEqual(self.run_program(3, 1, 5, 3, 3, 100003, 5, 3, 0).status, 0)
        names = os.listdir(self.folder)
        name = next(n for n in names if re.fullmatch(r"Log\(3\) - \d{8}-\d{6}\.txt", n))
        self.assertEqual(len(names), 3, names)  # both digit files, the report, nothing unfinished
        with open(os.path.join(self.folder, name), encoding="ascii") as file:
            report = file.read()
        with open(os.path.join(self.folder, "Log(3) - Dec - Machin 1.txt"), encoding="ascii") as file:
            digits = file.read()
        self.assertTrue(report.startswith("Kelvane v0.6.5 Build 9444b (fix 2)\n\nVersion:          0.6.5 Build 9444b"))
        for line in (r"Processor\(s\):     .+", r"Logical Cores:    \d+", "Physical Memory:  .+B", "CPU Frequency:    .+",
                     r"Instruction Set:  (sse3|avx2|avx512|avx512ifma)", r"Constant:            Log\(3\)",
                     "Algorithm:           Machin 1 - Machin-like formula of 4 terms", "Decimal Digits:      100,003",
                     "Hexadecimal Digits:  83,051", r"Precision:           5,\d+ words", "Threads:             3",
                     "Mode:                Ram Only", "Output:              text file", "Working Memory:      .+B",
                     r"Total Computation Time:             \d+\.\d+ seconds .*",
                     r"Total Time \(with output \+ verify\):  \d+\.\d+ seconds .*", "CPU Utilization:        .+ %",
                     r" +\d+\.\d+ +\d+\.\d+  Base Converting", r" +\d+\.\d+ +\d+\.\d+  Writing Decimal Digits",
                     r" +\d+\.\d+ +\d+\.\d+  Verifying Base Conversion",
                     "  " + re.escape(os.path.join(self.folder, "Log(3) - Dec - Machin 1.txt"))):
            self.assertRegex(report, "(?m)^" + line + "$")
        # The phases follow each other without a gap.
        phases = re.findall(r"(?m)^ +(\d+\.\d+) +(\d+\.\d+)  ", report)
        for (start, seconds), (next_start, _) in zip(phases, phases[1:]):
            self.assertAlmostEqual(float(start) + float(seconds), float(next_start), delta=0.0021)
        # Residue, counts and tail against the file.
        residue = 0
        for digit in digits.replace(".", ""):
            residue = (residue * 10 + int(digit)) % (2**61 - 1)
        self.assertIn(f"Decimal digits as an integer, modulo 2^61 - 1:  {residue}\n", report)
        for digit in "0123456789":
            self.assertIn(f"\n  {digit}{format(digits[2:].count(digit), ',').rjust(20)}\n", report)
        tail = report.split("Last Digits:\n")[1].split("\n\n")[0]
        self.assertEqual(re.sub(r" :.*\n?| ", "", tail).replace("\n", ""), digits[2 + 99950:])


class Digits(ProgramTest):
    def test_decimal_sums(self):
        for answers, name, sums in DECIMAL:
            for digits, expected in sums.items():
                if digits > (100_000 if SHORT else 1_000_000):
                    continue
                with self.subTest(name=name, digits=digits):
                    result = self.run_program("3", *answers, "3", digits, "0")
                    self.assertEqual(result.status, 0, result.text)
                    self.assertEqual(sha1(os.path.join(self.folder, name)), expected)

    @unittest.skipIf(SHORT, "long")
    def test_hexadecimal_sums(self):
        for answers, name, expected in HEXADECIMAL:
            with self.subTest(name=name):
                result = self.run_program("3", *answers, "3", "1000000", "4", "1000000", "0")
                self.assertEqual(result.status, 0, result.text)
                self.assertEqual(sha1(os.path.join(self.folder, name)), expected)

    @unittest.skipIf(SHORT, "long")
    def test_ten_million_digits_take_the_memory_shown(self):
        with open(os.path.join(self.folder, "output"), "wb") as output:
            status, peak = peak_memory([PROGRAM], self.folder, b"3\n3\n10000000\n0\n", output)
        self.assertEqual(status, 0)
        name, sums = DECIMAL[0][1], DECIMAL[0][2]
        self.assertEqual(sha1(os.path.join(self.folder, name)), sums[10_000_000])
        with open(os.path.join(self.folder, "output"), encoding="utf-8") as output:
            figures = re.findall(r"Memory Needed: +(?:\033\[[0-9;]*m)* *([0-9.]+ \w+)", output.read())
        self.assertLessEqual(peak * 1024, 1.03 * shown_bytes(figures[-1]))


def read_compressed(path):
    """The fields of a compressed digit file's header, and its words."""
    with open(path, "rb") as file:
        data = file.read()
    head, body = data.split(b"EndHeader\r\n\r\n\0", 1)
    magic, *entries = head.decode().split("\r\n\r\n")
    assert magic == "#Compressed Digit File", magic
    return dict(entry.split(":\t") for entry in entries if entry), struct.unpack(f"<{len(body) // 8}Q", body)


class Compressed(ProgramTest):
    DECIMAL_FILES, HEXADECIMAL_FILES = "Pi - Dec - Chudnovsky - %d.kcd", "Pi - Hex - Chudnovsky - %d.kcd"

    def joined(self, name, radix, total, per_file):
        """The digits of a set, each file read by hand and checked against the format."""
        pattern, per_word = ("%019d", 19) if radix == 10 else ("%016x", 16)
        text = ""
        files = (total - 1) // per_file + 1
        for number in range(files):
            fields, words = read_compressed(os.path.join(self.folder, name % number))
            digits = min(per_file, total - number * per_file)
            stated = 0 if digits == per_file else total
            self.assertEqual(fields, {"FileVersion": "1.1.0", "Base": str(radix), "FirstDigits": "3.",
                                      "TotalDigits": "%020d" % stated, "Blocksize": str(per_file),
                                      "BlockID": str(number)})
            self.assertEqual(len(words), (digits - 1) // per_word + 1)
            text += "".join(pattern % word for word in words)[:digits]
        self.assertFalse(os.path.exists(os.path.join(self.folder, name % files)))
        return text

    def test_one_file_and_sets_hold_the_digits_of_the_text(self):
        digits = 1_300_000 if SHORT else 10_000_000
        self.run_program("3", "3", digits, "0")
        with open(os.path.join(self.folder, DECIMAL[0][1]), encoding="ascii") as file:
            decimal = file.read()[2:]
        with open(os.path.join(self.folder, HEXADECIMAL[0][1]), encoding="ascii") as file:
            hexadecimal = file.read()[2:]
        self.assertEqual(hashlib.sha1(("3." + decimal[:1_000_000]).encode()).hexdigest(),
                         DECIMAL[0][2][1_000_000])
        formats = [(["1"], 2**64 - 1), (["2", "1000003"], 1_000_003), (["2", "1000000"], 1_000_000)]
        for format_answers, per_file in formats[:2] if SHORT else formats:
            with self.subTest(per_file=per_file):
                result = self.run_program("3", "3", digits, "7", *format_answers, "0")
                self.assertEqual(result.status, 0, result.text)
                self.assertEqual(self.joined(self.DECIMAL_FILES, 10, digits, per_file), decimal)
                self.assertEqual(self.joined(self.HEXADECIMAL_FILES, 16, len(hexadecimal), per_file), hexadecimal)
                self.assertFalse([f for f in os.listdir(self.folder) if f.endswith(".incomplete")])
                self.read_back(self.DECIMAL_FILES, decimal, 19, per_file)
                self.read_back(self.HEXADECIMAL_FILES, hexadecimal, 16, per_file)

    def read_back(self, name, digits, per_word, per_file):
        """Through the companion: everything, and ranges that begin and end at each kind of place."""
        def tool(*arguments):
            return subprocess.run([TOOL, *map(str, arguments)], cwd=self.folder, stdout=subprocess.PIPE,
                                  timeout=300, check=True).stdout.decode()

        text = DECIMAL[0][1] if per_word == 19 else HEXADECIMAL[0][1]
        self.assertIn("The same", tool("compare", "-q", text, name % 0))
        places = {0, per_word - 1, per_word, 1000 * per_word, len(digits) - 1, len(digits) // per_word * per_word}
        if per_file < len(digits):
            places |= {per_file - 1, per_file, 2 * per_file, per_file // per_word * per_word, per_file + per_word}
        for start in (place for place in places if place < len(digits)):
            for count in (1, per_word, per_word + 1, 1000):
                end = min(start + count, len(digits))
                self.assertEqual(tool("print", "-q", name % 0, start + 1, end), digits[start:end] + "\n")

    def test_too_few_digits(self):
        result = self.run_program("3", "3", "1000000", "7", "", "0")
        self.assertIn("Computation is too small for compression.\n\nPress ENTER to continue . . .", result.text)
        self.assertTrue(os.path.exists(os.path.join(self.folder, DECIMAL[0][1])))

    def test_a_full_disk_in_the_middle_of_a_set(self):
        os.symlink("/dev/full", os.path.join(self.folder, self.DECIMAL_FILES % 1))
        result = self.run_program("3", "3", "1300000", "4", "0", "7", "2", "1000000", "0")
        self.assertIn("Error Code: 28\nDisk is Full\nError writing to file.\n" + self.DECIMAL_FILES % 1, result.text)
        self.assertFalse(os.path.exists(os.path.join(self.folder, self.DECIMAL_FILES % 0)))


class Screen(ProgramTest):
    def test_the_road_of_a_computation(self):
        result = self.run_program("3", "5", "2", "3", "1000", "0")
        self.assertEqual(result.status, 0)
        text = re.sub(r"\r[^\n]*\r", "", result.text)
        order = [
            "Constant :  Pi\n", "Algorithm:  Chudnovsky Formula\n", "Decimal Digits    :   1,000\n",
            "Hexadecimal Digits:   831\n", "Threads:    2\n", "Mode   :    Ram Only\n", "Version:          ",
            "Processor(s):     ", "Logical Cores:    ", "Physical Memory:  ", "CPU Frequency:    ", "Start Time: ",
            "Reserving Working Memory...         ", "Constructing Twiddle Tables...      ",
            "Allocating I/O Buffers...           ", "Begin Computation:\n\n", "Summing Series...  75 terms\n",
            "InvSqrt...\n", "Final Multiply...\n", "Writing Hexadecimal Digits:   831  digits written\n\n",
            "Base Converting:\n", "Writing Decimal Digits:   1,000  digits written\n\n",
            "Verifying Base Conversion...", "Start Time: ", "End Time:   ",
            "Total Computation Time:             ", "Total Time (with output + verify):  ",
            "CPU Utilization:        ", "Multi-core Efficiency:  ", "Last Digits:  Pi\n",
            "5982534904 2875546873 1159562863 8823537875 9375195778 :  950\n"
            "1857780532 1712268066 1300192787 6611195909 2164201989 :  1,000\n",
        ]
        at = 0
        for piece in order:
            found = text.find(piece, at)
            self.assertNotEqual(found, -1, f"{piece!r} is missing or out of order in\n{text}")
            at = found + len(piece)
        for name in ("Pi - Dec - Chudnovsky.txt", "Pi - Hex - Chudnovsky.txt"):
            self.assertIn(os.path.join(os.path.realpath(self.folder), name), text)

    def test_the_texts_of_several_series(self):
        result = self.run_program("3", "1", "5", "2", "2", "1", "3", "1000", "0")
        self.assertIn("Generating Primary Formula...       ", result.text)
        self.assertIn("Algorithm:  Machin 2", result.text)
        self.assertRegex(result.text, r"Summing Series\.\.\.  [0-9,]+ terms\n")
        result = self.run_program("3", "1", "9", "2", "1", "3", "1000", "0")
        text = re.sub(r"\r[^\n]*\r", "", result.text)
        self.assertIn("Algorithm:  Brent-McMillan with Refinement ( n = 2^10 )\n", text)
        self.assertRegex(text, r"Summing Series A and B\.\.\.  [0-9,]+ terms\nTime: [^\n]*\n"
                               r"\nSumming Series C\.\.\.  skipped\n\nLog\(2\)\.\.\.  [0-9,]+ terms\nTime: ")

    def test_progress_shows_label_share_and_time(self):
        result = self.run_program("3", "3", "20000", "0")
        self.assertRegex(result.text, r"\rSumming: +[0-9.]+%  elapsed [0-9.]+ s")


class Trouble(ProgramTest):
    def test_a_full_disk_names_code_and_path(self):
        name = os.path.join(self.folder, "Pi - Dec - Chudnovsky.txt")
        os.symlink("/dev/full", name)
        result = self.run_program("3", "3", "50000", "0")
        self.assertIn("Exception Encountered: Generic Exception\nError Code: 28\nDisk is Full\n", result.text)
        self.assertIn("Error writing to file.", result.text)
        self.assertIn(name, result.text)
        self.assertEqual(result.status, 0)
        # What could be written has been.
        self.assertTrue(os.path.exists(os.path.join(self.folder, "Pi - Hex - Chudnovsky.txt")))

    def test_refused_settings_are_told_and_asked_again(self):
        for answers, message in (
            (["3", "99", "100", "0"], "Error: # of digits is out of range"),
            (["3", "100", "5", "0", "257", "1", "0"], "Error: # of threads is out of range"),
            (["3", "100", "6", "/proc", "0"], "Error: Unable to write to path."),
            (["3", "100", "1", "0", "4", "3", "0"], "This number is a perfect square."),
            (["3", "100", "9", "0"], "option: "),
            (["3", "100", "1", "4", "1", "2", "0"], "Error: Parameter out of range"),
            (["3", "100", "1", "4", "4294967296", "4294967295", "0"], "Error: Parameter out of range"),
            (["3", "100", "1", "5", "2147483648", "97", "0"], "Error: Parameter out of range"),
        ):
            with self.subTest(message=message):
                result = self.run_program("3", *answers)
                self.assertIn(message, result.text)
                self.assertEqual(result.status, 0)
                self.assertIn("Last Digits:", result.text)

    def test_control_c_while_it_computes(self):
        with Terminal(self.folder) as terminal:
            for answer in ("3\n", "3\n", "20000000\n", "0\n"):
                terminal.expect(": ")
                terminal.send(answer)
            terminal.expect("Summing: ")
            terminal.kill(signal.SIGINT)
            status, rest = terminal.wait()
        self.assertEqual(status, 130)
        self.assertIn(RESET, rest)
        self.assertFalse([f for f in os.listdir(self.folder) if f.startswith("Pi - Dec")])


if __name__ == "__main__":
    unittest.main()
