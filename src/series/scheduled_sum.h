// The summation of a series over its schedule, for any shape.
//
// Segments are reduced by the recursion, last first, and each is merged with the `tail`, the quantities of
// everything behind it. A tail is a floating number of the precision it needs and GUARD_WORDS more.
//
// A Shape of Recursion has for this in addition:
//   static constexpr double MERGE_WEIGHT             cost of a merge in merges of the P, Q, R shape
//   static constexpr u64 TAILS                       a tail is the last TAILS of a range's integers
//   Schedule schedule(precision_words) const
//   u64 last_capacity(words, product_words) const
//       words of the buffer of a segment's last integer, those of the others having `words` (the first one
//       its own): more where merges with tails, of up to product_words words together, use the buffers anew
//   u64 tail_merge_bytes(segment_words, tail_words, keep, context) const
//       work of merging a segment (capacity segment_words) with tails of up to tail_words words
//   void merge_tail(context, const TailMerge& merge, work, bytes) const
//       settles every quantity of the new tail
#pragma once

#include <algorithm>

#include "series/recursion.h"
#include "series/schedule.h"
#include "series/tail_merge.h"

namespace kelvane {

template <class Shape> class ScheduledSum {
public:
  static constexpr u64 GUARD_WORDS = 3;

  ScheduledSum(const Shape& shape, u64 precision_words)
      : ScheduledSum(shape, shape.schedule(precision_words)) {}
  ScheduledSum(const Shape& shape, const Schedule& schedule) : shape_(shape), schedule_(schedule) {}

  // Words of each tail's buffer: a segment's remainder precision is rounded up by two words; while the terms
  // grow, and behind a short first segment of a series that converges slowly, it is that of the whole sum.
  static u64 capacity(u64 precision_words) { return kept_words(precision_words + 2); }

  u64 work_bytes(const km_MULv3::Context& context) const {
    Layout layout;
    Placement(layout, *this, context);
    return layout.used();
  }

  // kc_BSS::BSR_memory of the segments from `first` on.
  void memory(u64 first, const km_MULv3::Context& context, u64* out_peak, u64* out_result,
              u64* out_temp) const {
    *out_peak = area_bytes(first, context) / sizeof(u64);
    *out_result = keep(first);
    *out_temp = Shape::INTEGERS * (schedule_.largest_segment(first) + kc_BSS::CAPACITY_GUARD);
  }

  // By which run() advances context.multiply.progress.
  double cost() const {
    double cost = 0;
    for (u64 i = 0; i < schedule_.count; i++) {
      const u64 words = schedule_.list[i].integer_words;
      cost += Shape::MERGE_WEIGHT * recursion_cost(static_cast<double>(words));
      if (i + 1 < schedule_.count) cost += shape_.merge_cost(words);
    }
    return cost;
  }

  // tail[0, TAILS) <- the sum over all segments; buffers of capacity(precision) words.
  // work: work_bytes(context.multiply) bytes, 64-byte aligned. Throws kc_BSRModularCheckFailed.
  //
  // Error. Every quantity is positive and truncated to the precision it needs and GUARD_WORDS words, whose
  // top one may hold a single bit: at most 2^(-64 (precision + 2)) relative for each of the few truncations
  // of a merge. With at most 1024 merges the tails are right to 2^(-64 (precision + 2) + 13).
  void run(const SeriesContext& context, kob_cdi_EFPh* tail, void* work) const {
    const u64 threads = context.multiply.threads;
    Layout layout(work, work_bytes(context.multiply));
    const Placement place(layout, *this, context.multiply);
    kob_cdi_EFPh segment[Shape::INTEGERS];
    for (u64 i = schedule_.count; i-- > 0;) {
      const Segment& s = schedule_.list[i];
      const bool last = i + 1 == schedule_.count;
      for (u64 j = 0; j < Shape::INTEGERS; j++) segment[j].attach(place.segment[j], place.words[j]);
      Tree(shape_, context)
          .run(s.begin, s.end, segment, NEED_FIRST || !last, threads,
               Tree::plan(shape_, s.begin, s.end, threads), place.area, place.area_bytes);
      if (last) {
        for (u64 j = 0; j < Shape::TAILS; j++) {
          kob_cdi_EFPh& x = segment[Shape::INTEGERS - Shape::TAILS + j];
          x.truncate(keep(i));
          tail[j].set_copy(x);
        }
        continue;
      }
      shape_.merge_tail(context.multiply, {s.begin, s.end, schedule_.terms, keep(i), segment, tail},
                        place.area, place.area_bytes);
      if (context.multiply.progress != nullptr)
        context.multiply.progress->add(shape_.merge_cost(s.integer_words));
    }
  }

private:
  using Tree = Recursion<Shape>;
  // The first integer of a shape that does not keep it in its tail is used only by merges with what lies
  // behind.
  static constexpr bool NEED_FIRST = Shape::TAILS == Shape::INTEGERS;

  static u64 kept_words(u64 precision) { return precision + GUARD_WORDS; }
  // Words to which the sum from segment i on is kept.
  u64 keep(u64 i) const {
    return kept_words(i == 0 ? schedule_.precision_words : schedule_.list[i - 1].remainder_precision);
  }
  u64 segment_words(u64 i) const {
    return shape_.segment_capacity(schedule_.list[i].begin, schedule_.list[i].end);
  }

  // The area used first by a segment's recursion, then by its merge with the tail.
  u64 area_bytes(u64 first, const km_MULv3::Context& context) const {
    u64 bytes = 0;
    for (u64 i = first; i < schedule_.count; i++) {
      const Segment& s = schedule_.list[i];
      const RecursionLevels levels = Tree::plan(shape_, s.begin, s.end, context.threads);
      bytes = std::max(bytes, Tree::work_bytes(shape_, s.begin, s.end, context, levels));
      if (i + 1 < schedule_.count)
        bytes = std::max(bytes, shape_.tail_merge_bytes(segment_words(i), keep(i + 1), keep(i), context));
    }
    return bytes;
  }

  struct Placement {
    u64 words[Shape::INTEGERS] = {}; // of a segment's integers
    u64* segment[Shape::INTEGERS];
    u64 area_bytes;
    void* area;
    Placement(Layout& layout, const ScheduledSum& sum, const km_MULv3::Context& context)
        : area_bytes(sum.area_bytes(0, context)) {
      u64 first = 0, others = 0, product = 0;
      for (u64 i = 0; i < sum.schedule_.count; i++) {
        const u64 a = sum.schedule_.list[i].begin, b = sum.schedule_.list[i].end;
        first = std::max(first, sum.shape_.first_capacity(a, b, sum.shape_.divided_level(a, b)));
        others = std::max(others, sum.segment_words(i));
        if (i + 1 < sum.schedule_.count) product = std::max(product, sum.segment_words(i) + sum.keep(i + 1));
      }
      std::fill_n(words, Shape::INTEGERS, others);
      words[0] = first;
      words[Shape::INTEGERS - 1] = sum.shape_.last_capacity(others, product);
      for (u64 j = 0; j < Shape::INTEGERS; j++) segment[j] = layout.take<u64>(words[j]);
      area = layout.take_bytes(area_bytes);
    }
  };

  const Shape& shape_;
  const Schedule schedule_;
};

} // namespace kelvane
