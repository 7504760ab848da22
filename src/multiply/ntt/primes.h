// The prime fields of the transforms.
//
// A prime p = 3 k 2^32 + 1 has roots of unity of order 2^32 and 3: transforms of N = 2^j and 3 2^j points,
// j <= 32. Each set is of the largest such primes below 2^48, 2^49, 2^62; the width is what the lazy
// arithmetic of the set's backend can carry (see backend_*.h).
#pragma once

#include "shell/types.h"

namespace kelvane::ntt {

inline constexpr u32 MIN_PRIMES = 3, MAX_PRIMES = 8; // of one transform
inline constexpr u32 ORDER_LOG = 32;                 // the power of two in p - 1 that the transforms use

enum class Backend : u32 {
  ifma,     // 8 lanes of 52-bit integers, 48-bit primes
  double8,  // 8 doubles, 49-bit primes
  double4,  // 4 doubles, 49-bit primes
  integer1, // 64-bit integers one by one, 62-bit primes
};
inline constexpr u32 BACKENDS = 4;

struct PrimeSet {
  u32 bits; // every prime lies just below 2^bits
  u32 count;
  u64 k[MAX_PRIMES];
  constexpr u64 prime(u32 i) const { return 3 * k[i] * (u64{1} << ORDER_LOG) + 1; }
};

inline constexpr PrimeSet PRIMES_48{48, 8, {21825, 21821, 21819, 21810, 21786, 21784, 21777, 21750}};
inline constexpr PrimeSet PRIMES_49{49, 8, {43690, 43654, 43652, 43645, 43641, 43634, 43632, 43624}};
inline constexpr PrimeSet PRIMES_62{
    62, 7, {357913916, 357913887, 357913872, 357913864, 357913842, 357913837, 357913832}};

constexpr const PrimeSet& primes_of(Backend backend) {
  return backend == Backend::ifma ? PRIMES_48 : backend == Backend::integer1 ? PRIMES_62 : PRIMES_49;
}

// Arithmetic modulo p, 2^(n-1) < p < 2^n <= 2^62, on residues in [0, p). Barrett: with x = a b < 2^(2n),
// t = floor(x / 2^(n-1)), v = floor(2^(2n) / p), the estimate floor(t v / 2^(n+1)) is at most 2 below x / p:
// each of the two floors of t and v costs less than 1, the last one less than 1 more.
class Field {
public:
  explicit Field(u64 p);
  u64 p() const { return p_; }
  u64 mul(u64 a, u64 b) const {
    const u128 x = static_cast<u128>(a) * b;
    const u64 t = static_cast<u64>(x >> (bits_ - 1));
    const u64 q = static_cast<u64>(static_cast<u128>(t) * inverse_ >> (bits_ + 1));
    u64 r = static_cast<u64>(x) - q * p_;
    while (r >= p_) r -= p_;
    return r;
  }
  u64 add(u64 a, u64 b) const { return a + b >= p_ ? a + b - p_ : a + b; }
  u64 sub(u64 a, u64 b) const { return a >= b ? a - b : a + p_ - b; }
  u64 power(u64 a, u64 e) const;
  u64 inverse(u64 a) const { return power(a, p_ - 2); }
  // floor(a 2^s / p) for a < p, a 2^s < 2^126.
  u64 quotient(u64 a, u32 s) const { return static_cast<u64>((static_cast<u128>(a) << s) / p_); }
  bool is_square(u64 a) const { return power(a, (p_ - 1) / 2) == 1; } // a != 0
  u64 square_root(u64 a) const;                                       // of a square
  // A root of unity of order 2^ORDER_LOG, and one of order 3.
  u64 root_two() const;
  u64 root_three() const;

private:
  u64 non_square() const;
  u64 p_, inverse_;
  u32 bits_;
};

// log2 of the product of the first w primes of a set, rounded down in the ninth decimal place.
double log2_modulus(Backend backend, u32 w);

} // namespace kelvane::ntt
