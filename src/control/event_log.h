// The computation's event log: when each phase began.
#pragma once

#include <ctime>
#include <string>
#include <vector>

#include "shell/types.h"

namespace kelvane {

struct Event {
  std::string name;
  std::time_t time; // local wall clock
  double seconds;   // since the log was made
};

class EventLog {
public:
  EventLog();
  void record(const char* name);
  const std::vector<Event>& events() const { return events_; }

private:
  double start_;
  std::vector<Event> events_;
};

// "Sat Nov 21 03:04:05 2026"
std::string local_time_text(std::time_t t);

} // namespace kelvane
