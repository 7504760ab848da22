// Independent tasks of one product on several threads.
#pragma once

#include <atomic>
#include <thread>

#include "shell/thread.h"
#include "shell/types.h"

namespace kelvane::km_MULv3 {

struct ThreadRange {
  u64 first, count;
};

// f(i) for i in the range, each on a thread of its own; the last one on the calling thread.
template <class F> void on_threads(ThreadRange range, const F& f) {
  if (range.count <= 1) return f(range.first);
  ThreadRange low{range.first, range.count / 2};
  ThreadRange high{low.first + low.count, range.count - low.count};
  fork_join(low, high, [&f](ThreadRange& half) { on_threads(half, f); });
}

struct Worker {
  u64 index;   // below the number of threads
  bool driver; // whether it is the calling thread
};

// A phase of `tasks` independent tasks, f(task, worker) each.
template <class F> struct Phase {
  u64 tasks;
  F f;
};
template <class F> Phase(u64, F) -> Phase<F>;

// Returns when `done` has reached `tasks`. Waking a sleeping thread takes longer than the last tasks of a
// phase mostly do, so while every thread can have a processor of its own it looks again for a while before it
// sleeps.
inline void await(std::atomic<u64>& done, u64 tasks, u64 threads) {
  static const u64 processors = std::thread::hardware_concurrency();
  for (u32 looks = threads <= processors ? 4000 : 0; looks > 0; looks--) {
    if (done.load(std::memory_order_acquire) >= tasks) return;
    __builtin_ia32_pause();
  }
  for (u64 now; (now = done.load(std::memory_order_acquire)) < tasks;)
    done.wait(now, std::memory_order_acquire);
}

// Runs phases one after another with one fork and join: the workers draw a phase's tasks from its counter,
// and begin a phase when all tasks of the one before are done. Which worker runs a task must make no
// difference to its result. A worker waits only for tasks that others are at work on, so the phases also end
// when some of the threads could not be created.
template <class... F> void run_phases(u64 threads, const Phase<F>&... phases) {
  if (threads <= 1) {
    const auto run = [](const auto& phase) {
      for (u64 task = 0; task < phase.tasks; task++) phase.f(task, Worker{0, true});
    };
    (run(phases), ...);
    return;
  }
  struct Counters {
    std::atomic<u64> next{0}, done{0};
  } counters[sizeof...(F)];
  on_threads({0, threads}, [&](u64 index) {
    const Worker worker{index, index == threads - 1};
    Counters* counter = counters;
    const auto run = [&](const auto& phase) {
      for (u64 task; (task = counter->next.fetch_add(1, std::memory_order_relaxed)) < phase.tasks;) {
        phase.f(task, worker);
        if (counter->done.fetch_add(1, std::memory_order_acq_rel) + 1 == phase.tasks)
          counter->done.notify_all();
      }
      await(counter->done, phase.tasks, threads);
      counter++;
    };
    (run(phases), ...);
  });
}

} // namespace kelvane::km_MULv3
