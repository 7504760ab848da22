#include "diagnostics/stress_run.h"

#include <gmp.h>
#include <gtest/gtest.h>

#include <csignal>
#include <mutex>
#include <set>

#include "arithmetic/words/residue.h"
#include "diagnostics/operand_generator.h"
#include "diagnostics/processors.h"
#include "diagnostics/stress_signals.h"
#include "support/capture.h"

namespace kelvane {
namespace {

constexpr u64 MIB = u64{1} << 20;

// One pass of each test named, small enough to be short under every sanitizer.
StressSettings one_pass(std::initializer_list<u64> tests, u64 threads = 2) {
  StressSettings settings;
  settings.memory = 96 * MIB;
  settings.threads = threads;
  settings.seconds = 0;
  for (bool& enabled : settings.enabled) enabled = false;
  for (const u64 test : tests) settings.enabled[test] = true;
  return settings;
}
StressHooks hooks_with(const StressHook& hook) {
  StressHooks hooks;
  hooks.iterations = 1;
  hooks.product_divisor = 1024;
  hooks.on_product = hook;
  return hooks;
}
// What a run prints, and its end: status 0 when it passed, 3 when it failed.
Captured run(const StressSettings& settings, const StressHook& hook) {
  return capture([&] {
    StressCounters counters;
    if (!run_stress_test(settings, hooks_with(hook), counters)) _exit(3);
  });
}

TEST(StressOperands, FollowTheFormula) {
  // x^3 * 0xC82B9175 - 933796325 with integers of any length.
  mpz_t x, value;
  mpz_inits(x, value, nullptr);
  for (const u64 offset : {u64{0}, u64{1}, u64{12345678901}}) {
    for (u64 i = 0; i < 100; i++) {
      mpz_set_ui(x, 2760733047673 + offset + i);
      mpz_pow_ui(value, x, 3);
      mpz_mul_ui(value, value, 0xC82B9175);
      mpz_sub_ui(value, value, 933796325);
      mpz_fdiv_r_2exp(value, value, 32);
      EXPECT_EQ(generated_half(offset, i), mpz_get_ui(value)) << offset << " " << i;
    }
  }
  mpz_clears(x, value, nullptr);

  u64 words[100];
  generate_words(words, 100, 7);
  EXPECT_EQ(words[3], u64{generated_half(7, 7)} << 32 | generated_half(7, 6));
  EXPECT_TRUE(words_are_generated(words, 100, 7));
  EXPECT_FALSE(words_are_generated(words, 100, 8));
  words[99] ^= u64{1} << 63;
  EXPECT_FALSE(words_are_generated(words, 100, 7));
}

TEST(StressPlan, FillsTheShare) {
  for (u64 i = 0; i < STRESS_TESTS; i++) {
    const StressTest& test = stress_test(i);
    EXPECT_EQ(plan_stress(test, 1000).words, 0u);
    for (u64 share = 2 * MIB; share <= 1024 * MIB; share = share * 5 / 3 & ~u64{63}) {
      const StressPlan plan = plan_stress(test, share);
      ASSERT_NE(plan.words, 0u) << test.menu_text << share;
      EXPECT_LE(plan.windows * plan.window, share);
      EXPECT_EQ(plan.window % 64, 0u);
      EXPECT_GE(plan.words, test.least_words);
      EXPECT_LE(plan.words, test.most_words);
      EXPECT_GE(plan.products, 1u);
      // The next longer product would not fit any more.
      EXPECT_TRUE(test.in_cache || plan.words == test.most_words || plan.window > share / 2) << share;
      EXPECT_TRUE(!test.in_cache || plan.window <= 8 * MIB);
    }
  }
}

TEST(StressRun, EveryTestPasses) {
  std::mutex mutex;
  std::set<u64> tests, tasks;
  u64 products = 0;
  StressCounters counters;
  const StressHook count = [&](const StressProduct& product) {
    const std::lock_guard<std::mutex> lock(mutex);
    tests.insert(product.test);
    tasks.insert(product.task);
    products++;
  };
  EXPECT_TRUE(run_stress_test(one_pass({0, 1, 2, 3}, 3), hooks_with(count), counters));
  EXPECT_EQ(tests.size(), STRESS_TESTS);
  EXPECT_EQ(tasks.size(), 3u);
  EXPECT_EQ(counters.products.load(), products);
  EXPECT_EQ(counters.failures.load(), 0u);
  EXPECT_EQ(counters.iterations.load(), 1u);
}

TEST(StressRun, Texts) {
  Captured captured = run(one_pass({0, 3}, 1), {});
  EXPECT_EQ(captured.status, 0);
  std::string text;
  for (const char c : captured.output) { // the last state of every line; figures differ
    if (c == '\r') text.erase(text.rfind('\n') + 1);
    if (c != '\r') text += c >= '0' && c <= '9' ? '#' : c;
  }
  const std::string time = "#.### seconds  ( #.### hours )";
  EXPECT_EQ(text, "Starting Continuous Stress-Test...\n\n"
                  "Iteration: #  Total Elapsed Time: " +
                      time +
                      "\n"
                      "Basecase/Karatsuba Test: Passed  Test Time: " +
                      time +
                      "\n"
                      "VST Algorithm Test: Passed  Test Time: " +
                      time + "\n\n");
  EXPECT_NE(captured.output.find("Preparing VST Algorithm Test..."), std::string::npos);
  EXPECT_NE(captured.output.find("VST Algorithm Test: 1  Elapsed Time: "), std::string::npos);
}

TEST(StressRun, InsufficientMemory) {
  StressSettings settings = one_pass({0, 1, 2, 3}, 1);
  settings.memory = 1 * MIB;
  Captured captured = run(settings, {});
  EXPECT_EQ(captured.status, 0);
  EXPECT_NE(captured.output.find("Basecase/Karatsuba Test: Passed"), std::string::npos) << captured.output;
  EXPECT_NE(
      captured.output.find("\nInsufficient memory to run this test.\nInsufficient memory to run this test.\n"
                           "Insufficient memory to run this test.\n"),
      std::string::npos)
      << captured.output;
  settings.memory = 100;
  captured = capture([&] { // endless, were there anything to run
    StressCounters counters;
    run_stress_test(settings, {}, counters);
  });
  EXPECT_NE(captured.output.find("None of the selected tests fits the memory limit.\n"), std::string::npos);
}

// A flipped bit in one worker's product is found in the pass in which it happened and laid to that worker's
// processor, whatever the test, the pass, the product and the bit.
TEST(StressRun, FaultsAreFoundAndAttributed) {
  const std::vector<u64> processors = allowed_processors();
  for (u64 test = 0; test < STRESS_TESTS; test++) {
    for (u64 task = 0; task < 2; task++) {
      const u64 bad_index = test == 0 ? 5 : 0, bit = 17 * test + task;
      std::atomic<u64> seen{0};
      const auto flip = [&](const StressProduct& product) {
        if (product.task != task || product.index != bad_index) return;
        EXPECT_EQ(current_processor(), processors[task % processors.size()]);
        product.words[(product.count - 1) * task] ^= u64{1} << (bit % 64);
        seen++;
      };
      StressCounters counters;
      EXPECT_FALSE(run_stress_test(one_pass({test}), hooks_with(flip), counters));
      EXPECT_EQ(seen.load(), 1u);
      EXPECT_EQ(counters.failures.load(), 1u);
      EXPECT_EQ(counters.processor_failures[processors[task % processors.size()]].load(), 1u)
          << test << " " << task;
    }
  }
}

TEST(StressRun, FaultsAreReported) {
  const u64 processor = allowed_processors()[1 % allowed_processors().size()];
  const std::string start = "Processor " + std::to_string(processor) + ", pass 1: ";
  const auto report = [&](u64 test, const StressHook& hook) {
    const Captured captured = run(one_pass({test}), hook);
    EXPECT_EQ(captured.status, 3);
    EXPECT_NE(captured.output.find(" Test: Failed  Test Time: "), std::string::npos) << captured.output;
    return captured.output;
  };
  const auto first_of_task = [](const StressProduct& p) { return p.task == 1 && p.index == 0; };
  EXPECT_NE(report(2, [&](const StressProduct& p) { p.words[100] ^= first_of_task(p) ? 1 : 0; })
                .find(start + "a product has the wrong residue (1 of "),
            std::string::npos);
  // The residue cannot tell a multiple of 2^61 - 1; the second algorithm does.
  EXPECT_NE(report(0,
                   [&](const StressProduct& p) {
                     if (first_of_task(p))
                       p.words[0] += p.words[0] < ~residue::P ? residue::P : u64{0} - residue::P;
                   })
                .find(start + "a product differs from a second algorithm's (1 of "),
            std::string::npos);
  EXPECT_NE(report(3, [&](const StressProduct& p) { p.operands[70] ^= p.task == 1 && p.index == 1 ? 1 : 0; })
                .find(start + "operands changed in memory (1 of "),
            std::string::npos);
}

TEST(StressRun, EveryWindowOfTheMemoryIsUsed) {
  StressSettings settings = one_pass({2}, 1);
  settings.memory = 200 * MIB;
  std::mutex mutex;
  std::set<const u64*> places;
  StressHooks hooks = hooks_with([&](const StressProduct& product) {
    const std::lock_guard<std::mutex> lock(mutex);
    places.insert(product.words);
  });
  hooks.product_divisor = 1;
  StressCounters counters;
  EXPECT_TRUE(run_stress_test(settings, hooks, counters));
  EXPECT_EQ(places.size(), 2u); // one window at the share's start in even rounds, at its end in odd ones
}

// Ctrl+C and requests to end, in a process of their own.
TEST(StressSignals, EndWithASummary) {
  struct Case {
    int signal;
    u64 failures;
    int status;
  };
  for (const Case& c : {Case{SIGINT, 0, 0}, Case{SIGINT, 2, 1}, Case{SIGTERM, 0, 143}, Case{SIGHUP, 3, 1}}) {
    const Captured captured = capture([&] {
      StressCounters counters;
      const StressSignals signals(counters);
      counters.iterations = 12;
      counters.products = 1234567;
      counters.failures = c.failures;
      counters.processor_failures[3] = c.failures;
      raise(c.signal);
    });
    EXPECT_EQ(captured.status, c.status);
    const std::string failures = std::to_string(c.failures);
    EXPECT_EQ(captured.output, "\n\nStress-Test ended:\n    Iterations:  12\n    Products:    1,234,567\n"
                               "    Failures:    " +
                                   failures + "\n" +
                                   (c.failures == 0 ? "" : "        Processor 3:  " + failures + "\n") +
                                   "\n");
  }
  // Ended in the middle of a run.
  const Captured captured = capture([&] {
    StressCounters counters;
    StressHooks hooks;
    hooks.product_divisor = 1024;
    hooks.on_product = [&](const StressProduct& product) {
      if (product.task == 0 && product.index == 0) product.words[0] ^= 1;
      if (counters.iterations.load() == 3) raise(SIGINT);
    };
    run_stress_test(one_pass({0}, 1), hooks, counters);
  });
  EXPECT_EQ(captured.status, 1);
  EXPECT_NE(captured.output.find("    Iterations:  3\n"), std::string::npos) << captured.output;
  EXPECT_NE(captured.output.find("    Failures:    2\n"), std::string::npos) << captured.output;
}

TEST(StressSignals, SummaryFitsItsBuffer) {
  StressCounters counters;
  counters.failures = ~u64{0};
  for (auto& count : counters.processor_failures) count = ~u64{0};
  char text[300];
  EXPECT_LE(write_stress_summary(counters, text, sizeof text), sizeof text);
}

} // namespace
} // namespace kelvane
