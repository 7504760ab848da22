// One thread's part in a pass of a stress test: operands are generated, multiplied, and everything is
// checked.
//
// Checks, of every product: its residue modulo 2^61 - 1 against the product of the operands' residues, taken
// before the product. Of the first product of every pass besides: its lowest words against those that a
// second algorithm makes of the lowest words of the operands. Of the operands: that they are still what was
// generated.
#pragma once

#include <atomic>
#include <functional>

#include "diagnostics/stress_plan.h"

namespace kelvane {

// What has been done since the start; read while the threads are at work.
struct StressCounters {
  static constexpr u64 PROCESSORS = 1024;
  std::atomic<u64> iterations{0}; // begun
  std::atomic<u64> products{0};
  std::atomic<u64> failures{0};
  std::atomic<u64> processor_failures[PROCESSORS]{};
};

// Where a product was made, and its words: what a test may change before it is checked.
struct StressProduct {
  u64 test, pass, task, index;
  u64* operands;
  u64* words;
  u64 count;
};
using StressHook = std::function<void(const StressProduct&)>;

enum class StressFault { none, residue, sample, operands, exception };
const char* describe(StressFault fault);

// A task and, when it is done, what it found.
struct StressTask {
  // Given:
  const StressPlan* plan;
  const km_MULv3::TableSet* tables;
  void* share;
  u64 share_bytes;
  u64 test, pass, task;
  u64 products;  // of this pass
  s64 processor; // to bind to; -1: any
  const StressHook* hook;
  StressCounters* counters;
  // Found:
  u64 ran_on;        // the processor
  u64 failures;      // of the pass
  StressFault first; // of them
};
void run_stress_task(StressTask& task);

} // namespace kelvane
