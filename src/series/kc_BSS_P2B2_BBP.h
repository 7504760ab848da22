// kc_BSS_P2B2_BBP: series of the kind sum over k of s(k) r(k)/(q(k) 2^(s k)), whose ranges [a, b) are two
// integers Q, R.
//
//   leaf k:  Q = q(k), R = r(k)
//   merge:   Q = Ql Qr     R = (Rl Qr) 2^(s (b - m)) -/+ Ql Rr
//
// R(a,b)/(Q(a,b) 2^(s (b-a))) is the range's value times 2^(s a), normalised so that its own first term is
// positive. The series alternates: subtract when m - a is odd, add when it is even.
#pragma once

#include <algorithm>

#include "series/kc_BSS.h"
#include "series/schedule.h"
#include "series/series_context.h"
#include "series/tail_merge.h"

namespace kelvane {

// One term, as factors that fit a word for q(k), and r(k).
struct BBPTerm {
  u64 q[18], r[20];
  u32 q_factors, r_words;
};

class kc_BSS_P2B2_BBP : public kc_BSS {
public:
  const u64 memory_overhead; // words, as listed among the build's options
  const u64 shift;           // s, bits a term

  void BSR_memory(const Schedule& schedule, u64 first_segment, const km_MULv3::Context& context,
                  u64* out_peak, u64* out_result, u64* out_temp) const override;
  virtual void term(u64 k, BBPTerm& t) const = 0; // k >= 1

  // The shape's part in the recursion (see recursion.h) and in the summation (see scheduled_sum.h).
  static constexpr u64 INTEGERS = 2, TAILS = 2;
  static constexpr double MERGE_WEIGHT = 0.75;
  bool is_leaf(u64 a, u64 b) const { return b - a == 1 || range_words(a, b) < END_WORDS; }
  void leaf(u64 a, u64 b, kob_cdi_EFPh* out) const;
  u64 merge_bytes(u64 capacity, const km_MULv3::Context& context) const;
  void merge(const km_MULv3::Context& context, u64 a, u64 m, u64 b, const kob_cdi_EFPh* left,
             const kob_cdi_EFPh* right, kob_cdi_EFPh* out, bool need_first, void* work, u64 bytes) const;
  double merge_cost(u64 words) const;
  Schedule schedule(u64 precision_words) const { return build_schedule(*this, precision_words); }
  // A segment's buffers together take a product of R.
  u64 last_capacity(u64 words, u64 product_words) const {
    return std::max(words, product_words + SPARE_WORDS - std::min(words, product_words));
  }
  u64 tail_merge_bytes(u64 segment_words, u64 tail_words, u64 keep, const km_MULv3::Context& context) const;
  void merge_tail(const km_MULv3::Context& context, const TailMerge& merge, void* work, u64 bytes) const;

  // Of a merge's products beyond the operands' words: the shift's words and those of R are rounded up.
  static constexpr u64 SPARE_WORDS = 3;

protected:
  kc_BSS_P2B2_BBP(u64 overhead, u64 shift_) : memory_overhead(overhead), shift(shift_) {}

private:
  static constexpr u64 END_WORDS = 64;
};

// Q and R of [0, N) for the precision, in buffers of sum_capacity() words; see ScheduledSum. Advances
// context.multiply.progress by sum_cost().
u64 sum_work_bytes(const kc_BSS_P2B2_BBP& series, u64 precision_words, const km_MULv3::Context& context);
double sum_cost(const kc_BSS_P2B2_BBP& series, u64 precision_words);
void sum_series_quietly(const kc_BSS_P2B2_BBP& series, u64 precision_words, const SeriesContext& context,
                        kob_cdi_EFPh& Q, kob_cdi_EFPh& R, void* work);

} // namespace kelvane
