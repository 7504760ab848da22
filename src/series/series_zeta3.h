// The series of Zeta(3), both alternating.
//
// Amdeberhan and Zeilberger 1:   Zeta(3) = R/(2 Q) over [0, N)
//   p(k) = k^5     q(k) = 32 (2k-1)^5     a(k) = 205 k^2 - 160 k + 32          6.931 nats a term
// Amdeberhan and Zeilberger 2:   Zeta(3) = R/(8 Q)
//   p(k) = k^5 (2k-1)^3     q(k) = 24 (3k-2) (3k-1) ((4k-3) (4k-1))^3          11.614 nats a term
//   a(k) = 126392 j^5 + 412708 j^4 + 531578 j^3 + 336367 j^2 + 104000 j + 12463,  j = k - 1
//
// The sums begin inside the range (term k is the (k-1)th of the usual form), so that a(k) has no factor p(k)
// and R stays as short as Q.
// Source: Amdeberhan and Zeilberger, Hypergeometric series acceleration via the WZ method (1997).
#pragma once

#include "series/common_factors.h"
#include "series/kc_BSS_P2B3_Type0.h"

namespace kelvane {

class Series_Zeta3_AZ1 final : public kc_BSS_P2B3_Type0 {
public:
  Series_Zeta3_AZ1();
  u64 terms(u64 precision_words) const override;
  double log_size(u64 x) const override;
  double log_convergence(u64 a, u64 b) const override;
  void term(u64 k, SeriesTerm& t) const override;
  const CommonFactors* common_factors() const override { return &factors_; }

private:
  const HypergeometricFactors factors_;
};

class Series_Zeta3_AZ2 final : public kc_BSS_P2B3_Type0 {
public:
  Series_Zeta3_AZ2();
  u64 terms(u64 precision_words) const override;
  double log_size(u64 x) const override;
  double log_convergence(u64 a, u64 b) const override;
  void term(u64 k, SeriesTerm& t) const override;
  const CommonFactors* common_factors() const override { return &factors_; }

private:
  const HypergeometricFactors factors_;
};

} // namespace kelvane
