// Whole computations in this process: digits against MPFR, for digit counts and threads; memory against the
// figure shown; faults put in on purpose.
#include <gtest/gtest.h>
#include <mpfr.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <random>
#include <sstream>

#include "control/constant_sqrt.h"
#include "control/driver.h"
#include "control/registry.h"
#include "control/report.h"
#include "shell/console.h"
#include "shell/exception.h"
#include "shell/settings.h"
#include "support/capture.h"
#include "support/short.h"

namespace kelvane {
namespace {

// "I.ddd...", truncated to `digits` digits after the point.
std::string reference(u32 constant, u64 n, u64 digits) {
  mpfr_t x;
  mpfr_init2(x, static_cast<mpfr_prec_t>(static_cast<double>(digits) * 3.3219280948873626 + 300));
  switch (constant) {
  case CONSTANT_SQRT: {
    mpfr_set_uj(x, n, MPFR_RNDN);
    mpfr_sqrt(x, x, MPFR_RNDN);
    break;
  }
  case CONSTANT_GOLDEN_RATIO:
    mpfr_sqrt_ui(x, 5, MPFR_RNDN);
    mpfr_add_ui(x, x, 1, MPFR_RNDN);
    mpfr_div_2ui(x, x, 1, MPFR_RNDN);
    break;
  case CONSTANT_E:
    mpfr_set_ui(x, 1, MPFR_RNDN);
    mpfr_exp(x, x, MPFR_RNDN);
    break;
  case CONSTANT_ARCCOTH:
    mpfr_set_uj(x, n, MPFR_RNDN);
    mpfr_ui_div(x, 1, x, MPFR_RNDN);
    mpfr_atanh(x, x, MPFR_RNDN);
    break;
  case CONSTANT_LOG:
    mpfr_set_uj(x, n, MPFR_RNDN);
    mpfr_log(x, x, MPFR_RNDN);
    break;
  case CONSTANT_ZETA3:
    mpfr_zeta_ui(x, 3, MPFR_RNDN);
    break;
  case CONSTANT_LEMNISCATE: { // 2 Pi / AGM(1, sqrt 2)
    mpfr_t pi;
    mpfr_init2(pi, mpfr_get_prec(x));
    mpfr_sqrt_ui(x, 2, MPFR_RNDN);
    mpfr_set_ui(pi, 1, MPFR_RNDN);
    mpfr_agm(x, x, pi, MPFR_RNDN);
    mpfr_const_pi(pi, MPFR_RNDN);
    mpfr_div(x, pi, x, MPFR_RNDN);
    mpfr_mul_ui(x, x, 2, MPFR_RNDN);
    mpfr_clear(pi);
    break;
  }
  case CONSTANT_CATALAN:
    mpfr_const_catalan(x, MPFR_RNDN);
    break;
  case CONSTANT_EULER_GAMMA:
  case CONSTANT_BRENT_MCMILLAN:
    mpfr_const_euler(x, MPFR_RNDN);
    break;
  default:
    mpfr_const_pi(x, MPFR_RNDN);
  }
  char* text = nullptr;
  mpfr_asprintf(&text, "%.*RDf", static_cast<int>(digits), x);
  std::string result(text);
  mpfr_free_str(text);
  mpfr_clear(x);
  return result;
}

std::string read_file(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

class Folder {
public:
  Folder() : path_(root() / ("kelvane-test-" + std::to_string(getpid()))) {
    std::filesystem::create_directories(path_);
  }
  ~Folder() { std::filesystem::remove_all(path_); }
  std::string path() const { return path_.string(); }

private:
  // Digit files are synced to the disk: thousands of small ones take no time in memory.
  static std::filesystem::path root() {
    return std::filesystem::exists("/dev/shm") ? "/dev/shm" : std::filesystem::temp_directory_path();
  }
  std::filesystem::path path_;
};

struct Job {
  u32 constant;
  u64 parameter;
  s32 algorithm;
  u64 digits;
  u64 threads;
};

struct Outcome {
  Captured captured;
  std::string decimal;
};

// Runs a job in a child process and reads its decimal file.
Outcome run(const Job& job, const Folder& folder, const RunFaults& faults = {}) {
  ComputeSettings settings;
  select_constant(settings, job.constant, job.parameter);
  settings.algorithm = job.algorithm;
  EXPECT_EQ(settings.set_decimal_digits(job.digits), nullptr);
  EXPECT_EQ(settings.set_threads(job.threads), nullptr);
  settings.output_path = path_to_wide(folder.path());
  settings.update();
  const std::string file = folder.path() + "/" + settings.constant->get_name() + " - Dec - " +
                           settings.constant->get_algorithm_short_name(job.algorithm) + ".txt";
  std::filesystem::remove(file);
  Outcome outcome;
  outcome.captured = capture([&] {
    RunRecord record;
    run_computation(settings, faults, record);
    // The plan is exact: the run used what the figure says, to the byte.
    Console::print("peak " + std::to_string(record.peak_bytes) + " of " +
                   std::to_string(record.planned_bytes) + "\n");
  });
  outcome.decimal = read_file(file);
  return outcome;
}

std::string describe(const Job& job) {
  return "constant " + std::to_string(job.constant) + "(" + std::to_string(job.parameter) + ") algorithm " +
         std::to_string(job.algorithm) + ", " + std::to_string(job.digits) + " digits, " +
         std::to_string(job.threads) + " threads";
}

void expect_right(const Job& job, const Folder& folder, const std::string& expected) {
  const Outcome outcome = run(job, folder);
  ASSERT_EQ(outcome.captured.status, 0) << describe(job) << "\n" << outcome.captured.output;
  ASSERT_TRUE(outcome.decimal == expected) << describe(job) << "\n" << outcome.decimal.substr(0, 500);
  const size_t at = outcome.captured.output.rfind("peak ");
  u64 peak = 0, planned = 0;
  ASSERT_EQ(std::sscanf(outcome.captured.output.c_str() + at, "peak %lu of %lu", &peak, &planned), 2);
  EXPECT_LE(peak, planned) << describe(job);
  // Table entries of the heap and alignment are in the plan but not in the peak.
  EXPECT_GE(static_cast<double>(peak) + 1000, 0.97 * static_cast<double>(planned)) << describe(job);
}

const Job KINDS[] = {{CONSTANT_PI, 0, 0, 0, 0},
                     {CONSTANT_PI, 0, 1, 0, 0},
                     {CONSTANT_PI, 0, 2, 0, 0},
                     {CONSTANT_PI, 0, 3, 0, 0},
                     {CONSTANT_E, 0, 0, 0, 0},
                     {CONSTANT_E, 0, 1, 0, 0},
                     {CONSTANT_SQRT, 2, 0, 0, 0},
                     {CONSTANT_SQRT, 3, 0, 0, 0},
                     {CONSTANT_SQRT, 9223372036854775809u, 0, 0, 0},
                     {CONSTANT_SQRT, ~u64{0}, 0, 0, 0},
                     {CONSTANT_GOLDEN_RATIO, 0, 0, 0, 0},
                     {CONSTANT_ARCCOTH, 2, 0, 0, 0},
                     {CONSTANT_ARCCOTH, 4294967295, 0, 0, 0},
                     {CONSTANT_LOG, 2, 0, 0, 0},
                     {CONSTANT_LOG, 2, 1, 0, 0},
                     {CONSTANT_LOG, 10, 0, 0, 0},
                     {CONSTANT_LOG, 10, 1, 0, 0},
                     {CONSTANT_ZETA3, 0, 0, 0, 0},
                     {CONSTANT_ZETA3, 0, 1, 0, 0},
                     {CONSTANT_LEMNISCATE, 0, 0, 0, 0},
                     {CONSTANT_LEMNISCATE, 0, 1, 0, 0},
                     {CONSTANT_CATALAN, 0, 0, 0, 0},
                     {CONSTANT_CATALAN, 0, 1, 0, 0},
                     {CONSTANT_EULER_GAMMA, 0, 0, 0, 0},
                     {CONSTANT_EULER_GAMMA, 0, 1, 0, 0}};

TEST(Computation, EveryDigitCountFrom100To400) {
  const Folder folder;
  const u64 thread_counts[] = {1, 2, 3, 5, 7, 8, 64, 256};
  u64 turn = 0;
  for (const Job& kind : KINDS) {
    const std::string digits = reference(kind.constant, kind.parameter, 400);
    const size_t point = digits.find('.');
    for (u64 d = 100; d <= 400; d += short_run() ? 37 : 1) {
      Job job = kind;
      job.digits = d;
      job.threads = thread_counts[turn++ % std::size(thread_counts)];
      ASSERT_NO_FATAL_FAILURE(expect_right(job, folder, digits.substr(0, point + 1 + d)));
    }
  }
}

TEST(Computation, OddCountsAndThreads) {
  const Folder folder;
  for (const u64 digits : {u64{999}, u64{1000}, u64{12345}, short_run() ? u64{20001} : u64{100003}}) {
    for (const Job& kind : KINDS) {
      const std::string expected = reference(kind.constant, kind.parameter, digits);
      for (const u64 threads : {1, 3, 8, 256}) {
        Job job = kind;
        job.digits = digits;
        job.threads = threads;
        ASSERT_NO_FATAL_FAILURE(expect_right(job, folder, expected));
      }
    }
  }
}

// Odd counts up to 10^6 against the program's own 10^6 digits, whose sums are compared with published ones by
// the program tests.
TEST(Computation, RandomCountsInALongRun) {
  if (!long_run()) GTEST_SKIP() << "runs with KELVANE_LONG";
  const Folder folder;
  const u64 thread_counts[] = {1, 2, 3, 7, 64, 256};
  std::mt19937_64 random(20);
  for (const Job& kind : KINDS) {
    Job job = kind;
    job.algorithm = 0;
    job.digits = 1000000;
    job.threads = 2;
    const std::string whole = run(job, folder).decimal;
    const size_t point = whole.find('.');
    ASSERT_EQ(whole.size(), point + 1 + job.digits) << describe(job);
    job.algorithm = kind.algorithm;
    for (u64 i = 0; i < 12; i++) {
      const double exponent = std::uniform_real_distribution<double>(std::log(400), std::log(1e6))(random);
      job.digits = static_cast<u64>(std::exp(exponent)) | 1;
      job.threads = thread_counts[i % std::size(thread_counts)];
      ASSERT_NO_FATAL_FAILURE(expect_right(job, folder, whole.substr(0, point + 1 + job.digits)));
    }
  }
}

// The exponent from the parameter: every one that the formula's error bound allows gives the digits, with the
// third series of the refined formula summed or skipped; the first one too small is refused.
TEST(Computation, GammaWithItsExponentGiven) {
  const Folder folder;
  for (const u64 digits : {u64{100}, u64{137}, u64{1000}, u64{5000}}) {
    const std::string expected = reference(CONSTANT_EULER_GAMMA, 0, digits);
    const double words = static_cast<double>(ComputeSettings::hexadecimal_worth(digits) / 16 + 2);
    for (const s32 algorithm : {0, 1}) {
      u64 least = 1;
      while (static_cast<double>((algorithm == 1 ? u64{8} : u64{4}) << least) < words * 44.3614195558365 + 4)
        least++;
      for (u64 k = least; k < least + 3; k++) {
        const Job job{CONSTANT_BRENT_MCMILLAN, k, algorithm, digits, 1 + k % 3};
        ASSERT_NO_FATAL_FAILURE(expect_right(job, folder, expected));
        const Outcome outcome = run(job, folder);
        EXPECT_EQ(outcome.captured.output.find("\nSumming Series C...  ") != std::string::npos,
                  algorithm == 1);
        EXPECT_EQ(outcome.captured.output.find("\nSumming Series C...  skipped\n") != std::string::npos,
                  algorithm == 1 && k > least)
            << digits << " digits, k = " << k;
      }
      const Captured refused = capture([&] {
        ComputeSettings settings;
        select_constant(settings, CONSTANT_BRENT_MCMILLAN, least - 1);
        settings.decimal_digits = digits;
        settings.precision_words = static_cast<u64>(words);
        settings.algorithm = algorithm;
        run_computation(settings);
      });
      EXPECT_NE(refused.status, 0);
      EXPECT_NE(refused.output.find("Parameter out of range"), std::string::npos) << refused.output;
    }
  }
}

std::string sha1_of_file(const std::string& path) {
  const std::string command = "sha1sum '" + path + "'";
  std::FILE* pipe = popen(command.c_str(), "r");
  char sum[41] = {};
  const size_t n = pipe == nullptr ? 0 : std::fread(sum, 1, 40, pipe);
  if (pipe != nullptr) pclose(pipe);
  return std::string(sum, n);
}

// The variants that the menu does not offer, against sums made by independent programs.
TEST(Computation, ReducedMemoryVariantsGiveTheSameFiles) {
  const Folder folder;
  const std::pair<u64, const char*> sums[] = {{100000, "ddec8e3cd091057af4de7dd147bff14860c802e8"},
                                              {1000000, "ec497f9b8b0aad5fe967d0916bff266972081f50"},
                                              {10000000, "056fe739ad2e3b427691e4e62eef8936ce2a88e4"}};
  for (const auto& [digits, sum] : sums) {
    if (digits > 100000 && short_run()) continue;
    for (const s32 algorithm : {1, 2, 3}) {
      const Outcome outcome = run({CONSTANT_PI, 0, algorithm, digits, 2}, folder);
      ASSERT_EQ(outcome.captured.status, 0) << outcome.captured.output;
      const char* name = algorithm == 2 ? "/Pi - Dec - Chudnovsky.txt" : "/Pi - Dec - Ramanujan.txt";
      EXPECT_EQ(sha1_of_file(folder.path() + name), sum) << digits << " digits, algorithm " << algorithm;
    }
  }
}

// Damages a product of the series once.
class FlipProduct final : public SeriesFault {
public:
  void after_merge(kob_cdi_EFPh& result, u64 a, u64) override {
    if (a != 0 && result.L > 4 && !done_) {
      result.T[2] ^= 1;
      done_ = true;
    }
  }

private:
  bool done_ = false;
};

TEST(ComputationFaults, ADamagedProductEndsTheRunWithItsRange) {
  const Folder folder;
  FlipProduct flip;
  const Job job{CONSTANT_PI, 0, 0, 5000, 2};
  ComputeSettings settings;
  select_constant(settings, job.constant, 0);
  settings.set_decimal_digits(5000);
  settings.output_path = path_to_wide(folder.path());
  RunFaults faults;
  faults.series = &flip;
  const Captured captured = capture([&] {
    RunRecord record;
    try {
      run_computation(settings, faults, record);
    } catch (const km_exception& e) {
      print_exception(e);
    }
  });
  EXPECT_NE(captured.output.find("Modular Redundancy Check Failed:\na = "), std::string::npos)
      << captured.output;
  EXPECT_NE(captured.output.find("Exception Encountered: Generic Exception\nError Code: 2\n"),
            std::string::npos);
  EXPECT_FALSE(std::filesystem::exists(folder.path() + "/Pi - Dec - Chudnovsky.txt"));
}

// Damages a converted word, or makes the conversion report failure once.
class ConversionFault final : public CBRv2::Faults {
public:
  explicit ConversionFault(bool damage) : damage_(damage) {}
  bool visit(Stage stage, u64* words, u64 n) override {
    if (stage != OUTPUT || done_) return false;
    done_ = true;
    if (damage_) words[n / 2] ^= 1;
    return !damage_;
  }

private:
  bool damage_, done_ = false;
};

TEST(ComputationFaults, EverySeriesFindsADamagedProduct) {
  const Folder folder;
  for (const Job& kind : KINDS) {
    if (kind.constant <= CONSTANT_GOLDEN_RATIO) continue; // no series
    FlipProduct flip;
    RunFaults faults;
    faults.series = &flip;
    ComputeSettings settings;
    select_constant(settings, kind.constant, kind.parameter);
    settings.set_decimal_digits(20000);
    settings.algorithm = kind.algorithm;
    settings.output_path = path_to_wide(folder.path());
    const Captured captured = capture([&] {
      RunRecord record;
      try {
        run_computation(settings, faults, record);
      } catch (const kc_BSRModularCheckFailed&) {
        Console::print("found\n");
      }
    });
    EXPECT_NE(captured.output.find("found\n"), std::string::npos) << describe(kind) << captured.output;
  }
}

TEST(ComputationFaults, ADamagedConvertedWordIsAMismatch) {
  const Folder folder;
  ConversionFault fault(true);
  RunFaults faults;
  faults.conversion = &fault;
  ComputeSettings settings;
  select_constant(settings, CONSTANT_E, 0);
  settings.set_decimal_digits(3000);
  settings.output_path = path_to_wide(folder.path());
  const Captured captured = capture([&] {
    RunRecord record;
    try {
      run_computation(settings, faults, record);
    } catch (const km_exception& e) {
      print_exception(e);
    }
  });
  EXPECT_NE(captured.output.find("R = "), std::string::npos) << captured.output;
  EXPECT_NE(captured.output.find("Base Conversion Failed: Checksum Mismatch"), std::string::npos);
}

TEST(ComputationFaults, AFailedConversionIsRepeated) {
  const Folder folder;
  ConversionFault fault(false);
  RunFaults faults;
  faults.conversion = &fault;
  const Outcome outcome = run({CONSTANT_E, 0, 0, 3000, 2}, folder, faults);
  EXPECT_EQ(outcome.captured.status, 0);
  EXPECT_NE(outcome.captured.output.find("Radix Conversion Failed - Reattempting...\n\n"), std::string::npos);
  EXPECT_EQ(outcome.decimal, reference(CONSTANT_E, 0, 3000));
}

TEST(Registry, ParametersAreCheckedAndRefusalsKeepTheSettings) {
  ComputeSettings settings;
  select_constant(settings, CONSTANT_PI, 0);
  for (const u64 square : {u64{0}, u64{1}, u64{4}, u64{1} << 62, 4294967295u * u64{4294967295u}})
    EXPECT_STREQ(validate_and_select(settings, CONSTANT_SQRT, square), "This is a perfect square.") << square;
  for (const u64 n : {u64{1}, u64{4294967296}})
    EXPECT_STREQ(validate_and_select(settings, CONSTANT_ARCCOTH, n), "Parameter out of range");
  for (const u64 n : {u64{1}, u64{2147483648}})
    EXPECT_STREQ(validate_and_select(settings, CONSTANT_LOG, n), "Parameter out of range");
  for (const u32 number : {10u, 99u})
    EXPECT_STREQ(validate_and_select(settings, number, 3), "Invalid constant, or not yet implemented.")
        << number;
  EXPECT_EQ(settings.constant->get_name(), "Pi");
  EXPECT_EQ(validate_and_select(settings, CONSTANT_SQRT, (u64{1} << 63) + 1), nullptr);
  EXPECT_EQ(settings.constant->get_name(), "Sqrt(9223372036854775809)");
}

TEST(Registry, AnAlgorithmTheNewConstantLacksFallsBackToTheFirst) {
  ComputeSettings settings;
  select_constant(settings, CONSTANT_PI, 0);
  settings.algorithm = 1;
  select_constant(settings, CONSTANT_E, 0);
  EXPECT_EQ(settings.algorithm, 1);
  select_constant(settings, CONSTANT_GOLDEN_RATIO, 0);
  EXPECT_EQ(settings.algorithm, 0);
  settings.decimal_digits = 90000000000051;
  select_constant(settings, CONSTANT_PI, 0);
  EXPECT_EQ(settings.decimal_digits, 90000000000050u);
}

TEST(Registry, EveryConstantHasItsNamesAndNumbers) {
  struct Expected {
    u32 number;
    u64 parameter, kind_code;
    u32 algorithms;
    const char *name, *full_name, *short_name, *algorithm;
  };
  const Expected list[] = {
      {CONSTANT_SQRT, 2, 80, 1, "Sqrt(2)", "Sqrt(2)", "Newton", "Newton"},
      {CONSTANT_ARCCOTH, 3, 71, 1, "ArcCoth(3)", "ArcCoth(3)", "Taylor", "Taylor Series"},
      {CONSTANT_ZETA3, 0, 71, 2, "Zeta(3)", "Zeta(3) - Apery's Constant", "Amdeberhan-Zeiberger 2",
       "Amdeberhan-Zeiberger Formula 2"},
      {CONSTANT_LEMNISCATE, 0, 71, 2, "Lemniscate", "Lemniscate", "Sebah", "Sebah's formula"},
      {CONSTANT_CATALAN, 0, 66, 2, "Catalan", "Catalan's Constant", "Huvent", "Huvent's Formula"},
      {CONSTANT_EULER_GAMMA, 0, 66, 2, "Euler's Constant", "Euler-Mascheroni Constant",
       "Brent-McMillan (Refined)", "Brent-McMillan with Refinement ( n = 2^13 )"},
      {CONSTANT_BRENT_MCMILLAN, 17, 66, 2, "Euler's Constant",
       "Euler-Mascheroni Constant (parameter override)", "Brent-McMillan (Refined)",
       "Brent-McMillan with Refinement ( n = 2^17 )"}};
  for (const Expected& e : list) {
    const std::unique_ptr<kcr_Constant> constant = make_constant(e.number, e.parameter);
    constant->prepare(521); // 2^13 is the first power of two above 16 ln 2 521 + 10 = 5788
    const s32 last = static_cast<s32>(e.algorithms) - 1;
    EXPECT_EQ(constant->get_kind_code(), e.kind_code) << e.name;
    EXPECT_EQ(constant->algorithm_count, e.algorithms) << e.name;
    EXPECT_EQ(constant->get_max_digits(), 90000000000050u);
    EXPECT_EQ(constant->get_name(), e.name);
    EXPECT_EQ(constant->get_full_name(), e.full_name);
    EXPECT_EQ(constant->get_algorithm_short_name(last), e.short_name);
    EXPECT_EQ(constant->get_algorithm_name(last), e.algorithm);
    for (const s32 none : {-1, last + 1}) {
      EXPECT_EQ(constant->get_algorithm_short_name(none), "") << e.name;
      EXPECT_EQ(constant->get_memory_B(none, {}, nullptr), 0u) << e.name;
    }
  }
}

TEST(Report, LastDigitsComeInLinesOfFifty) {
  const std::string ten = "0123456789";
  EXPECT_EQ(last_digit_lines(ten + ten + ten + ten + ten + ten, 1000000),
            "0123456789 0123456789 0123456789 0123456789 0123456789 :  1,000,050\n0123456789 :  1,000,060\n");
  EXPECT_EQ(last_digit_lines("12345", 50), "12345 :  55\n");
}

} // namespace
} // namespace kelvane
