// The series of ArcSinlemn(x) = integral from 0 to x of dt / sqrt(1 - t^4), the inverse of the lemniscate
// sine, for x = n/d < 1:
//
//   ArcSinlemn(x) = sum over k >= 0 of (2k)!/(4^k k!^2) x^(4k+1)/(4k+1) = n (Q + R)/(d Q)  over [0, N)
//   p(k) = P0 (2k-1)(4k-3)        q(k) = Q0 k (4k+1)        a(k) = p(k)        4 ln(d/n) nats a term
//
// with P0/Q0 = n^4/(2 d^4) in lowest terms.
#pragma once

#include "series/kc_BSS_P2B3_Type0.h"

namespace kelvane {

class Series_ArcSinlemn final : public kc_BSS_P2B3_Type0 {
public:
  Series_ArcSinlemn(u64 numerator, u64 denominator); // at most 181 each
  u64 terms(u64 precision_words) const override;
  double log_size(u64 x) const override;
  double log_convergence(u64 a, u64 b) const override;
  void term(u64 k, SeriesTerm& t) const override;

private:
  u64 P0_, Q0_;
  double per_term_; // nats
};

} // namespace kelvane
