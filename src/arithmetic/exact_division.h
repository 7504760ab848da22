// Quotients by a divisor that divides many numbers exactly, from the low words up.
//
// For an odd divisor G and a multiple X of it, X/G = X I mod B^n, where B = 2^64, I = G^-1 mod B^n and n are
// the words of the quotient: neither G nor the high words of X are needed any more. I is computed once by
// Newton's method (I <- I - I (G I - 1) doubles the words that are right), for 2.5 products of n by n words;
// its transform is kept, and a quotient costs two transforms, 2/3 of such a product. A quotient by parts,
// each of which is multiplied by G and subtracted, would make do with a shorter I but take more transforms.
// Source: Jebelean, An algorithm for exact division (1993); Brent and Zimmermann, Modern Computer Arithmetic,
// section 1.4.5.
#pragma once

#include "multiply/table/km_MULv3.h"
#include "shell/types.h"

namespace kelvane {

// inverse[0, n) <- G^-1 mod B^n for odd G[0, nG). work: inverse_bytes(n, context), 64-byte aligned.
u64 inverse_bytes(u64 n, const km_MULv3::Context& context);
void invert_modulo_power(const km_MULv3::Context& context, u64* inverse, u64 n, const u64* G, u64 nG,
                         void* work);

// Quotients by one divisor, on one thread each; several threads may use the object at once. All memory is
// 64-byte aligned.
class ExactDivision {
public:
  // Bytes of the object's memory, and of the work of its construction or of one quotient, for quotients of up
  // to so many words.
  static u64 memory_bytes(u64 quotient_words);
  static u64 work_bytes(u64 quotient_words);

  // inverse[0, quotient_words): the divisor's modulo B^quotient_words; it is not needed afterwards.
  ExactDivision(const km_MULv3::Context& context, const u64* inverse, u64 quotient_words, void* memory,
                void* work);
  ExactDivision(const ExactDivision&) = delete;
  ExactDivision& operator=(const ExactDivision&) = delete;

  u64 quotient_words() const { return words_; }
  // out[0, n) <- X/G from the low n words of X, n <= quotient_words. When G does not divide X the words are
  // those of X/G modulo B^n: a residue finds that.
  void divide(u64* out, const u64* X, u64 n, void* work) const;

private:
  u64 words_;
  km_MULv3::btp_storage storage_;
  const km_MULv3::abstract_btp* parameters_;
  void* inverse_transform_;
};

} // namespace kelvane
