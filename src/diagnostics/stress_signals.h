// What Ctrl+C does while the stress tester runs: the summary, at once, and the end of the program.
#pragma once

#include <csignal>

#include "diagnostics/stress_task.h"

namespace kelvane {

// In force while it lives; the handlers of before return with its end.
class StressSignals {
public:
  explicit StressSignals(const StressCounters& counters);
  ~StressSignals();
  StressSignals(const StressSignals&) = delete;
  StressSignals& operator=(const StressSignals&) = delete;

private:
  static constexpr int SIGNALS[3] = {SIGINT, SIGTERM, SIGHUP};
  struct sigaction before_[3];
  bool taken_[3] = {false, false, false};
};

// The summary as it is printed, in at most `size` bytes; returns its length. Calls nothing that a signal
// handler may not.
u64 write_stress_summary(const StressCounters& counters, char* text, u64 size);

} // namespace kelvane
