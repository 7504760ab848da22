// The recursion by itself, on a shape whose halves end when the test wants them to.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <map>
#include <mutex>
#include <thread>

#include "series/recursion.h"
#include "support/bignum.h"

namespace kelvane {
namespace {

using test::Work;

// A range's integer is the sum of its indices plus 1. The first leaf of the right half waits until the first
// quarter has been merged, the last leaf of the left half until the right one has been and its thread had
// time to end.
struct Counting {
  static constexpr u64 INTEGERS = 1, TERM_WORDS = u64{1} << 13, BYTES_A_THREAD = 4096;
  u64 N;
  mutable std::atomic<bool> quarter_merged{false}, right_merged{false};
  mutable std::mutex mutex;
  mutable std::map<std::pair<u64, u64>, u64> threads; // of the merge of [a, b)

  explicit Counting(u64 terms) : N(terms) {}
  u64 capacity(u64 a, u64 b, u64) const { return (b - a) * TERM_WORDS; }
  u64 first_capacity(u64 a, u64 b, u64 divided) const { return capacity(a, b, divided); }
  const CommonFactors* common_factors() const { return nullptr; }
  u64 divided_level(u64, u64) const { return 0; }
  bool is_leaf(u64 a, u64 b) const { return b - a == 1; }
  void leaf(u64 a, u64, kob_cdi_EFPh* out) const {
    const auto await = [](const std::atomic<bool>& event) {
      while (!event) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    };
    if (a == N / 2) await(quarter_merged);
    if (a == N / 2 - 1) {
      await(right_merged);
      std::this_thread::sleep_for(std::chrono::milliseconds(300));
    }
    const u64 value = a + 1;
    out[0].set_words(&value, 1);
  }
  u64 merge_bytes(u64 capacity, const km_MULv3::Context& context) const {
    return capacity / TERM_WORDS * BYTES_A_THREAD * context.threads;
  }
  void merge(const km_MULv3::Context& context, u64 a, u64 m, u64 b, const kob_cdi_EFPh* left,
             const kob_cdi_EFPh* right, kob_cdi_EFPh* out, bool, void*, u64 bytes) const {
    EXPECT_GE(bytes, merge_bytes(capacity(a, m, 0), context)) << a << ' ' << b;
    const u64 sum = left[0].T[0] + right[0].T[0];
    out[0].set_words(&sum, 1);
    const std::lock_guard lock(mutex);
    threads[{a, b}] = context.threads;
    if (a == 0 && b == N / 4) quarter_merged = true;
    if (a == N / 2 && b == N) right_merged = true;
  }
  double merge_cost(u64) const { return 0; }
};

// A half that has finished lends its threads to the long merges of the other one, for which the planned
// memory suffices.
TEST(Recursion, AFinishedHalfLendsItsThreads) {
  const Counting shape(16);
  SeriesContext context;
  context.multiply.threads = 2;
  const RecursionLevels levels{0, 1, 0};
  const u64 bytes = Recursion<Counting>::work_bytes(shape, 0, shape.N, context.multiply, levels);
  Work work(bytes);
  std::vector<u64> words(shape.N * Counting::TERM_WORDS);
  kob_cdi_EFPh out;
  out.attach(words.data(), words.size());
  Recursion<Counting>(shape, context).run(0, shape.N, &out, true, 2, levels, work.data(), bytes);
  EXPECT_EQ(out.T[0], shape.N * (shape.N + 1) / 2);
  using Range = std::pair<u64, u64>;
  EXPECT_EQ(shape.threads.at(Range(0, 16)), 2u);
  // The left half before and after the right one's end: halves of 2^14 words are worth a second thread.
  EXPECT_EQ(shape.threads.at(Range(0, 4)), 1u);
  EXPECT_EQ(shape.threads.at(Range(6, 8)), 1u);
  EXPECT_EQ(shape.threads.at(Range(4, 8)), 2u);
  EXPECT_EQ(shape.threads.at(Range(0, 8)), 2u);
  for (const Range& range : {Range(8, 12), Range(12, 16), Range(8, 16)})
    EXPECT_EQ(shape.threads.at(range), 1u) << range.first;
}

} // namespace
} // namespace kelvane
