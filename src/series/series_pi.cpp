#include "series/series_pi.h"

namespace kelvane {

// p(k) has no event of 2, and of 3 one at most where q(k) has three: these two primes are left out. Blocks
// of 1024 terms are as fast up to 3 10^7 digits, longer ones gain more above.
Series_Pi_Chudnovsky::Series_Pi_Chudnovsky()
    : kc_BSS_P2B3_Type0(true, true, 17, 8),
      factors_({{2, -1, 1}, {6, -5, 1}, {6, -1, 1}}, {{1, 0, 3}}, true, 3, {2, 3}, 5, 1, 2048) {}

Series_Pi_Ramanujan::Series_Pi_Ramanujan()
    : kc_BSS_P2B3_Type0(false, true, 17, 12),
      factors_({{2, -1, 1}, {4, -3, 1}, {4, -1, 1}}, {{1, 0, 3}}, true, 3, {2, 3}, 5, 1, 2048) {}

u64 Series_Pi_Chudnovsky::terms(u64 precision_words) const {
  return static_cast<u64>(1.3585106930018276 * static_cast<double>(precision_words)) + 2;
}

// q(k) is the fastest growing: product over k of 640320^3/24 k^3, ln(640320^3/24) = 36.93111616078457.
double Series_Pi_Chudnovsky::log_size(u64 x) const {
  return 3 * log_factorial(static_cast<double>(x)) + 36.93111616078457 * static_cast<double>(x);
}

double Series_Pi_Chudnovsky::log_convergence(u64 a, u64 b) const {
  return static_cast<double>(b - a) * 32.65445004176851;
}

// Every factor fits a word for k below 2^60; k^2 times the constant does not, so q stays in pieces.
void Series_Pi_Chudnovsky::term(u64 k, SeriesTerm& t) const {
  t.p[0] = 2 * k - 1;
  t.p[1] = 6 * k - 5;
  t.p[2] = 6 * k - 1;
  t.p_factors = 3;
  t.q[0] = 10939058860032000u;
  t.q[1] = k;
  t.q[2] = k;
  t.q[3] = k;
  t.q_factors = 4;
  const u128 poly = static_cast<u128>(545140134u) * k + 13591409u;
  t.poly[0] = static_cast<u64>(poly);
  t.poly[1] = static_cast<u64>(poly >> 64);
  t.poly_words = t.poly[1] != 0 ? 2 : 1;
}

u64 Series_Pi_Ramanujan::terms(u64 precision_words) const {
  return static_cast<u64>(2.413507209966306 * static_cast<double>(precision_words)) + 2;
}

// ln(396^4/24) = 20.747603014669977.
double Series_Pi_Ramanujan::log_size(u64 x) const {
  return 3 * log_factorial(static_cast<double>(x)) + 20.747603014669977 * static_cast<double>(x);
}

double Series_Pi_Ramanujan::log_convergence(u64 a, u64 b) const {
  return static_cast<double>(b - a) * 18.38047940053836;
}

void Series_Pi_Ramanujan::term(u64 k, SeriesTerm& t) const {
  // Exactly one of the three factors of p is a multiple of 3.
  t.p[0] = 2 * k - 1;
  t.p[1] = 4 * k - 3;
  t.p[2] = 4 * k - 1;
  t.p_factors = 3;
  switch (k % 3) {
  case 0:
    t.p[1] /= 3;
    break;
  case 1:
    t.p[2] /= 3;
    break;
  default:
    t.p[0] /= 3;
    break;
  }
  t.q[0] = 1024635744u;
  t.q[1] = k;
  t.q[2] = k;
  t.q[3] = k;
  t.q_factors = 4;
  const u128 poly = static_cast<u128>(26390u) * k + 1103u;
  t.poly[0] = static_cast<u64>(poly);
  t.poly[1] = static_cast<u64>(poly >> 64);
  t.poly_words = t.poly[1] != 0 ? 2 : 1;
}

} // namespace kelvane
