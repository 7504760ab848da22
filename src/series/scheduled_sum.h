// The summation of a series over its schedule, for any shape that truncates what lies behind a segment.
//
// Segments are reduced by the recursion, last first, and each is merged with the `tail`, the quantities of
// everything behind it. A tail is a floating number of the precision it needs and GUARD_WORDS more.
//
// A Shape of Recursion has for this in addition:
//   static constexpr double MERGE_WEIGHT             cost of a merge in merges of the P, Q, R shape
//   static constexpr u64 TAILS                       a tail is the last TAILS of a range's integers
//   Schedule schedule(precision_words) const
//   u64 tail_merge_bytes(segment_words, tail_words, context) const
//       work of merging a segment (capacity segment_words) with tails of up to tail_words words
//   void merge_tail(context, begin, end, terms, segment, tail, keep, work, bytes, check) const
//       tail <- segment [begin, end) merged with the tail [end, terms), kept to `keep` words; check(x) is
//       called for every result while all its words are there. The segment may be destroyed.
#pragma once

#include "arithmetic/redundancy.h"
#include "series/recursion.h"
#include "series/schedule.h"
#include "series/sum_P2B3.h"

namespace kelvane {

template <class Shape> class ScheduledSum {
public:
  static constexpr u64 GUARD_WORDS = 3;

  ScheduledSum(const Shape& shape, u64 precision_words)
      : shape_(shape), schedule_(shape.schedule(precision_words)) {}

  const Schedule& schedule() const { return schedule_; }
  // Words of each tail's buffer: a segment's remainder precision is rounded up by two words, and while the
  // terms grow it is that of the whole sum.
  u64 capacity() const { return kept_words(schedule_.precision_words + 2); }

  u64 work_bytes(const km_MULv3::Context& context) const {
    Layout layout;
    Placement(layout, *this, context);
    return layout.used();
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

  // tail[0, TAILS) <- the sum over all segments; buffers of capacity() words.
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
      for (u64 j = 0; j < Shape::INTEGERS; j++) segment[j].attach(place.segment[j], place.words);
      Tree(shape_, context)
          .run(s.begin, s.end, segment, NEED_FIRST || !last, threads,
               Tree::plan(shape_, s.begin, s.end, threads), place.area, place.area_bytes);
      const u64 keep =
          kept_words(i == 0 ? schedule_.precision_words : schedule_.list[i - 1].remainder_precision);
      if (last) {
        for (u64 j = 0; j < Shape::TAILS; j++) {
          kob_cdi_EFPh& x = segment[Shape::INTEGERS - Shape::TAILS + j];
          x.truncate(keep);
          tail[j].set_copy(x);
        }
        continue;
      }
      const auto check = [&](const kob_cdi_EFPh& x) {
        const kob_cdi_EFPh* results[] = {&x};
        modular_redundancy_check(results, 1, s.begin, s.end, nullptr, "BSR Merge Failure: ");
      };
      shape_.merge_tail(context.multiply, s.begin, s.end, schedule_.terms, segment, tail, keep, place.area,
                        place.area_bytes, check);
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
  struct Placement {
    u64 words = 0; // of a segment's integers
    u64* segment[Shape::INTEGERS];
    u64 area_bytes = 0; // used first by a segment's recursion, then by its merge
    void* area;
    Placement(Layout& layout, const ScheduledSum& sum, const km_MULv3::Context& context) {
      const Schedule& schedule = sum.schedule_;
      for (u64 i = 0; i < schedule.count; i++) {
        const Segment& s = schedule.list[i];
        const u64 capacity = sum.shape_.capacity(s.begin, s.end, sum.shape_.divided_level(s.begin, s.end));
        words = std::max(words, capacity);
        const RecursionLevels levels = Tree::plan(sum.shape_, s.begin, s.end, context.threads);
        area_bytes = std::max(area_bytes, Tree::work_bytes(sum.shape_, s.begin, s.end, context, levels));
        if (i + 1 < schedule.count) {
          const u64 keep =
              kept_words(i == 0 ? schedule.precision_words : schedule.list[i - 1].remainder_precision);
          area_bytes = std::max(area_bytes, sum.shape_.tail_merge_bytes(capacity, keep, context));
        }
      }
      for (u64*& x : segment) x = layout.take<u64>(words);
      area = layout.take_bytes(area_bytes);
    }
  };

  const Shape& shape_;
  const Schedule schedule_;
};

} // namespace kelvane
