// Integers of a leaf while its terms are appended one by one, in word arithmetic.
#pragma once

#include <algorithm>

#include "arithmetic/words/add.h"
#include "shell/types.h"

namespace kelvane {

// LEAF_WORDS bounds every leaf of the P, Q, R shape: 4 end thresholds are at most 64 words, a single term has
// at most 14, and partial products one word more. Other shapes say beside their leaf why it suffices.
inline constexpr u64 LEAF_WORDS = 96;

struct LeafInteger {
  u64 words[LEAF_WORDS];
  u64 n = 0;

  void set(u64 x) {
    words[0] = x;
    n = x != 0;
  }
  void multiply(u64 x) {
    const u64 carry = words::mul_word(words, words, n, x);
    if (carry != 0) words[n++] = carry;
  }
  void multiply(const u64* factors, u32 count) {
    for (u32 i = 0; i < count; i++) multiply(factors[i]);
  }
  // This = A * poly.
  void set_product(const LeafInteger& A, const u64* poly, u32 poly_words) {
    n = A.n + poly_words;
    std::fill_n(words, n, u64{0});
    for (u32 i = 0; i < poly_words; i++)
      words[A.n + i] = words::mul_word_add(words + i, A.words, A.n, poly[i]);
    n = words::normalized_length(words, n);
  }
  // This = this +/- x, for this > x when subtracting.
  void accumulate(const LeafInteger& x, bool subtract) {
    extend(x.n);
    words[n] = subtract;
    if (subtract)
      words::sub_propagate(words, x.words, x.n);
    else
      words::add_propagate(words, x.words, x.n);
    n = subtract ? words::normalized_length(words, n) : n + (words[n] != 0);
  }
  // This = this + x 2^bits.
  void add_shifted(const LeafInteger& x, u64 bits) {
    const u64 skip = bits / 64, part = bits % 64;
    extend(skip + x.n + 1);
    words[n] = 0;
    const u64 carry = words::mul_word_add(words + skip, x.words, x.n, u64{1} << part);
    words::add_word(words + skip + x.n, n + 1 - skip - x.n, carry);
    n = words::normalized_length(words, n + 1);
  }

private:
  void extend(u64 length) {
    if (n >= length) return;
    std::fill(words + n, words + length, u64{0});
    n = length;
  }
};

} // namespace kelvane
