// The series of Pi.
//
// Chudnovsky:  Pi = C Q / ((A Q - R) sqrt(10005)),  A = 13591409, C = 426880 * 10005, over [0, N)
//   p(k) = (2k-1)(6k-5)(6k-1)        q(k) = 640320^3/24 k^3       a(k) = p(k) (545140134 k + 13591409)
//   alternating; 32.654 nats (14.18 digits) a term
// Ramanujan:   Pi = C Q / ((A Q + R) sqrt(8)),  A = 1103, C = 9801
//   p(k) = (2k-1)(4k-3)(4k-1)/3      q(k) = 396^4/24 k^3          a(k) = p(k) (26390 k + 1103)
//   18.380 nats (7.98 digits) a term. The common factor: (4k)!/((4k-4)! k^4 396^4) =
//   8 (2k-1)(4k-3)(4k-1) / (k^3 396^4), and three consecutive odd-spaced factors always hold a 3.
#pragma once

#include "series/common_factors.h"
#include "series/kc_BSS_P2B3_Type0.h"

namespace kelvane {

class Series_Pi_Chudnovsky final : public kc_BSS_P2B3_Type0 {
public:
  Series_Pi_Chudnovsky();
  u64 terms(u64 precision_words) const override;
  double log_size(u64 x) const override;
  double log_convergence(u64 a, u64 b) const override;
  void term(u64 k, SeriesTerm& t) const override;
  const CommonFactors* common_factors() const override { return &factors_; }

private:
  const HypergeometricFactors factors_;
};

class Series_Pi_Ramanujan final : public kc_BSS_P2B3_Type0 {
public:
  Series_Pi_Ramanujan();
  u64 terms(u64 precision_words) const override;
  double log_size(u64 x) const override;
  double log_convergence(u64 a, u64 b) const override;
  void term(u64 k, SeriesTerm& t) const override;
  const CommonFactors* common_factors() const override { return &factors_; }

private:
  const HypergeometricFactors factors_;
};

} // namespace kelvane
