// Word sums modulo p = 2^61 - 1 and modulo Q at memory speed.
//
// 2^64 = 2^3 (mod p) and 2^183 = (2^61)^3 = 1 (mod p), so the weight 8^i of word i has period 61: the
// residue of an array is that of its 61 column sums. Long arrays are therefore only added up, with period
// 122 (two words to a vector register), the halves of every word apart so that no carry is lost. Modulo Q the
// period is 32; the rows are four periods long.
#include "arithmetic/words/residue.h"

#include <emmintrin.h>

namespace kelvane::residue {

namespace {

constexpr u64 COLUMNS = 122, WRAPPED_COLUMNS = 4 * WRAPPED_PERIOD;
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

template <u64 COLUMNS> struct ColumnSums {
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

  void add_part(const u64* words, u64 n) {
    for (u64 c = 0; c < n; c++) {
      low[c] += words[c] & 0xffffffff;
      high[c] += words[c] >> 32;
    }
  }
  u128 column(u64 c) const {
    return static_cast<u128>(low[c]) + (static_cast<u128>(high[c]) << 32);
  } // < 2^95
};

// sum over the columns of their sums times 8^c.
u64 fold(const ColumnSums<COLUMNS>& sums) {
  u64 columns[COLUMNS];
  for (u64 c = 0; c < COLUMNS; c++) columns[c] = reduce(sums.column(c));
  return horner_words(columns, COLUMNS, 0);
}

// The same with 2^(64 c) modulo Q < 2^59: Horner over one period, in which no step exceeds 2^123 + 2^98.
u64 fold_wrapped(const ColumnSums<WRAPPED_COLUMNS>& sums) {
  u64 h = 0;
  for (u64 c = WRAPPED_PERIOD; c-- > 0;) {
    u128 x = static_cast<u128>(h) << 64;
    for (u64 at = c; at < WRAPPED_COLUMNS; at += WRAPPED_PERIOD) x += sums.column(at);
    h = static_cast<u64>(x % Q);
  }
  return h;
}

} // namespace

u64 weight(s64 e) {
  return e >= 0 ? pow(8, static_cast<u64>(e)) : pow(u64{1} << 58, u64{0} - static_cast<u64>(e));
}

u64 hash_words(const u64* words, u64 n, u64 start) {
  const u64 rows = n / COLUMNS < MIN_ROWS ? 0 : n / COLUMNS, summed = rows * COLUMNS;
  // The part above the columns stands higher by a multiple of the period: weight 1.
  u64 h = horner_words(words + summed, n - summed, reduce(start));
  for (u64 first = 0; first < rows; first += MAX_ROWS) {
    ColumnSums<COLUMNS> sums;
    sums.add(words + first * COLUMNS, rows - first < MAX_ROWS ? rows - first : MAX_ROWS);
    h = add(h, fold(sums));
  }
  return h;
}

u64 hash_radix_words(u64 radix, const u64* words, u64 n, u64 start) {
  const u64 r = reduce(radix);
  u64 h = reduce(start);
  while (n-- > 0) h = add(mul(h, r), reduce(words[n]));
  return h;
}

u64 hash_wrapped(const u64* words, u64 n) {
  constexpr u64 MOST = (MAX_ROWS - 1) * WRAPPED_COLUMNS;
  u64 h = 0;
  for (u64 at = 0; at < n; at += MOST) {
    const u64 part = n - at < MOST ? n - at : MOST, rows = part / WRAPPED_COLUMNS;
    ColumnSums<WRAPPED_COLUMNS> sums;
    sums.add(words + at, rows);
    sums.add_part(words + at + rows * WRAPPED_COLUMNS, part % WRAPPED_COLUMNS);
    h = (h + fold_wrapped(sums)) % Q;
  }
  return h;
}

} // namespace kelvane::residue
