// Integers of a leaf while its terms are appended one by one, in word arithmetic.
#pragma once

#include <algorithm>

#include "arithmetic/words/add.h"
#include "multiply/basecase/basecase.h"
#include "shell/types.h"

namespace kelvane {

// LEAF_WORDS bounds every leaf of the P, Q, R shape: it has at most 64 words, a single term at most 14, and
// partial products one word more. Other shapes say beside their leaf why it suffices.
inline constexpr u64 LEAF_WORDS = 96;

// out <- the product of the factors, `count` >= 1 of them; returns its words.
inline u64 product_of_factors(const u64* factors, u32 count, u64* out) {
  out[0] = factors[0];
  u64 n = 1;
  for (u32 i = 1; i < count; i++) {
    const u64 carry = words::mul_word(out, out, n, factors[i]);
    if (carry != 0) out[n++] = carry;
  }
  return n;
}

struct LeafInteger {
  u64 storage[2][LEAF_WORDS];
  u64* words = storage[0];
  u64 n = 0;

  LeafInteger() = default;
  LeafInteger(const LeafInteger&) = delete;
  LeafInteger& operator=(const LeafInteger&) = delete;

  void set(u64 x) {
    words[0] = x;
    n = x != 0;
  }
  void multiply(u64 x) {
    const u64 carry = words::mul_word(words, words, n, x);
    if (carry != 0) words[n++] = carry;
  }
  // This *= x, an integer of x_words words.
  void multiply(const u64* x, u64 x_words) {
    if (n == 0) return;
    u64* const product = words == storage[0] ? storage[1] : storage[0];
    multiply_to(product, words, n, x, x_words);
    n = words::normalized_length(product, n + x_words);
    words = product;
  }
  // This = A * x, A not zero.
  void set_product(const LeafInteger& A, const u64* x, u64 x_words) {
    multiply_to(words, A.words, A.n, x, x_words);
    n = words::normalized_length(words, A.n + x_words);
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
  // Rows along the longer operand.
  static void multiply_to(u64* out, const u64* A, u64 nA, const u64* x, u64 nx) {
    if (nA >= nx)
      km_MULB::multiply_basecase(out, A, nA, x, nx);
    else
      km_MULB::multiply_basecase(out, x, nx, A, nA);
  }
  void extend(u64 length) {
    if (n >= length) return;
    std::fill(words + n, words + length, u64{0});
    n = length;
  }
};

} // namespace kelvane
