// Threads on POSIX. See thread.h.

#include "shell/thread.h"

#include <sched.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <mutex>
#include <vector>

#include "shell/console.h"

namespace kelvane {

namespace {

// The stacks of threads that have ended, for the next ones. A stack of the C library's gives its pages back
// when its thread ends: every processor of the program is interrupted, and the next thread takes the pages
// from the system again.
class Stacks {
public:
  // A stack of `bytes`; null when none can be had.
  void* take(u64 bytes) {
    const std::lock_guard lock(mutex_);
    alive_.fetch_add(1, std::memory_order_relaxed);
    if (bytes != bytes_) { // the system's default was changed; those of the old size are left alone
      free_.clear();
      bytes_ = bytes;
    }
    if (free_.empty()) return map(bytes);
    void* const stack = free_.back();
    free_.pop_back();
    return stack;
  }
  void give_back(void* stack, u64 bytes) {
    const std::lock_guard lock(mutex_);
    alive_.fetch_sub(1, std::memory_order_relaxed);
    if (stack != nullptr && bytes == bytes_) free_.push_back(stack);
  }
  // Threads that were started and not yet joined.
  u64 alive() const { return alive_.load(std::memory_order_relaxed); }

  // Never destroyed: a fatal error ends the program while other threads run.
  static Stacks& all() {
    static Stacks& stacks = *new Stacks;
    return stacks;
  }

private:
  static void* map(u64 bytes) {
    constexpr u64 GUARD = 4096;
    void* const stack = mmap(nullptr, bytes, PROT_READ | PROT_WRITE,
                             MAP_PRIVATE | MAP_ANONYMOUS | MAP_STACK | MAP_NORESERVE, -1, 0);
    if (stack == MAP_FAILED) return nullptr;
    mprotect(stack, GUARD, PROT_NONE); // an overflow faults
    return stack;
  }

  std::mutex mutex_;
  std::vector<void*> free_;
  u64 bytes_ = 0;
  std::atomic<u64> alive_{0};
};

// Creates t's thread as the system's defaults say, but on a stack of ours where one can be had.
int create(Thread& t, Thread::Task task) {
  pthread_attr_t attributes;
  size_t bytes = 0;
  t.stack = nullptr;
  pthread_getattr_default_np(&attributes);
  pthread_attr_getstacksize(&attributes, &bytes);
  t.stack_bytes = bytes;
  t.stack = Stacks::all().take(bytes);
  if (t.stack != nullptr) pthread_attr_setstack(&attributes, t.stack, bytes);
  const int error = pthread_create(&t.handle, &attributes, task, &t);
  pthread_attr_destroy(&attributes);
  if (error != 0) Stacks::all().give_back(t.stack, bytes);
  return error;
}

// Halves of equal size end together, and waking a sleeper takes longer than the other one's last steps: so a
// join looks for a while before it sleeps, when every thread can have a processor of its own.
int wait_for(const Thread& t) {
  static const u64 processors = logical_processors();
  constexpr u32 LOOKS = 100, PAUSES = 16; // about 50 us
  const bool look_first = t.stack != nullptr && Stacks::all().alive() < processors;
  for (u32 look = look_first ? LOOKS : 0; look > 0; look--) {
    if (const int error = pthread_tryjoin_np(t.handle, nullptr); error != EBUSY) return error;
    for (u32 i = 0; i < PAUSES; i++) __builtin_ia32_pause();
  }
  return pthread_join(t.handle, nullptr);
}

} // namespace

void Thread::start(Thread& t, Task task, void* argument) {
  t.argument = argument;
  t.result = 0;
  t.ran_inline = 0;
  if (create(t, task) == 0) return;
  // The work is still done, only without parallelism.
  t.ran_inline = 1;
  Console::print_colored("Warning: Unable to create thread.\n", 'R');
  task(&t);
}

void Thread::join(Thread& t) {
  const int error = wait_for(t);
  if (error == 0) return Stacks::all().give_back(t.stack, t.stack_bytes);
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
