// The transient one-line progress display.
#pragma once

#include <pthread.h>

#include <atomic>
#include <string>
#include <vector>

#include "shell/types.h"

namespace kelvane::Console {

class StatusLine {
public:
  struct Segment {
    char color;
    std::string text;
  };

  u64 width = 79;
  s32 newline = 0;       // end each refresh with a newline
  double interval = 1.0; // seconds between refreshes in mode 1
  std::vector<Segment> segments;

  void restart_clock();   // sets the start time of print_time
  void clear();           // "\r", width blanks, "\r"
  void print_time();      // clears, "Time:    ", the elapsed seconds, "\n"
  bool due() const;       // nothing printed yet, or the interval has passed
  void refresh(int mode); // 0 nothing, 1 at most once per interval, else at once

private:
  double start_ = 0;
  double last_ = 0;
  bool printed_ = false;
};

StatusLine& status_line(); // the program's status line: width 79, no newline, 1.0 second

// Progress of one phase on the status line: label, percentage of the cost done, elapsed and estimated
// remaining time. Any thread may add cost; only the thread that called begin draws, at most once a second.
class Progress {
public:
  Progress(const char* label, double total_cost, u64 width = 79); // draws at once
  ~Progress();                                                    // clears the line
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  void set_label(const char* label); // the creating thread only
  void add(double cost);             // cost done; also draws when due
  void tick();                       // draws when due
  double done() const { return done_.load(std::memory_order_relaxed); }

private:
  void draw(int mode);
  std::string label_;
  double total_;
  std::atomic<double> done_{0};
  double start_;
  pthread_t owner_;
};

double wall_seconds(); // monotonic clock
double cpu_seconds();  // processor time of all threads of the process

} // namespace kelvane::Console
