"""The Pi benchmark, its validation file and the validator, at the smallest size."""

import os
import re
import subprocess
import unittest

from session import ProgramTest, Terminal, plain

INPUT_ENDED = "Standard input has ended and an answer is needed.\n"
MANY = os.sysconf("SC_NPROCESSORS_ONLN") > 1
SINGLE, MULTI = (["0"], ["1"]) if MANY else ([], [])
VALID = "This validation file is valid: it is as the benchmark wrote it.\nIts digits are those of the stored reference.\n"
DIGITS = 1 << 20


class Benchmark(ProgramTest):
    def benchmark(self, *answers, **options):
        result = self.run_program(0, *answers, **options)
        self.assertEqual(result.status, 0, result.text)
        return result

    def validation_file(self):
        names = [name for name in os.listdir(self.folder) if name.endswith("Validation.txt")]
        self.assertEqual(len(names), 1, names)
        self.assertEqual(os.listdir(self.folder), names)  # no digits, no report, nothing unfinished
        return names[0]

    def check(self, type_answers, threads):
        result = self.benchmark(*type_answers, 0, 20)
        self.assertIn("Decimal Digits    :   1,048,576\nHexadecimal Digits:   Disabled\n", result.text)
        self.assertIn(f"Threads:    {threads}\n", result.text)
        self.assertIn("Benchmark Result:   Match: the digits are those of the stored reference.\n", result.text)
        self.assertIn(": they agree\n", result.text)
        for label in ("Version:          ", "Processor(s):     ", "Logical Cores:    ", "Physical Memory:  "):
            self.assertIn("\n" + label, result.text)
        name = self.validation_file()
        self.assertIn(f"Validation File:    {self.folder}/{name}\n", result.text)
        with open(os.path.join(self.folder, name), encoding="ascii") as file:
            text = file.read()
        self.assertIn(f"\nThreads:             {threads}\n", text)

        read = self.run_program(4, name)
        self.assertEqual(read.status, 0)
        self.assertIn("Benchmark Validator\n\nEnter the path of a validation file.\n\nPath: \n" + text + "\n" + VALID, read.text)
        return name, text

    def test_single_threaded(self):
        name, text = self.check(SINGLE, 1)
        path = os.path.join(self.folder, name)
        time = re.search(r"Total Computation Time: +\d\.(\d)", text)
        faster = text[: time.start(1)] + ("1" if time[1] == "0" else "0") + text[time.end(1) :]
        for changed in (faster, text.replace("Cores:    ", "Cores:    1"), text.replace("\n", "\r\n"), text + "\n", text[:-1]):
            with open(path, "w", encoding="ascii", newline="") as file:
                file.write(changed)
            read = self.run_program(4, path).text
            self.assertIn("This validation file has been altered.\n", read)
            self.assertNotIn("validation file is valid", read)

    def test_multi_threaded(self):
        self.check(MULTI, os.sysconf("SC_NPROCESSORS_ONLN"))

    def test_wrong_answers(self):
        wrong = ["2", "0"] if MANY else []
        result = self.benchmark(*wrong, 10, 99, 0, 19, 30, 20)
        self.assertEqual(result.text.count("option: "), 1 + len(wrong) + 3 + 3)
        self.assertIn("Threads:    1\n", result.text)
        self.assertIn("Match: ", result.text)

    def test_end_of_input(self):
        sessions = [[0], [0, *SINGLE], [0, *SINGLE, 0], [0, *SINGLE, 0, 19], [0, *SINGLE, 77], [4]]
        if MANY:
            sessions.append([0, 2])
        for answers in sessions:
            result = self.run_program(*answers)
            self.assertEqual(result.status, 1, answers)
            self.assertIn(INPUT_ENDED, result.text)
        self.assertEqual(os.listdir(self.folder), [])

    def test_folder_that_takes_no_file(self):
        result = self.benchmark(*SINGLE, 0, 20, "", folder="/proc")
        self.assertIn("Warning: The validation file cannot be written to the working directory.\n", result.text)
        head, text = result.text.split("The validation file could not be written. This is its text:\n\n")
        self.assertIn("Benchmark Result:   Match: ", head)
        # The text can be copied from the screen.
        path = os.path.join(self.folder, "copied")
        with open(path, "w", encoding="ascii") as file:
            file.write(text[: text.index("Checksum:")] + re.search("Checksum:.*\n", text)[0])
        self.assertIn(VALID, self.run_program(4, path).text)

    def test_validator_at_a_terminal(self):
        with Terminal(self.folder) as terminal:
            terminal.expect("option: ")
            terminal.send("4\n")
            terminal.expect("Path: ")
            terminal.send("nothing here\n")
            status, rest = terminal.wait()
            self.assertEqual(status, 0)
            self.assertIn("This validation file cannot be read.\n", plain(rest).replace("\r\n", "\n"))


class References(ProgramTest):
    """The table's rows are what its generator makes of the digits of two formulas."""

    def test_rows(self):
        generator = os.environ["KELVANE_REFERENCES"]
        files = []
        for algorithm, name in ((0, "Chudnovsky"), (1, "Ramanujan")):
            result = self.run_program(3, 2, algorithm, 3, DIGITS, 4, 0, 0)
            self.assertEqual(result.status, 0, result.text)
            files.append(f"Pi - Dec - {name}.txt")
        table = os.path.join(os.path.dirname(__file__), "../../src/benchmark/reference_results.inc")
        with open(table, encoding="ascii") as file:
            row = file.readline().strip()

        def rows(*arguments):
            return subprocess.run([generator, *arguments], cwd=self.folder, capture_output=True, text=True, check=False)

        both = rows(*files)
        self.assertEqual(both.stdout.strip(), row)
        # 10^6 digits are vouched for by their sum, the rest by nothing.
        self.assertEqual((rows(files[0]).stdout, rows(files[0]).returncode), ("", 0))
        with open(os.path.join(self.folder, files[1]), "r+b") as file:
            file.seek(DIGITS)
            file.write(b"x")
        self.assertEqual((rows(*files).stdout, rows(*files).returncode), ("", 0))
        with open(os.path.join(self.folder, files[0]), "r+b") as file:
            file.seek(1000)
            file.write(b"x")
        self.assertEqual((rows(*files).stdout, rows(*files).returncode), ("", 1))


if __name__ == "__main__":
    unittest.main()
