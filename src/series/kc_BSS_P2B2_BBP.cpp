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

// The left range's integers lie side by side; this takes both their buffers.
void attach_over(kob_cdi_EFPh& x, const kob_cdi_EFPh* left) {
  x.attach(left[0].buffer, static_cast<u64>(left[1].buffer - left[0].buffer) + left[1].AL);
}

// x <- x 2^(64 words): the exponent alone.
void shift_words(kob_cdi_EFPh& x, s64 words) {
  x.exp += words;
  x.hash = residue::mul(x.hash, residue::weight(words));
}

// Work of a merge: three transforms of products of up to product_words words and their scratch.
// km_MULv3::memory_cost() holds two for every such product.
u64 transform_bytes(u64 product_words, const km_MULv3::Context& context) {
  const u64 two = km_MULv3::memory_cost(product_words, context.threads);
  return two + two / 2 + 5 * Layout::ALIGNMENT;
}

// Q = Ql Qr and R = (Rl Qr) 2^bits -/+ Ql Rr, for operands that it destroys. Every operand is transformed
// once. Where the work holds four transforms, both products of R are added before one inverse; with three,
// which are what takes the most memory at the end of a sum, Rl and Rr pass one after the other.
class FractionMerge {
public:
  FractionMerge(const km_MULv3::Context& context, const kob_cdi_EFPh* left, const kob_cdi_EFPh* right,
                u64 bits, bool subtract, void* work, u64 bytes)
      : left_(left), right_(right), bits_(bits), subtract_(subtract) {
    // Words by which the last word of Rl Qr 2^bits lies above that of Ql Rr: zeros written out below one of
    // the operands make up for them, so that both products can be added as transforms.
    const s64 above = left[1].exp + right[0].exp + static_cast<s64>(bits / 64) - left[0].exp - right[1].exp;
    below_left_ = above > 0 ? static_cast<u64>(above) : 0;
    below_right_ = above < 0 ? static_cast<u64>(-above) : 0;
    sum_words_ = std::max(left[1].L + below_left_ + 1 + right[0].L, left[0].L + right[1].L + below_right_);

    km_MULv3::Context full = context;
    full.reduced_memory = false;
    const u64 n = longest(left) + longest(right) + kc_BSS_P2B2_BBP::SPARE_WORDS;
    record_ = km_MULv3::select(n, full, &storage_);
    Layout measure;
    place(measure, 4);
    four_ = record_->may_add(0) && sum_words_ <= n && measure.used() <= bytes;
    Layout layout(work, bytes);
    place(layout, four_ ? 4 : 3);
    qr_.forward(*record_, data_[0], right[0], scratch_);
    ql_.forward(*record_, data_[1], left[0], scratch_);
  }

  // Q needs a buffer of its own, which also holds a product of R; R's may be that of the left range. R is
  // exact for keep = ~0, else cut to keep + 1 words or a whole product.
  void run(kob_cdi_EFPh& Q, kob_cdi_EFPh& R, u64 keep) {
    if (!four_ || sum_words_ > R.AL || !add_transforms(Q, R)) {
      multiply_fraction(Q, left_[1], qr_); // Rl Qr
      R.set_shifted(Q, bits_, keep);
      multiply_fraction(Q, right_[1], ql_); // Ql Rr
      if (subtract_)
        R.sub_in_place(Q);
      else
        R.add_in_place(Q);
    }
    Q.set_inverse_fmul(ql_, qr_, scratch_);
  }

private:
  void place(Layout& layout, u64 transforms) {
    for (u64 i = 0; i < transforms; i++) data_[i] = layout.take_bytes(record_->transform_bytes());
    scratch_ = layout.take_bytes(record_->scratch_bytes());
  }
  void multiply_fraction(kob_cdi_EFPh& out, const kob_cdi_EFPh& x, const kob_cdi_EFPh::Transform& by) {
    kob_cdi_EFPh::Transform passing;
    passing.forward_once(*record_, data_[2], x, scratch_);
    out.set_inverse_fmul(passing, by, scratch_);
  }
  // R of both products' transforms; the operands with their zeros pass through Q's buffer. False when the
  // products may not be added.
  bool add_transforms(kob_cdi_EFPh& Q, kob_cdi_EFPh& R) {
    kob_cdi_EFPh::Transform rl, rr;
    Q.set_shifted(left_[1], 64 * below_left_ + bits_ % 64, ~u64{0});
    shift_words(Q, static_cast<s64>(bits_ / 64) - static_cast<s64>(below_left_));
    rl.forward_once(*record_, data_[2], Q, scratch_);
    Q.set_shifted(right_[1], 64 * below_right_, ~u64{0});
    shift_words(Q, -static_cast<s64>(below_right_));
    rr.forward_once(*record_, data_[3], Q, scratch_);
    if (!kob_cdi_EFPh::may_add(rl, qr_, ql_, rr)) return false;
    R.set_inverse_fmul_ext(rl, qr_, ql_, rr, subtract_, scratch_);
    return true;
  }

