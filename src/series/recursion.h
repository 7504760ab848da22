// The in-memory recursion of binary splitting (BSR), shared by every shape of series.
//
//   [a, b):  one leaf, or m = (a + b) / 2, the halves [a, m) and [m, b), and their merge
//
// Memory. A level's block holds the left half's integers, the right half's directly behind in reverse order
// (each half at the capacity of the larger), so that the last ones lie side by side, and behind them one area
// used first by the recursion below and then by the merge. Integers grow faster with the index than linearly,
// so the right half is never smaller than the left and the need of a range is found by walking
// down its right spine: O(log N), the same placement as the run. A range that is divided by what all of its
// level have in common has its undivided integers there, too; the divisor lies in front of everything.
//
// Threads. Large ranges are summed one half after the other, their merges on all threads (one product
// can feed them); below a size where it can not, halves run in parallel, each with half of the
// threads and its own area. How many levels are serial and how many fork is decided once, from
// the right spine's sizes, so that neither results nor memory depend on the course of the run. A half that
// has finished lends its threads to the merges that the other one still has to do: processors are seldom
// equally fast for long.
#pragma once

#include <algorithm>
#include <atomic>
#include <cmath>
#include <string>

#include "arithmetic/redundancy.h"
#include "series/block_divisor.h"
#include "series/series_context.h"
#include "shell/exception.h"
#include "shell/heap.h"
#include "shell/status_line.h"
#include "shell/thread.h"

