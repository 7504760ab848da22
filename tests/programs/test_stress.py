"""The component stress tester: its menu, a short run, its end."""

import re
import signal
import unittest

from session import RESET, SIGNALS_WAIT, ProgramTest, Terminal, plain

MENU = """
Component Stress Tester

Enter # to change option:

   1  Memory:  {memory}
   2  Threads:    {threads}
   3  Time per Test:  {seconds} seconds

   #  Algorithm to Test               Primary Components      Enable Test?
   4  BKT (Basic Multiplication)      CPU: Integer            {tests[0]}
   5  FFT (Fast Fourier Transform)    Memory                  {tests[1]}
   6  HNT (Hybrid NTT)                CPU + Cache + Memory    {tests[2]}
   7  VST (Vector Transform)          CPU: Floating-Point     {tests[3]}
   8  Enable All
   9  Disable All
{start}

option: """


def menu(memory, threads, seconds, tests):
    names = ["Enabled" if c == "+" else "Disabled" for c in tests]
    start = "   0  Start Stress-Testing!" if "+" in tests else "      You must select at least one test."
    return MENU.format(memory=memory, threads=threads, seconds=seconds, tests=names, start=start)


class StressMenu(ProgramTest):
    def screens(self, *answers):
        """The screens of a session that the end of the input closes."""
        result = self.run_program(1, *answers)
        self.assertEqual(result.status, 1)
        screens = result.text.split("option: \n", 1)[1].split("\nComponent Stress Tester\n")
        return ["\nComponent Stress Tester\n" + screen for screen in screens[1:]]

    def test_settings(self):
        screens = self.screens(1, "768MB", 2, 3, 3, 45, 4, 7, 9, 0, 5, 8)
        states = [
            ("768 MiB", "?", 120, "++++"),
            ("768 MiB", 3, 120, "++++"),
            ("768 MiB", 3, 45, "++++"),
            ("768 MiB", 3, 45, "-+++"),
            ("768 MiB", 3, 45, "-++-"),
            ("768 MiB", 3, 45, "----"),
            ("768 MiB", 3, 45, "----"),  # 0 starts nothing
            ("768 MiB", 3, 45, "-+--"),
            ("768 MiB", 3, 45, "++++"),
        ]
        self.assertEqual(len(screens), len(states) + 1)
        self.assertRegex(screens[0], r"   1  Memory:   ?[0-9.]+ [KMGT]iB\n   2  Threads:    [0-9]+\n   3  Time per Test:  120 ")
        self.assertTrue(screens[0].endswith("Enter a memory limit: (e.g. 768MB, 2.5GB, etc...)\nbytes = "), screens[0])
        self.assertTrue(screens[1].endswith("option: Threads = "))
        self.assertTrue(screens[2].endswith("option: Time (seconds) = "))
        for screen, (memory, threads, seconds, tests) in zip(screens[1:], states):
            threads = re.search(r"Threads:    (.*)", screen).group(1) if threads == "?" else threads
            expected = menu(" " + memory, threads, seconds, tests)
            self.assertEqual(screen[: len(expected)], expected)

    def test_wrong_answers(self):
        screens = self.screens(10, 1, "none", "0", "2GB", 2, 0, 257, 256, 3, 0, 1)
        self.assertEqual(screens[0].split("option: ")[1], "")  # shown again
        self.assertEqual(screens[1].split("option: ")[1].count("\nbytes = "), 3)
        self.assertIn("   1  Memory:  2.00 GiB\n", screens[2])
        self.assertEqual(screens[2].split("option: ")[1], "Threads = " * 3)
        self.assertIn("   2  Threads:    256\n", screens[3])
        self.assertEqual(screens[3].split("option: ")[1], "Time (seconds) = " * 2)
        self.assertIn("   3  Time per Test:  1 seconds\n", screens[4])

    def test_colours(self):
        raw = self.run_program(1, 4).raw
        self.assertIn("\033[01;32mEnabled\n", raw)
        self.assertIn("\033[01;31mDisabled\n", raw)

    def test_end_of_input_at_every_prompt(self):
        for answers in ([], [1], [2], [3]):
            result = self.run_program(1, *answers)
            self.assertEqual(result.status, 1)
            self.assertIn("Standard input has ended", result.text)
            self.assertTrue(result.raw.endswith(RESET))

    def test_memory_that_holds_nothing(self):
        result = self.run_program(1, 1, "100", 2, 1, 3, 1, 0)
        self.assertEqual(result.status, 0)
        self.assertIn("Iteration: 1  Total Elapsed Time: ", result.text)
        self.assertEqual(result.text.count("Insufficient memory to run this test.\n"), 4)

    @unittest.skipIf(SIGNALS_WAIT, "signals wait for the next call")
    def test_a_run_ended_by_the_user(self):
        for number, status in ((signal.SIGINT, 0), (signal.SIGTERM, 143)):
            with Terminal(self.folder) as terminal:
                for answer in ("1", "1", "128MB", "3", "1", "5", "6", "7", "0"):
                    terminal.send(answer + "\n")
                terminal.expect("Starting Continuous Stress-Test...")
                terminal.expect("Test: ")
                terminal.expect("Passed")
                terminal.expect("Iteration: ")
                terminal.kill(number)
                ended, rest = terminal.wait()
                self.assertEqual(ended, status)
                text = plain(rest).replace("\r\n", "\n")
                self.assertRegex(
                    text, r"\n\nStress-Test ended:\n    Iterations:  [0-9,]+\n    Products:    [0-9,]+\n    Failures:    0\n"
                )
                self.assertTrue(rest.endswith(RESET + "\r\n"), repr(rest))


if __name__ == "__main__":
    unittest.main()
