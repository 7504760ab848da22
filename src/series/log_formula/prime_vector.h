// Exponent vectors: a rational number as its primes with their signed exponents.
#pragma once

#include <algorithm>
#include <vector>

#include "series/log_formula/factorise.h"

namespace kelvane::log_search {

class PrimeVector {
public:
  struct Entry {
    u64 prime;
    s64 exponent; // never zero
  };

  bool empty() const { return entries_.empty(); }
  auto begin() const { return entries_.begin(); }
  auto end() const { return entries_.end(); }
  u64 largest_prime() const { return entries_.empty() ? 0 : entries_.back().prime; }
  s64 exponent(u64 prime) const {
    const auto at = position(prime);
    return at != entries_.end() && at->prime == prime ? at->exponent : 0;
  }

  // exponent(prime) += e. False on overflow, the vector then being of no further use.
  bool add(u64 prime, s64 e) {
    const auto at = entries_.begin() + (position(prime) - entries_.begin());
    if (at == entries_.end() || at->prime != prime) {
      if (e != 0) entries_.insert(at, {prime, e});
      return true;
    }
    if (__builtin_add_overflow(at->exponent, e, &at->exponent)) return false;
    if (at->exponent == 0) entries_.erase(at);
    return true;
  }
  // this += factor * other.
  bool add_multiple(const PrimeVector& other, s64 factor) {
    for (const Entry& entry : other) {
      s64 e = 0;
      if (__builtin_mul_overflow(entry.exponent, factor, &e) || !add(entry.prime, e)) return false;
    }
    return true;
  }

  // this *= n^power. False when n cannot be factorised or an exponent overflows.
  bool multiply(u64 n, s64 power) {
    Factors f;
    if (!factorise(n, f)) return false;
    for (u32 i = 0; i < f.count; i++) {
      s64 e = 0;
      if (__builtin_mul_overflow(static_cast<s64>(f.exponent[i]), power, &e) || !add(f.prime[i], e))
        return false;
    }
    return true;
  }
  // this *= ((x + 1) / (x - 1))^power: 2 power ArcCoth(x) as a logarithm. x >= 2.
  bool multiply_arccoth(u64 x, s64 power) {
    return x >= 2 && x + 1 != 0 && power != INT64_MIN && multiply(x + 1, power) && multiply(x - 1, -power);
  }

private:
  std::vector<Entry>::const_iterator position(u64 prime) const {
    return std::lower_bound(entries_.begin(), entries_.end(), prime,
                            [](const Entry& entry, u64 p) { return entry.prime < p; });
  }
  std::vector<Entry> entries_; // ascending primes
};

// (x + 1) / (x - 1), 2 <= x < 2^63.
inline PrimeVector arccoth_vector(u64 x) {
  PrimeVector v;
  v.multiply_arccoth(x, 1);
  return v;
}

} // namespace kelvane::log_search
