// See stress_signals.h.

#include "diagnostics/stress_signals.h"

#include <poll.h>
#include <unistd.h>

#include "shell/console.h"

namespace kelvane {

namespace {

// Read by the handler.
std::atomic<const StressCounters*> counters_in_force{nullptr};
static_assert(std::atomic<const StressCounters*>::is_always_lock_free &&
              std::atomic<u64>::is_always_lock_free);

// Text in a fixed buffer; what does not fit is left out.
class Text {
public:
  Text(char* text, u64 size) : text_(text), size_(size) {}
  void add(const char* s) {
    for (; *s != 0 && length_ < size_; s++) text_[length_++] = *s;
  }
  // With a "," between groups of three digits.
  void add(u64 value) {
    char digits[32];
    u64 at = sizeof digits;
    digits[--at] = 0;
    for (u64 count = 0; count == 0 || value != 0; count++, value /= 10) {
      if (count != 0 && count % 3 == 0) digits[--at] = ',';
      digits[--at] = static_cast<char>('0' + value % 10);
    }
    add(digits + at);
  }
  u64 length() const { return length_; }

private:
  char* text_;
  u64 size_;
  u64 length_ = 0;
};

constexpr char WHITE[] = "\033[01;37m";
constexpr char GREEN[] = "\033[01;32m";
constexpr char RED[] = "\033[01;31m";

// Whether the reader of the output takes some at once: a full pipe must not hold the end up.
bool output_is_ready() {
  pollfd output{STDOUT_FILENO, POLLOUT, 0};
  return poll(&output, 1, 0) == 1 && (output.revents & POLLOUT) != 0;
}

extern "C" void end_stress_test(int signal) {
  const StressCounters* const counters = counters_in_force.load();
  if (counters == nullptr) _exit(128 + signal);
  char text[4096];
  u64 length = write_stress_summary(*counters, text, sizeof text);
  for (const char* p = text; length != 0 && output_is_ready();) {
    const ssize_t written = write(STDOUT_FILENO, p, length);
    if (written <= 0) break;
    p += written;
    length -= static_cast<u64>(written);
  }
  if (counters->failures.load() != 0) _exit(1);
  _exit(signal == SIGINT ? 0 : 128 + signal);
}

} // namespace

u64 write_stress_summary(const StressCounters& counters, char* buffer, u64 size) {
  Text text(buffer, size);
  const u64 failures = counters.failures.load();
  text.add("\n\n");
  text.add(WHITE);
  text.add("Stress-Test ended:\n    Iterations:  ");
  text.add(counters.iterations.load());
  text.add("\n    Products:    ");
  text.add(counters.products.load());
  text.add("\n    Failures:    ");
  text.add(failures == 0 ? GREEN : RED);
  text.add(failures);
  text.add("\n");
  for (u64 i = 0; i < StressCounters::PROCESSORS && failures != 0; i++) {
    const u64 count = counters.processor_failures[i].load();
    if (count == 0) continue;
    text.add("        Processor ");
    text.add(i);
    text.add(":  ");
    text.add(count);
    text.add("\n");
  }
  text.add(Console::RESET_SEQUENCE);
  text.add("\n");
  return text.length();
}

StressSignals::StressSignals(const StressCounters& counters) {
  counters_in_force.store(&counters);
  for (int i = 0; i < 3; i++) {
    // A signal ignored by whoever started the program stays ignored (nohup, background jobs).
    if (sigaction(SIGNALS[i], nullptr, &before_[i]) != 0 || before_[i].sa_handler == SIG_IGN) continue;
    struct sigaction action {};
    action.sa_handler = end_stress_test;
    action.sa_flags = SA_RESTART;
    sigfillset(&action.sa_mask);
    taken_[i] = sigaction(SIGNALS[i], &action, nullptr) == 0;
  }
}

StressSignals::~StressSignals() {
  for (int i = 0; i < 3; i++) {
    if (taken_[i]) sigaction(SIGNALS[i], &before_[i], nullptr);
  }
  counters_in_force.store(nullptr);
}

} // namespace kelvane
