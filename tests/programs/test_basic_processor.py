"""One program for every x86-64 processor with SSE3: what it is made of, and how it does on such a processor.

What needs more lies in object files of its own, whose names say what, and is reached after the processor has been
asked. So no other object file may hold such an instruction; and none of those may offer the linker a function
that is no kernel, such as a copy of an inline function of the standard library, which others would then use.

The second part runs the programs under an emulator of a processor with SSE3 and nothing above it.
"""

import hashlib
import os
import re
import shutil
import subprocess
import unittest

from session import PROGRAM, SHORT, ProgramTest, plain

LIBRARY = os.environ["KELVANE_LIBRARY"]
MULTIPLY_TEST = os.environ["KELVANE_MULTIPLY_TEST"]
SANITIZER = os.environ.get("KELVANE_SANITIZER")
EMULATOR = "qemu-x86_64"
PROCESSOR = "kvm64-v1"  # SSE3, cmpxchg16b; no SSSE3, SSE4, POPCNT, AVX, BMI

KERNEL_FILE = re.compile(r"_(avx2|avx512|avx512ifma|adx|sha)\.cpp\.o$")
PREFIXES = {"lock", "rep", "repz", "repnz", "bnd", "notrack", "cs", "ds", "data16", "addr32"}
# Whatever begins with v or with k and is no name below has a VEX or EVEX prefix, but for these.
NO_VECTORS = {"verr", "verw"}
# tzcnt is not among them: older processors run it as bsf, and compilers write it where the two agree.
BEYOND_SSE3 = {
    # BMI, ADX, POPCNT and their like
    "andn", "bextr", "blsi", "blsmsk", "blsr", "bzhi", "lzcnt", "mulx", "pdep", "pext", "rorx", "sarx", "shlx", "shrx",
    "adcx", "adox", "popcnt", "movbe", "crc32", "rdrand", "rdseed",
    # SSSE3
    "pabsb", "pabsw", "pabsd", "palignr", "phaddw", "phaddd", "phaddsw", "phsubw", "phsubd", "phsubsw", "pmaddubsw",
    "pmulhrsw", "pshufb", "psignb", "psignw", "psignd",
    # SSE4
    "blendpd", "blendps", "blendvpd", "blendvps", "dppd", "dpps", "extractps", "extrq", "insertps", "insertq",
    "movntdqa", "movntsd", "movntss", "mpsadbw", "packusdw", "pblendvb", "pblendw", "pcmpeqq", "pcmpestri",
    "pcmpestrm", "pcmpgtq", "pcmpistri", "pcmpistrm", "pextrb", "pextrd", "pextrq", "phminposuw", "pinsrb", "pinsrd",
    "pinsrq", "pmaxsb", "pmaxsd", "pmaxud", "pmaxuw", "pminsb", "pminsd", "pminud", "pminuw", "pmovsxbd", "pmovsxbq",
    "pmovsxbw", "pmovsxdq", "pmovsxwd", "pmovsxwq", "pmovzxbd", "pmovzxbq", "pmovzxbw", "pmovzxdq", "pmovzxwd",
    "pmovzxwq", "pmuldq", "pmulld", "ptest", "roundpd", "roundps", "roundsd", "roundss",
    # AES, SHA
    "aesdec", "aesdeclast", "aesenc", "aesenclast", "aesimc", "aeskeygenassist", "pclmulqdq", "sha1msg1", "sha1msg2",
    "sha1nexte", "sha1rnds4", "sha256msg1", "sha256msg2", "sha256rnds2",
}


def beyond_sse3(mnemonic):
    if mnemonic[0] in "vk":
        return mnemonic not in NO_VECTORS
    return mnemonic in BEYOND_SSE3 or mnemonic.rstrip("lq") in BEYOND_SSE3


def instructions(path):
    """Every instruction beyond SSE3 of a library or program: (file, function, line), and all files' names."""
    lines = subprocess.run(["objdump", "-d", "--no-show-raw-insn", path], capture_output=True, text=True,
                           check=True).stdout.splitlines()
    found, files, function = [], [], ""
    for line in lines:
        if not line.startswith(" "):
            if "file format" in line:
                files.append(line.split(":")[0])
            elif line.endswith(">:"):
                function = line[line.index("<") + 1 : -2]
            continue
        parts = line.split("\t")
        mnemonics = [m for m in parts[1].split() if m not in PREFIXES] if len(parts) > 1 else []
        if mnemonics and beyond_sse3(mnemonics[0]):
            found.append((files[-1], function, line.strip()))
    return found, files


