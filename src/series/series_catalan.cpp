#include "series/series_catalan.h"

#include <cmath>

namespace kelvane {

Series_Catalan_Lupas::Series_Catalan_Lupas()
    : kc_BSS_P2B3_Type0(true, false, 19, 10),
      factors_({{1, 0, 3}, {2, -1, 1}}, {{4, -3, 2}, {4, -1, 2}}, false, 4, {2}, 3, 2, 1024) {}

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

HuventFactors::HuventFactors() : CommonFactors(5, 8, 1024, 18) {}

u64 HuventFactors::exponent(u64 q, u64 terms) const {
  const u64 multiples = (12 * terms - 1) / q, events = 2 * (multiples - (multiples + 3) / 4);
  const u64 at_one_index = q == 5 ? 6 : q == 7 ? 4 : 2;
  return events > at_one_index ? events - at_one_index : 0;
}

// Of T >= floor(X/q) multiples of q 4 divides (T + 3)/4 at most:
// e(q) >= 3/2 floor(X/q) - 7/2, and 10.4 nats less in all for 5 and 7. The sum of floor(X/q) ln p over all q
// is ln X!; taken for q <= X/3 only, where e(q) > 0, it is less by psi(X) + psi(X/2) - 2 psi(X/3), and with
// psi(x) < 1.03883 x that leaves 3/2 ln X! - 2.5107 X. 2 and 3 are not among the primes: 3/2 X (ln 2 + ln 3 /
// 2).
double HuventFactors::log_at_least(double terms) const {
  const double x = 12 * terms - 1;
  return 1.5 * log_factorial(x) - (2.5107 + 1.8637) * x - 10.4;
}

u64 Series_Catalan_Huvent::terms(u64 precision_words) const {
  return static_cast<u64>(10.666666666666668 * static_cast<double>(precision_words)) + 2;
}

// The nine factors squared have the leading coefficient 23887872^2; the product of (1 + c/(12k))^2, the c
// adding up to 54, is below (x+1)^9; R has 6 bits a term more. 38.136645964175344 = 2 ln 23887872 + 6 ln 2.
double Series_Catalan_Huvent::log_size(u64 n) const {
  const double x = static_cast<double>(n);
  return 18 * log_factorial(x) + 9 * std::log(x + 1) + 38.136645964175344 * x;
}

double Series_Catalan_Huvent::log_convergence(u64 a, u64 b) const {
  return static_cast<double>(b - a) * 4.1588830833596715;
}

namespace {

// -18 c(k) q(k) as a polynomial in j = k - 1, highest coefficient first: {high word, low word}. It is what
// nine products of the squares of all factors but one add up to; in j every coefficient is positive.
constexpr u64 HUVENT[][2] = {
    {0, 4636372233093120u},       {0, 111903004692578304u},     {0, 1262794736570204160u},
    {0, 8843704519536672768u},    {2, 6124939823477161984u},    {8, 6532524747518377984u},
    {22, 14714119271537377280u},  {48, 6267617559096852480u},   {80, 8912106492009957376u},
    {105, 10348552341397060608u}, {108, 12876020987569780608u}, {86, 17384407926269465728u},
    {52, 17516708924570095024u},  {23, 13536085248532084352u},  {7, 7068903687432742528u},
    {1, 7821459519677507240u},    {0, 2366024559591756959u},
};

} // namespace

void Series_Catalan_Huvent::term(u64 k, BBPTerm& t) const {
  t.q_factors = 0;
  u64 packed = 1; // factors are packed into words as far as they fit
  const u64 factors[] = {12 * k + 1, 6 * k + 1, 4 * k + 1, 12 * k + 5, 2 * k + 1,
                         12 * k + 7, 4 * k + 3, 6 * k + 5, 12 * k + 11};
  for (const u64 x : factors) {
    const u128 square = static_cast<u128>(x) * x;
    if (square >> 64 != 0) {
      t.q[t.q_factors++] = x;
      t.q[t.q_factors++] = x;
      continue;
    }
    const u128 product = square * packed;
    if (product >> 64 != 0) {
      t.q[t.q_factors++] = packed;
      packed = static_cast<u64>(square);
    } else {
      packed = static_cast<u64>(product);
    }
  }
  if (packed != 1) t.q[t.q_factors++] = packed;

  // Horner; the sum is at most 14 words for k below 2^48.
  const u64 j = k - 1;
  t.r_words = 0;
  for (const auto& c : HUVENT) {
    u128 carry = c[1];
    for (u32 i = 0; i < t.r_words; i++) {
      if (i == 1) carry += c[0];
      carry += static_cast<u128>(t.r[i]) * j;
      t.r[i] = static_cast<u64>(carry);
      carry >>= 64;
    }
    if (t.r_words == 1) carry += c[0];
    if (carry != 0 || t.r_words == 0) t.r[t.r_words++] = static_cast<u64>(carry);
  }
}

} // namespace kelvane
