#include "series/series_catalan.h"

namespace kelvane {

u64 Series_Catalan_Lupas::terms(u64 precision_words) const {
  return static_cast<u64>(32.0 * static_cast<double>(precision_words)) + 2;
}

// q(k) < (4k)^4: the product is below k!^4 256^k, 8 ln 2 = 5.545177444479562.
double Series_Catalan_Lupas::log_size(u64 x) const {
  return 4 * log_factorial(static_cast<double>(x)) + 5.545177444479562 * static_cast<double>(x);
}

double Series_Catalan_Lupas::log_convergence(u64 a, u64 b) const {
  return static_cast<double>(b - a) * 1.3862943611198906;
}

void Series_Catalan_Lupas::term(u64 k, SeriesTerm& t) const {
  t.clear();
  t.multiply_p(32);
  for (int i = 0; i < 3; i++) t.multiply_p(k);
  t.multiply_p(2 * k - 1);
  for (int i = 0; i < 2; i++) {
    t.multiply_q(4 * k - 3);
    t.multiply_q(4 * k - 1);
  }
  const u64 j = k - 1; // 40 k^2 - 24 k + 3 = 40 j^2 + 56 j + 19
  t.horner(0, 40);
  t.horner(j, 56);
  t.horner(j, 19);
}

} // namespace kelvane
