// Fractions, conversions and the oracle that the radix tests share.
#pragma once

#include <gmp.h>

#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "digits/radix.h"
#include "multiply/table/tables.h"
#include "shell/heap.h"

namespace kelvane::test {

using Words = std::vector<u64>;

// A big integer of the oracle, read from and compared with word arrays.
struct Integer {
  mpz_t z;
  Integer() { mpz_init(z); }
  explicit Integer(const Words& words) : Integer() { mpz_import(z, words.size(), -1, 8, 0, 0, words.data()); }
  ~Integer() { mpz_clear(z); }
  Integer(const Integer&) = delete;
  Integer& operator=(const Integer&) = delete;
};

// floor(F / 2^(64 n) * 10^(19 W))
inline void scaled_floor(Integer& out, const Words& fraction, u64 W) {
  const Integer f(fraction);
  mpz_ui_pow_ui(out.z, 10, 19 * W);
  mpz_mul(out.z, out.z, f.z);
  mpz_fdiv_q_2exp(out.z, out.z, 64 * fraction.size());
}

// The digits of an integer, zero-padded on the left to `count`.
inline std::string padded(const Integer& x, u64 count) {
  char* const text = mpz_get_str(nullptr, 10, x.z);
  std::string digits(text);
  std::free(text);
  return digits.size() < count ? std::string(count - digits.size(), '0') + digits : digits;
}

inline u64 residue_of(const Integer& x) {
  Integer p, r;
  mpz_ui_pow_ui(p.z, 2, 61);
  mpz_sub_ui(p.z, p.z, 1);
  mpz_mod(r.z, x.z, p.z);
  return mpz_get_ui(r.z);
}

inline Words random_fraction(u64 n, u64 seed) {
  std::mt19937_64 random(seed);
  Words words(n);
  for (u64& word : words) word = random();
  return words;
}

// Words that the driver gives D digits: floor(D log16 10) + 1 hexadecimal digits, 16 per word, and 2.
inline u64 words_for(u64 D) {
  return (static_cast<u64>(static_cast<double>(D) * 0.8304820237218407) + 1) / 16 + 2;
}

// A 64-byte aligned work area with a guard behind it.
class Scratch {
public:
  explicit Scratch(u64 bytes)
      : bytes_(bytes), data_(static_cast<unsigned char*>(aligned_malloc(bytes + GUARD, 64))) {
    for (u64 i = 0; i < GUARD; ++i) data_[bytes_ + i] = 0xa5;
  }
  ~Scratch() { aligned_free(data_); }
  Scratch(const Scratch&) = delete;
  Scratch& operator=(const Scratch&) = delete;
  void* get() { return data_; }
  bool intact() const {
    for (u64 i = 0; i < GUARD; ++i)
      if (data_[bytes_ + i] != 0xa5) return false;
    return true;
  }

private:
  static constexpr u64 GUARD = 64;
  u64 bytes_;
  unsigned char* data_;
};

// The root tables for products of up to `words` words.
class RootTables {
public:
  explicit RootTables(u64 words) : memory_(km_MULv3::Tables::bytes(words)) {
    tables_.build(memory_.get(), words, 2);
  }
  const km_MULv3::TableSet* set() const { return &tables_.set(); }

private:
  Scratch memory_;
  km_MULv3::Tables tables_;
};

// Built once, for all that the tests here multiply.
inline const km_MULv3::TableSet* root_tables() {
  static const RootTables tables(u64{1} << 17);
  return tables.set();
}

} // namespace kelvane::test
