// The in-memory recursion of binary splitting (BSR), shared by every shape of series.
//
//   [a, b):  one leaf, or m = (a + b) / 2, the halves [a, m) and [m, b), and their merge
//
// Memory. A level's block holds the left half's integers, the right half's directly behind in reverse order
// (each half at the capacity of the larger), so that the last ones lie side by side, and behind them one area used first by the
// recursion below and then by the merge. Integers grow faster with the index than linearly,
// so the right half is never smaller than the left and the need of a range is found by walking
// down its right spine: O(log N), the same placement as the run.
//
// Threads. Large ranges are summed one half after the other, their merges on all threads (one product
// can feed them); below a size where it can not, halves run in parallel, each with half of the
// threads and its own area. How many levels are serial and how many fork is decided once, from
// the right spine's sizes, so that neither results nor memory depend on the course of the run.
#pragma once

#include <algorithm>

#include "arithmetic/redundancy.h"
#include "series/series_context.h"
#include "shell/exception.h"
#include "shell/heap.h"
#include "shell/status_line.h"
#include "shell/thread.h"

namespace kelvane {

struct RecursionLevels {
  u64 serial = 0; // levels whose halves run one after the other
  u64 forked = 0; // levels below them whose halves run in parallel
};

// Merges of smaller ranges are not worth a look at the clock; they do not count in the progress.
inline constexpr u64 PROGRESS_WORDS = 64;

// A Shape is a series seen by the recursion:
//   static constexpr u64 INTEGERS                     integers per range (at most 4)
//   u64 capacity(a, b) const                          words of each of the range's integers, guard words
//     included
//   bool is_leaf(a, b) const
//   void leaf(a, b, kob_cdi_EFPh* out) const
//   u64 merge_bytes(capacity, context) const          work of merging two halves of that capacity
//   void merge(context, a, m, b, left, right, out, need_first, work, bytes) const
//     with at least merge_bytes(...) bytes of work; what is more may be used to be faster
//   double merge_cost(words) const                    for progress
//
// need_first tells whether out[0] is used by anybody; on the right spine it is not.
template <class Shape> class Recursion {
public:
  Recursion(const Shape& shape, const SeriesContext& context) : shape_(shape), context_(context) {}

  static RecursionLevels plan(const Shape& shape, u64 a, u64 b, u64 threads) {
    // Halves summed in parallel need no waiting for each other, the threads of one product do: measured, a
    // product feeds its threads as well only from 2^17 words each. Ranges below 2^8 words are not worth a
    // thread of their own.
    const u64 serial_words = threads << 17, fork_words = u64{1} << 8;
    RecursionLevels levels;
    if (threads <= 1) return levels;
    while (!shape.is_leaf(a, b) && shape.capacity(a, b) >= serial_words) {
      a += (b - a) / 2;
      levels.serial++;
    }
    for (u64 t = threads; t > 1 && !shape.is_leaf(a, b) && shape.capacity(a, b) >= fork_words;
         t = (t + 1) / 2) {
      a += (b - a) / 2;
      levels.forked++;
    }
    return levels;
  }

  // Bytes of work for run() over [a, b).
  static u64 work_bytes(const Shape& shape, u64 a, u64 b, const km_MULv3::Context& context,
                        RecursionLevels levels) {
    if (shape.is_leaf(a, b)) return 0;
    Layout layout;
    const Placement place(layout, shape, a, b);
    const bool fork = levels.serial == 0 && levels.forked > 0;
    km_MULv3::Context inner = context;
    inner.threads = fork ? (context.threads + 1) / 2 : child_thread_count(context.threads, levels);
    const u64 child = aligned(work_bytes(shape, place.m, b, inner, below(levels)));
    return layout.used() + std::max(fork ? 2 * child : child, shape.merge_bytes(place.capacity, context));
  }

  // out[0, INTEGERS) <- the integers of [a, b). Throws kc_BSRModularCheckFailed.
  void run(u64 a, u64 b, kob_cdi_EFPh* out, bool need_first, u64 threads, RecursionLevels levels, void* work,
           u64 bytes) const {
    if (shape_.is_leaf(a, b)) return shape_.leaf(a, b, out);
    Layout layout(work, bytes);
    const Placement place(layout, shape_, a, b);
    kob_cdi_EFPh left[Shape::INTEGERS], right[Shape::INTEGERS];
    for (u64 i = 0; i < Shape::INTEGERS; i++) {
      left[i].attach(place.left[i], place.capacity);
      right[i].attach(place.right[i], place.capacity);
    }
    u8* area = static_cast<u8*>(work) + layout.used();
    const u64 area_bytes = layout.left();

    if (levels.serial == 0 && levels.forked > 0) {
      const u64 half = area_bytes / 2 / Layout::ALIGNMENT * Layout::ALIGNMENT;
      Block first{a, place.m, left, true, threads / 2, area, half};
      Block second{place.m, b, right, need_first, (threads + 1) / 2, area + half, half};
      const s32 status = fork_join(first, second, [&](const Block& k) {
        run(k.a, k.b, k.out, k.need_first, k.threads, below(levels), k.work, k.bytes);
      });
      // The half has told what happened; the computation is abandoned through the same exception.
      if (status == ERROR_REDUNDANCY)
        throw kc_BSRModularCheckFailed("Modular Redundancy Check Failed: " + std::to_string(a) + " : " +
                                       std::to_string(b));
      if (status != 0) fatal("Computation Failed");
    } else {
      const u64 t = child_thread_count(threads, levels);
      run(a, place.m, left, true, t, below(levels), area, area_bytes);
      run(place.m, b, right, need_first, t, below(levels), area, area_bytes);
    }

    km_MULv3::Context multiply = context_.multiply;
    multiply.threads = threads;
    shape_.merge(multiply, a, place.m, b, left, right, out, need_first, area, area_bytes);
    if (context_.fault != nullptr)
      for (u64 i = 0; i < Shape::INTEGERS; i++) context_.fault->after_merge(out[i], a, b);
    const kob_cdi_EFPh* results[Shape::INTEGERS];
    u64 count = 0;
    for (u64 i = need_first ? 0 : 1; i < Shape::INTEGERS; i++) results[count++] = &out[i];
    modular_redundancy_check(results, count, a, b);
    if (context_.multiply.progress != nullptr && place.capacity >= PROGRESS_WORDS)
      context_.multiply.progress->add(shape_.merge_cost(place.capacity));
  }

private:
  struct Placement {
    u64 m, capacity;
    u64 *left[Shape::INTEGERS], *right[Shape::INTEGERS];
    Placement(Layout& layout, const Shape& shape, u64 a, u64 b)
        : m(a + (b - a) / 2), capacity(std::max(shape.capacity(a, m), shape.capacity(m, b))) {
      for (u64*& words : left) words = layout.take<u64>(capacity);
      for (u64 i = Shape::INTEGERS; i-- > 0;) right[i] = layout.take<u64>(capacity);
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

  static u64 aligned(u64 bytes) {
    return (bytes + Layout::ALIGNMENT - 1) / Layout::ALIGNMENT * Layout::ALIGNMENT;
  }
  static RecursionLevels below(RecursionLevels levels) {
    if (levels.serial > 0) return {levels.serial - 1, levels.forked};
    return {0, levels.forked > 0 ? levels.forked - 1 : 0};
  }
  // Below the forked levels a range has its one thread.
  static u64 child_thread_count(u64 threads, RecursionLevels levels) {
    return levels.serial > 0 ? threads : 1;
  }

  const Shape& shape_;
  const SeriesContext& context_;
};

} // namespace kelvane
