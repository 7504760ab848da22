// Prime factorisation of 64-bit integers.
//
// Primes up to 1000 are divided out; what is left is proven prime by the Miller-Rabin test with the first
// twelve primes as bases, which is deterministic below 3.3e24 (Sorenson and Webster, Math. Comp. 86, 2017),
// or split by Pollard's rho method in Brent's form (BIT 20, 1980). Cost: about n^(1/4) products for a product
// of two large primes, below a millisecond up to 2^64.
#pragma once

#include "shell/types.h"

namespace kelvane::log_search {

struct Factors {
  static constexpr u32 MOST = 15; // the product of the first sixteen primes exceeds 2^64
  u64 prime[MOST];
  u32 exponent[MOST];
  u32 count = 0;
};

bool is_prime(u64 n);
// The distinct primes of n, n >= 1, ascending. False when the search for a factor was given up.
bool factorise(u64 n, Factors& factors);

} // namespace kelvane::log_search
