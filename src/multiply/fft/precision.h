// How exact the transforms are.
//
// u = 2^-53. A product is right when every point's error before rounding is below 1/2. With exact arithmetic
// the points of a product are c = z_A z_B modulo x^n - i, the spectra have the norms ||Z|| = sqrt(n) ||z||
// (norms are L2 where nothing is said), and the inverse transform divides by n.
//
// Forward. Let one level's step change the vector y into y' with ||y'|| = sqrt(2) ||y||, and its rounding add
// e. A butterfly p = a + s b, m = a - s b on |a|^2 + |b|^2 = S^2 rounds, with fused multiply-add, v = a +
// re(b) s, then p, then m = 2 a - p:
//   |e_p| <= u |v| + u |p| + tau |b|,   |e_m| <= |e_p| + u |m|,   |v|, |p|, |m| <= sqrt(2) S,
// tau the error of s. So |e_p| <= 2 sqrt(2) u S, |e_m| <= 3 sqrt(2) u S, together sqrt(26) u S, and the level
// adds the relative error sqrt(13) u + tau = 3.61 u + tau. Without fused multiply-add t = s b has the error
// (sqrt(5) u + tau) |b| (Brent, Percival and Zimmermann, Error bounds on complex floating-point
// multiplication), and a +- t another u: (sqrt(5) + 1) u + tau, less than before.
// - tau from the table: both components within 0.51 u, sqrt(2) * 0.51 u = 0.73 u.
// - tau of a product of two such numbers (the lanes' own roots): 2 * 0.73 u + 2 u = 3.46 u; the root turned
//   by 1/8 in a base block is below that. At most 4 levels have these.
// - r = 3, 5: the product with w^c costs 2 u + 3.46 u, the sums of r terms, with rounded constants, at most
//   6 u each on outputs below sqrt(r) S, r of them: 6 sqrt(5) u. Together 18.9 u.
//
// Forward in all, q levels: eps_F = (4.34 q + 4 * 2.73 + [r > 1] 18.9) u.
//
// Product. ||fl(Z_A Z_B) - Z_A Z_B||_1 <= (2 eps_F + sqrt(5) u) ||Z_A|| ||Z_B|| by Cauchy and Schwarz, and a
// change of the spectrum moves a point by at most 1/n of its L1 norm: ||Z_A|| ||Z_B|| / n = ||z_A|| ||z_B||.
// A square's r^2 - x^2 rounds by at most u (r^2 + |r^2 - x^2|) and 2 r x by u |2 r x|: 2 u |Z|^2 together.
//
// Inverse. Every rounding is relative to a sum whose terms are the spectrum's values times numbers of modulus
// 1, so with a relative error eps_I along each path a point moves by at most eps_I 1/n sum |P_j|, again eps_I
// ||z_A|| ||z_B||. Per radix-4 step two additions, a product (2 u, sqrt(5) u unfused) and the error of s t
// (3.46 u): 7.7 u for two levels, more than two radix-2 steps cost. Lanes: s t there is a product of
// products, 3.46 * 2 + 2 = 8.9 u instead of 3.46 u; and the third level's root of an eighth of a turn: 14 u
// more in all. With the leaves and the scaling and rounding: eps_I = (3.85 q + 14 + [r > 1] 18.9 + 2) u.
//
// Norms. Digits are at most 2^(b-1), one operand has N_A of them and the other N_B <= N - N_A (one more each
// for the carry of balancing, of size 1): ||z_A|| ||z_B|| <= sqrt(N_A N_B) 2^(2b-2) <= (N/2) 2^(2b-2).
//
// Sums. The points of z_A z_B +- z_C z_D obey all this with ||z_A|| ||z_B|| + ||z_C|| ||z_D|| for ||z_A||
// ||z_B||, and one more rounding, u |Z_A Z_B +- Z_C Z_D|, where the products meet. The others come to more
// than 100 u for every plan (q >= 5), so a sum whose weight, ||z_A|| ||z_B|| + ||z_C|| ||z_D||, is less than
// (N/2) 2^(2b-2) / SUM_ROUNDING errs no more than the largest product. Digits of random operands have a
// third of the largest mean square, so sums of theirs have two thirds of that weight.
//
// worst_case_error is all of it together. It is below 1/2, a proof for every operand and every way the
// roundings fall, for 23 of the 73 rows, among them 2048, 8192 and 32768 points; for the others it lies
// between 0.5 and 1.6.
//
// There the argument is that roundings are not adversaries: as independent errors of mean 0, with about 0.75
// u per level in the root of the mean square, they move a point by
//   sigma <= 0.75 u sqrt(3 q + 20) (N/2) 2^(2b-2)
// even for operands whose spectrum stands in one place (constant digits; for others it is up to sqrt(n) times
// less): typical_error, at most 0.038 for every row, so that 1/2 is 13 standard deviations away. The tests
// measure the largest error of such operands, of all-ones and of random ones for every row up to 2^20 points:
// 0.063 for constant digits (row 98304 points of 16 bits), 0.003 for random ones. A wrong point would still
// be caught by the residue check of the product.
#pragma once

#include <cmath>

#include "multiply/fft/km_FFTv2.h"

namespace kelvane::km_FFTv2 {

// (N/2) 2^(2b-2): the largest possible point.
inline double largest_point(const Plan& plan) {
  return std::ldexp(static_cast<double>(plan.N), static_cast<int>(2 * plan.b) - 3);
}

inline constexpr double SUM_ROUNDING = 64.0 / 63;

inline double worst_case_error(const Plan& plan) {
  const double q = plan.p - 1, leaf = plan.r > 1 ? 18.9 : 0;
  const double forward = 4.34 * q + 4 * 2.73 + leaf, product = 2.24, inverse = 3.85 * q + 14 + leaf + 2;
  return 1.001 * (2 * forward + product + inverse) * std::ldexp(largest_point(plan), -53);
}

inline double typical_error(const Plan& plan) {
  return 0.75 * std::sqrt(3.0 * plan.p + 20) * std::ldexp(largest_point(plan), -53);
}

} // namespace kelvane::km_FFTv2
