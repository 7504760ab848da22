// kc_BSS_P2B3_Type0: series whose ranges [a, b) are three integers P, Q, R.
//
//   leaf k:  P = p(k), Q = q(k), R = a(k)
//   merge:   P = Pl Pr     Q = Ql Qr     R = Rl Qr +/- Pl Rr
//
// R(a,b)/Q(a,b) = sum over k = a+1..b of s(k) a(k) p(a+1)..p(k-1) / (q(a+1)..q(k)), every range
// normalised so that its own first term is positive. In an alternating series the right half's
// first term then has the sign (-1)^(m - a): subtract when m - a is odd, add when it is even; other series
// always add. Terms fall strictly, so P, Q, R stay positive. Over [0, N) of an alternating series the
// k = 1 term is really negative.
#pragma once

#include <algorithm>

#include "series/kc_BSS.h"
#include "series/schedule.h"
#include "series/series_context.h"
#include "series/tail_merge.h"

namespace kelvane {

// One term, as factors that fit a word: p(k) and q(k) are the products of theirs. a(k) is poly, or
// p(k) * poly in a "plain" series.
struct SeriesTerm {
  u64 p[8], q[10], poly[4];
  u32 p_factors, q_factors, poly_words;

  void clear() { p_factors = q_factors = poly_words = 0; }
  // p(k) *= x, q(k) *= x: into the last factor as long as that fits a word, for products by few words.
  void multiply_p(u64 x) { multiply(p, p_factors, x); }
  void multiply_q(u64 x) { multiply(q, q_factors, x); }
  // poly = poly * x + c, for a Horner scheme of up to 4 words.
  void horner(u64 x, u64 c) {
    u128 carry = c;
    for (u32 i = 0; i < poly_words; i++) {
      carry += static_cast<u128>(poly[i]) * x;
      poly[i] = static_cast<u64>(carry);
      carry >>= 64;
    }
    if (carry != 0) poly[poly_words++] = static_cast<u64>(carry);
  }

private:
  static void multiply(u64* factors, u32& count, u64 x) {
    if (count != 0) {
      const u128 product = static_cast<u128>(factors[count - 1]) * x;
      if (product >> 64 == 0) {
        factors[count - 1] = static_cast<u64>(product);
        return;
      }
    }
    factors[count++] = x;
  }
};

class kc_BSS_P2B3_Type0 : public kc_BSS {
public:
  const bool alternating;
  const bool plain;          // a(k) = p(k) * poly(k)
  const u64 memory_overhead; // words, as listed among the build's options
  const u64 end_threshold;   // words: ranges below LEAF_THRESHOLDS times it are finished by the leaf routine

  void BSR_memory(const Schedule& schedule, u64 first_segment, const km_MULv3::Context& context,
                  u64* out_peak, u64* out_result, u64* out_temp) const override;
  virtual void term(u64 k, SeriesTerm& t) const = 0; // k >= 1

  // The shape's part in the recursion (see recursion.h) and in the summation (see scheduled_sum.h).
  static constexpr u64 INTEGERS = 3, TAILS = 2;
  static constexpr double MERGE_WEIGHT = 1;
  // P is shorter than Q by what the terms converge: log_size is that of the leading terms of q(k), whose
  // ratio to those of p(k) log_convergence is.
  u64 first_capacity(u64 a, u64 b, u64 level = 0) const {
    const double nats = range_nats(a, b, level) - log_convergence(a, b);
    return static_cast<u64>(std::max(0.0, nats) * WORDS_PER_NAT) + 2 + CAPACITY_GUARD;
  }
  bool is_leaf(u64 a, u64 b) const {
    return b - a == 1 || range_words(a, b) < std::min(LEAF_THRESHOLDS * end_threshold, LONGEST_LEAF);
  }
  void leaf(u64 a, u64 b, kob_cdi_EFPh* out) const;
  u64 merge_bytes(u64 capacity, const km_MULv3::Context& context) const;
  void merge(const km_MULv3::Context& context, u64 a, u64 m, u64 b, const kob_cdi_EFPh* left,
             const kob_cdi_EFPh* right, kob_cdi_EFPh* out, bool need_P, void* work, u64 bytes) const;
  double merge_cost(u64 words) const;
  Schedule schedule(u64 precision_words) const { return build_schedule(*this, precision_words); }
  // The buffers of Q and R together take a whole product: once R itself has been multiplied, the merge's
  // other products are formed over both.
  u64 last_capacity(u64 words, u64 product_words) const {
    return std::max(words, product_words + 1 - std::min(words, product_words));
  }
  u64 tail_merge_bytes(u64 segment_words, u64 tail_words, u64 keep, const km_MULv3::Context& context) const;
  void merge_tail(const km_MULv3::Context& context, const TailMerge& merge, void* work, u64 bytes) const;

  // R = Rl Qr +/- Pl Rr from R = Rl Qr and x = Pl Rr, the left range being `left_terms` long. x may be
  // destroyed: where terms hardly fall, three terms have a right half larger than their left one.
  void combine(kob_cdi_EFPh& R, kob_cdi_EFPh& x, u64 left_terms) const {
    if (alternating && (left_terms & 1) != 0) {
      R.sub_in_place(x);
    } else if (x.mag() <= R.mag()) {
      R.add_in_place(x);
    } else {
      x.add_in_place(R);
      R.set_copy(x);
    }
  }
  // Words of the longest of a range's P, Q, R.
  static u64 longest(const kob_cdi_EFPh* x) { return std::max({x[0].L, x[1].L, x[2].L}); }

protected:
  kc_BSS_P2B3_Type0(bool alternating_, bool plain_, u64 overhead, u64 threshold)
      : alternating(alternating_), plain(plain_), memory_overhead(overhead), end_threshold(threshold) {}

private:
  // Measured: appending terms in word arithmetic beats short merges up to 64 words.
  static constexpr u64 LEAF_THRESHOLDS = 8, LONGEST_LEAF = 64;
};

} // namespace kelvane
