// What Ctrl+C and requests to terminate do. See console.h.

#include <csignal>
#include <cstring>
#include <poll.h>
#include <unistd.h>

#include "shell/console.h"

namespace kelvane::Console {

namespace {

// Async-signal-safe: no stream, no allocation. A full pipe that nobody reads must not hold the process up, so
// the text is dropped unless it can be written at once.
extern "C" void end_by_signal(int signal) {
  static const char text[] = "\n\033[39;49m";
  pollfd output{STDOUT_FILENO, POLLOUT, 0};
  if (poll(&output, 1, 0) == 1 && (output.revents & POLLOUT) != 0) {
    [[maybe_unused]] const ssize_t written = write(STDOUT_FILENO, text, sizeof text - 1);
  }
  _exit(128 + signal);
}

} // namespace

static_assert(sizeof "\n\033[39;49m" == sizeof "\n" - 1 + sizeof RESET_SEQUENCE);

void install_signal_handlers() {
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    // A signal ignored by whoever started the program stays ignored (nohup, background jobs).
    struct sigaction current {};
    if (sigaction(signal, nullptr, &current) == 0 && current.sa_handler == SIG_IGN) continue;
    struct sigaction action {};
    action.sa_handler = end_by_signal;
    action.sa_flags = SA_RESTART;
    sigfillset(&action.sa_mask);
    sigaction(signal, &action, nullptr);
  }
  // The reader of the output went away: end quietly.
  std::signal(SIGPIPE, SIG_DFL);
}

} // namespace kelvane::Console
