#include "series/kc_BSS_P2B2_BBP.h"

#include <algorithm>
#include <cmath>

#include "arithmetic/words/residue.h"
#include "series/leaf_integer.h"
#include "series/scheduled_sum.h"
#include "series/shared_products.h"

namespace kelvane {

// Terms a+1..b appended one by one to an empty range (Q = 1, R = 0), each a merge whose right half is a
// single term. A range below END_WORDS words, or one term of at most 20, and its partial products fit
// LEAF_WORDS.
void kc_BSS_P2B2_BBP::leaf(u64 a, u64 b, kob_cdi_EFPh* out) const {
  LeafInteger Q, R, x;
  Q.set(1);
  R.set(0);
  BBPTerm t;
  for (u64 k = a + 1; k <= b; k++) {
    term(k, t);
    u64 q[18];
    const u64 q_words = product_of_factors(t.q, t.q_factors, q);
    x.set_product(Q, t.r, t.r_words);
    R.multiply(q, q_words);
    R.multiply(u64{1} << shift);
    Q.multiply(q, q_words);
    R.accumulate(x, ((k - a - 1) & 1) != 0);
  }
  out[0].set_words(Q.words, Q.n);
  out[1].set_words(R.words, R.n);
}

namespace {

// Words of the longest of a range's Q, R.
u64 longest(const kob_cdi_EFPh* x) {
  return std::max(x[0].L, x[1].L);
}

// Work of a merge: the two products of R, or their operands where the products are added as transforms, and
// the products' own memory.
struct MergePlacement {
  u64 *first, *second;
  u64 work_bytes;
  void* work;
  MergePlacement(Layout& layout, u64 product_words, const km_MULv3::Context& context)
      : first(layout.take<u64>(product_words + 1)), second(layout.take<u64>(product_words + 1)),
        work_bytes(layout.measuring() ? products_bytes(product_words, context)
                                      : layout.left() / Layout::ALIGNMENT * Layout::ALIGNMENT),
        work(layout.take_bytes(work_bytes)) {}

private:
  static u64 products_bytes(u64 words, const km_MULv3::Context& context) {
    const u64 bytes = km_MULv3::memory_cost(words, context.threads, context.reduced_memory);
    return context.reduced_memory ? bytes : std::max(bytes, MergeProducts::work_bytes(context, words));
  }
};

// x <- x 2^(64 words): the exponent alone.
void shift_words(kob_cdi_EFPh& x, s64 words) {
  x.exp += words;
  x.hash = residue::mul(x.hash, residue::weight(words));
}

// first <- Rl Qr, second <- Ql Rr, Q <- Ql Qr. Within the FFT's lengths, whose transforms are short, each
// operand is transformed once; else, where the work may not hold three transforms, Ql twice.
void form_products(const km_MULv3::Context& context, u64 n, const kob_cdi_EFPh* left,
                   const kob_cdi_EFPh* right, kob_cdi_EFPh& first, kob_cdi_EFPh& second, kob_cdi_EFPh& Q,
                   void* work, u64 bytes) {
  if (n > km_MULv3::LONGEST_BASECASE && n <= km_MULv3::LONGEST_FFT) {
    km_MULv3::btp_storage storage;
    const km_MULv3::abstract_btp& record = *km_MULv3::select(n, context, &storage);
    if (3 * record.transform_bytes() + record.scratch_bytes() + 4 * Layout::ALIGNMENT <= bytes) {
      Layout layout(work, bytes);
      void* data[3];
      for (void*& x : data) x = layout.take_bytes(record.transform_bytes());
      void* const scratch = layout.take_bytes(record.scratch_bytes());
      kob_cdi_EFPh::Transform ql, qr, passing;
      qr.forward(record, data[0], right[0], scratch);
      ql.forward(record, data[1], left[0], scratch);
      passing.forward_once(record, data[2], left[1], scratch);
      first.set_inverse_fmul(passing, qr, scratch);
      passing.forward_once(record, data[2], right[1], scratch);
      second.set_inverse_fmul(passing, ql, scratch);
      return Q.set_inverse_fmul(ql, qr, scratch);
    }
  }
  SharedProducts products(context, n, work, bytes);
  products.keep(right[0]);
  products.multiply(Q, left[0]);
  products.multiply(first, left[1]);
  products.keep(left[0]);
  products.multiply(second, right[1]);
}

// Q <- Ql Qr, R <- (Rl Qr) 2^bits -/+ Ql Rr. Exact in R's own buffer for keep = ~0; else R is cut to keep + 1
// words or, as a whole product, left in the placement's buffer of its spent operand.
void combine(const km_MULv3::Context& context, const MergePlacement& place, u64 n, const kob_cdi_EFPh* left,
             const kob_cdi_EFPh* right, kob_cdi_EFPh& Q, kob_cdi_EFPh& R, u64 bits, bool subtract, u64 keep) {
  kob_cdi_EFPh first, second;
  first.attach(place.first, n + 1);
  second.attach(place.second, n + 1);
  // Words by which the first product's last word then lies above the second's: zeros written out below one of
  // the operands make up for them, so that both products can be added as transforms.
  const s64 above = left[1].exp + right[0].exp + static_cast<s64>(bits / 64) - left[0].exp - right[1].exp;
  const u64 below_left = above > 0 ? static_cast<u64>(above) : 0;
  const u64 below_right = above < 0 ? static_cast<u64>(-above) : 0;
  const u64 longest_product =
      std::max(left[1].L + below_left + 1 + right[0].L, left[0].L + right[1].L + below_right);
  const bool elsewhere = keep != ~u64{0};
  if (longest_product <= n && (elsewhere || longest_product <= R.AL)) {
    if (MergeProducts products(context, longest_product, place.work, place.work_bytes); products.possible()) {
      first.set_shifted(left[1], 64 * below_left + bits % 64, ~u64{0});
      shift_words(first, static_cast<s64>(bits / 64) - static_cast<s64>(below_left));
      second.set_shifted(right[1], 64 * below_right, ~u64{0});
      shift_words(second, -static_cast<s64>(below_right));
      if (elsewhere) R.attach(place.first, n + 1);
      return products.merge_fractions(left[0], first, right[0], second, subtract, Q, R);
    }
  }
  form_products(context, n, left, right, first, second, Q, place.work, place.work_bytes);
  R.set_shifted(first, bits, keep);
  if (subtract)
    R.sub_in_place(second);
  else
    R.add_in_place(second);
}

} // namespace

u64 kc_BSS_P2B2_BBP::merge_bytes(u64 capacity, const km_MULv3::Context& context) const {
  Layout layout;
  MergePlacement(layout, 2 * capacity + 3, context);
  return layout.used();
}

double kc_BSS_P2B2_BBP::merge_cost(u64 words) const {
  const double n = 2 * static_cast<double>(words);
  return MERGE_WEIGHT * n * std::log2(n);
}

void kc_BSS_P2B2_BBP::merge(const km_MULv3::Context& context, u64 a, u64 m, u64 b, const kob_cdi_EFPh* left,
                            const kob_cdi_EFPh* right, kob_cdi_EFPh* out, bool, void* work, u64 bytes) const {
  const u64 n = longest(left) + longest(right) + 3; // the shift's words and those of R are rounded up
  Layout layout(work, bytes);
  const MergePlacement place(layout, n, context);
  combine(context, place, n, left, right, out[0], out[1], shift * (b - m), ((m - a) & 1) != 0, ~u64{0});
}

namespace {

// Work of a segment's merge with its tail: the new Q as a whole product, the new R, and a merge's own.
struct TailPlacement {
  u64 *Q, *R;
  MergePlacement merge;
  TailPlacement(Layout& layout, u64 product_words, u64 keep, const km_MULv3::Context& context)
      : Q(layout.take<u64>(product_words)), R(layout.take<u64>(keep + 3)),
        merge(layout, product_words, context) {}
};

} // namespace

u64 kc_BSS_P2B2_BBP::tail_merge_bytes(u64 segment_words, u64 tail_words, u64 keep,
                                      const km_MULv3::Context& context) const {
  Layout layout;
  TailPlacement(layout, segment_words + tail_words + 3, keep, context);
  return layout.used();
}

void kc_BSS_P2B2_BBP::merge_tail(const km_MULv3::Context& context, const TailMerge& merge, void* work,
                                 u64 bytes) const {
  const u64 n = longest(merge.segment) + longest(merge.tail) + 3;
  Layout layout(work, bytes);
  const TailPlacement place(layout, n, merge.keep, context);
  kob_cdi_EFPh Q, R;
  Q.attach(place.Q, n);
  R.attach(place.R, merge.keep + 3);
  combine(context, place.merge, n, merge.segment, merge.tail, Q, R, shift * (merge.terms - merge.end),
          ((merge.end - merge.begin) & 1) != 0, merge.keep);
  merge.settle(0, Q);
  merge.settle(1, R);
}

void kc_BSS_P2B2_BBP::BSR_memory(const Schedule& schedule, u64 first_segment,
                                 const km_MULv3::Context& context, u64* out_peak, u64* out_result,
                                 u64* out_temp) const {
  ScheduledSum(*this, schedule).memory(first_segment, context, out_peak, out_result, out_temp);
}

u64 sum_work_bytes(const kc_BSS_P2B2_BBP& series, u64 precision_words, const km_MULv3::Context& context) {
  return ScheduledSum(series, precision_words).work_bytes(context);
}

double sum_cost(const kc_BSS_P2B2_BBP& series, u64 precision_words) {
  return ScheduledSum(series, precision_words).cost();
}

void sum_series_quietly(const kc_BSS_P2B2_BBP& series, u64 precision_words, const SeriesContext& context,
                        kob_cdi_EFPh& Q, kob_cdi_EFPh& R, void* work) {
  kob_cdi_EFPh tail[] = {Q, R};
  ScheduledSum(series, precision_words).run(context, tail, work);
  Q = tail[0];
  R = tail[1];
}

} // namespace kelvane
