"""The start of the program, its menus and its ends."""

import os
import signal
import subprocess
import unittest

from session import PROGRAM, RESET, SIGNALS_WAIT, ProgramTest, Terminal, plain

INPUT_ENDED = "Standard input has ended and an answer is needed.\n"

MENU = """\
  0         Benchmark Pi  (all in ram)
  1         Component Stress Tester
  2         Run I/O Performance Analysis

  3         Custom Compute a Constant
                -   Compute other constants (e, Golden Ratio, etc...)
                -   Choose your own settings (use disk for large computations)

  4         Benchmark Validator
  5         Advanced Options

  6         About
  7         A Word of Warning...


Enter your choice:
option: """

DISCLAIMER = """\
Disclaimer:
This software is provided "as is", without any guarantee made to its
suitability or fitness for any particular use. It may contain bugs so use
of this program is at your own risk. I take no responsibility for any
damage that may unintentionally be caused through its use.
"""

WARNING = """\
A Word of Warning...

Performing large multi-threaded computations using this program may
subject your computer to extremely high levels of stress for extended
periods of time. To protect your computer, MAKE SURE that your hardware
is stable and fit before performing large computations. I will take
absolutely no responsibility for any damage that may be caused by this
program.
"""


class Start(ProgramTest):
    def test_checks_banner_and_menu(self):
        result = self.run_program(6)
        self.assertEqual(result.status, 0)
        self.assertTrue(
            result.text.startswith(
                "\n\nChecking processor/OS features...\n\nRequired Features:\n    x64, SSE, SSE2, SSE3\n\n"
            )
        )
        self.assertIn("\n\n\nKelvane v0.6.5 Build 9444b (fix 2)       (", result.text)
        self.assertIn("\n\nDistribute Freely - Please Report any Bugs\n\nVersion: x64 SSE3 - Linux ~ ", result.text)
        self.assertIn(MENU, result.text)
        self.assertIn("\033[01;36m  0         Benchmark", result.raw)
        self.assertIn("\033[01;33m  3         Custom", result.raw)
        self.assertIn("\033[22;36m  7         A Word", result.raw)
        self.assertTrue(result.raw.endswith(RESET + "\n\n"), repr(result.raw[-40:]))

    def test_unfinished_computation_is_kept(self):
        path = os.path.join(self.folder, "Kelvane Checkpoint File.txt")
        with open(path, "w", encoding="ascii") as file:
            file.write("state")
        result = self.run_program("", 6)
        self.assertIn("An unfinished computation has been found. Resuming is not built yet; its file is kept.", result.text)
        self.assertIn("Press ENTER to continue . . .", result.text)
        self.assertIn(MENU, result.text)
        with open(path, encoding="ascii") as file:
            self.assertEqual(file.read(), "state")


class MainMenu(ProgramTest):
    def test_screens(self):
        about = self.run_program(6).text
        self.assertIn("\nKelvane - Euler's Constant to the eXtReMe\nVersion: 0.6.5 Build 9444b (fix 2) (", about)
        self.assertTrue(about.endswith(DISCLAIMER + "\n\n"))
        self.assertTrue(self.run_program(7).text.endswith(WARNING + "\n" + DISCLAIMER + "\n\n"))

    def test_answers_out_of_range_prompt_again(self):
        result = self.run_program(8, 99, 6)
        self.assertEqual(result.status, 0)
        self.assertIn("option: option: option: \n", result.text)

    def test_end_of_input(self):
        for answers in ([], [8], ["3", "5"]):
            result = self.run_program(*answers)
            self.assertEqual(result.status, 1, answers)
            self.assertIn(INPUT_ENDED, result.text)
            self.assertTrue(result.raw.endswith(RESET), repr(result.raw[-40:]))

    def test_what_is_not_built_says_so(self):
        result = self.run_program(2)
        self.assertEqual(result.status, 0)
        self.assertIn(" is not built yet.\n", result.text.split("option: ")[1])

    def test_advanced_options(self):
        result = self.run_program(5, 3, 1)
        self.assertIn(
            "Advanced Options\n\n  0         Log(n) Formula Generator\n  1         Hardware Features\n"
            "  2         Compilation Options\n\noption: option: \n\nCPU Vendor:\n    AMD         = ",
            result.text,
        )
        for label in ("  * 64-bit      = Yes\n", "  * x64         = Yes\n", "  * SSE3        = Yes\n"):
            self.assertIn(label, result.text)
        lines = result.text.split("CPU Vendor:\n")[1].split("\n")
        self.assertEqual(sum(" = Yes" in line or " = No" in line for line in lines), 24)

    def test_log_formulas(self):
        result = self.run_program(5, 0, 1, 40)
        self.assertEqual(result.status, 0)
        lines = result.text.split("Limit: Limit: \n")[1].split("\n")
        self.assertEqual(lines[0], "7.1937931\tLog[2] = 18*ArcCoth[26] - 2*ArcCoth[4801] + 8*ArcCoth[8749]")
        formulas = [line for line in lines if "\tLog[" in line]
        self.assertEqual(len(formulas), 2 * 39)
        self.assertIn("\tLog[40] = ", formulas[-1])
        self.assertEqual(self.run_program(5, 0).status, 1)  # no limit


