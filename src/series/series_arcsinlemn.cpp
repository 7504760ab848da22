#include "series/series_arcsinlemn.h"

#include <cmath>
#include <numeric>

namespace kelvane {

namespace {

constexpr u64 fourth_power(u64 x) {
  return x * x * x * x;
}

} // namespace

Series_ArcSinlemn::Series_ArcSinlemn(u64 numerator, u64 denominator)
    : kc_BSS_P2B3_Type0(false, true, 13, 8), P0_(fourth_power(numerator)), Q0_(2 * fourth_power(denominator)),
      per_term_(4 * std::log(static_cast<double>(denominator) / static_cast<double>(numerator))) {
  const u64 g = std::gcd(P0_, Q0_);
  P0_ /= g;
  Q0_ /= g;
}

u64 Series_ArcSinlemn::terms(u64 precision_words) const {
  return static_cast<u64>(NATS_PER_WORD / per_term_ * static_cast<double>(precision_words)) + 2;
}

// The product of Q0 k (4k+1) is Q0^x x!^2 4^x times that of 1 + 1/(4k), which is below (x+1)^(1/4).
double Series_ArcSinlemn::log_size(u64 n) const {
  const double x = static_cast<double>(n);
  return 2 * log_factorial(x) + 0.25 * std::log(x + 1) + std::log(4 * static_cast<double>(Q0_)) * x;
}

double Series_ArcSinlemn::log_convergence(u64 a, u64 b) const {
  return static_cast<double>(b - a) * per_term_;
}

void Series_ArcSinlemn::term(u64 k, SeriesTerm& t) const {
  t.clear();
  t.multiply_p(P0_);
  t.multiply_p(2 * k - 1);
  t.multiply_p(4 * k - 3);
  t.multiply_q(Q0_);
  t.multiply_q(k);
  t.multiply_q(4 * k + 1);
  t.horner(0, 1);
}

} // namespace kelvane
