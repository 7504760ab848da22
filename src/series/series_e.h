// The Taylor series of exp(1) and exp(-1): two integers a range.
//
//   leaf k:  P = 1, Q = k        merge:  P = Pl Qr +/- Pr,  Q = Ql Qr
//
// over [1, N): P/Q = sum over k = 1..N-1 of s(k)/k!, all positive for exp(1), alternating for exp(-1)
// (normalised to a positive first term, so 1/e = 1 - P/Q). exp(1): e = (P + Q)/Q. exp(-1): e = Q/(Q - P).
#pragma once

#include "series/kc_BSS.h"
#include "series/series_context.h"

namespace kelvane {

class Series_E_Taylor final : public kc_BSS {
public:
  explicit Series_E_Taylor(bool alternating_) : alternating(alternating_) {}
  const bool alternating;
  static constexpr u64 MEMORY_OVERHEAD = 4; // words, as listed among the build's options
  static constexpr u64 END_THRESHOLD = 16;  // words: ranges below it are finished by the leaf routine

  void BSR_memory(const Schedule& schedule, u64 first_segment, const km_MULv3::Context& context,
                  u64* out_peak, u64* out_result, u64* out_temp) const override;
  // The smallest N with N! > e 2^(64 w).
  u64 terms(u64 precision_words) const override;
  double log_size(u64 x) const override;
  double log_convergence(u64 a, u64 b) const override;

  // The shape's part in the recursion (see recursion.h).
  static constexpr u64 INTEGERS = 2;
  bool is_leaf(u64 a, u64 b) const { return b - a == 1 || range_words(a, b) < END_THRESHOLD; }
  void leaf(u64 a, u64 b, kob_cdi_EFPh* out) const;
  u64 merge_bytes(u64 capacity, const km_MULv3::Context& context) const;
  void merge(const km_MULv3::Context& context, u64 a, u64 m, u64 b, const kob_cdi_EFPh* left,
             const kob_cdi_EFPh* right, kob_cdi_EFPh* out, bool need_first, void* work, u64 bytes) const;
  double merge_cost(u64 words) const;
};

// P and Q of [1, N) for the precision; attached to buffers of e_series_capacity() words.
// Prints the number of terms and shows the meter "Summing: "; checks both results over 1..N at the end.
u64 e_series_capacity(const Series_E_Taylor& series, u64 precision_words);
u64 e_series_work_bytes(const Series_E_Taylor& series, u64 precision_words, const km_MULv3::Context& context);
void sum_series_e(const Series_E_Taylor& series, u64 precision_words, const SeriesContext& context,
                  kob_cdi_EFPh& P, kob_cdi_EFPh& Q, void* work);

} // namespace kelvane
