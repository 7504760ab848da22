#include "series/sum_P2B3.h"

#include <algorithm>
#include <cmath>

#include "arithmetic/redundancy.h"
#include "series/recursion.h"
#include "series/shared_products.h"
#include "shell/console.h"
#include "shell/status_line.h"

namespace kelvane {

namespace {

constexpr u64 GUARD_WORDS = 3; // words kept beyond the precision, see sum_series_quietly's error bound

// Precision to which the sum behind a segment (or, for the first one, the whole sum) is kept.
u64 kept_words(u64 precision) {
  return precision + GUARD_WORDS;
}

using Tree = Recursion<kc_BSS_P2B3_Type0>;

// Words of the longest product with which segment i is merged with everything behind it; 0 for the last one.
u64 merge_words(const kc_BSS_P2B3_Type0& series, const Schedule& schedule, u64 i) {
  const Segment& s = schedule.list[i];
  return i + 1 == schedule.count
             ? 0
             : series.segment_capacity(s.begin, s.end) + kept_words(s.remainder_precision);
}

// Work of the whole summation: one segment's P, Q, R, and an area used first by the segment's recursion and
// then by its merge. The buffers of Q and R together take a whole product: after R itself has been
// multiplied, the merge's other products are formed over both.
struct SumPlacement {
  u64 capacity[3];
  u64* segment[3];
  u64 area_bytes;
  void* area;
  SumPlacement(Layout& layout, u64 P_words, u64 words, u64 product_words, u64 bytes)
      : capacity{P_words, words, std::max(words, product_words + 1 - std::min(words, product_words))},
        area_bytes(bytes) {
    for (u64 i = 0; i < 3; i++) segment[i] = layout.take<u64>(capacity[i]);
    area = layout.take_bytes(bytes);
  }
};

// The merge's part of the area: its first product, the others where they can not be formed over the segment,
// then the products' own memory.
struct SegmentMergePlacement {
  u64 *first, *second;
  void* work;
  SegmentMergePlacement(Layout& layout, u64 product_words, const km_MULv3::Context& context)
      : first(layout.take<u64>(product_words + 1)), second(layout.take<u64>(words_beside(product_words))),
        work(layout.take_bytes(
            km_MULv3::memory_cost(product_words, context.threads, context.reduced_memory))) {}
};

u64 segment_merge_bytes(u64 product_words, const km_MULv3::Context& context) {
  Layout layout;
  SegmentMergePlacement(layout, product_words, context);
  return layout.used();
}

u64 sum_area_bytes(const kc_BSS_P2B3_Type0& series, const Schedule& schedule, u64 first,
                   const km_MULv3::Context& context) {
  u64 bytes = 0;
  for (u64 i = first; i < schedule.count; i++) {
    const Segment& s = schedule.list[i];
    const RecursionLevels levels = Tree::plan(series, s.begin, s.end, context.threads);
    bytes = std::max(bytes, Tree::work_bytes(series, s.begin, s.end, context, levels));
    if (const u64 n = merge_words(series, schedule, i); n != 0)
      bytes = std::max(bytes, segment_merge_bytes(n, context));
  }
  return bytes;
}

SumPlacement place_sum(Layout& layout, const kc_BSS_P2B3_Type0& series, const Schedule& schedule,
                       const km_MULv3::Context& context) {
  u64 P_words = 0, words = 0, product_words = 0;
  for (u64 i = 0; i < schedule.count; i++) {
    const u64 a = schedule.list[i].begin, b = schedule.list[i].end;
    P_words = std::max(P_words, series.first_capacity(a, b, series.divided_level(a, b)));
    words = std::max(words, series.segment_capacity(a, b));
    product_words = std::max(product_words, merge_words(series, schedule, i));
  }
  return SumPlacement(layout, P_words, words, product_words, sum_area_bytes(series, schedule, 0, context));
}

// (Q, R) <- segment merged with (Q, R) behind it, both kept to `keep` words.
void merge_segment(const kc_BSS_P2B3_Type0& series, const SeriesContext& context, const Segment& s,
                   kob_cdi_EFPh* segment, kob_cdi_EFPh& Q, kob_cdi_EFPh& R, u64 keep, void* area) {
  const u64 n = kc_BSS_P2B3_Type0::longest(segment) + std::max(Q.L, R.L);
  Layout layout(area, segment_merge_bytes(n, context.multiply));
  const SegmentMergePlacement place(layout, n, context.multiply);
  kob_cdi_EFPh first, second;
  first.attach(place.first, n + 1);
  const auto check = [&](const kob_cdi_EFPh& x) {
    const kob_cdi_EFPh* results[] = {&x};
    modular_redundancy_check(results, 1, s.begin, s.end, nullptr, "BSR Merge Failure: ");
  };

  SharedProducts products(context.multiply, n, place.work);
  products.keep(Q);
  products.multiply(first, segment[2]); // Rl Qr; R's buffer is free now
  if (km_MULv3::may_multiply_over(n)) {
    second.attach(segment[1].buffer, segment[1].AL + segment[2].AL);
    products.multiply_over(second, segment[1]); // Ql Qr
  } else {
    second.attach(place.second, n + 1);
    products.multiply(second, segment[1]);
  }
  check(second);
  second.truncate(keep);
  Q.set_copy(second);
  products.keep(segment[0]);
  products.multiply(second, R); // Pl Rr
  series.combine(first, second, s.end - s.begin);
  check(first);
  first.truncate(keep);
  R.set_copy(first);
}

double schedule_cost(const kc_BSS_P2B3_Type0& series, const Schedule& schedule) {
  double cost = 0;
  for (u64 i = 0; i < schedule.count; i++) {
    const Segment& s = schedule.list[i];
    const double words = static_cast<double>(s.integer_words);
    cost += recursion_cost(words);
    if (i + 1 < schedule.count) cost += series.merge_cost(s.integer_words);
  }
  return cost;
}

} // namespace

void kc_BSS_P2B3_Type0::BSR_memory(const Schedule& schedule, u64 first_segment,
                                   const km_MULv3::Context& context, u64* out_peak, u64* out_result,
                                   u64* out_temp) const {
  *out_peak = sum_area_bytes(*this, schedule, first_segment, context) / sizeof(u64);
  *out_result = kept_words(first_segment == 0 ? schedule.precision_words
                                              : schedule.list[first_segment - 1].remainder_precision);
  *out_temp = 3 * (schedule.largest_segment(first_segment) + CAPACITY_GUARD);
}

// A segment's remainder precision is rounded up by two words; behind a short first segment of a series that
// converges slowly it is more than that of the sum.
u64 sum_capacity(u64 precision_words) {
  return kept_words(precision_words + 2);
}

u64 sum_work_bytes(const kc_BSS_P2B3_Type0& series, u64 precision_words, const km_MULv3::Context& context) {
  const Schedule schedule = build_schedule(series, precision_words);
  Layout layout;
  place_sum(layout, series, schedule, context);
  return layout.used();
}

// Error. Every merge of segments truncates Q and R to the precision they need plus GUARD_WORDS words. The top
// word may hold a single bit, so each truncation is off by less than 2^(-64 (precision + 2)) relative to
// what is still needed; with at most 1024 segments and three truncated quantities each, Q and R of the whole
// are right to 2^(-64 (precision + 2) + 12).
void sum_series_quietly(const kc_BSS_P2B3_Type0& series, u64 precision_words, const SeriesContext& context,
                        kob_cdi_EFPh& Q, kob_cdi_EFPh& R, void* work) {
  const u64 threads = context.multiply.threads;
  const Schedule schedule = build_schedule(series, precision_words);
  Console::Progress* progress = context.multiply.progress;
  Layout layout(work, sum_work_bytes(series, precision_words, context.multiply));
  const SumPlacement place = place_sum(layout, series, schedule, context.multiply);
  kob_cdi_EFPh segment[3];

  for (u64 i = schedule.count; i-- > 0;) {
    const Segment& s = schedule.list[i];
    const bool last = i + 1 == schedule.count;
    for (u64 j = 0; j < 3; j++) segment[j].attach(place.segment[j], place.capacity[j]);
    Tree(series, context)
        .run(s.begin, s.end, segment, !last, threads, Tree::plan(series, s.begin, s.end, threads), place.area,
             place.area_bytes);
    const u64 keep = kept_words(i == 0 ? precision_words : schedule.list[i - 1].remainder_precision);
    if (last) {
      segment[1].truncate(keep);
      segment[2].truncate(keep);
      Q.set_copy(segment[1]);
      R.set_copy(segment[2]);
    } else {
      merge_segment(series, context, s, segment, Q, R, keep, place.area);
      if (progress != nullptr) progress->add(series.merge_cost(s.integer_words));
    }
  }
}

double sum_cost(const kc_BSS_P2B3_Type0& series, u64 precision_words) {
  return schedule_cost(series, build_schedule(series, precision_words));
}

void sum_series_P2B3(const kc_BSS_P2B3_Type0& series, u64 precision_words, const SeriesContext& context,
                     kob_cdi_EFPh& Q, kob_cdi_EFPh& R, void* work) {
  Console::print("Summing Series...  ");
  print_terms(series.terms(precision_words));
  Console::Progress progress("Summing: ", sum_cost(series, precision_words), 87);
  SeriesContext inner = context;
  inner.multiply.progress = &progress;
  sum_series_quietly(series, precision_words, inner, Q, R, work);
}

void print_terms(u64 terms) {
  Console::print_commas(terms);
  Console::print(" terms\n");
}

double recursion_cost(double range_words) {
  double cost = 0;
  for (double words = range_words; words >= PROGRESS_WORDS; words /= 2)
    cost += range_words * std::log2(words);
  return cost;
}

} // namespace kelvane
