#include "series/block_divisor.h"

#include <algorithm>
#include <bit>
#include <cmath>

#include "arithmetic/words/add.h"
#include "arithmetic/words/residue.h"
#include "series/kc_BSS.h"
#include "shell/exception.h"
#include "shell/heap.h"

namespace kelvane {

namespace {

u64 words_of(double nats) {
  return static_cast<u64>(nats * WORDS_PER_NAT) + 2;
}

// Primes up to x: fewer than 1.25506 x / ln x.
u64 primes_at_most(u64 x) {
  const double r = static_cast<double>(std::max<u64>(x, 3));
  return static_cast<u64>(1.25506 * r / std::log(r)) + 2;
}

struct PrimePower {
  u64 prime, exponent;
};

// Work of making G: which odd numbers are composite, the powers, and five buffers of integers, each with room
// for G from factors packed into words, which may leave half of them empty.
struct FactorPlacement {
  u8* composite;
  PrimePower* powers;
  u64 *factors, *x, *y, *square;
  u64 bytes; // of products
  void* work;
  FactorPlacement(Layout& layout, u64 limit, u64 words, const km_MULv3::Context& context)
      : composite(layout.take<u8>(limit / 2 + 1)), powers(layout.take<PrimePower>(primes_at_most(limit))),
        factors(layout.take<u64>(2 * words + 4)), x(layout.take<u64>(2 * words + 4)),
        y(layout.take<u64>(2 * words + 4)), square(layout.take<u64>(2 * words + 4)),
        bytes(km_MULv3::memory_cost(2 * words + 8, context.threads)), work(layout.take_bytes(bytes)) {}
};

// The product of n words, in out, with scratch, both of n words; returns its length.
u64 product_of_words(const km_MULv3::Context& context, const u64* factors, u64 n, u64* out, u64* scratch,
                     void* work) {
  if (n <= 16) {
    out[0] = factors[0];
    u64 length = 1;
    for (u64 i = 1; i < n; i++) {
      const u64 carry = words::mul_word(out, out, length, factors[i]);
      if (carry != 0) out[length++] = carry;
    }
    return length;
  }
  const u64 half = n / 2;
  const u64 low = product_of_words(context, factors, half, scratch, out, work);
  const u64 high = product_of_words(context, factors + half, n - half, scratch + half, out + half, work);
  km_MULv3::multiply(context, out, scratch, low, scratch + half, high, work);
  return words::normalized_length(out, low + high);
}

// G for blocks of so many terms; returns its words. Its exponents' binary digits, highest first: square, and
// multiply by the primes that have the digit. Most of G is squares, and the products of primes are short.
u64 make_factor(const CommonFactors& factors, const km_MULv3::Context& context, u64 terms,
                const FactorPlacement& place, u64* G) {
  const u64 limit = factors.reach * terms;
  std::fill_n(place.composite, limit / 2 + 1, u8{0});
  u64 count = 0, all_exponents = 0;
  for (u64 p = 3; p <= limit; p += 2) {
    if (place.composite[p / 2] != 0) continue;
    if (p <= limit / p)
      for (u64 n = p * p; n <= limit; n += 2 * p) place.composite[n / 2] = 1;
    if (p < factors.smallest_prime) continue;
    u64 e = 0;
    for (u64 q = p;; q *= p) {
      e += factors.exponent(q, terms);
      if (q > limit / p) break;
    }
    if (e != 0) place.powers[count++] = {p, e};
    all_exponents |= e;
  }

  G[0] = 1;
  u64 length = 1;
  for (u64 digit = static_cast<u64>(std::bit_width(all_exponents)); digit-- > 0;) {
    u64 n = 0, packed = 1;
    for (u64 i = 0; i < count; i++) {
      if ((place.powers[i].exponent >> digit & 1) == 0) continue;
      const u128 product = static_cast<u128>(packed) * place.powers[i].prime;
      if (product >> 64 != 0) {
        place.factors[n++] = packed;
        packed = place.powers[i].prime;
      } else {
        packed = static_cast<u64>(product);
      }
    }
    place.factors[n++] = packed;
    const u64 by = product_of_words(context, place.factors, n, place.x, place.y, place.work);
    km_MULv3::square(context, place.square, G, length, place.work);
    length = words::normalized_length(place.square, 2 * length);
    km_MULv3::multiply(context, G, place.square, length, place.x, by, place.work);
    length = words::normalized_length(G, length + by);
  }
  return length;
}

// G has no more words than what it divides.
u64 factor_words(const CommonFactors& factors, const BlockSizes& sizes) {
  return std::min(sizes.raw_words, words_of(factors.log_at_most(static_cast<double>(sizes.terms))));
}

// Work of making the divisor: G, and first what that takes, then its inverse.
struct BuildPlacement {
  u64* G;
  u8* work;
  BuildPlacement(Layout& layout, u64 words)
      : G(layout.take<u64>(2 * words + 4)), work(static_cast<u8*>(layout.take_bytes(0))) {}
};
struct InversePlacement {
  u64* inverse;
  void* work;
  InversePlacement(Layout& layout, u64 words, const km_MULv3::Context& context)
      : inverse(layout.take<u64>(words)),
        work(layout.take_bytes(std::max(inverse_bytes(words, context), ExactDivision::work_bytes(words)))) {}
};

} // namespace

u64 BlockDivisor::memory_bytes(const BlockSizes& sizes) {
  return ExactDivision::memory_bytes(sizes.quotient_words) +
         (sizes.has_shorter() ? ExactDivision::memory_bytes(sizes.first_words) : 0);
}

u64 BlockDivisor::build_bytes(const CommonFactors& factors, const BlockSizes& sizes,
                              const km_MULv3::Context& context) {
  const u64 words = factor_words(factors, sizes);
  Layout layout, factor, inverse;
  BuildPlacement(layout, words);
  FactorPlacement(factor, factors.reach * sizes.terms, words, context);
  InversePlacement(inverse, sizes.quotient_words, context);
  return layout.used() + std::max(factor.used(), inverse.used());
}

u64 BlockDivisor::work_bytes(const BlockSizes& sizes) {
  return ExactDivision::work_bytes(sizes.quotient_words);
}

BlockDivisor::BlockDivisor(const CommonFactors& factors, const BlockSizes& sizes,
                           const km_MULv3::Context& context, void* memory, void* work, u64 bytes) {
  const u64 words = factor_words(factors, sizes);
  Layout layout(work, bytes);
  const BuildPlacement place(layout, words);
  Layout factor(place.work, layout.left()), rest(place.work, layout.left());
  words_ = make_factor(factors, context, sizes.terms,
                       FactorPlacement(factor, factors.reach * sizes.terms, words, context), place.G);
  residue_inverse_ = residue::inverse(residue::hash_words(place.G, words_));

  const InversePlacement inverse(rest, sizes.quotient_words, context);
  invert_modulo_power(context, inverse.inverse, sizes.quotient_words, place.G, words_, inverse.work);
  long_.emplace(context, inverse.inverse, sizes.quotient_words, memory, inverse.work);
  if (sizes.has_shorter())
    short_.emplace(context, inverse.inverse, sizes.first_words,
                   static_cast<u8*>(memory) + ExactDivision::memory_bytes(sizes.quotient_words),
                   inverse.work);
}

void BlockDivisor::divide(const kob_cdi_EFPh& x, kob_cdi_EFPh& out, void* work) const {
  const u64 n = x.L < words_ ? 0 : x.L - words_ + 1;
  if (n == 0 || n > out.AL || n > long_->quotient_words()) fatal("Insufficient Allocated Space");
  const ExactDivision& division = short_ && n <= short_->quotient_words() ? *short_ : *long_;
  division.divide(out.buffer, x.T, n, work);
  out.T = out.buffer;
  out.exp = x.exp;
  out.L = words::normalized_length(out.T, n);
  out.hash = residue::mul(x.hash, residue_inverse_);
}

} // namespace kelvane
