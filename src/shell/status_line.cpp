// The status line and the progress display. See status_line.h.

#include "shell/status_line.h"

#include <cmath>
#include <cstdio>
#include <ctime>

#include "shell/console.h"

namespace kelvane::Console {

namespace {

double seconds_of(clockid_t clock) {
  timespec t{};
  clock_gettime(clock, &t);
  return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) * 1e-9;
}

// Asked for with every leaf of a series, so by the clock that only the kernel's timer sets: a few milliseconds.
double coarse_seconds() {
  return seconds_of(CLOCK_MONOTONIC_COARSE);
}

// A duration in few characters: "12.3 s", "4:07 min", "3:25:10 h", "12 days".
std::string format_duration(double seconds) {
  char text[64];
  if (seconds < 60) {
    std::snprintf(text, sizeof text, "%.1f s", seconds);
  } else if (seconds < 3600) {
    const auto s = static_cast<long>(seconds);
    std::snprintf(text, sizeof text, "%ld:%02ld min", s / 60, s % 60);
  } else if (seconds < 100 * 3600.0) {
    const auto s = static_cast<long>(seconds);
    std::snprintf(text, sizeof text, "%ld:%02ld:%02ld h", s / 3600, s / 60 % 60, s % 60);
  } else {
    std::snprintf(text, sizeof text, "%.0f days", seconds < 1e12 ? seconds / 86400 : 1e7);
  }
  return text;
}

} // namespace

double wall_seconds() {
  return seconds_of(CLOCK_MONOTONIC);
}
double cpu_seconds() {
  return seconds_of(CLOCK_PROCESS_CPUTIME_ID);
}

StatusLine& status_line() {
  static StatusLine line;
  return line;
}

void StatusLine::restart_clock() {
  start_ = wall_seconds();
}

void StatusLine::clear() {
  print(std::string("\r").append(width, ' ') + "\r");
}

void StatusLine::print_time() {
  clear();
  print("Time:    ");
  print_seconds(wall_seconds() - start_);
  print("\n");
}

bool StatusLine::due() const {
  return !printed_ || coarse_seconds() - last_ >= interval;
}

void StatusLine::refresh(int mode) {
  if (mode == 0 || (mode == 1 && !due())) return;
  last_ = coarse_seconds();
  printed_ = true;
  clear();

  u64 rest = 0;
  for (const Segment& segment : segments) rest += segment.text.size();
  const u64 ellipsis = 4;
  u64 length = 0;
  char color = 'W';
  for (const Segment& segment : segments) {
    // A segment is shown when everything left fits, or when it leaves room for the ellipsis that must follow.
    const bool fits = length + rest <= width || length + segment.text.size() + ellipsis <= width;
    if (!fits) {
      if (width >= ellipsis) print_colored(" ...", 'W');
      break;
    }
    if (segment.color != color) set_color(segment.color);
    color = segment.color;
    print(segment.text);
    length += segment.text.size();
    rest -= segment.text.size();
  }
  set_color_white();
  if (newline != 0) print("\n");
}

Progress::Progress(const char* label, double total_cost, u64 width)
    : label_(label), total_(total_cost), start_(wall_seconds()), owner_(pthread_self()) {
  status_line().width = width;
  draw(2);
}

Progress::~Progress() {
  status_line().clear();
}

void Progress::set_label(const char* label) {
  if (pthread_equal(pthread_self(), owner_) == 0) return;
  label_ = label;
  tick();
}

void Progress::add(double cost) {
  done_.fetch_add(cost, std::memory_order_relaxed);
  tick();
}

void Progress::tick() {
  if (pthread_equal(pthread_self(), owner_) != 0 && status_line().due()) draw(1);
}

void Progress::draw(int mode) {
  const double elapsed = wall_seconds() - start_;
  double fraction = total_ > 0 ? done() / total_ : 0;
  if (!(fraction > 0)) fraction = 0;
  if (fraction > 1) fraction = 1;

  char percentage[32];
  // Truncated: 100.0% appears only when everything is done.
  std::snprintf(percentage, sizeof percentage, "%5.1f%%", std::floor(fraction * 1000) / 10);
  std::string times = "  elapsed " + format_duration(elapsed);
  if (fraction > 0 && elapsed > 0) {
    times += ", remaining " + format_duration(elapsed * (1 - fraction) / fraction);
  }
  StatusLine& line = status_line();
  std::string label = label_ + "  ";
  // The figures matter more than a long label's end.
  const u64 figures = std::char_traits<char>::length(percentage) + times.size();
  if (label.size() + figures > line.width && line.width > figures) label.resize(line.width - figures);
  line.segments = {{'P', std::move(label)}, {'G', percentage}, {'W', std::move(times)}};
  line.refresh(mode);
}

} // namespace kelvane::Console
