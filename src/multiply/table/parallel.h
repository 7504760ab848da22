// Independent tasks of one product on several threads.
#pragma once

#include <algorithm>
#include <atomic>

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
  static const u64 processors = logical_processors();
  for (u32 looks = threads <= processors ? 4000 : 0; looks > 0; looks--) {
    if (done.load(std::memory_order_acquire) >= tasks) return;
    __builtin_ia32_pause();
  }
  for (u64 now; (now = done.load(std::memory_order_acquire)) < tasks;)
    done.wait(now, std::memory_order_acquire);
}

// The tasks of one phase that are left of a worker's share. The worker takes the first of them, so that what
// a task fetches ahead is the next one's; a worker with nothing left of its own takes the last.
class Share {
public:
  // The tasks [first, end), both below 2^32.
  void set(u64 first, u64 end) { span_.store(end << 32 | first, std::memory_order_relaxed); }
  enum class Side { first, last };
  // Whether there was one.
  bool take(Side side, u64& task) {
    u64 span = span_.load(std::memory_order_relaxed), rest;
    do {
      const u64 first = span & 0xffffffff, end = span >> 32;
      if (first == end) return false;
      task = side == Side::first ? first : end - 1;
      rest = side == Side::first ? span + 1 : span - (u64{1} << 32);
    } while (!span_.compare_exchange_weak(span, rest, std::memory_order_relaxed));
    return true;
  }

private:
  std::atomic<u64> span_{0}; // end, first: halves of one word, which are read and changed together
};

// Runs phases one after another with one fork and join. Each worker has an equal share of neighbouring tasks
// in every phase, then helps the others, and begins a phase when all tasks of the one before are done. Which
// worker runs a task must make no difference to its result. A worker waits only for tasks that others are at
// work on, so the phases also end when some of the threads could not be created.
//
// Neighbours on one worker are worth 5 to 10 % of a product on two threads against tasks drawn from one
// counter: processors may have no cache in common, and then a line that both write, or that one fetched ahead
// for a task of the other, costs more than one from memory.
template <class... F> void run_phases(u64 threads, const Phase<F>&... phases) {
  constexpr u64 MAX_WORKERS = 256, PHASES = sizeof...(F);
  threads = std::min(threads, MAX_WORKERS);
  if (threads <= 1) {
    const auto run = [](const auto& phase) {
      for (u64 task = 0; task < phase.tasks; task++) phase.f(task, Worker{0, true});
    };
    (run(phases), ...);
    return;
  }
  struct alignas(64) Shares {
    Share of[PHASES];
  } shares[MAX_WORKERS];
  const u64 tasks[PHASES] = {phases.tasks...};
  for (u64 i = 0; i < threads; i++) {
    for (u64 p = 0; p < PHASES; p++)
      shares[i].of[p].set(tasks[p] * i / threads, tasks[p] * (i + 1) / threads);
  }
  std::atomic<u64> done[PHASES]{};
  on_threads({0, threads}, [&](u64 index) {
    const Worker worker{index, index == threads - 1};
    u64 p = 0;
    const auto run = [&](const auto& phase) {
      u64 mine = 0, task;
      for (; shares[index].of[p].take(Share::Side::first, task); mine++) phase.f(task, worker);
      for (u64 i = 1; i < threads; i++) {
        Share& other = shares[(index + i) % threads].of[p];
        for (; other.take(Share::Side::last, task); mine++) phase.f(task, worker);
      }
      if (done[p].fetch_add(mine, std::memory_order_acq_rel) + mine == phase.tasks) done[p].notify_all();
      await(done[p], phase.tasks, threads);
      p++;
    };
    (run(phases), ...);
  });
}

} // namespace kelvane::km_MULv3
