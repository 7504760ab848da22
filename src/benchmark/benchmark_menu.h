// "Benchmark Pi": type and size are asked, then the benchmark runs.
#pragma once

#include <functional>

#include "shell/types.h"

namespace kelvane {

// What the lists depend on, replaceable by tests.
struct BenchmarkMachine {
  u64 processors;
  u64 available_memory; // bytes; 0 when unknown
  std::function<u64(u64 digits, u64 threads)> memory_needed;
};
BenchmarkMachine this_benchmark_machine();

struct BenchmarkChoice {
  u64 digits;
  u64 threads;
};

// The screens up to the chosen size. More than 256 processors are fatal: "# of threads is out of range".
BenchmarkChoice choose_benchmark(const BenchmarkMachine& machine);

void benchmark_menu();

} // namespace kelvane
