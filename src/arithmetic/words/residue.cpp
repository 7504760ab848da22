// Word sums modulo p = 2^61 - 1 at memory speed.
//
// 2^64 = 2^3 (mod p) and 2^183 = (2^61)^3 = 1 (mod p), so the weight 8^i of word i has period 61: the
// residue of an array is that of its 61 column sums. Long arrays are therefore only added up, with period
// 122 (two words to a vector register), the halves of every word apart so that no carry is lost.
#include "arithmetic/words/residue.h"

#include <emmintrin.h>

namespace kelvane::residue {

namespace {

constexpr u64 COLUMNS = 122;
constexpr u64 ROWS = 8;                 // rows summed in registers before the column sums are touched
constexpr u64 BLOCK = COLUMNS * ROWS;   // words
constexpr u64 SUM_LIMIT = u64{1} << 31; // rows: 2^31 halves below 2^32 stay below 2^63
constexpr u64 MIN_COLUMN_LENGTH = 2 * BLOCK;

// h <- 8 h + w. For any h the new value is below 2^61 + 2^6 + 2^61 + 2^3 < 2^63, so nothing overflows and
// nothing need be reduced between the steps: multiplying by 8 turns the low 61 bits and brings the top
// down with weight 8 (h>>58 counts 2^58 * 8 = 2^61 = 1).
inline u64 horner(u64 h, u64 w) {
  return ((h << 3) & P) + (h >> 58) + (w & P) + (w >> 61);
}

u64 horner_words(const u64* words, u64 n, u64 h) {
  while (n-- > 0) h = horner(h, words[n]);
  return reduce(h);
}

struct ColumnSums {
  alignas(16) u64 low[COLUMNS] = {};
  alignas(16) u64 high[COLUMNS] = {};

  void add_blocks(const u64* words, u64 blocks) {
    const __m128i mask = _mm_set1_epi64x(0xffffffff);
    for (; blocks > 0; blocks--, words += BLOCK) {
      for (u64 c = 0; c < COLUMNS; c += 2) {
        auto* const lo = reinterpret_cast<__m128i*>(low + c);
        auto* const hi = reinterpret_cast<__m128i*>(high + c);
        __m128i l = _mm_load_si128(lo), h = _mm_load_si128(hi);
        for (u64 r = 0; r < ROWS; r++) {
          const __m128i w = _mm_loadu_si128(reinterpret_cast<const __m128i*>(words + r * COLUMNS + c));
          l = _mm_add_epi64(l, _mm_and_si128(w, mask));
          h = _mm_add_epi64(h, _mm_srli_epi64(w, 32));
        }
        _mm_store_si128(lo, l);
        _mm_store_si128(hi, h);
      }
    }
  }

  // sum over the columns of (low + 2^32 high) 8^c, by Horner from the top.
  u64 fold() const {
    u64 h = 0;
    for (u64 c = COLUMNS; c-- > 0;) {
      const u128 column = static_cast<u128>(reduce(low[c])) + (static_cast<u128>(reduce(high[c])) << 32);
      h = horner(h, reduce(column)); // the column is below 2^94
    }
    return reduce(h);
  }
};

} // namespace

u64 weight(s64 e) {
  return e >= 0 ? pow(8, static_cast<u64>(e)) : pow(u64{1} << 58, u64{0} - static_cast<u64>(e));
}

u64 hash_words(const u64* words, u64 n, u64 start) {
  const u64 blocks = n < MIN_COLUMN_LENGTH ? 0 : n / BLOCK;
  const u64 summed = blocks * BLOCK;
  // The part above the columns stands higher by `summed` words, a multiple of the period: weight 1.
  u64 h = horner_words(words + summed, n - summed, reduce(start));
  constexpr u64 limit = SUM_LIMIT / ROWS; // blocks per set of sums
  for (u64 first = 0; first < blocks; first += limit) {
    ColumnSums sums;
    sums.add_blocks(words + first * BLOCK, blocks - first < limit ? blocks - first : limit);
    h = add(h, sums.fold());
  }
  return h;
}

u64 hash_radix_words(u64 radix, const u64* words, u64 n, u64 start) {
  const u64 r = reduce(radix);
  u64 h = reduce(start);
  // h r < 2^122 - ..., and a word adds less than 2^64: the fold of reduce() still ends below 2 p.
  while (n-- > 0) h = add(mul(h, r), reduce(words[n]));
  return h;
}

} // namespace kelvane::residue
