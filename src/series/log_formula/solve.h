// Integer solutions of small linear systems over exponent vectors.
//
// The elimination is done modulo the prime 2^61 - 1, which replaces the exact fractions: an integer solution
// below 2^60 is its symmetric residue, and every solution is put back into the system in integers before it
// is returned. Columns found dependent modulo the prime but independent over the rationals would only make a
// formula be missed, with a probability of about 2^-55 each.
#pragma once

#include <vector>

#include "series/log_formula/prime_vector.h"

namespace kelvane::log_search {

struct Argument {
  u64 x;
  PrimeVector vector; // arccoth_vector(x)
};

// Integers c with sum c[i] * arguments[i].vector = need, the arguments being independent. False when there
// are none.
bool solve(const std::vector<const Argument*>& arguments, const PrimeVector& need, std::vector<s64>& c);

// The first arguments of the pool that are independent over the given primes, as many as there are primes.
// With the pool in descending order of x this is the cheapest set of full rank (the greedy rule of matroids).
// Fewer when the pool has not enough.
std::vector<const Argument*> independent_set(const std::vector<const Argument*>& pool,
                                             const std::vector<u64>& primes);

// Whether the determinant of as many arguments as primes is 1 or -1, so that every integer vector is an
// integer combination of theirs. Exact while the determinant is below 2^60, which the base sets' are.
bool is_unimodular(const std::vector<const Argument*>& arguments, const std::vector<u64>& primes);

} // namespace kelvane::log_search
