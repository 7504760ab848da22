#include "benchmark/clock_check.h"

#include <cmath>
#include <ctime>

#include "shell/status_line.h"

namespace kelvane {

namespace {

constexpr double TOLERANCE_SECONDS = 0.05;
constexpr double TOLERANCE_SHARE = 0.001;

double day_seconds() {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

} // namespace

const ClockSource SYSTEM_CLOCKS = {Console::wall_seconds, day_seconds};

bool ClockCheck::agree() const {
  return std::fabs(monotonic_ - day_) <= TOLERANCE_SECONDS + TOLERANCE_SHARE * std::fabs(monotonic_);
}

} // namespace kelvane
