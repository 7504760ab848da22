#include "shell/thread.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <numeric>
#include <stdexcept>
#include <vector>

#include "shell/console.h"
#include "shell/exception.h"
#include "support/capture.h"
#include "support/short.h"

namespace kelvane {
namespace {

struct Sum {
  const u64* data;
  u64 n;
  u64 threads;
  u64 result = 0;
};

void sum(Sum& s) {
  if (s.threads < 2) {
    s.result = std::accumulate(s.data, s.data + s.n, u64{0});
    return;
  }
  Sum low{s.data, s.n / 2, s.threads / 2};
  Sum high{s.data + s.n / 2, s.n - s.n / 2, s.threads - s.threads / 2};
  ASSERT_EQ(fork_join(low, high, sum), 0);
  s.result = low.result + high.result;
}

TEST(Thread, ForkJoinTree) {
  std::vector<u64> data(10000);
  std::iota(data.begin(), data.end(), u64{1});
  for (const u64 threads : {u64{1}, u64{2}, u64{3}, u64{7}, u64{256}}) {
    Sum s{data.data(), data.size(), threads};
    sum(s);
    EXPECT_EQ(s.result, 50005000u) << threads << " threads";
  }
}

// A thread takes over the stack of one that has ended: it must be whole, and no two threads may share one.
TEST(Thread, StacksAreReusedButNotShared) {
  constexpr u64 WORDS = 4096; // 32 KiB of the stack
  struct Half {
    u64 mark, depth;
    bool intact = false;
  };
  const auto run = [](auto& self, Half& half) -> void {
    volatile u64 own[WORDS];
    for (u64 i = 0; i < WORDS; i++) own[i] = half.mark + i;
    bool intact = true;
    if (half.depth > 0) {
      Half low{2 * half.mark, half.depth - 1}, high{2 * half.mark + 1, half.depth - 1};
      intact = fork_join(low, high, [&](Half& h) { self(self, h); }) == 0 && low.intact && high.intact;
    }
    for (u64 i = 0; i < WORDS; i++) intact = intact && own[i] == half.mark + i;
    half.intact = intact;
  };
  for (u64 round = 0; round < 20; round++) {
    Half root{1 + (round << 40), round % 6};
    run(run, root);
    EXPECT_TRUE(root.intact) << "round " << round;
  }
}

TEST(Thread, ExceptionBecomesTheResult) {
  struct Half {
    s32 code;
    bool done = false;
  };
  const auto task = [](Half& half) {
    if (half.code != 0) throw km_exception(half.code, "broken");
    half.done = true;
  };
  const auto run = [&](s32 first_code, s32 second_code) {
    return capture([&] {
             Half first{first_code};
             Half second{second_code};
             const s32 result = fork_join(first, second, task);
             Console::print(std::to_string(result) + (first.done ? " first" : "") +
                            (second.done ? " second" : ""));
           })
        .output;
  };
  EXPECT_EQ(run(0, 0), "0 first second");
  const std::string failure = "\n\nException Encountered: Generic Exception\nError Code: 7\n\nbroken\n\n";
  EXPECT_EQ(run(7, 0), failure + "7 second") << "the caller's half is finished and the thread joined";
  EXPECT_EQ(run(0, 7), failure + "7 first");
}

TEST(Thread, OtherExceptionsAreFatal) {
  struct Half {
    bool fails;
  };
  const auto run = [](bool first_fails) {
    return capture([=] {
      Half first{first_fails};
      Half second{!first_fails};
      fork_join(first, second, [](Half& half) {
        if (half.fails) throw std::runtime_error("out of luck");
      });
    });
  };
  for (const bool first : {true, false}) {
    const Captured c = run(first);
    EXPECT_EQ(c.status, 1);
    EXPECT_EQ(c.output, "\nout of luck\n\nFATAL ERROR: Unhandled exception in child thread.\n\n"
                        "Press ENTER to continue . . .");
  }
}

TEST(Thread, RunsInlineWhenNoThreadCanBeCreated) {
  std::vector<u64> data(1000, 3);
  const Captured c = capture([&] {
    // No thread can have a stack of this size.
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, size_t{1} << 50);
    ASSERT_EQ(pthread_setattr_default_np(&attributes), 0);
    Sum s{data.data(), data.size(), 4};
    sum(s);
    Console::print(std::to_string(s.result));
  });
  const std::string warning = "Warning: Unable to create thread.\n";
  EXPECT_EQ(c.output, warning + warning + warning + "3000") << "once per attempted split";
}

TEST(Thread, JoinFailureIsFatal) {
  const Captured c = capture([] {
    Thread t;
    t.handle = pthread_self(); // joining oneself is a deadlock, which the system reports
    Thread::join(t);
  });
  EXPECT_EQ(c.status, 1);
  EXPECT_EQ(c.output, "Thread Error: Wait for thread has failed.\n\nError Code = 35\n\n\n"
                      "Possible Memory Allocation Failure.\n\nPress ENTER to continue . . .");
}

TEST(Thread, Services) {
  EXPECT_GE(logical_processors(), 1u);
  EXPECT_EQ(capture([] { set_affinity(1000000); }).output, "Unable to set Affinity Mask.\n");
  EXPECT_EQ(capture([] { Console::print(lower_priority() ? "lower" : "refused"); }).output, "lower");
}

} // namespace
} // namespace kelvane