class Settings(ProgramTest):
    def test_a_session(self):
        result = self.run_program(3, 3, 99, 1234567, 5, 257, 3, 4, 0, 6, "/no/such/folder", 6, self.folder, 9)
        self.assertEqual(result.status, 1)  # the input ends before anything is started
        screens = result.text.split("Custom Compute a Constant\n\nCurrent Settings: ")[1:]
        self.assertIn("  1     Constant:    Pi\n  2     Algorithm:   Chudnovsky Formula\n\n", screens[0])
        self.assertIn("  3     Decimal Digits:        50,000,000\n  4     Hexadecimal Digits:    41,524,102\n", screens[0])
        self.assertIn("\nError: # of digits is out of range\n", screens[0])
        self.assertIn("  3     Decimal Digits:        1,234,567\n  4     Hexadecimal Digits:    1,025,286\n", screens[1])
        self.assertIn("\nError: # of threads is out of range\n", screens[1])
        self.assertIn("  5     Multi-Threading:   3 threads\n", screens[2])
        self.assertIn("  4     Hexadecimal Digits:    Disabled\n", screens[3])
        self.assertIn("\nError: Unable to write to path.\n", screens[3])
        self.assertIn("  6     Write Digits To:   Default Path\n", screens[4])
        self.assertIn("  6     Write Digits To:   " + self.folder + "\n", screens[5])
        self.assertEqual(os.listdir(self.folder), [])

    def test_folder_names_outside_ascii(self):
        folder = os.path.join(self.folder, "zähl €")
        os.mkdir(folder)
        for language in ("C", "C.UTF-8"):
            result = self.run_program(3, 6, folder, environment={"LC_ALL": language})
            self.assertIn("  6     Write Digits To:   " + folder + "\n", result.text)
        strange = os.fsencode(self.folder) + b"/latin1 \xe4"
        os.mkdir(strange)
        result = self.run_program(3, 6, strange + b"\n")
        self.assertIn("  6     Write Digits To:   " + self.folder + "/latin1 ?\n", result.text)


class Endings(ProgramTest):
    @unittest.skipIf(SIGNALS_WAIT, "signals wait for the next call")
    def test_interrupt_at_a_terminal(self):
        with Terminal(self.folder) as terminal:
            terminal.expect("option: ")
            terminal.send("\x03")
            status, rest = terminal.wait()
            self.assertEqual(status, 130)
            self.assertTrue(rest.endswith("\r\n" + RESET), repr(rest))

    @unittest.skipIf(SIGNALS_WAIT, "signals wait for the next call")
    def test_requests_to_end(self):
        for number, expected in ((signal.SIGTERM, 143), (signal.SIGHUP, 129)):
            with Terminal(self.folder) as terminal:
                terminal.expect("option: ")
                terminal.kill(number)
                status, rest = terminal.wait()
                self.assertEqual(status, expected)
                self.assertTrue(rest.endswith(RESET), repr(rest))

    def test_end_of_input_at_a_terminal(self):
        with Terminal(self.folder) as terminal:
            terminal.expect("option: ")
            terminal.send("\x04")
            status, rest = terminal.wait()
            self.assertEqual(status, 1)
            self.assertIn("Standard input has ended", rest)

    def test_answers_at_a_terminal(self):
        with Terminal(self.folder) as terminal:
            terminal.expect("option: ")
            terminal.send("9\n")
            terminal.expect("option: ")
            terminal.send("7\n")
            status, rest = terminal.wait()
            self.assertEqual(status, 0)
            self.assertIn(WARNING, plain(rest).replace("\r\n", "\n"))

    def test_output_that_cannot_be_written(self):
        with open("/dev/full", "w", encoding="ascii") as full:
            self.assertEqual(self.run_program(6, stdout=full, timeout=30).status, 0)
            self.assertEqual(self.run_program(stdout=full, timeout=30).status, 1)
        program = subprocess.Popen([PROGRAM], stdin=subprocess.PIPE, stdout=subprocess.PIPE, cwd=self.folder)
        program.stdout.read(10)
        program.stdout.close()  # the reader goes away
        program.stdin.write(b"7\n")
        program.stdin.close()
        self.assertEqual(program.wait(30), -signal.SIGPIPE)


if __name__ == "__main__":
    unittest.main()
