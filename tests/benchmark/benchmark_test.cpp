// The benchmark's screens, its stored results, what it says of a run, and the files it writes and judges.

#include <gtest/gtest.h>
#include <mpfr.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <unistd.h>

#include "arithmetic/words/residue.h"
#include "benchmark/benchmark_menu.h"
#include "benchmark/pi_benchmark.h"
#include "benchmark/validation_file.h"
#include "benchmark/validator.h"
#include "companion/analysis.h"
#include "shell/console.h"
#include "shell/memory_files.h"
#include "support/golden.h"
#include "support/short.h"

namespace kelvane {
namespace {

// Pi to `digits` digits after the point, cut off, without the point.
std::string pi_digits(u64 digits) {
  mpfr_t pi;
  mpfr_init2(pi, static_cast<mpfr_prec_t>(static_cast<double>(digits) * 3.3219280949 + 64));
  mpfr_const_pi(pi, MPFR_RNDZ);
  mpfr_exp_t exponent = 0;
  char* text = mpfr_get_str(nullptr, &exponent, 10, digits + 11, pi, MPFR_RNDZ);
  const std::string result(text, digits + 1);
  mpfr_free_str(text);
  mpfr_clear(pi);
  return result;
}

u64 residue_of(const std::string& digits) {
  companion::DigitResidue residue(10);
  residue.add(digits.data(), digits.size());
  return residue.value();
}

TEST(References, AreThoseOfAnotherProgram) {
  const u64 most = u64{1} << (short_run() ? 20 : 22);
  const std::string digits = pi_digits(most);
  for (u64 size = u64{1} << 20; size <= most; size *= 2) {
    const ReferenceResult* const reference = reference_result(size);
    ASSERT_NE(reference, nullptr) << size;
    const std::string begin = digits.substr(0, size + 1);
    EXPECT_EQ(reference->hash, residue_of(begin)) << size;
    EXPECT_EQ(reference->last_digits, begin.substr(begin.size() - 50)) << size;
  }
}

TEST(References, AreWholeForTheSizesOffered) {
  const auto check = [](u64 digits) {
    const ReferenceResult* const reference = reference_result(digits);
    ASSERT_NE(reference, nullptr) << digits;
    EXPECT_LT(reference->hash, residue::P) << digits;
    EXPECT_EQ(std::string(reference->last_digits).find_first_not_of("0123456789"), std::string::npos);
    EXPECT_EQ(std::string(reference->last_digits).size(), 50u) << digits;
  };
  for (u64 k = FIRST_POWER_SIZE; k <= last_power_size(); k++) check(u64{1} << k);
  for (const u64* size = BENCHMARK_SIZES; *size != 0 && *size <= 1'000'000'000; size++) check(*size);
  EXPECT_EQ(reference_result(u64{1} << (last_power_size() + 1)), nullptr);
  EXPECT_EQ(reference_result(10'000'000'000), nullptr);
}

TEST(BenchmarkMenu, Screens) {
  BenchmarkMachine machine = {8, u64{1} << 30, [](u64 digits, u64 threads) { return 7 * digits + threads; }};
  const auto choose = [&] {
    const BenchmarkChoice choice = choose_benchmark(machine);
    Console::print("-> " + std::to_string(choice.digits) + " " + std::to_string(choice.threads) + "\n");
  };
  // Answers out of range are asked again: type 2, size 10, powers 19 and 30.
  expect_screen("benchmark_powers.txt", choose, "2\n1\n10\n0\n19\n30\n25\n");
  machine.available_memory = 0; // unknown: nothing is shown as too large
  expect_screen("benchmark_sizes.txt", choose, "0\n7\n");
  // One processor: no type is asked.
  machine.processors = 1;
  const Captured one = capture(choose, "1\n");
  EXPECT_EQ(one.output.find("Benchmark Type"), std::string::npos);
  EXPECT_NE(one.output.find("-> 25000000 1\n"), std::string::npos) << one.output;
  machine.processors = 257;
  const Captured many = capture(choose, "1\n");
  EXPECT_EQ(many.status, 1);
  EXPECT_NE(many.output.find("# of threads is out of range"), std::string::npos) << many.output;
}

TEST(ClockCheck, Tolerance) {
  static double day, monotonic;
  const ClockSource source = {[] { return monotonic; }, [] { return day; }};
  const struct {
    double monotonic, day;
    bool agree;
  } cases[] = {{0, 0, true},         {1, 1.04, true},      {1, 0.96, true},    {1, 1.06, false},
               {10000, 10009, true}, {10000, 9989, false}, {10, -3600, false}, {100, 90, false}};
  for (const auto& c : cases) {
    monotonic = 5000, day = 1.7e9;
    ClockCheck check(source);
    monotonic += c.monotonic, day += c.day;
    check.stop();
    EXPECT_EQ(check.agree(), c.agree) << c.monotonic << " " << c.day;
  }
}

// A short benchmark in a child process whose sources a test can spoil; the file is printed at the end.
constexpr u64 DIGITS = 5000;
const std::string& oracle() {
  static const std::string digits = pi_digits(DIGITS);
  return digits;
}
const ReferenceResult* right_reference(u64) {
  static const std::string last = oracle().substr(DIGITS + 1 - 50);
  static const ReferenceResult reference = {DIGITS, residue_of(oracle()), last.c_str()};
  return &reference;
}
const ReferenceResult* wrong_residue(u64) {
  static ReferenceResult reference = *right_reference(0);
  reference.hash = right_reference(0)->hash ^ 1;
  return &reference;
}
const ReferenceResult* wrong_last_digits(u64) {
  static std::string last = right_reference(0)->last_digits;
  last.back() = last.back() == '0' ? '1' : '0';
  static ReferenceResult reference = *right_reference(0);
  reference.last_digits = last.c_str();
  return &reference;
}

constexpr char FILE_MARK[] = "\n*** the file\n";

Captured benchmark(BenchmarkSources sources, test::MemoryFiles files = {}) {
  return capture([&] {
    sources.files = &files;
    run_benchmark(DIGITS, 3, sources);
    for (const auto& [name, text] : files.contents()) Console::print(FILE_MARK + text);
  });
}
std::string file_of(const Captured& run) {
  const size_t at = run.output.find(FILE_MARK);
  return at == std::string::npos ? "" : run.output.substr(at + sizeof FILE_MARK - 1);
}
BenchmarkSources sources_with(const ReferenceResult* (*reference)(u64)) {
  BenchmarkSources sources;
  sources.reference = reference;
  return sources;
}

TEST(Benchmark, SaysWhetherTheDigitsAreRight) {
  const struct {
    const ReferenceResult* (*reference)(u64);
    const char* text;
  } cases[] = {{right_reference, "Match: the digits are those of the stored reference.\n"},
               {wrong_residue, "MISMATCH: the digits are not those of the stored reference.\n"},
               {wrong_last_digits, "MISMATCH: the digits are not those of the stored reference.\n"},
               {reference_result, "No reference: no result of this size is stored to compare with.\n"}};
  for (const auto& c : cases) {
    const Captured run = benchmark(sources_with(c.reference));
    ASSERT_EQ(run.status, 0) << run.output;
    const std::string line = std::string("Benchmark Result:   ") + c.text, screen = run.output;
    EXPECT_NE(screen.find(line), std::string::npos) << screen;
    const std::string file = file_of(run);
    EXPECT_EQ(examine(file), FileVerdict::VALID) << file;
    EXPECT_NE(file.find(std::string("\nBenchmark Result:    ") + c.text), std::string::npos) << file;
    EXPECT_EQ(screen.find("Reference residue:     " +
                          std::to_string(c.reference(DIGITS) == nullptr ? 0 : c.reference(DIGITS)->hash)) !=
                  std::string::npos,
              std::string(c.text)[1] == 'I');
    // What the digits are does not depend on the reference.
    EXPECT_EQ(value_of(file, "Decimal digits as an integer, modulo 2^61 - 1:  "),
              std::to_string(right_reference(0)->hash));
    for (const char* label :
         {"Version:          ", "Processor(s):     ", "CPU Frequency:    ", "Threads:             3",
          "Algorithm:           Chudnovsky Formula", "Total Computation Time:             "})
      EXPECT_NE(file.find(std::string("\n") + label), std::string::npos) << label << "\n" << file;
    EXPECT_EQ(file.find("Clocks:              CLOCK_MONOTONIC ") != std::string::npos, true) << file;
    EXPECT_NE(file.find(": they agree\n"), std::string::npos) << file;
  }
}

TEST(Benchmark, SaysThatTheClocksDisagree) {
  BenchmarkSources sources = sources_with(right_reference);
  sources.clocks.monotonic = [] { // runs at a third of its speed
    return SYSTEM_CLOCKS.monotonic() / 3;
  };
  sources.clocks.day = [] {
    static double hours = 0;
    return SYSTEM_CLOCKS.day() + 3600 * hours++;
  };
  sources.system.processor = [] { return std::string("Pro\x1b[31mc\xe9\ress"); };
  const Captured run = benchmark(sources);
  for (const std::string& text : {run.output.substr(0, run.output.find(FILE_MARK)), file_of(run)}) {
    EXPECT_NE(text.find(": they DISAGREE\n"), std::string::npos) << text;
    EXPECT_NE(text.find("The times of this run cannot be trusted.\n"), std::string::npos) << text;
  }
  EXPECT_EQ(examine(file_of(run)), FileVerdict::VALID);
  EXPECT_EQ(value_of(file_of(run), "Processor(s):     "), "Pro?[31mc??ess");
}

// The result is on the screen whatever the disk does, and so is the text of the file.
TEST(Benchmark, SurvivesADiskThatFails) {
  for (const char* operation : {"open", "write", "sync", "close", "rename"}) {
    test::MemoryFiles files;
    files.fail_on = operation;
    files.fail_times = 1;
    files.fail_error = ENOSPC;
    const Captured run = benchmark(sources_with(right_reference), files);
    ASSERT_EQ(run.status, 0) << operation << run.output;
    EXPECT_NE(run.output.find("Benchmark Result:   Match"), std::string::npos) << operation;
    const std::string heading = "The validation file could not be written. This is its text:\n\n";
    const size_t at = run.output.find(heading);
    ASSERT_NE(at, std::string::npos) << operation << run.output;
    EXPECT_LT(run.output.find("Disk is Full"), at) << operation;
    const std::string text = run.output.substr(at + heading.size());
    EXPECT_EQ(examine(text.substr(0, text.size() - 1)), FileVerdict::VALID) << text;
    EXPECT_EQ(file_of(run), "") << "a part of the file was left behind";
  }
}

TEST(Benchmark, KeepsEarlierFiles) {
  test::MemoryFiles files;
  ComputeSettings settings = benchmark_settings(25'000'000, 1);
  settings.output_path = L"/results";
  setenv("TZ", "UTC", 1);
  tzset();
  const auto next = [&] {
    const std::wstring path = validation_path(settings, 1'800'000'000, files);
    files.put(path, "x");
    return path_to_narrow(path);
  };
  EXPECT_EQ(next(), "/results/Pi - 25000000 - 20270115-080000 - Validation.txt");
  EXPECT_EQ(next(), "/results/Pi - 25000000 - 20270115-080000 - Validation (2).txt");
  EXPECT_EQ(next(), "/results/Pi - 25000000 - 20270115-080000 - Validation (3).txt");
}

// A valid file, made once.
const std::string& valid_file() {
  static const std::string text = file_of(benchmark(sources_with(right_reference)));
  return text;
}

std::string mutate(std::string text, std::mt19937_64& random) {
  const auto below = [&](size_t n) { return static_cast<size_t>(random() % n); };
  const size_t at = below(text.size()), other = below(text.size());
  const size_t length = 1 + below(std::min<size_t>(text.size() - at, 40));
  switch (below(10)) {
  case 0: // one bit
    text[at] = static_cast<char>(text[at] ^ (1 << below(8)));
    break;
  case 1: // one byte
    text[at] = static_cast<char>(random());
    break;
  case 2: // another digit
    if (const size_t digit = text.find_first_of("0123456789", at); digit != std::string::npos)
      text[digit] = static_cast<char>('0' + below(10));
    break;
  case 3:
    text.insert(at, 1, static_cast<char>(random()));
    break;
  case 4:
    text.erase(at, length);
    break;
  case 5: // cut off
    text.resize(at);
    break;
  case 6: // repeated
    text.insert(other, text.substr(at, length));
    break;
  case 7: // a piece over another
    text.replace(other, std::min(length, text.size() - other), text.substr(at, length));
    break;
  case 8: // two bytes exchanged
    std::swap(text[at], text[other]);
    break;
  default: // something behind
    text.append(length, random() % 2 == 0 ? '\n' : static_cast<char>(random()));
  }
  return text;
}

TEST(ValidationFile, EveryMutationIsReported) {
  const std::string& text = valid_file();
  ASSERT_EQ(examine(text), FileVerdict::VALID) << text;
  constexpr u64 SEED = 20261121;
  std::mt19937_64 random(SEED);
  for (int i = 0; i < 10000;) {
    std::string changed = mutate(text, random);
    if (random() % 4 == 0) changed = mutate(changed + "\n", random);
    if (changed == text) continue;
    i++;
    ASSERT_NE(examine(changed), FileVerdict::VALID) << "seed " << SEED << ", case " << i << "\n" << changed;
  }
  // Every bit, one at a time.
  for (size_t bit = 0; bit < 8 * text.size(); bit++) {
    std::string changed = text;
    changed[bit / 8] = static_cast<char>(changed[bit / 8] ^ (1 << bit % 8));
    ASSERT_NE(examine(changed), FileVerdict::VALID) << "bit " << bit;
  }
}

TEST(ValidationFile, Verdicts) {
  const std::string& text = valid_file();
  const std::string line = "Version 0.6.1 Validation\n";
  const auto with_version = [&](const std::string& version) {
    std::string changed = text;
    return changed.replace(changed.find(line), line.size(), version);
  };
  for (const char* version : {"0.6.0", "0.5.9", "0.0.0", "0.5.999999"})
    EXPECT_EQ(examine(with_version(std::string("Version ") + version + " Validation\n")),
              FileVerdict::TOO_OLD)
        << version;
  for (const char* version : {"0.6.2", "0.7.0", "1.0.0", "0.10.0"})
    EXPECT_EQ(examine(with_version(std::string("Version ") + version + " Validation\n")),
              FileVerdict::TOO_NEW)
        << version;
  for (const char* changed :
       {"Version 0.6.1\n", "Version 0.6.1 Validation \n", "Version 00.6.1 Validation\n", "",
        "Version 0.6.99999999999999999999 Validation\n", "Version 0.6.-1 Validation\n"})
    EXPECT_EQ(examine(with_version(changed)), FileVerdict::ALTERED) << changed;
  std::string changed = text; // other line ends; another title
  changed.insert(changed.find('\n'), 1, '\r');
  EXPECT_EQ(examine(changed), FileVerdict::ALTERED);
  EXPECT_EQ(examine("k" + text.substr(1)), FileVerdict::ALTERED);
  EXPECT_EQ(examine(text.substr(text.find('\n') + 1)), FileVerdict::ALTERED);
  // The version alone is enough to say so; the rest of such a file may be anything.
  EXPECT_EQ(examine("Version 0.5.0 Validation\nbla"), FileVerdict::TOO_OLD);
  EXPECT_EQ(examine(line), FileVerdict::ALTERED);
  for (const std::string other : {"", "\n", "Kelvane", "3.14159\n", "Version", "\xff\xfe"})
    EXPECT_EQ(examine(other), FileVerdict::NO_VALIDATION_FILE) << other;
  // A right checksum over text that the program never writes.
  std::string colors = text.substr(0, text.find("Checksum:"));
  EXPECT_EQ(examine(with_checksum(colors)), FileVerdict::VALID);
  EXPECT_EQ(examine(with_checksum(colors + "\033[2J\n")), FileVerdict::ALTERED);
}

TEST(Validator, Screens) {
  const std::filesystem::path folder =
      std::filesystem::temp_directory_path() / ("kelvane-validator-" + std::to_string(getpid()));
  std::filesystem::create_directory(folder);
  const auto put = [&](const char* name, const std::string& text) {
    std::ofstream(folder / name, std::ios::binary) << text;
  };
  // A file with nothing in it that changes from run to run, for a size that has a reference.
  const auto file = [](u64 residue) {
    return with_checksum(
        "Kelvane Benchmark Validation File\nVersion 0.6.1 Validation\n\nDecimal Digits:      "
        "1,048,576\n\nDecimal digits as an integer, modulo 2^61 - 1:  " +
        std::to_string(residue) + "\n\n");
  };
  const u64 right = reference_result(u64{1} << 20)->hash;
  put("right", file(right));
  put("wrong", file(right + 1));
  std::string clocks = file(right);
  put("clocks", with_checksum(clocks.substr(0, clocks.find("Checksum")) +
                              "Clocks:              CLOCK_MONOTONIC 1.000 seconds, CLOCK_REALTIME 2.000 "
                              "seconds: they DISAGREE\n\n"));
  std::string unknown = file(right);
  unknown =
      with_checksum(unknown.replace(unknown.find("1,048"), 5, "1,049").substr(0, unknown.find("Checksum")));
  put("unknown", unknown);
  std::string altered = file(right);
  put("altered", altered.replace(altered.find("1,048"), 5, "2,048"));
  put("old", "Kelvane Benchmark Validation File\nVersion 0.6.0 Validation\n");
  put("new", "Kelvane Benchmark Validation File\nVersion 0.7.0 Validation\n");
  put("other", "3.14159");
  put("long", file(right) + std::string(LONGEST_VALIDATION_FILE, '\n'));
  std::filesystem::create_directory(folder / "folder");
  expect_screen(
      "benchmark_validator.txt",
      [&] {
        std::filesystem::current_path(folder);
        benchmark_validator();
        for (const wchar_t* name : {L"wrong", L"clocks", L"unknown", L"altered", L"old", L"new", L"other",
                                    L"long", L"folder", L"missing", L"/dev/zero"}) {
          Console::print(L"*** " + std::wstring(name) + L"\n");
          validate_file(name);
        }
      },
      "right\n");
  std::filesystem::remove_all(folder);
}

} // namespace
} // namespace kelvane
