// The stress tester's run: iterations over the enabled tests until the user ends it.
#pragma once

#include "diagnostics/stress_task.h"

namespace kelvane {

struct StressSettings {
  u64 memory = 0; // bytes of work memory, the root tables included
  u64 threads = 1;
  u64 seconds = 120; // for each test
  bool enabled[STRESS_TESTS] = {true, true, true, true};
};

// What a test of the tester itself changes. A run of the program leaves it as it is.
struct StressHooks {
  u64 iterations = 0;      // 0: until a signal ends the program
  u64 product_divisor = 1; // passes of so many times fewer products
  StressHook on_product;
};

// Runs "Starting Continuous Stress-Test..." to the end, which is a signal's: Ctrl+C prints the summary and
// ends the program, with status 1 if any test failed and 0 otherwise; SIGTERM and SIGHUP likewise, with 128 +
// signal in place of 0. With hooks.iterations it returns after so many iterations; true: nothing failed.
bool run_stress_test(const StressSettings& settings, const StressHooks& hooks, StressCounters& counters);

} // namespace kelvane
