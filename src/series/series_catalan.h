// The series of Catalan's constant.
//
// Lupas:   G = R/(2 Q) over [0, N), alternating
//   p(k) = 32 k^3 (2k-1)     q(k) = ((4k-3) (4k-1))^2     a(k) = 40 k^2 - 24 k + 3     1.386 nats a term
// Source: Lupas, Formulae for some classical constants (2000).
#pragma once

#include "series/kc_BSS_P2B3_Type0.h"

namespace kelvane {

class Series_Catalan_Lupas final : public kc_BSS_P2B3_Type0 {
public:
  Series_Catalan_Lupas() : kc_BSS_P2B3_Type0(true, false, 19, 10) {}
  u64 terms(u64 precision_words) const override;
  double log_size(u64 x) const override;
  double log_convergence(u64 a, u64 b) const override;
  void term(u64 k, SeriesTerm& t) const override;
};

} // namespace kelvane
