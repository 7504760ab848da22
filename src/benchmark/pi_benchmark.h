// The Pi benchmark: a computation in memory, compared with the stored result, and its validation file.
#pragma once

#include "benchmark/clock_check.h"
#include "benchmark/reference_results.h"
#include "shell/file.h"
#include "shell/settings.h"
#include "shell/system_info.h"

namespace kelvane {

struct FinishResult;

// Settings of a benchmark: Pi by its first formula, no digit files, no hexadecimal digits. A value that the
// settings refuse is fatal.
ComputeSettings benchmark_settings(u64 digits, u64 threads);

enum class BenchmarkVerdict { MATCH, MISMATCH, NO_REFERENCE };
BenchmarkVerdict compare_with_reference(const FinishResult& result, const ReferenceResult* reference);
// "Match: ...", "Mismatch: ...", "No reference: ..."
const char* verdict_text(BenchmarkVerdict verdict);

// Where a run takes the world from, replaceable by tests.
struct BenchmarkSources {
  ClockSource clocks = SYSTEM_CLOCKS;
  SystemSource system = THIS_SYSTEM;
  const ReferenceResult* (*reference)(u64 digits) = reference_result;
  FileSystem* files = nullptr; // null: the system's
};

// Runs, prints times (the driver), system, verdict and clocks, and writes the validation file to the working
// directory. A file that cannot be written is told, its text is shown instead.
void run_benchmark(u64 digits, u64 threads, const BenchmarkSources& sources = {});

} // namespace kelvane
