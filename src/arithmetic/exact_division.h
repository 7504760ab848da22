// Quotients that are known to be exact, from the low words up.
//
// For an odd divisor G and a multiple X of it, X/G = X I mod B^n, where B = 2^64, I = G^-1 mod B^n and n are
// the words of the quotient: the high words of X are not needed at all. I is computed once, to k = n/2 words,
// by Newton's method (I <- I - I (G I - 1) doubles the words that are right), and serves every dividend:
//
//   y <- X I mod B^k,  X <- (X - y G) / B^k        k words of the quotient at a time
//
// Cost in products M(k) of k by k words: 2.5 M(k) for the inverse; then, the transforms of I and G being
// kept, about 2/3 M(k) for each of these products, three of them for a quotient of n = 2k words. Source:
// Jebelean, An algorithm for exact division (1993); Brent and Zimmermann, Modern Computer Arithmetic,
// section 1.4.5.
#pragma once

#include "multiply/table/km_MULv3.h"
#include "shell/types.h"

namespace kelvane {

class ExactDivision {
public:
  // Bytes of 64-byte aligned work for divisors and quotients of up to so many words.
  static u64 work_bytes(u64 divisor_words, u64 quotient_words, const km_MULv3::Context& context);

  // G[0, nG) odd, its top word not zero; it is read by divide(). No quotient has more than quotient_words
  // words.
  ExactDivision(const km_MULv3::Context& context, const u64* G, u64 nG, u64 quotient_words, void* work,
                u64 bytes);
  // out[0, nX - nG + 1) <- X/G, where G divides X and nX >= nG. X is destroyed. When G does not divide X the
  // words are those of X/G modulo B^(nX - nG + 1): a residue finds that.
  void divide(u64* out, u64* X, u64 nX) const;

private:
  void invert(const km_MULv3::Context& context, u64* t, u64* s, void* work);

  const u64* G_;
  u64 nG_, k_;
  u64 *inverse_, *product_;
  km_MULv3::btp_storage storage_;
  const km_MULv3::abstract_btp* parameters_;
  void *inverse_transform_, *divisor_transform_, *passing_, *scratch_;
};

} // namespace kelvane
