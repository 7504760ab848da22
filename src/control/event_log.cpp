#include "control/event_log.h"

#include "shell/status_line.h"

namespace kelvane {

EventLog::EventLog() : start_(Console::wall_seconds()) {
  events_.reserve(64);
}

void EventLog::record(const char* name) {
  events_.push_back({name, std::time(nullptr), Console::wall_seconds() - start_});
}

std::string local_time_text(std::time_t t) {
  std::tm tm{};
  localtime_r(&t, &tm);
  char text[64];
  const size_t n = std::strftime(text, sizeof text, "%a %b %d %H:%M:%S %Y", &tm);
  return std::string(text, n);
}

} // namespace kelvane
