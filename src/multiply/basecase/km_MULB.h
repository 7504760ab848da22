// km_MULB: products of short operands, schoolbook below a threshold and Karatsuba above it.
//
// A = a0 + a1 W^h with h = n - floor(n/2) low words:
//   A B = z0 + (z0 + z2 -+ |a0 - a1| |b0 - b1|) W^h + z2 W^2h,  z0 = a0 b0, z2 = a1 b1
// Three products of half the length instead of four: n^1.585 word products.
//
// Lengths count words of the type W (u32 or u64). Results overlap neither operands nor scratch. Scratch is
// the caller's, scratch_words(...) words of W; nothing is allocated.
// Source: Knuth, The Art of Computer Programming 2, 4.3.3; Brent and Zimmermann, Modern Computer
// Arithmetic, algorithm 1.4 (subtractive form).
#pragma once

#include "multiply/table/km_MULv3.h"
#include "shell/types.h"

namespace kelvane::km_MULB {

// Operand lengths at which Karatsuba takes over from the schoolbook.
template <class W> struct Thresholds;
template <> struct Thresholds<u32> { static constexpr u64 square = 15, multiply = 14; };
template <> struct Thresholds<u64> { static constexpr u64 square = 13, multiply = 10; };

// Words of scratch for a product of two n-word operands: level by level 2 h words for the middle product.
template <class W> constexpr u64 scratch_words(u64 n) {
  u64 words = 0;
  while (n >= Thresholds<W>::multiply) {
    n -= n / 2;
    words += 2 * n;
  }
  return words;
}
// The same for lengths na and nb: unequal ones keep one block product of 2 n words aside, and a last
// shorter block is an unequal product again.
template <class W> constexpr u64 scratch_words(u64 na, u64 nb) {
  const u64 n = na < nb ? na : nb, m = na < nb ? nb : na;
  if (n < Thresholds<W>::multiply) return 0;
  if (m == n) return scratch_words<W>(n);
  const u64 balanced = scratch_words<W>(n), last = scratch_words<W>(n, m % n);
  return 2 * n + (balanced > last ? balanced : last);
}

// out[0, 2n) <- A^2.
void square(u64* out, const u64* A, u64 n, u64* scratch);
void square(u32* out, const u32* A, u64 n, u32* scratch);
// out[0, 2n) <- A * B.
void multiply(u64* out, const u64* A, const u64* B, u64 n, u64* scratch);
void multiply(u32* out, const u32* A, const u32* B, u64 n, u32* scratch);
// out[0, na+nb) <- A * B.
void multiply_unbalanced(u64* out, const u64* A, u64 na, const u64* B, u64 nb, u64* scratch);
void multiply_unbalanced(u32* out, const u32* A, u64 na, const u32* B, u64 nb, u32* scratch);

// The parameter record. A "transform" is the operand itself behind its length; any length is served (the
// table sends only short products here).
class btp_t : public km_MULv3::abstract_btp {
public:
  btp_t(u64 capacity_bits, u64 threads, unsigned word_bits);

  u64 transform_bytes() const override;
  u64 scratch_bytes() const override;
  bool accepts(const km_MULv3::abstract_btp& other) const override;
  double forward(void* T, const u64* A, u64 L, void* scratch) const override;
  void inverse_fmul(u64* out, u64 n, void* TA, const void* TB, void* scratch) const override;
  void inverse_fsqr(u64* out, u64 n, void* T, void* scratch) const override;

private:
  u64 max_words_;      // of 64 bits, of an operand
  unsigned word_bits_; // of the kernels that form the product
};

// The algorithm; `_p` are the forms that the table holds.
template <class W> class algorithm : public km_MULv3::algorithm_p<W> {
public:
  u64 capacity_bits() const override { return sizeof(W) == 4 ? 13824 : 27648; }
  const char* short_name() const override { return "BKT"; }
  const char* description() const override { return "Basecase/Karatsuba"; }
  u64 memory_cost(u64 n, u64 threads) const override;
  km_MULv3::abstract_btp* make_parameters(u64 n, const km_MULv3::Context& context,
                                          km_MULv3::btp_storage* storage) const override;
};
class algorithm_c32_p final : public algorithm<u32> {};
class algorithm_c64_p final : public algorithm<u64> {};

} // namespace kelvane::km_MULB
