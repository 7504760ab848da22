// The series of Catalan's constant.
//
// Lupas:   G = R/(2 Q) over [0, N), alternating
//   p(k) = 32 k^3 (2k-1)     q(k) = ((4k-3) (4k-1))^2     a(k) = 40 k^2 - 24 k + 3     1.386 nats a term
// Huvent:  G = 3/64 sum over k >= 0 of (-1/64)^k c(k),
//   c(k) = 32/(12k+1)^2 - 32/(12k+2)^2 - 32/(12k+3)^2 - 8/(12k+5)^2 - 16/(12k+6)^2 - 4/(12k+7)^2 -
//   4/(12k+9)^2
//          - 2/(12k+10)^2 + 1/(12k+11)^2
//   q(k) = ((12k+1) (6k+1) (4k+1) (12k+5) (2k+1) (12k+7) (4k+3) (6k+5) (12k+11))^2     r(k) = -18 c(k) q(k)
//   with Q, R over [0, N):  G = (469137217 Q 2^(6N) + 1334025 R) / (512265600 Q 2^(6N))     4.159 nats a term
//   c(0) is positive and stays outside the range, c(k) is negative for every k >= 1: the two signs cancel and
//   the finisher adds.
// Source: Lupas, Formulae for some classical constants (2000).
#pragma once

#include "series/common_factors.h"
#include "series/kc_BSS_P2B2_BBP.h"
#include "series/kc_BSS_P2B3_Type0.h"

namespace kelvane {

class Series_Catalan_Lupas final : public kc_BSS_P2B3_Type0 {
public:
  Series_Catalan_Lupas();
  u64 terms(u64 precision_words) const override;
  double log_size(u64 x) const override;
  double log_convergence(u64 a, u64 b) const override;
  void term(u64 k, SeriesTerm& t) const override;
  const CommonFactors* common_factors() const override { return &factors_; }

private:
  const HypergeometricFactors factors_;
};

// The nine factors of q(k) are, but for powers of 2 and 3, the numbers n of 12k+1..12k+11 that 4 does not
// divide. Every fraction lacks the factors of its own k only: twice the multiples of q that 4 does not divide
// in (12a + 12, 12b + 11], less twice the most of them at one k. So many numbers, X = 12m - 1, hold T =
// floor(X/q) multiples of q at least, of which 4 divides floor((T + 3)/4) at most, wherever they begin.
class HuventFactors final : public CommonFactors {
public:
  HuventFactors();
  u64 exponent(u64 q, u64 terms) const override;
  double log_at_least(double terms) const override;
};

class Series_Catalan_Huvent final : public kc_BSS_P2B2_BBP {
public:
  Series_Catalan_Huvent() : kc_BSS_P2B2_BBP(58, 6) {}
  u64 terms(u64 precision_words) const override;
  double log_size(u64 x) const override;
  double log_convergence(u64 a, u64 b) const override;
  void term(u64 k, BBPTerm& t) const override;
  const CommonFactors* common_factors() const override { return &factors_; }

private:
  const HuventFactors factors_;
};

} // namespace kelvane
