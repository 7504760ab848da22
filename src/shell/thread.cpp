// Threads on POSIX. See thread.h.

#include "shell/thread.h"

#include <sched.h>
#include <sys/resource.h>
#include <unistd.h>

#include "shell/console.h"

namespace kelvane {

void Thread::start(Thread& t, Task task, void* argument) {
  t.argument = argument;
  t.result = 0;
  t.ran_inline = 0;
  if (pthread_create(&t.handle, nullptr, task, &t) == 0) return;
  // The work is still done, only without parallelism.
  t.ran_inline = 1;
  Console::print_colored("Warning: Unable to create thread.\n", 'R');
  task(&t);
}

void Thread::join(Thread& t) {
  const int error = pthread_join(t.handle, nullptr);
  if (error == 0) return;
  Console::set_color_red(true);
  Console::print("Thread Error: Wait for thread has failed.");
  Console::print("\n\n");
  Console::print("Error Code = ");
  Console::print_s64(error);
  Console::print("\n");
  Console::set_color_white();
  fatal("Possible Memory Allocation Failure.");
}

u64 logical_processors() {
  const long online = sysconf(_SC_NPROCESSORS_ONLN);
  return online < 1 ? 1 : static_cast<u64>(online);
}

bool set_affinity(u64 processor) {
  cpu_set_t set;
  CPU_ZERO(&set);
  if (processor < CPU_SETSIZE) CPU_SET(processor, &set);
  if (pthread_setaffinity_np(pthread_self(), sizeof set, &set) == 0) return true;
  Console::print_colored("Unable to set Affinity Mask.\n", 'R');
  return false;
}

bool lower_priority() {
  constexpr int LOWEST = 19;
  if (setpriority(PRIO_PROCESS, 0, LOWEST) == 0) return true; // on Linux: of the calling thread
  Console::print_colored("Unable to Set Thread Priority\n", 'R');
  return false;
}

} // namespace kelvane