def symbols(path):
    """(file, kind, name) of every symbol that is defined."""
    lines = subprocess.run(["nm", "-A", "--defined-only", path], capture_output=True, text=True, check=True).stdout
    for line in lines.splitlines():
        file, rest = line.rsplit(":", 1) if "::" not in line else line.split(": ", 1)
        fields = rest.split()
        yield file.split(":")[1] if ":" in file else file, fields[-2], fields[-1]


@unittest.skipIf(shutil.which("objdump") is None, "objdump is not installed")
@unittest.skipIf(SANITIZER, "sanitizers add functions of their own")
class LinkedCode(unittest.TestCase):
    def test_instructions_beyond_sse3_lie_in_files_that_say_so(self):
        found, files = instructions(LIBRARY)
        kernels = {file for file in files if KERNEL_FILE.search(file)}
        self.assertGreater(len(kernels), 5)
        self.assertGreater(len(files), 100)
        self.assertEqual([entry for entry in found if entry[0] not in kernels][:10], [])
        # The search finds what there is to find.
        self.assertEqual(kernels, {file for file, _, _ in found})

        # What these files define for others are kernels, each under a name that no other file defines.
        local, shared, others = set(), [], set()
        for file, kind, name in symbols(LIBRARY):
            if file not in kernels:
                others.add(name)
            elif kind in "WVu":
                shared.append((file, name))
            elif kind in "tT":
                local.add(name)
        self.assertEqual(shared, [])

        # In the program such instructions lie in those files' functions alone.
        found, _ = instructions(PROGRAM)
        self.assertGreater(len(found), 1000)
        strange = {function for _, function, _ in found if function not in local}
        self.assertEqual(strange, set())
        self.assertEqual({function for _, function, _ in found} & others, set())


def pi_digits(count):
    """Pi, cut, by Machin's formula in plain integers."""
    def arccot(x, unit):
        total, term, k = 0, unit // x, 1
        while term:
            total += term // k if k % 4 == 1 else -(term // k)
            term, k = term // (x * x), k + 2
        return total

    unit = 10 ** (count + 10)
    digits = str(4 * (4 * arccot(5, unit) - arccot(239, unit)) // 10**10)
    return digits[0] + "." + digits[1:]


@unittest.skipIf(shutil.which(EMULATOR) is None, EMULATOR + " (Debian: qemu-user) is not installed")
@unittest.skipIf(SANITIZER, "sanitizers reserve more addresses than the emulator has")
class BasicProcessor(ProgramTest):
    def emulate(self, *command, answers=()):
        done = subprocess.run([EMULATOR, "-cpu", PROCESSOR, *command], cwd=self.folder, timeout=300,
                              input="".join(f"{answer}\n" for answer in answers).encode(),
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        return done.returncode, plain(done.stdout.decode("utf-8", "replace"))

    def test_menu_and_features(self):
        status, text = self.emulate(PROGRAM, answers=["5", "1"])
        self.assertEqual(status, 0)
        self.assertIn("Enter your choice:\n", text)
        self.assertIn("  * SSE3        = Yes\n", text)
        for label in ("BMI1  ", "BMI2  ", "ADX   ", "SSSE3 ", "SSE4.1", "AVX   ", "FMA3  ", "AVX2  "):
            self.assertRegex(text, r"\b" + re.escape(label) + r" *= No\n")

    def test_digits_of_pi(self):
        for count in (1000,) if SHORT else (1000, 100_000):
            status, text = self.emulate(PROGRAM, answers=["3", "1", "3", "3", count, "0"])
            self.assertEqual(status, 0, text)
            with open(os.path.join(self.folder, "Pi - Dec - Chudnovsky.txt")) as file:
                digits = file.read()
            if count == 1000:
                self.assertEqual(digits, pi_digits(count))
            else:
                self.assertEqual(hashlib.sha1(digits.encode()).hexdigest(),
                                 "ddec8e3cd091057af4de7dd147bff14860c802e8")

    def test_products(self):
        tests = "Basecase.*:Products.OverTheOperands:HntProducts.WrappedProducts:HntProducts.TransformsAreValues"
        status, text = self.emulate("-E", "KELVANE_SHORT=1", MULTIPLY_TEST, "--gtest_filter=" + tests)
        self.assertEqual(status, 0, text)
        self.assertIn("[  PASSED  ] 4 tests.", text)


if __name__ == "__main__":
    unittest.main()
