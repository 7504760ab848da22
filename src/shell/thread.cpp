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

// The stacks of threads that have ended, for the next ones: one for each processor, the others go back to the
// system. A stack of the C library's gives its pages back whenever its thread ends, for which all processors
// of the program are interrupted, and the next thread takes them from the system again. What a kept stack's
// threads have touched stays resident.
class Stacks {
public:
  // A stack of `bytes` with a guard page below it; null when none can be had.
  void* take(u64 bytes) {
    {
      const std::lock_guard lock(mutex_);
      if (bytes == bytes_ && !kept_.empty()) {
        void* const stack = kept_.back();
        kept_.pop_back();
        return stack;
      }
    }
    void* const stack = mmap(nullptr, bytes, PROT_READ | PROT_WRITE,
                             MAP_PRIVATE | MAP_ANONYMOUS | MAP_STACK | MAP_NORESERVE, -1, 0);
    if (stack == MAP_FAILED) return nullptr;
    if (mprotect(stack, static_cast<size_t>(sysconf(_SC_PAGESIZE)), PROT_NONE) == 0) return stack;
    munmap(stack, bytes);
    return nullptr;
  }
  void give_back(void* stack, u64 bytes) {
    {
      const std::lock_guard lock(mutex_);
      if (kept_.empty()) bytes_ = bytes;
      if (bytes == bytes_ && kept_.size() < most_) return kept_.push_back(stack);
    }
    munmap(stack, bytes);
  }

  // Never destroyed: a fatal error ends the program while other threads run.
  static Stacks& all() {
    static Stacks& stacks = *new Stacks;
    return stacks;
  }

private:
  Stacks() { kept_.reserve(most_); }

  const u64 most_ = logical_processors();
  std::mutex mutex_;
  std::vector<void*> kept_; // all of bytes_
  u64 bytes_ = 0;
};

constinit std::atomic<u64> running{0}; // threads that were started and not yet joined

void give_back_stack(Thread& t) {
  if (t.stack != nullptr) Stacks::all().give_back(t.stack, t.stack_bytes);
  t.stack = nullptr;
}

// Creates t's thread as the system's defaults say, but on a stack of ours where one can be had.
int create(Thread& t, Thread::Task task) {
  t.stack = nullptr;
  pthread_attr_t attributes;
  if (const int error = pthread_getattr_default_np(&attributes); error != 0) return error;
  size_t bytes = 0;
  pthread_attr_getstacksize(&attributes, &bytes);
  t.stack_bytes = bytes;
  t.stack = Stacks::all().take(bytes);
  if (t.stack != nullptr) pthread_attr_setstack(&attributes, t.stack, bytes);
  const int error = pthread_create(&t.handle, &attributes, task, &t);
  pthread_attr_destroy(&attributes);
  if (error == 0)
    running++;
  else
    give_back_stack(t);
  return error;
}

// Halves of equal size end together, and waking a sleeper takes longer than the other one's last steps: so
// while every thread can have a processor of its own, a join looks for a while before it sleeps.
int wait_for(const Thread& t) {
  static const u64 processors = logical_processors();
  constexpr u32 LOOKS = 100, PAUSES = 16; // about 50 us
  const bool look_first = t.stack != nullptr && running < processors;
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
  if (error == 0) {
    running--;
    return give_back_stack(t);
  }
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
