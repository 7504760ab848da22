// Two clocks of the system against each other over the time of a benchmark.
//
// The times of a run come from the monotonic clock. A clock that was tampered with, or is wrong because the
// machine sleeps or is a badly kept virtual one, seldom errs in the same way as the clock of the day.
#pragma once

#include "shell/types.h"

namespace kelvane {

// Seconds; replaceable so that tests can let the clocks disagree.
struct ClockSource {
  double (*monotonic)(); // CLOCK_MONOTONIC: never set, only kept in step
  double (*day)();       // CLOCK_REALTIME: the time of the day, which can be set
};
extern const ClockSource SYSTEM_CLOCKS;

class ClockCheck {
public:
  explicit ClockCheck(const ClockSource& source = SYSTEM_CLOCKS)
      : source_(source), monotonic_(-source.monotonic()), day_(-source.day()) {}
  void stop() {
    monotonic_ += source_.monotonic();
    day_ += source_.day();
  }
  // After stop():
  double monotonic_seconds() const { return monotonic_; }
  double day_seconds() const { return day_; }
  // Within 50 ms and a thousandth of the time. Time synchronisation that runs properly shifts the clock of
  // the day by at most a two-thousandth.
  bool agree() const;

private:
  ClockSource source_;
  double monotonic_, day_;
};

} // namespace kelvane
