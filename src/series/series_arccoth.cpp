#include "series/series_arccoth.h"

#include <cmath>
#include <numbers>

namespace kelvane {

Series_ArcCoth::Series_ArcCoth(u64 x)
    : kc_BSS_P2B3_Type0(false, false, 9, 8), x_(x), log_x_(std::log(static_cast<double>(x))) {}

u64 Series_ArcCoth::terms(u64 precision_words) const {
  return static_cast<u64>(22.18070977791825 / log_x_ * static_cast<double>(precision_words)) + 2;
}

// The product of (2k-1) x^2 up to n is below n! (2 x^2)^n.
double Series_ArcCoth::log_size(u64 n) const {
  const double k = static_cast<double>(n);
  return log_factorial(k) + (std::numbers::ln2 + 2 * log_x_) * k;
}

double Series_ArcCoth::log_convergence(u64 a, u64 b) const {
  return static_cast<double>(b - a) * 2 * log_x_;
}

void Series_ArcCoth::term(u64 k, SeriesTerm& t) const {
  t.clear();
  t.multiply_p(2 * k - 1);
  t.multiply_q(x_);
  t.multiply_q(x_);
  t.multiply_q(2 * k - 1);
  t.horner(0, 1);
}

} // namespace kelvane
