#include "series/kc_BSS_P2B3_Type0.h"

#include <algorithm>
#include <cmath>

#include "series/leaf_integer.h"
#include "series/scheduled_sum.h"
#include "series/shared_products.h"

namespace kelvane {

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
    u64 p[8], q[10];
    const u64 p_words = product_of_factors(t.p, t.p_factors, p);
    const u64 q_words = product_of_factors(t.q, t.q_factors, q);
    if (plain) P.multiply(p, p_words);
    x.set_product(P, t.poly, t.poly_words);
    if (!plain) P.multiply(p, p_words);
    R.multiply(q, q_words);
    Q.multiply(q, q_words);
    R.accumulate(x, alternating && ((k - a - 1) & 1) != 0);
  }
  out[0].set_words(P.words, P.n);
  out[1].set_words(Q.words, Q.n);
  out[2].set_words(R.words, R.n);
}

namespace {

// Work of merging two halves: the second product of R where it can not be formed over the spent halves' R,
// and the products' own memory.
struct MergePlacement {
  u64* second;
  u64 work_bytes;
  void* work;
  MergePlacement(Layout& layout, u64 product_words, const km_MULv3::Context& context)
      : second(layout.take<u64>(words_beside(product_words))),
        work_bytes(km_MULv3::memory_cost(product_words, context.threads, context.reduced_memory)),
        work(layout.take_bytes(work_bytes)) {}
};

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
                              const kob_cdi_EFPh* right, kob_cdi_EFPh* out, bool need_P, void* work,
                              u64 bytes) const {
  const u64 n = longest(left) + longest(right);
  const bool subtract = alternating && ((m - a) & 1) != 0;
  if (MergeProducts products(context, n + 1, work, bytes);
      products.possible() &&
      products.merge(left, right, subtract, need_P ? &out[0] : nullptr, out[1], out[2]))
    return;

  Layout layout(work, bytes);
  const MergePlacement place(layout, n, context);
  // The halves' last integers lie side by side.
  const bool over = km_MULv3::may_multiply_over(n);
  kob_cdi_EFPh second;
  if (over)
    second.attach(left[2].buffer, left[2].AL + right[2].AL);
  else
    second.attach(place.second, n + 1);

  SharedProducts products(context, n, place.work, place.work_bytes + layout.left());
  products.keep(right[1]);
  products.multiply(out[1], left[1]); // Ql Qr
  products.multiply(out[2], left[2]); // Rl Qr
  products.keep(left[0]);
  if (over)
    products.multiply_over(second, right[2]); // Pl Rr
  else
    products.multiply(second, right[2]);
  combine(out[2], second, m - a);
  if (!need_P) return;
  if (cheaper_alone(left[0], right[0], n))
    out[0].set_product(context, left[0], right[0], place.work);
  else
    products.multiply(out[0], right[0]); // Pl Pr
}

namespace {

// Work of a segment's merge with its tail: its first product, the others where they can not be formed over
// the segment, then the products' own memory.
struct TailPlacement {
  u64 *first, *second;
  void* work;
  TailPlacement(Layout& layout, u64 product_words, const km_MULv3::Context& context)
      : first(layout.take<u64>(product_words + 1)), second(layout.take<u64>(words_beside(product_words))),
        work(layout.take_bytes(
            km_MULv3::memory_cost(product_words, context.threads, context.reduced_memory))) {}
};

} // namespace

u64 kc_BSS_P2B3_Type0::tail_merge_bytes(u64 segment_words, u64 tail_words, u64,
                                        const km_MULv3::Context& context) const {
  Layout layout;
  TailPlacement(layout, segment_words + tail_words, context);
  return layout.used();
}

void kc_BSS_P2B3_Type0::merge_tail(const km_MULv3::Context& context, const TailMerge& merge, void* work,
                                   u64 bytes) const {
  kob_cdi_EFPh *const segment = merge.segment, &Q = merge.tail[0], &R = merge.tail[1], first, second;
  const u64 n = longest(segment) + std::max(Q.L, R.L);
  Layout layout(work, bytes);
  const TailPlacement place(layout, n, context);
  first.attach(place.first, n + 1);

  SharedProducts products(context, n, place.work);
  products.keep(Q);
  products.multiply(first, segment[2]); // Rl Qr; R's buffer is free now
  if (km_MULv3::may_multiply_over(n)) {
    second.attach(segment[1].buffer, segment[1].AL + segment[2].AL);
    products.multiply_over(second, segment[1]); // Ql Qr
  } else {
    second.attach(place.second, n + 1);
    products.multiply(second, segment[1]);
  }
  merge.settle(0, second);
  products.keep(segment[0]);
  products.multiply(second, R); // Pl Rr
  combine(first, second, merge.end - merge.begin);
  merge.settle(1, first);
}

void kc_BSS_P2B3_Type0::BSR_memory(const Schedule& schedule, u64 first_segment,
                                   const km_MULv3::Context& context, u64* out_peak, u64* out_result,
                                   u64* out_temp) const {
  ScheduledSum(*this, schedule).memory(first_segment, context, out_peak, out_result, out_temp);
}

} // namespace kelvane
