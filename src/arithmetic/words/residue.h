// Residues modulo the Mersenne prime p = 2^61 - 1.
//
// The residue ("hash") of a word array is sum w_i * 2^(64 i) mod p, always fully
// reduced to [0, p-1]. Sums, differences and products of numbers have the sum,
// difference and product of residues, and 2^64 = 8 (mod p), so a shift by e words
// multiplies the residue by 8^e. Products that are known only modulo 2^(64 m) - 1 have residues modulo
// another number, Q below.
#pragma once

#include "shell/types.h"

namespace kelvane::residue {

inline constexpr u64 P = (u64{1} << 61) - 1;

// x mod p for any 64-bit x.
constexpr u64 reduce(u64 x) {
  x = (x & P) + (x >> 61);
  return x >= P ? x - P : x;
}
// x mod p for x < 2^122 (a product of two residues).
constexpr u64 reduce(u128 x) {
  u64 r = (static_cast<u64>(x) & P) + static_cast<u64>(x >> 61);
  return r >= P ? r - P : r;
}
constexpr u64 add(u64 a, u64 b) {
  const u64 s = a + b;
  return s >= P ? s - P : s;
}
constexpr u64 sub(u64 a, u64 b) {
  return a >= b ? a - b : a + P - b;
}
constexpr u64 mul(u64 a, u64 b) {
  return reduce(static_cast<u128>(a) * b);
}
constexpr u64 pow(u64 base, u64 e) {
  u64 r = 1;
  for (; e != 0; e >>= 1, base = mul(base, base))
    if (e & 1) r = mul(r, base);
  return r;
}
constexpr u64 inverse(u64 a) {
  return pow(a, P - 2);
}

// (2^64)^e mod p: base 8 for e >= 0, base 2^58 (the inverse of 8) for e < 0.
u64 weight(s64 e);

// The residue of n words. `start` stands as a higher part above the array.
// Cost: one pass over the words at memory speed (independent Horner chains).
u64 hash_words(const u64* words, u64 n, u64 start = 0);

// The words read as a number in base `radix` (most significant word last), modulo p, Horner from
// the top: h = h * (radix mod p) + word.
u64 hash_radix_words(u64 radix, const u64* words, u64 n, u64 start = 0);

// Numbers modulo M = 2^(64 m) - 1 ("wrapped" products) have no residue modulo p: M must be a multiple of the
// modulus. Q does for every m that 32 divides: both its factors are prime and divide 2^1024 + 1, which
// divides 2^2048 - 1, which divides M. Modulo each of them the words' weights 2^(64 i) repeat after 32 words
// and not before.
inline constexpr u64 Q = u64{45592577} * 6487031809;
inline constexpr u64 WRAPPED_PERIOD = 32;

// The residue of n words modulo Q, in [0, Q - 1]. Cost: one pass over the words at memory speed.
u64 hash_wrapped(const u64* words, u64 n);
constexpr u64 mul_wrapped(u64 a, u64 b) {
  return static_cast<u64>(static_cast<u128>(a) * b % Q);
}

} // namespace kelvane::residue
