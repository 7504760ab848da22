// The two steps of a level of Karatsuba's recursion beside its products. A level's operands of n words have h
// = n - floor(n/2) low words and k = floor(n/2) high words.
//
//   difference   D[0, h) <- |low - high|; returns whether low - high is negative.
//   add_middle   out holds z0 in [0, 2h) and z2 in [2h, 2n): adds z0 + z2 - z1 (`minus`) or z0 + z2 + z1 at
//                word h, with z1 in middle[0, 2h), which is destroyed.
//
// For the products of the table's row the whole recursion comes in a second build, of functions of fixed
// length, with mulx's companions adcx and adox (karatsuba_adx.cpp).
#pragma once

#include "arithmetic/words/add.h"
#include "shell/types.h"

namespace kelvane::km_MULB {

inline constexpr u64 MAX_FIXED_KARATSUBA = 28;
// out[0, 2n) <- A B and A^2, for n from the product's or the square's threshold to MAX_FIXED_KARATSUBA, on
// processors with has_adx(). scratch: scratch_words(n).
void multiply_karatsuba_adx(u64* out, const u64* A, const u64* B, u64 n, u64* scratch);
void square_karatsuba_adx(u64* out, const u64* A, u64 n, u64* scratch);

// What both builds share. Internal linkage: one of them is compiled for newer processors.
namespace {

// Whether A < B, n words each.
template <class W> bool less(const W* A, const W* B, u64 n) {
  while (n-- > 0) {
    if (A[n] != B[n]) return A[n] < B[n];
  }
  return false;
}

// A += x over n words, returns the carry. Almost always it ends with the first word: that branch is foreseen,
// one on x would not be.
template <class W> W add_small(W* A, u64 n, W x) {
  A[0] = static_cast<W>(A[0] + x);
  return A[0] >= x ? W{0} : words::add_word(A + 1, n - 1, W{1});
}

} // namespace
} // namespace kelvane::km_MULB
