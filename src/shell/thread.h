// Fork-join threads: one half of a split runs on a new POSIX thread, the other
// on the calling thread. There is no pool; a thread lives for one task.
//
// Cost on two virtual processors: 40 to 80 us on the caller to start one, most of it the interrupt that wakes
// a halted processor; 20 us more until it runs; 5 to 10 us from its end to the return of a join that is
// looking for it, 40 when the join has gone to sleep.
//
// A km_exception never crosses a thread boundary: the task prints it and its
// code becomes `result`. Any other exception in a task is fatal.
#pragma once

#include <pthread.h>

#include "shell/types.h"

namespace kelvane {

struct Thread {
  pthread_t handle{};
  void* argument = nullptr;
  s32 result = 0;        // 0, or the code of a km_exception caught inside the task
  s32 ran_inline = 0;    // set when the thread could not be created and the task ran on the caller
  void* stack = nullptr; // null: the C library's
  u64 stack_bytes = 0;

  // A task function receives the Thread record (its argument is record->argument).
  using Task = void* (*)(void* record);

  static void start(Thread& t, Task task, void* argument);
  static void join(Thread& t);
};

u64 logical_processors(); // online, at least 1
bool set_affinity(u64 processor);
bool lower_priority();

// Runs f(first) on a new thread and f(second) on the caller, joins, and returns the first
// non-zero result of the two halves (0 when both succeeded). F: void(Block&).
// A km_exception thrown on either half is printed and becomes its result.
template <class Block, class F> s32 fork_join(Block& first, Block& second, const F& f);

} // namespace kelvane

#include "shell/thread_inl.h"
