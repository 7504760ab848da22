// The computation driver: one computation from its settings to written and verified digits.
#pragma once

#include "control/compute_context.h"
#include "shell/types.h"

namespace kelvane {

struct ComputeSettings;

// Wall clock and processor time of a run, in seconds.
struct RunTimes {
  std::time_t start = 0, end = 0;
  double computation = 0; // the constant itself and its conversion
  double total = 0;       // with output and verification
  double cpu = 0;         // processor time of all threads during `total`
};

// What the driver reports of a finished run, on the screen and in the report file.
struct RunRecord {
  RunTimes times;
  FinishResult result;
  EventLog events;
  u64 working_bytes = 0, table_bytes = 0; // reserved
  u64 planned_bytes = 0;                  // of the heap, by the constant's memory plan
  u64 peak_bytes = 0;                     // of the heap, as it came
};

// The whole road: memory warning, header, reservation, tables, the constant's run, timings, last digits,
// report file. Throws what the run throws; memory is released first.
void run_computation(ComputeSettings& settings);
// The same with faults put in by a test, and the record handed out.
void run_computation(ComputeSettings& settings, const RunFaults& faults, RunRecord& record);

} // namespace kelvane
