// The series of the Euler-Mascheroni constant, n = 2^k (Brent and McMillan).
//
//   B = sum over j >= 0 of (n^j/j!)^2,   A = sum over j >= 1 of H_j (n^j/j!)^2,   H_j = 1 + 1/2 + ... + 1/j
//   C = 1/(4n) sum over j = 0..2n-1 of (2j)!^3/(j!^4 (16n)^(2j))
//
//   gamma = A/B - ln n              off by less than pi e^(-4n)
//   gamma = A/B - C/B^2 - ln n      off by less than 24 e^(-8n)
//
// Source: Brent and McMillan, Some new algorithms for high-precision computation of Euler's constant, Math.
// Comp. 34 (1980); bounds: Brent and Johansson, A bound for the error term in the Brent-McMillan algorithm
// (2015).
#pragma once

#include "series/kc_BSS_P2B3_Type0.h"

namespace kelvane {

// A and B in one recursion: four integers H, D, T, V a range, all positive, no signs.
//
//   leaf j:  D = j, H = 1, T = V = n^2
//   merge:   E = Dr^2, F = Hl Dr, s = 2k(m - a)
//            D = Dl Dr                       H = F + Hr Dl
//            T = Tl E + 2^s Tr               V = Vl E Dr + 2^s (Dl Vr + F Tr)
//
//   D = (a+1) ... b        H/D = 1/(a+1) + ... + 1/b        T/D^2 = sum over j of the product over i = a+1..j
//   of n^2/i^2        V/D^3 = the same sum, each term times 1/(a+1) + ... + 1/j
//
// Over [0, N):  B = (D^2 + T)/D^2,  A/B = V/(D (D^2 + T)). H is not used on the right spine.
class Series_EulerGamma_BM_AB final : public kc_BSS {
public:
  explicit Series_EulerGamma_BM_AB(u32 k) : k_(k) {}
  static constexpr u64 MEMORY_OVERHEAD = 16; // words, as listed among the build's options

  void BSR_memory(const Schedule& schedule, u64 first_segment, const km_MULv3::Context& context,
                  u64* out_peak, u64* out_result, u64* out_temp) const override;
  // The smallest N >= n behind which what is left of B is below 2^(-64 w) of it, and two more.
  u64 terms(u64 precision_words) const override;
  double log_size(u64 x) const override;
  double log_convergence(u64 a, u64 b) const override; // negative below n: there the terms grow

  // The shape's part in the recursion (see recursion.h) and in the summation (see scheduled_sum.h).
  static constexpr u64 INTEGERS = 4, TAILS = 3;
  static constexpr double MERGE_WEIGHT = 1.4;
  bool is_leaf(u64 a, u64 b) const { return b - a == 1 || range_words(a, b) < END_WORDS; }
  void leaf(u64 a, u64 b, kob_cdi_EFPh* out) const;
  u64 merge_bytes(u64 capacity, const km_MULv3::Context& context) const;
  void merge(const km_MULv3::Context& context, u64 a, u64 m, u64 b, const kob_cdi_EFPh* left,
             const kob_cdi_EFPh* right, kob_cdi_EFPh* out, bool need_first, void* work, u64 bytes) const;
  double merge_cost(u64 words) const;
  Schedule schedule(u64 precision_words) const;
  u64 last_capacity(u64 words, u64) const { return words; }
  u64 tail_merge_bytes(u64 segment_words, u64 tail_words, u64 keep, const km_MULv3::Context& context) const;
  void merge_tail(const km_MULv3::Context& context, const TailMerge& merge, void* work, u64 bytes) const;

private:
  static constexpr u64 END_WORDS = 40;
  double n() const { return static_cast<double>(u64{1} << k_); }
  double nats_left(double target, u64 j) const;
  const u32 k_;
};

// D, T, V of [0, N) for the precision, in buffers of sum_capacity() words; see ScheduledSum. Advances
// context.multiply.progress by sum_cost().
u64 sum_work_bytes(const Series_EulerGamma_BM_AB& series, u64 precision_words,
                   const km_MULv3::Context& context);
double sum_cost(const Series_EulerGamma_BM_AB& series, u64 precision_words);
void sum_series_quietly(const Series_EulerGamma_BM_AB& series, u64 precision_words,
                        const SeriesContext& context, kob_cdi_EFPh& D, kob_cdi_EFPh& T, kob_cdi_EFPh& V,
                        void* work);

// C = (Q + R)/(2^(k+2) Q) over [0, M):  p(j) = (2j-1)^3, q(j) = 2^(5+2k) j, a(j) = p(j). Terms fall up to j =
// 2n.
class Series_EulerGamma_BM_C final : public kc_BSS_P2B3_Type0 {
public:
  explicit Series_EulerGamma_BM_C(u32 k) : kc_BSS_P2B3_Type0(false, true, 15, 8), k_(k) {}
  // The smallest M with a term below 2^(-64 w) e^-8, at most 2n - 1.
  u64 terms(u64 precision_words) const override;
  double log_size(u64 x) const override;
  double log_convergence(u64 a, u64 b) const override;
  void term(u64 k, SeriesTerm& t) const override;

private:
  const u32 k_;
};

} // namespace kelvane
