// The Taylor series of ArcCoth(x), x an integer above 1:
//
//   ArcCoth(x) = sum over k >= 1 of 1 / ((2k-1) x^(2k-1)) = x R/Q  over [0, N)
//   p(k) = 2k-1        q(k) = (2k-1) x^2        a(k) = 1        2 ln x nats a term
#pragma once

#include "series/kc_BSS_P2B3_Type0.h"

namespace kelvane {

class Series_ArcCoth final : public kc_BSS_P2B3_Type0 {
public:
  explicit Series_ArcCoth(u64 x);
  u64 terms(u64 precision_words) const override;
  double log_size(u64 x) const override;
  double log_convergence(u64 a, u64 b) const override;
  void term(u64 k, SeriesTerm& t) const override;

private:
  const u64 x_;
  const double log_x_;
};

} // namespace kelvane
