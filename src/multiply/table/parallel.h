// Independent tasks of one product on several threads.
#pragma once

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

// f(task, worker) for every task below `tasks`; the workers draw tasks from one counter. Which worker runs a
// task must make no difference to its result.
template <class F> void for_tasks(u64 threads, u64 tasks, const F& f) {
  if (threads > tasks) threads = tasks;
  if (threads <= 1) {
    for (u64 task = 0; task < tasks; task++) f(task, Worker{0, true});
    return;
  }
  std::atomic<u64> next{0};
  on_threads({0, threads}, [&](u64 index) {
    const Worker worker{index, index == threads - 1};
    for (u64 task; (task = next.fetch_add(1, std::memory_order_relaxed)) < tasks;) f(task, worker);
  });
}

} // namespace kelvane::km_MULv3