  const kob_cdi_EFPh *left_, *right_;
  u64 bits_;
  bool subtract_, four_;
  u64 below_left_, below_right_, sum_words_; // of the longer of R's products, zeros included
  km_MULv3::btp_storage storage_;
  const km_MULv3::abstract_btp* record_;
  void *data_[4], *scratch_;
  kob_cdi_EFPh::Transform ql_, qr_;
};

} // namespace

u64 kc_BSS_P2B2_BBP::merge_bytes(u64 capacity, const km_MULv3::Context& context) const {
  return transform_bytes(2 * capacity + SPARE_WORDS, context);
}

double kc_BSS_P2B2_BBP::merge_cost(u64 words) const {
  const double n = 2 * static_cast<double>(words);
  return MERGE_WEIGHT * n * std::log2(n);
}

void kc_BSS_P2B2_BBP::merge(const km_MULv3::Context& context, u64 a, u64 m, u64 b, const kob_cdi_EFPh* left,
                            const kob_cdi_EFPh* right, kob_cdi_EFPh* out, bool, void* work, u64 bytes) const {
  FractionMerge(context, left, right, shift * (b - m), ((m - a) & 1) != 0, work, bytes)
      .run(out[0], out[1], ~u64{0});
}

namespace {

// Work of a segment's merge with its tail: the new Q as a whole product, and the transforms.
struct TailPlacement {
  u64* Q;
  u64 work_bytes;
  void* work;
  TailPlacement(Layout& layout, u64 product_words, const km_MULv3::Context& context)
      : Q(layout.take<u64>(product_words)),
        work_bytes(layout.measuring() ? transform_bytes(product_words, context)
                                      : layout.left() / Layout::ALIGNMENT * Layout::ALIGNMENT),
        work(layout.take_bytes(work_bytes)) {}
};

} // namespace

u64 kc_BSS_P2B2_BBP::tail_merge_bytes(u64 segment_words, u64 tail_words, u64,
                                      const km_MULv3::Context& context) const {
  Layout layout;
  TailPlacement(layout, segment_words + tail_words + SPARE_WORDS, context);
  return layout.used();
}

void kc_BSS_P2B2_BBP::merge_tail(const km_MULv3::Context& context, const TailMerge& merge, void* work,
                                 u64 bytes) const {
  const u64 n = longest(merge.segment) + longest(merge.tail) + SPARE_WORDS;
  Layout layout(work, bytes);
  const TailPlacement place(layout, n, context);
  kob_cdi_EFPh Q, R;
  Q.attach(place.Q, n);
  attach_over(R, merge.segment);
  FractionMerge(context, merge.segment, merge.tail, shift * (merge.terms - merge.end),
                ((merge.end - merge.begin) & 1) != 0, place.work, place.work_bytes)
      .run(Q, R, merge.keep);
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
