// What a constant's run is given by the driver, and the record it fills.
#pragma once

#include "control/event_log.h"
#include "digits/finish.h"
#include "multiply/table/km_MULv3.h"
#include "series/series_context.h"
#include "shell/heap.h"

namespace kelvane {

struct ComputeSettings;

// Faults that tests put into a run; all null in the program.
struct RunFaults {
  SeriesFault* series = nullptr;
  CBRv2::Faults* conversion = nullptr;
};

struct ComputeContext {
  const ComputeSettings& settings;
  Heap& heap;
  km_MULv3::Context multiply;
  EventLog& events;
  FinishResult& result;
  RunFaults faults;
  double compute_end = 0; // wall clock when the constant itself was computed
};

} // namespace kelvane
