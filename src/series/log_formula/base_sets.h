// Base sets: arguments over the first h primes through which the logarithm of every number over these primes
// is an integer combination.
//
// The candidates are all x with x^2 - 1 over the first h primes; the lists are complete (the largest x for 19
// is 23718421; Lehmer, Illinois J. Math. 8, 1964). A base set has h arguments with a determinant of 1 or -1,
// the largest arguments that are so, since ArcCoth(x) is the cheaper the larger x is.
#pragma once

#include <vector>

#include "series/log_formula/solve.h"

namespace kelvane::log_search {

inline constexpr u32 LEAST_BASE = 4;
inline constexpr u32 MOST_BASE = 8;
inline constexpr u64 BASE_PRIMES[MOST_BASE] = {2, 3, 5, 7, 11, 13, 17, 19};

std::vector<u64> base_primes(u32 h);
inline bool in_base(u64 prime, u32 h) {
  return prime <= BASE_PRIMES[h - 1];
}

// All numbers up to `limit` over the first h primes, ascending.
std::vector<u64> smooth_numbers(u32 h, u64 limit);
// The candidates, descending.
const std::vector<Argument>& base_candidates(u32 h);
// A base set without the forbidden arguments; empty when none was found.
std::vector<const Argument*> base_set(u32 h, const std::vector<u64>& forbidden);

} // namespace kelvane::log_search
