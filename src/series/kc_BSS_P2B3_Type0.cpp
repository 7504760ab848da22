#include "series/kc_BSS_P2B3_Type0.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "arithmetic/redundancy.h"
#include "arithmetic/words/add.h"
#include "series/recursion.h"
#include "series/shared_products.h"
#include "shell/console.h"
#include "shell/status_line.h"

namespace kelvane {

namespace {

// A leaf's integers while they are formed. LEAF_WORDS bounds every leaf: end thresholds are at most 16
// words, a single term has at most 14, and partial products one word more.
constexpr u64 LEAF_WORDS = 48;

struct LeafInteger {
  u64 words[LEAF_WORDS];
  u64 n = 0;

  void set(u64 x) {
    words[0] = x;
    n = x != 0;
  }
  void multiply(u64 x) {
    const u64 carry = words::mul_word(words, words, n, x);
    if (carry != 0) words[n++] = carry;
  }
  void multiply(const u64* factors, u32 count) {
    for (u32 i = 0; i < count; i++) multiply(factors[i]);
  }
};

// x = A * poly.
void multiply_by_poly(LeafInteger& x, const LeafInteger& A, const u64* poly, u32 poly_words) {
  x.n = A.n + poly_words;
  std::fill_n(x.words, x.n, u64{0});
  for (u32 i = 0; i < poly_words; i++)
    x.words[A.n + i] = words::mul_word_add(x.words + i, A.words, A.n, poly[i]);
  x.n = words::normalized_length(x.words, x.n);
}

// R = R +/- x, for R > x when subtracting.
void accumulate(LeafInteger& R, const LeafInteger& x, bool subtract) {
  if (R.n < x.n) {
    std::fill(R.words + R.n, R.words + x.n, u64{0});
    R.n = x.n;
  }
  R.words[R.n] = subtract;
  if (subtract) words::sub_propagate(R.words, x.words, x.n);
  else words::add_propagate(R.words, x.words, x.n);
  R.n = subtract ? words::normalized_length(R.words, R.n) : R.n + (R.words[R.n] != 0);
}

} // namespace

// Terms a+1..b appended one by one to an empty range (P = Q = 1, R = 0), each a merge whose right
// half is a single term: only products by words, no calls of the product routines.
void kc_BSS_P2B3_Type0::leaf(u64 a, u64 b, kob_cdi_EFPh* out) const {
  LeafInteger P, Q, R, x;
  P.set(1);
  Q.set(1);
  R.set(0);
  SeriesTerm t;
  for (u64 k = a + 1; k <= b; k++) {
    term(k, t);
    if (plain) P.multiply(t.p, t.p_factors);
    multiply_by_poly(x, P, t.poly, t.poly_words);
    if (!plain) P.multiply(t.p, t.p_factors);
    R.multiply(t.q, t.q_factors);
    Q.multiply(t.q, t.q_factors);
    accumulate(R, x, alternating && ((k - a - 1) & 1) != 0);
  }
  out[0].set_words(P.words, P.n);
  out[1].set_words(Q.words, Q.n);
  out[2].set_words(R.words, R.n);
}

namespace {

// Work of merging two halves: the second product of R, and the products' own memory.
struct MergePlacement {
  u64* second;
  void* work;
  MergePlacement(Layout& layout, u64 product_words, const km_MULv3::Context& context)
      : second(layout.take<u64>(product_words + 1)),
        work(layout.take_bytes(km_MULv3::memory_cost(product_words, context.threads, context.reduced_memory))) {}
};

u64 longest(const kob_cdi_EFPh* x) { return std::max({x[0].L, x[1].L, x[2].L}); }

void add_or_sub(kob_cdi_EFPh& R, const kob_cdi_EFPh& x, bool subtract) {
  if (subtract) R.sub_in_place(x);
  else R.add_in_place(x);
}

} // namespace

u64 kc_BSS_P2B3_Type0::merge_bytes(u64 capacity, const km_MULv3::Context& context) const {
  Layout layout;
  MergePlacement(layout, 2 * capacity, context);
  return layout.used();
}

double kc_BSS_P2B3_Type0::merge_cost(u64 words) const {
  const double n = 2 * static_cast<double>(words);
  return n * std::log2(n);
}

void kc_BSS_P2B3_Type0::merge(const km_MULv3::Context& context, u64 a, u64 m, u64, const kob_cdi_EFPh* left,
                              const kob_cdi_EFPh* right, kob_cdi_EFPh* out, bool need_P, void* work) const {
  const u64 n = longest(left) + longest(right);
  Layout layout(work, merge_bytes(std::max(left->AL, right->AL), context));
  const MergePlacement place(layout, n, context);
  kob_cdi_EFPh second;
  second.attach(place.second, n + 1);

  SharedProducts products(context, n, place.work);
  products.keep(right[1]);
  products.multiply(out[1], left[1]); // Ql Qr
  products.multiply(out[2], left[2]); // Rl Qr
  products.keep(left[0]);
  products.multiply(second, right[2]); // Pl Rr
  add_or_sub(out[2], second, alternating && ((m - a) & 1) != 0);
  if (need_P) products.multiply(out[0], right[0]); // Pl Pr
}

// ---- Summation over the schedule

namespace {

constexpr u64 GUARD_WORDS = 3; // words kept beyond the precision, see sum_series_P2B3's error bound

// Precision to which the sum behind a segment (or, for the first one, the whole sum) is kept.
u64 kept_words(u64 precision) { return precision + GUARD_WORDS; }

// Work of the whole summation: one segment's P, Q, R, and an area used first by the segment's
// recursion and then by its merge with everything behind it.
struct SumPlacement {
  u64 segment_capacity;
  u64* segment[3];
  u64 area_bytes;
  void* area;
  SumPlacement(Layout& layout, u64 capacity, u64 bytes) : segment_capacity(capacity), area_bytes(bytes) {
    for (u64*& words : segment) words = layout.take<u64>(capacity);
    area = layout.take_bytes(bytes);
  }
};

// A segment's merge with the remainder: two full products, then the products' own memory.
struct SegmentMergePlacement {
  u64 *first, *second;
  void* work;
  SegmentMergePlacement(Layout& layout, u64 product_words, const km_MULv3::Context& context)
      : first(layout.take<u64>(product_words + 1)), second(layout.take<u64>(product_words + 1)),
        work(layout.take_bytes(km_MULv3::memory_cost(product_words, context.threads, context.reduced_memory))) {}
};

u64 segment_merge_bytes(u64 product_words, const km_MULv3::Context& context) {
  Layout layout;
  SegmentMergePlacement(layout, product_words, context);
  return layout.used();
}

u64 sum_area_bytes(const kc_BSS_P2B3_Type0& series, const Schedule& schedule, u64 first, const km_MULv3::Context& context) {
  u64 bytes = 0;
  for (u64 i = first; i < schedule.count; i++) {
    const Segment& s = schedule.list[i];
    const RecursionLevels levels = Recursion<kc_BSS_P2B3_Type0>::plan(series, s.begin, s.end, context.threads);
    bytes = std::max(bytes, Recursion<kc_BSS_P2B3_Type0>::work_bytes(series, s.begin, s.end, context, levels));
    if (i + 1 < schedule.count)
      bytes = std::max(bytes, segment_merge_bytes(series.capacity(s.begin, s.end) + kept_words(s.remainder_precision), context));
  }
  return bytes;
}

SumPlacement place_sum(Layout& layout, const kc_BSS_P2B3_Type0& series, const Schedule& schedule, const km_MULv3::Context& context) {
  u64 capacity = 0;
  for (u64 i = 0; i < schedule.count; i++)
    capacity = std::max(capacity, series.capacity(schedule.list[i].begin, schedule.list[i].end));
  return SumPlacement(layout, capacity, sum_area_bytes(series, schedule, 0, context));
}

// (Q, R) <- segment merged with (Q, R) behind it, both kept to `keep` words.
void merge_segment(const kc_BSS_P2B3_Type0& series, const SeriesContext& context, const Segment& s,
                   const kob_cdi_EFPh* segment, kob_cdi_EFPh& Q, kob_cdi_EFPh& R, u64 keep, void* area) {
  const u64 n = longest(segment) + std::max(Q.L, R.L);
  Layout layout(area, segment_merge_bytes(n, context.multiply));
  const SegmentMergePlacement place(layout, n, context.multiply);
  kob_cdi_EFPh first, second;
  first.attach(place.first, n + 1);
  second.attach(place.second, n + 1);
  const auto check = [&](const kob_cdi_EFPh& x) {
    const kob_cdi_EFPh* results[] = {&x};
    modular_redundancy_check(results, 1, s.begin, s.end, nullptr, "BSR Merge Failure: ");
  };

  SharedProducts products(context.multiply, n, place.work);
  products.keep(Q);
  products.multiply(first, segment[2]);  // Rl Qr
  products.multiply(second, segment[1]); // Ql Qr
  check(second);
  second.truncate(keep);
  Q.set_copy(second);
  products.keep(segment[0]);
  products.multiply(second, R); // Pl Rr
  add_or_sub(first, second, series.alternating && ((s.end - s.begin) & 1) != 0);
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

void kc_BSS_P2B3_Type0::BSR_memory(const Schedule& schedule, u64 first_segment, const km_MULv3::Context& context, u64* out_peak,
                                   u64* out_result, u64* out_temp) const {
  *out_peak = sum_area_bytes(*this, schedule, first_segment, context) / sizeof(u64);
  *out_result = kept_words(first_segment == 0 ? schedule.precision_words
                                              : schedule.list[first_segment - 1].remainder_precision);
  *out_temp = 3 * (schedule.largest_segment(first_segment) + CAPACITY_GUARD);
}

u64 sum_capacity(u64 precision_words) { return kept_words(precision_words); }

u64 sum_work_bytes(const kc_BSS_P2B3_Type0& series, u64 precision_words, const km_MULv3::Context& context) {
  const Schedule schedule = build_schedule(series, precision_words);
  Layout layout;
  place_sum(layout, series, schedule, context);
  return layout.used();
}

// Error. Every merge of segments truncates Q and R to the precision they need plus GUARD_WORDS words. The top
// word may hold a single bit, so each truncation is off by less than 2^(-64 (precision + 2)) relative to
// what is still needed; with at most 256 segments and three truncated quantities each, Q and R of the whole are
// right to 2^(-64 (precision + 2) + 10).
void sum_series_P2B3(const kc_BSS_P2B3_Type0& series, u64 precision_words, const SeriesContext& context,
                     kob_cdi_EFPh& Q, kob_cdi_EFPh& R, void* work) {
  using Tree = Recursion<kc_BSS_P2B3_Type0>;
  const u64 threads = context.multiply.threads;
  Console::print("Summing Series...  ");
  const Schedule schedule = build_schedule(series, precision_words);
  print_terms(schedule.terms);

  Console::Progress progress("Summing: ", schedule_cost(series, schedule), 87);
  SeriesContext inner = context;
  inner.multiply.progress = &progress;
  Layout layout(work, sum_work_bytes(series, precision_words, context.multiply));
  const SumPlacement place = place_sum(layout, series, schedule, context.multiply);
  kob_cdi_EFPh segment[3];

  for (u64 i = schedule.count; i-- > 0;) {
    const Segment& s = schedule.list[i];
    const bool last = i + 1 == schedule.count;
    for (u64 j = 0; j < 3; j++) segment[j].attach(place.segment[j], place.segment_capacity);
    Tree(series, inner).run(s.begin, s.end, segment, !last, threads, Tree::plan(series, s.begin, s.end, threads),
                            place.area, place.area_bytes);
    const u64 keep = kept_words(i == 0 ? precision_words : schedule.list[i - 1].remainder_precision);
    if (last) {
      segment[1].truncate(keep);
      segment[2].truncate(keep);
      Q.set_copy(segment[1]);
      R.set_copy(segment[2]);
    } else {
      merge_segment(series, inner, s, segment, Q, R, keep, place.area);
      progress.add(series.merge_cost(s.integer_words));
    }
  }
}

void print_terms(u64 terms) {
  Console::print_commas(terms);
  Console::print(" terms\n");
}

double recursion_cost(double range_words) {
  double cost = 0;
  for (double words = range_words; words >= PROGRESS_WORDS; words /= 2) cost += range_words * std::log2(words);
  return cost;
}

} // namespace kelvane
