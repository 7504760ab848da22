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
constexpr u64 MIN_ROWS = 8;            // below, the columns cost more to fold than they save
constexpr u64 BLOCK_ROWS = 8;          // rows summed in registers before the column sums are touched
constexpr u64 MAX_ROWS = u64{1} << 31; // 2^31 halves below 2^32 stay below 2^63
constexpr u32 CHAINS = 4;

// h <- 8^k h + w. For any h the new value is below 2^61 + 2^(3+3k) + 2^61 + 2^3 < 2^63, so nothing overflows
// and nothing need be reduced between the steps: multiplying by 2^(3k) turns the low 61 bits, and what leaves
// on top, h >> (61-3k), comes back with weight 1.
template <unsigned K = 1> inline u64 horner(u64 h, u64 w) {
  return ((h << 3 * K) & P) + (h >> (61 - 3 * K)) + (w & P) + (w >> 61);
}

// Horner from the top. Four chains take every fourth word each, since the steps of one wait for each other;
// words above a multiple of four go first and continue in the lowest chain.
u64 horner_words(const u64* words, u64 n, u64 start) {
  u64 h[CHAINS] = {start, 0, 0, 0};
  while (n % CHAINS != 0) h[0] = horner(h[0], words[--n]);
  while (n > 0) {
    n -= CHAINS;
    for (u32 j = 0; j < CHAINS; j++) h[j] = horner<CHAINS>(h[j], words[n + j]);
  }
  u64 sum = 0;
  for (u32 j = CHAINS; j-- > 0;) sum = horner(sum, h[j]);
  return reduce(sum);
}

struct ColumnSums {
  alignas(16) u64 low[COLUMNS] = {};
  alignas(16) u64 high[COLUMNS] = {};

  template <u64 ROWS> void add_rows(const u64* words) {
    const __m128i mask = _mm_set1_epi64x(0xffffffff);
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
  void add(const u64* words, u64 rows) {
    for (; rows >= BLOCK_ROWS; rows -= BLOCK_ROWS, words += BLOCK_ROWS * COLUMNS) add_rows<BLOCK_ROWS>(words);
    for (; rows > 0; rows--, words += COLUMNS) add_rows<1>(words);
  }

  // sum over the columns of (low + 2^32 high) 8^c.
  u64 fold() const {
    u64 columns[COLUMNS];
    for (u64 c = 0; c < COLUMNS; c++) { // below 2^94
      columns[c] = reduce(static_cast<u128>(low[c]) + (static_cast<u128>(high[c]) << 32));
    }
    return horner_words(columns, COLUMNS, 0);
  }
};

} // namespace

u64 weight(s64 e) {
  return e >= 0 ? pow(8, static_cast<u64>(e)) : pow(u64{1} << 58, u64{0} - static_cast<u64>(e));
}

u64 hash_words(const u64* words, u64 n, u64 start) {
  const u64 rows = n / COLUMNS < MIN_ROWS ? 0 : n / COLUMNS, summed = rows * COLUMNS;
  // The part above the columns stands higher by a multiple of the period: weight 1.
  u64 h = horner_words(words + summed, n - summed, reduce(start));
  for (u64 first = 0; first < rows; first += MAX_ROWS) {
    ColumnSums sums;
    sums.add(words + first * COLUMNS, rows - first < MAX_ROWS ? rows - first : MAX_ROWS);
    h = add(h, sums.fold());
  }
  return h;
}

u64 hash_radix_words(u64 radix, const u64* words, u64 n, u64 start) {
  const u64 r = reduce(radix);
  u64 h = reduce(start);
  while (n-- > 0) h = add(mul(h, r), reduce(words[n]));
  return h;
}

} // namespace kelvane::residue