namespace kelvane {

struct RecursionLevels {
  u64 serial = 0;  // levels whose halves run one after the other
  u64 forked = 0;  // levels below them whose halves run in parallel
  u64 divided = 0; // 2^d: the ranges d levels below this one are divided by their common factor
};

// Merges of smaller ranges are not worth a look at the clock; they do not count in the progress.
inline constexpr u64 PROGRESS_WORDS = 64;

// Sum over the recursion's levels of the cost of all merges of a level, for progress: the words of a level
// add up to those of the whole range.
inline double recursion_cost(double range_words) {
  double cost = 0;
  for (double words = range_words; words >= PROGRESS_WORDS; words /= 2)
    cost += range_words * std::log2(words);
  return cost;
}

// A Shape is a series seen by the recursion:
//   static constexpr u64 INTEGERS                  integers per range (at most 4)
//   u64 capacity(a, b, divided) const              words of each of the range's integers with guard words,
//                                                  its ranges of level `divided` being divided (0: none)
//   u64 first_capacity(a, b, divided) const        the same of the first integer, where that is shorter
//   const CommonFactors* common_factors() const    what they are divided by (see common_factors.h)
//   u64 divided_level(a, b) const                  the level to divide when [a, b) is summed as a whole
//   bool is_leaf(a, b) const
//   void leaf(a, b, kob_cdi_EFPh* out) const
//   u64 merge_bytes(capacity, context) const       work of merging two halves of that capacity
//   void merge(context, a, m, b, left, right, out, need_first, work, bytes) const
//                                                  with at least merge_bytes(...) bytes of work; what is more
//                                                  may be used to be faster
//   double merge_cost(words) const                 for progress
//
// need_first tells whether out[0] is used by anybody; on the right spine it is not.
template <class Shape> class Recursion {
public:
  Recursion(const Shape& shape, const SeriesContext& context) : shape_(shape), context_(context) {}

  static RecursionLevels plan(const Shape& shape, u64 a, u64 b, u64 threads) {
    // Halves summed in parallel do not wait for each other, the threads of one product do: measured on two
    // threads, products feed them as well from ranges of 2^18 words on; more threads need 2^14 words each.
    // Ranges below 2^8 words are not worth a thread of their own.
    const u64 serial_words = std::max(u64{1} << 18, threads << 14), fork_words = u64{1} << 8;
    RecursionLevels levels;
    levels.divided = shape.divided_level(a, b);
    if (threads <= 1) return levels;
    u64 divided = levels.divided;
    while (!shape.is_leaf(a, b) && shape.capacity(a, b, divided) >= serial_words) {
      a += (b - a) / 2;
      divided >>= 1;
      levels.serial++;
    }
    for (u64 t = threads; t > 1 && !shape.is_leaf(a, b) && shape.capacity(a, b, divided) >= fork_words;
         t = (t + 1) / 2) {
      a += (b - a) / 2;
      divided >>= 1;
      levels.forked++;
    }
    return levels;
  }

  // Bytes of work for run() over [a, b).
  static u64 work_bytes(const Shape& shape, u64 a, u64 b, const km_MULv3::Context& context,
                        RecursionLevels levels) {
    const u64 bytes = range_bytes(shape, a, b, context, levels, context.threads);
    if (levels.divided == 0) return bytes;
    const BlockSizes sizes = block_sizes(shape, a, b, levels.divided);
    return BlockDivisor::memory_bytes(sizes) +
           std::max(bytes, BlockDivisor::build_bytes(*shape.common_factors(), sizes, context));
  }

  // out[0, INTEGERS) <- the integers of [a, b). Throws kc_BSRModularCheckFailed.
  void run(u64 a, u64 b, kob_cdi_EFPh* out, bool need_first, u64 threads, RecursionLevels levels, void* work,
           u64 bytes) const {
    if (levels.divided == 0) return run_range(a, b, out, need_first, threads, levels, work, bytes, nullptr);
    const BlockSizes sizes = block_sizes(shape_, a, b, levels.divided);
    const u64 kept = BlockDivisor::memory_bytes(sizes);
    u8* const area = static_cast<u8*>(work) + kept;
    km_MULv3::Context multiply = context_.multiply;
    multiply.threads = threads;
    const BlockDivisor divisor(*shape_.common_factors(), sizes, multiply, work, area, bytes - kept);
    Recursion(shape_, context_, &divisor)
        .run_range(a, b, out, need_first, threads, levels, area, bytes - kept, nullptr);
  }

private:
  Recursion(const Shape& shape, const SeriesContext& context, const BlockDivisor* divisor)
      : shape_(shape), context_(context), divisor_(divisor) {}

  // The threads of a half that has finished, for the merges of the other.
  struct Lender {
    std::atomic<u64> threads{0};
  };
  // Merges of halves this long are worth a second thread.
  static constexpr u64 LENDING_WORDS = u64{1} << 14;

  // The same over a range of any level, the divisor having its memory. Its merge may be lent threads, up to
  // most_threads in all.
  static u64 range_bytes(const Shape& shape, u64 a, u64 b, const km_MULv3::Context& context,
                         RecursionLevels levels, u64 most_threads) {
    if (shape.is_leaf(a, b)) return 0;
    Layout layout;
    const Placement place(layout, shape, a, b, levels.divided);
    const bool fork = levels.serial == 0 && levels.forked > 0;
    km_MULv3::Context inner = context;
    inner.threads = fork ? (context.threads + 1) / 2 : child_thread_count(context.threads, levels);
    const u64 inner_most = fork ? context.threads : levels.serial > 0 ? inner.threads : most_threads;
    const u64 child = aligned(range_bytes(shape, place.m, b, inner, below(levels), inner_most));
    km_MULv3::Context multiply = context;
    if (place.capacity >= LENDING_WORDS) multiply.threads = std::max(context.threads, most_threads);
    u64 area = std::max(fork ? 2 * child : child, shape.merge_bytes(place.capacity, multiply));
    if (place.divide) area = std::max(area, BlockDivisor::work_bytes(block_sizes(shape, a, b, 1)));
    return layout.used() + area;
  }

  void run_range(u64 a, u64 b, kob_cdi_EFPh* out, bool need_first, u64 threads, RecursionLevels levels,
                 void* work, u64 bytes, const Lender* lender) const {
    if (shape_.is_leaf(a, b)) return shape_.leaf(a, b, out);
    Layout layout(work, bytes);
    const Placement place(layout, shape_, a, b, levels.divided);
    kob_cdi_EFPh left[Shape::INTEGERS], right[Shape::INTEGERS], whole[Shape::INTEGERS];
    kob_cdi_EFPh* const merged = place.divide ? whole : out;
    for (u64 i = 0; i < Shape::INTEGERS; i++) {
      left[i].attach(place.left[i], i == 0 ? place.first_capacity : place.capacity);
      right[i].attach(place.right[i], i == 0 ? place.first_capacity : place.capacity);
      if (place.divide) whole[i].attach(place.whole[i], place.raw_capacity);
    }
    u8* area = static_cast<u8*>(work) + layout.used();
    const u64 area_bytes = layout.left();

    if (levels.serial == 0 && levels.forked > 0) {
      const u64 half = area_bytes / 2 / Layout::ALIGNMENT * Layout::ALIGNMENT;
      Block first{a, place.m, left, true, threads / 2, area, half};
      Block second{place.m, b, right, need_first, (threads + 1) / 2, area + half, half};
      Lender halves;
      const s32 status = fork_join(first, second, [&](const Block& k) {
        run_range(k.a, k.b, k.out, k.need_first, k.threads, below(levels), k.work, k.bytes, &halves);
        halves.threads.store(k.threads, std::memory_order_relaxed);
      });
      // The half has told what happened; the computation is abandoned through the same exception.
      if (status == ERROR_REDUNDANCY)
        throw kc_BSRModularCheckFailed("Modular Redundancy Check Failed: " + std::to_string(a) + " : " +
                                       std::to_string(b));
      if (status != 0) fatal("Computation Failed");
    } else {
      const u64 t = child_thread_count(threads, levels);
      run_range(a, place.m, left, true, t, below(levels), area, area_bytes, lender);
      run_range(place.m, b, right, need_first, t, below(levels), area, area_bytes, lender);
    }

    km_MULv3::Context multiply = context_.multiply;
    multiply.threads = threads;
    if (lender != nullptr && place.capacity >= LENDING_WORDS)
      multiply.threads += lender->threads.load(std::memory_order_relaxed);
    shape_.merge(multiply, a, place.m, b, left, right, merged, need_first, area, area_bytes);
    const u64 first = need_first ? 0 : 1;
    check(merged, first, a, b);
    if (place.divide) {
      for (u64 i = first; i < Shape::INTEGERS; i++) divisor_->divide(merged[i], out[i], area);
      check(out, first, a, b); // a quotient has the residue of the integer over that of the divisor
    }
    if (context_.multiply.progress != nullptr && place.capacity >= PROGRESS_WORDS)
      context_.multiply.progress->add(shape_.merge_cost(place.capacity));
  }

  void check(kob_cdi_EFPh* results, u64 first, u64 a, u64 b) const {
    const kob_cdi_EFPh* list[Shape::INTEGERS];
    for (u64 i = first; i < Shape::INTEGERS; i++) {
      if (context_.fault != nullptr) context_.fault->after_merge(results[i], a, b);
      list[i - first] = &results[i];
    }
    modular_redundancy_check(list, Shape::INTEGERS - first, a, b);
  }

  struct Placement {
    u64 m, capacity, first_capacity; // of the halves' integers
    u64 raw_capacity;                // of the range's own before they are divided
    bool divide;
    u64 *left[Shape::INTEGERS], *right[Shape::INTEGERS], *whole[Shape::INTEGERS];
    Placement(Layout& layout, const Shape& shape, u64 a, u64 b, u64 divided)
        : m(a + (b - a) / 2),
          capacity(std::max(shape.capacity(a, m, divided >> 1), shape.capacity(m, b, divided >> 1))),
          first_capacity(
              std::max(shape.first_capacity(a, m, divided >> 1), shape.first_capacity(m, b, divided >> 1))),
          raw_capacity(shape.capacity(a, b, divided == 1 ? 0 : divided)), divide(divided == 1) {
      for (u64 i = 0; i < Shape::INTEGERS; i++)
        left[i] = layout.take<u64>(i == 0 ? first_capacity : capacity);
      for (u64 i = Shape::INTEGERS; i-- > 0;) right[i] = layout.take<u64>(i == 0 ? first_capacity : capacity);
      if (divide)
        for (u64*& words : whole) words = layout.take<u64>(raw_capacity);
      layout.take_bytes(0); // the area behind begins aligned
    }
  };
  struct Block {
    u64 a, b;
    kob_cdi_EFPh* out;
    bool need_first;
    u64 threads;
    u8* work;
    u64 bytes;
  };

  // Of the blocks of [a, b), the last one being the longest.
  static BlockSizes block_sizes(const Shape& shape, u64 a, u64 b, u64 divided) {
    const u64 terms = (b - a) / divided;
    for (; divided > 1; divided >>= 1) a += (b - a) / 2;
    return {terms, shape.capacity(a, b, 0), shape.capacity(a, b, 1) + 1, shape.first_capacity(a, b, 1) + 1};
  }
  static u64 aligned(u64 bytes) {
    return (bytes + Layout::ALIGNMENT - 1) / Layout::ALIGNMENT * Layout::ALIGNMENT;
  }
  static RecursionLevels below(RecursionLevels levels) {
    if (levels.serial > 0) return {levels.serial - 1, levels.forked, levels.divided >> 1};
    return {0, levels.forked > 0 ? levels.forked - 1 : 0, levels.divided >> 1};
  }
  // Below the forked levels a range has its one thread.
  static u64 child_thread_count(u64 threads, RecursionLevels levels) {
    return levels.serial > 0 ? threads : 1;
  }

  const Shape& shape_;
  const SeriesContext& context_;
  const BlockDivisor* divisor_ = nullptr;
};

} // namespace kelvane
