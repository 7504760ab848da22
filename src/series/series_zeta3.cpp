#include "series/series_zeta3.h"

namespace kelvane {

Series_Zeta3_AZ1::Series_Zeta3_AZ1()
    : kc_BSS_P2B3_Type0(true, false, 22, 12), factors_({{1, 0, 5}}, {{2, -1, 5}}, false, 5, {2}, 3, 1, 1024) {
}

Series_Zeta3_AZ2::Series_Zeta3_AZ2()
    : kc_BSS_P2B3_Type0(true, false, 35, 6),
      factors_({{1, 0, 5}, {2, -1, 3}}, {{3, -2, 1}, {3, -1, 1}, {4, -3, 3}, {4, -1, 3}}, false, 8, {2, 3}, 3,
               2, 1024) {}

u64 Series_Zeta3_AZ1::terms(u64 precision_words) const {
  return static_cast<u64>(6.4 * static_cast<double>(precision_words)) + 2;
}

// q(k) < 32 (2k)^5: the product is below k!^5 1024^k, ln 1024 = 6.931471805599453.
double Series_Zeta3_AZ1::log_size(u64 x) const {
  return 5 * log_factorial(static_cast<double>(x)) + 6.931471805599453 * static_cast<double>(x);
}

double Series_Zeta3_AZ1::log_convergence(u64 a, u64 b) const {
  return static_cast<double>(b - a) * 6.931471805599453;
}

void Series_Zeta3_AZ1::term(u64 k, SeriesTerm& t) const {
  t.clear();
  for (int i = 0; i < 5; i++) t.multiply_p(k);
  t.multiply_q(32);
  for (int i = 0; i < 5; i++) t.multiply_q(2 * k - 1);
  const u64 j = k - 1; // 205 k^2 - 160 k + 32 = 205 j^2 + 250 j + 77
  t.horner(0, 205);
  t.horner(j, 250);
  t.horner(j, 77);
}

u64 Series_Zeta3_AZ2::terms(u64 precision_words) const {
  return static_cast<u64>(3.819780944022216 * static_cast<double>(precision_words)) + 2;
}

// q(k) < 24 (3k)^2 (4k)^6 = 884736 k^8, ln 884736 = 13.693044574403508.
double Series_Zeta3_AZ2::log_size(u64 x) const {
  return 8 * log_factorial(static_cast<double>(x)) + 13.693044574403508 * static_cast<double>(x);
}

double Series_Zeta3_AZ2::log_convergence(u64 a, u64 b) const {
  return static_cast<double>(b - a) * 11.613603032723672;
}

void Series_Zeta3_AZ2::term(u64 k, SeriesTerm& t) const {
  t.clear();
  for (int i = 0; i < 5; i++) t.multiply_p(k);
  for (int i = 0; i < 3; i++) t.multiply_p(2 * k - 1);
  t.multiply_q(24);
  t.multiply_q(3 * k - 2);
  t.multiply_q(3 * k - 1);
  for (int i = 0; i < 3; i++) {
    t.multiply_q(4 * k - 3);
    t.multiply_q(4 * k - 1);
  }
  const u64 j = k - 1;
  for (const u64 c : {126392u, 412708u, 531578u, 336367u, 104000u, 12463u}) t.horner(j, c);
}

} // namespace kelvane
