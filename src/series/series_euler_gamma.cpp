#include "series/series_euler_gamma.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "series/leaf_integer.h"
#include "series/scheduled_sum.h"
#include "series/shared_products.h"

namespace kelvane {

namespace {

constexpr double LN2 = std::numbers::ln2;

// The smallest x in (low, high] for which reached(x) holds, given that it holds for high.
template <class Reached> u64 first(u64 low, u64 high, const Reached& reached) {
  while (high - low > 1) {
    const u64 middle = low + (high - low) / 2;
    (reached(middle) ? high : low) = middle;
  }
  return high;
}

} // namespace

// ln of B over its term j, for j >= n: B is about e^(2n), the term e^(2(j - j ln(j/n))).
double Series_EulerGamma_BM_AB::nats_left(double target, u64 j) const {
  const double x = static_cast<double>(j);
  return x <= n() ? target : target - 2 * (x * (std::log(x / n()) - 1) + n());
}

u64 Series_EulerGamma_BM_AB::terms(u64 precision_words) const {
  const double target = NATS_PER_WORD * static_cast<double>(precision_words);
  const u64 low = u64{1} << k_;
  u64 high = 2 * low;
  while (nats_left(target, high) > 0) high *= 2;
  return first(low, high, [&](u64 j) { return nats_left(target, j) <= 0; }) + 2;
}

// V is about D^3 times the largest term: n^(2x) x! up to x = n, behind it x!^3 times the terms' factor.
double Series_EulerGamma_BM_AB::log_size(u64 x) const {
  const double j = static_cast<double>(x), log_n = LN2 * k_;
  const double T = j <= n() ? 2 * j * log_n : 2 * n() * log_n + 2 * (log_factorial(j) - log_factorial(n()));
  return T + log_factorial(j);
}

double Series_EulerGamma_BM_AB::log_convergence(u64 a, u64 b) const {
  return 2 * (log_factorial(static_cast<double>(b)) - log_factorial(static_cast<double>(a))) -
         2 * static_cast<double>(b - a) * LN2 * k_;
}

// Merges with tails take more products than Pi's, so segments are longer: a share of 1/2 costs a seventh more
// time. The last segment is not worth cutting once it is a small part of the first.
Schedule Series_EulerGamma_BM_AB::schedule(u64 precision_words) const {
  const double target = NATS_PER_WORD * static_cast<double>(precision_words);
  const u64 N = terms(precision_words);
  return cut_terms(
      *this, precision_words, N, 1.0, [&](u64 j) { return nats_left(target, j); },
      [&](const Schedule& s) {
        return range_words(s.list[s.count - 1].end, N) <= s.list[0].integer_words / 16 + 32;
      });
}

// Terms a+1..b appended one by one, each a merge whose right half is D = j, H = 1, T = V = n^2:
// H <- H j + D, D <- D j, T <- T j^2 + 2^(2k(i+1)), V <- V j^3 + H 2^(2k(i+1)) with the new H, i terms being
// there. A range below END_WORDS words, or one term of at most 5, and its partial products fit LEAF_WORDS.
void Series_EulerGamma_BM_AB::leaf(u64 a, u64 b, kob_cdi_EFPh* out) const {
  LeafInteger H, D, T, V, one;
  H.set(0);
  D.set(1);
  T.set(0);
  V.set(0);
  one.set(1);
  for (u64 j = a + 1; j <= b; j++) {
    const u64 bits = 2 * k_ * (j - a);
    H.multiply(j);
    H.accumulate(D, false);
    D.multiply(j);
    T.multiply(j);
    T.multiply(j);
    T.add_shifted(one, bits);
    V.multiply(j);
    V.multiply(j);
    V.multiply(j);
    V.add_shifted(H, bits);
  }
  const LeafInteger* const results[] = {&H, &D, &T, &V};
  for (u64 i = 0; i < INTEGERS; i++) out[i].set_words(results[i]->words, results[i]->n);
}

namespace {

enum : u64 { IH, ID, IT, IV };

// Words of the operands of a merge: the longer of D and H, and of T and V, on each side.
struct MergeSizes {
  u64 dl, dr, vl, vr;
  u64 keep; // results and powers are kept to keep + 1 words
  u64 square() const { return cut(2 * dr); }
  u64 cube() const { return cut(square() + dr); }
  u64 cross() const { return cut(dl + dr); }
  u64 cut(u64 words) const { return keep < words ? keep + 1 : words; }
  // The longest of the products D D, D^2 D, of those that T needs and of those that V needs.
  u64 short_product() const { return std::max(dl + dr, 2 * dr); }
  u64 cube_product() const { return square() + dr; }
  u64 T_product() const { return std::max({vl + square(), cross() + vr, dl + vr}); }
  u64 V_product() const { return vl + cube(); }
  u64 longest() const { return std::max({short_product(), cube_product(), T_product(), V_product()}); }
};

// Work of a merge: E = Dr^2, F = Hl Dr, Dr^3, two products, and the products' own memory.
struct MergePlacement {
  u64 *E, *F, *cube, *x, *y;
  u64 product_bytes;
  void* work;
  MergePlacement(Layout& layout, const MergeSizes& s, const km_MULv3::Context& context)
      : E(layout.take<u64>(2 * s.dr)), F(layout.take<u64>(s.dl + s.dr)),
        cube(layout.take<u64>(s.square() + s.dr)), x(layout.take<u64>(s.longest() + 2)),
        y(layout.take<u64>(s.longest() + 2)),
        product_bytes(km_MULv3::memory_cost(s.longest(), context.threads, context.reduced_memory)),
        work(layout.take_bytes(product_bytes)) {}
};

// The merge of a segment or of two halves; the right half's H is needed when out[IH] is.
// out[i] must have room for the whole product D D, and for the results cut to keep + 1 words and one more.
void combine(const km_MULv3::Context& context, const MergePlacement& place, const MergeSizes& sizes,
             const kob_cdi_EFPh* l, const kob_cdi_EFPh* r, kob_cdi_EFPh* out, u64 bits, u64 keep,
             bool need_H) {
  kob_cdi_EFPh E, F, cube, x, y;
  E.attach(place.E, 2 * sizes.dr);
  F.attach(place.F, sizes.dl + sizes.dr);
  cube.attach(place.cube, sizes.square() + sizes.dr);
  x.attach(place.x, sizes.longest() + 2);
  y.attach(place.y, sizes.longest() + 2);
  const auto cut = [keep](kob_cdi_EFPh& z) {
    if (keep < z.L) z.truncate(keep + 1);
  };
  {
    SharedProducts products(context, sizes.short_product(), place.work);
    products.keep(r[ID]);
    products.multiply(out[ID], l[ID]);
    products.multiply(F, l[IH]);
    products.multiply(E, r[ID]);
    cut(E);
    cut(F);
    if (need_H) {
      products.keep(l[ID]);
      products.multiply(x, r[IH]);
      out[IH].set_add_kept(F, x, keep);
    }
  }
  cube.set_product(context, E, r[ID], place.work);
  cut(cube);

  // T = Tl E + 2^s Tr.
  x.set_product(context, l[IT], E, place.work);
  y.set_copy(r[IT]);
  y.shift_left_in_place(bits);
  out[IT].set_add_kept(x, y, keep);

  // V = Vl Dr^3 + 2^s (Dl Vr + F Tr).
  x.set_product(context, l[ID], r[IV], place.work);
  y.set_product(context, F, r[IT], place.work);
  kob_cdi_EFPh &larger = x.mag() >= y.mag() ? x : y, &other = x.mag() >= y.mag() ? y : x;
  larger.add_in_place(other);
  larger.shift_left_in_place(bits);
  other.set_product(context, l[IV], cube, place.work);
  out[IV].set_add_kept(other, larger, keep);
}

constexpr u64 EXACT = ~u64{0};

// Bounds for two halves of this capacity: D and H take a third of V's words, and up to two more.
MergeSizes exact_sizes(u64 capacity) {
  const u64 d = capacity / 3 + 3;
  return {d, d, capacity, capacity, EXACT};
}

} // namespace

u64 Series_EulerGamma_BM_AB::merge_bytes(u64 capacity, const km_MULv3::Context& context) const {
  Layout layout;
  MergePlacement(layout, exact_sizes(capacity), context);
  return layout.used();
}

double Series_EulerGamma_BM_AB::merge_cost(u64 words) const {
  const double n = 2 * static_cast<double>(words);
  return MERGE_WEIGHT * n * std::log2(n);
}

void Series_EulerGamma_BM_AB::merge(const km_MULv3::Context& context, u64 a, u64 m, u64,
                                    const kob_cdi_EFPh* left, const kob_cdi_EFPh* right, kob_cdi_EFPh* out,
                                    bool need_H, void* work, u64) const {
  const u64 capacity = std::max(left->AL, right->AL);
  Layout layout(work, merge_bytes(capacity, context));
  const MergeSizes sizes{std::max(left[ID].L, left[IH].L), std::max(right[ID].L, need_H ? right[IH].L : 0),
                         std::max(left[IT].L, left[IV].L), std::max(right[IT].L, right[IV].L), EXACT};
  const MergePlacement place(layout, sizes, context);
  combine(context, place, sizes, left, right, out, 2 * k_ * (m - a), EXACT, need_H);
}

namespace {

// Work of a segment's merge with its tail: the new D as a whole product, the new T and V, and a merge's own.
struct TailPlacement {
  u64 *D, *T, *V;
  MergePlacement merge;
  TailPlacement(Layout& layout, const MergeSizes& s, const km_MULv3::Context& context)
      : D(layout.take<u64>(s.dl + s.dr)), T(layout.take<u64>(s.keep + 3)), V(layout.take<u64>(s.keep + 3)),
        merge(layout, s, context) {}
};

} // namespace

u64 Series_EulerGamma_BM_AB::tail_merge_bytes(u64 segment_words, u64 tail_words, u64 keep,
                                              const km_MULv3::Context& context) const {
  Layout layout;
  TailPlacement(layout, {segment_words / 3 + 3, tail_words, segment_words, tail_words, keep}, context);
  return layout.used();
}

void Series_EulerGamma_BM_AB::merge_tail(const km_MULv3::Context& context, const TailMerge& merge, void* work,
                                         u64 bytes) const {
  const kob_cdi_EFPh *const segment = merge.segment, *const tail = merge.tail;
  const u64 keep = merge.keep;
  const MergeSizes sizes{std::max(segment[ID].L, segment[IH].L), tail[0].L,
                         std::max(segment[IT].L, segment[IV].L), std::max(tail[1].L, tail[2].L), keep};
  Layout layout(work, bytes);
  const TailPlacement place(layout, sizes, context);
  kob_cdi_EFPh right[INTEGERS] = {{}, tail[0], tail[1], tail[2]}, out[INTEGERS];
  out[ID].attach(place.D, sizes.dl + sizes.dr);
  out[IT].attach(place.T, keep + 3);
  out[IV].attach(place.V, keep + 3);
  combine(context, place.merge, sizes, segment, right, out, 2 * k_ * (merge.end - merge.begin), keep, false);
  for (u64 i = 0; i < TAILS; i++) merge.settle(i, out[ID + i]);
}

void Series_EulerGamma_BM_AB::BSR_memory(const Schedule& schedule, u64 first_segment,
                                         const km_MULv3::Context& context, u64* out_peak, u64* out_result,
                                         u64* out_temp) const {
  ScheduledSum(*this, schedule).memory(first_segment, context, out_peak, out_result, out_temp);
}

u64 sum_work_bytes(const Series_EulerGamma_BM_AB& series, u64 precision_words,
                   const km_MULv3::Context& context) {
  return ScheduledSum(series, precision_words).work_bytes(context);
}

double sum_cost(const Series_EulerGamma_BM_AB& series, u64 precision_words) {
  return ScheduledSum(series, precision_words).cost();
}

void sum_series_quietly(const Series_EulerGamma_BM_AB& series, u64 precision_words,
                        const SeriesContext& context, kob_cdi_EFPh& D, kob_cdi_EFPh& T, kob_cdi_EFPh& V,
                        void* work) {
  kob_cdi_EFPh tail[] = {D, T, V};
  ScheduledSum(series, precision_words).run(context, tail, work);
  D = tail[0];
  T = tail[1];
  V = tail[2];
}

u64 Series_EulerGamma_BM_C::terms(u64 precision_words) const {
  const u64 most = (u64{2} << k_) - 1;
  const double needed = NATS_PER_WORD * static_cast<double>(precision_words) + 8;
  const auto reached = [&](u64 j) { return j >= most || log_convergence(0, j) >= needed; };
  return first(0, most, reached);
}

double Series_EulerGamma_BM_C::log_size(u64 x) const {
  const double j = static_cast<double>(x);
  return log_factorial(j) + (5 + 2 * static_cast<double>(k_)) * LN2 * j;
}

double Series_EulerGamma_BM_C::log_convergence(u64 a, u64 b) const {
  const auto from_0 = [this](u64 x) {
    const double j = static_cast<double>(x);
    return 4 * log_factorial(j) - 3 * log_factorial(2 * j) + 2 * j * (4 + static_cast<double>(k_)) * LN2;
  };
  return from_0(b) - from_0(a);
}

void Series_EulerGamma_BM_C::term(u64 j, SeriesTerm& t) const {
  t.clear();
  for (int i = 0; i < 3; i++) t.multiply_p(2 * j - 1);
  t.multiply_q(u64{1} << k_);
  t.multiply_q(u64{32} << k_);
  t.multiply_q(j);
  t.horner(0, 1);
}

} // namespace kelvane
