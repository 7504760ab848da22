// The threads' shares of a product's tasks.

#include "multiply/table/parallel.h"

#include <gtest/gtest.h>
#include <sched.h>

#include <atomic>
#include <vector>

namespace kelvane::km_MULv3 {
namespace {

// Every task runs once, on a worker of the range, after all tasks of the phases before: for shares that
// differ, that are empty, and whose owner is held up so that others must take over what it has left.
TEST(Parallel, EveryTaskOnceAndPhasesInOrder) {
  for (const u64 threads : {1, 2, 3, 5, 16, 300}) {
    for (const u64 tasks : {0, 1, 2, 7, 64, 1000}) {
      constexpr u64 PHASES = 4;
      std::vector<std::atomic<u64>> runs(PHASES * 1000);
      std::atomic<u64> finished{0}, early{0}, strangers{0};
      const auto phase = [&](u64 index, u64 count, u64 before) {
        return Phase{count, [&, index, before](u64 task, Worker worker) {
                       if (finished.load(std::memory_order_relaxed) < before) early++;
                       if (worker.index >= threads) strangers++;
                       if (worker.index == 0 && task % 64 == 0) sched_yield();
                       runs[index * 1000 + task]++;
                       finished++;
                     }};
      };
      run_phases(threads, phase(0, tasks, 0), phase(1, 3, tasks), phase(2, 1, tasks + 3),
                 phase(3, tasks, tasks + 4));
      EXPECT_EQ(finished, 2 * tasks + 4) << threads << " threads, " << tasks << " tasks";
      EXPECT_EQ(early + strangers, 0) << threads << " threads, " << tasks << " tasks";
      const u64 counts[PHASES] = {tasks, 3, 1, tasks};
      for (u64 p = 0; p < PHASES; p++) {
        for (u64 task = 0; task < 1000; task++)
          ASSERT_EQ(runs[p * 1000 + task], task < counts[p] ? 1 : 0)
              << threads << " threads, " << tasks << " tasks, phase " << p << ", task " << task;
      }
    }
  }
}

// A worker that is held up in its first task loses all others of its share.
TEST(Parallel, OthersTakeOver) {
  constexpr u64 TASKS = 100;
  std::atomic<u64> done{0};
  std::atomic<bool> alone{false};
  run_phases(2, Phase{TASKS, [&](u64 task, Worker) {
                        if (task == 0) {
                          for (u64 look = 0; look < 100000000 && done < TASKS - 1; look++) sched_yield();
                          alone = done == TASKS - 1;
                        } else {
                          done++;
                        }
                      }});
  EXPECT_TRUE(alone);
}

} // namespace
} // namespace kelvane::km_MULv3
