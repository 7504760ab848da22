// Points to words: scaling, rounding, carries. Part of the kernel sources fft_kernels_*.cpp (internal
// linkage).
//
// Point values are signed: digits are balanced. Eight far-apart runs of digits are carried side by side, one
// to a lane, each from a carry of 0; the signed carry out of every run is added to the next one afterwards
// (finish_carries). With M the bit pattern of 1.5 * 2^52, a point value x (|x| < 2^51) scaled and added to
// that number in one rounding has the bit pattern M + x. M is a multiple of 2^b, so with the signed carry c
//   digit = (M + x + c) mod 2^b,   next carry + M / 2^b = floor((M + x + c) / 2^b)
// need neither the subtraction of M nor an arithmetic shift. M / 2^b is to be taken off the next point before
// the carry arrives, so that the chain from digit to digit is one addition and one shift. For b > 16 it is
// below 2^47, and the number that is added to round is that much smaller; else it is subtracted.
//
// Where two points fit a word together, |x + 2^b y| < 2^63, they are carried as one digit of 2 b bits: half
// the chain and a third fewer operations. Here 2^63 takes the place of M: a multiple of 2^(2b).
// - Let |x|, |y| <= t. The pair is at most (2^b + 1) t, and a carry c that is added to it
//   becomes at most (c + (2^b + 1) t) / 2^(2b) + 1: both together stay below 2^b t (1 + 2^-7), which is below
//   2^63 when 2^b t <= 2^63 - 2^56 (pairs_fit).
// - With b >= 13 the two M of a pair are M + 2^b M = M modulo 2^64. What is wanted instead is 2^63 less the
//   carry's bias, 2^(63-2b): the difference is 2^b f for an integer f < 2^49 (2^63 - M < 2^62, b <= 21),
//   which comes with the number that is added to round the odd points. |y| <= 2^(63-b) <= 2^50, so |y + f| <
//   2^51.
#pragma once

#include "multiply/fft/blocks_impl.h"

namespace kelvane::km_FFTv2 {
namespace {

// Words w[0, WORDS) of the runs h, lane h of each, to out[h] + at. At most 2 b bytes may be written. Two
// words and more are the instruction sets' own, transposed, so that 16 or 32 bytes of a run leave at once.
template <u32 WORDS, class I>
requires(WORDS == 1) KELVANE_INLINE void store_runs(u8* const* out, u64 at, const I* w) {
  alignas(64) u64 words[I::LANES];
  w[0].store(words);
  for (u32 h = 0; h < I::LANES; h++) __builtin_memcpy(out[h] + at, &words[h], 8);
}

// run[h] are the L points of run h, as bit patterns; pair[i] <- points 2 i + 2^b points (2 i + 1), a run to a
// lane. Pairs are formed before the transposition, which then moves half as many vectors.
template <class V, class I> KELVANE_INLINE void transpose_pairs(I* pair, const V* run, u32 b) {
  constexpr u32 L = V::LANES;
  for (u32 j = 0; j < L / 2; j++) { // runs 2 j and 2 j + 1: a pair of points of both in every 128 bits
    const V even = unpack_low(run[2 * j], run[2 * j + 1]), odd = unpack_high(run[2 * j], run[2 * j + 1]);
    pair[j] = I::bits(even) + (I::bits(odd) << b);
  }
  transpose_pieces(pair);
}

template <class V, class I> struct Carry {
  using C = Cx<V>;
  using B = Blocks<V>;
  static constexpr u32 L = V::LANES, GROUPS = 8 / L; // an octet is GROUPS vectors of every run
  static_assert(I::LANES == L);
  static constexpr u64 MAGIC_BITS = 0x4338000000000000;
  static constexpr double MAGIC = 6755399441055744.0; // 1.5 * 2^52

  // An octet's bit patterns M + x, or pairs of them, of all runs: of vector k the runs k L to k L + L - 1, a
  // run to a lane.
  template <bool PAIRS> struct Points { I x[GROUPS][PAIRS ? 4 : 8]; };

  template <bool STEP, bool PAIRS>
  KELVANE_INLINE static void round_octet(Points<PAIRS>& points, const double* src, u64 row_stride,
                                         const StepRoots<V>& roots, C u, V scale, V magic, u32 b) {
    for (u32 v = 0; v < GROUPS; v++, src += B::VECTOR) {
      C x[4];
      for (u32 j = 0; j < 4; j++) x[j] = C::load(src + j * row_stride);
      if constexpr (STEP) inverse_radix4(x[0], x[1], x[2], x[3], roots.w[0], roots.w[1], u);
      V run[8];
      for (u32 j = 0; j < 4; j++) {
        run[j] = fmadd(x[j].r, scale, magic);
        run[j + 4] = fmadd(x[j].i, scale, magic);
      }
      for (u32 k = 0; k < GROUPS; k++) {
        if constexpr (PAIRS) {
          transpose_pairs(points.x[k] + v * L / 2, run + k * L, b);
        } else {
          V t[L];
          for (u32 j = 0; j < L; j++) t[j] = run[k * L + j];
          transpose(t);
          for (u32 d = 0; d < L; d++) points.x[k][v * L + d] = I::bits(t[d]);
        }
      }
    }
  }

  // What a carry is too large by.
  template <bool PAIRS> KELVANE_INLINE static u64 carry_bias(u32 b) {
    return PAIRS ? u64{1} << (63 - 2 * b) : MAGIC_BITS >> b;
  }
  // Whether rounding takes the carry's bias off: for all pairs, and for all single digits of b > 16.
  template <u32 WORDS, bool PAIRS> static constexpr bool UNBIASED = PAIRS || WORDS == 3;
  // What is added to round, of one vector of points.
  template <u32 WORDS, bool PAIRS> KELVANE_INLINE static V rounding(u32 b) {
    const u64 bias = carry_bias<PAIRS>(b);
    if constexpr (PAIRS) { // even points, odd points
      const u64 more = ((u64{1} << 63) - bias - MAGIC_BITS) >> b;
      return unpack_low(V::set1(MAGIC), V::set1(MAGIC + static_cast<double>(more)));
    } else {
      return V::set1(MAGIC - (UNBIASED<WORDS, PAIRS> ? static_cast<double>(bias) : 0));
    }
  }

  // The octet's 8 b bits of every run: word w of the runs of group k, a run to a lane, at word[k * WORDS +
  // w].
  template <u32 WORDS, bool PAIRS>
  KELVANE_INLINE static void pack_octet(I* word, const Points<PAIRS>& points, I* carry, u32 b) {
    for (u32 k = 0; k < GROUPS; k++) {
      I pair[4]; // 2 b bits each, at most 42
      I c = carry[k];
      if constexpr (PAIRS) {
        const I mask = I::set1((u64{1} << 2 * b) - 1);
        for (u32 i = 0; i < 4; i++) {
          const I x = points.x[k][i] + c;
          pair[i] = x & mask;
          c = x >> 2 * b;
        }
      } else {
        const I mask = I::set1((u64{1} << b) - 1), bias = I::set1(MAGIC_BITS >> b);
        I digit[8];
        for (u32 d = 0; d < 8; d++) {
          const I x = (UNBIASED<WORDS, PAIRS> ? points.x[k][d] : points.x[k][d] - bias) + c;
          digit[d] = x & mask;
          c = x >> b;
        }
        for (u32 i = 0; i < 4; i++) pair[i] = digit[2 * i] | digit[2 * i + 1] << b;
      }
      carry[k] = c;
      I* const out = word + k * WORDS;
      if constexpr (WORDS <= 2) { // b <= 16: half an octet fits a word
        const I low = pair[0] | pair[1] << 2 * b, high = pair[2] | pair[3] << 2 * b;
        out[0] = low | high << 4 * b;
        if constexpr (WORDS == 2) out[1] = high >> (64 - 4 * b);
      } else { // 17 <= b <= 21: the pairs begin at bits 0, 2b, 4b in [68, 84], 6b in [102, 126]
        out[0] = pair[0] | pair[1] << 2 * b;
        out[1] = pair[1] >> (64 - 2 * b) | pair[2] << (4 * b - 64) | pair[3] << (6 * b - 64);
        out[2] = pair[3] >> (128 - 6 * b);
      }
    }
  }

  template <bool STEP, u32 WORDS, bool PAIRS>
  static void run(const double* data, u64 row_stride, const Shape& shape, const CarryRuns& runs) {
    const StepRoots<V> roots = B::template step_roots<2>(*shape.table, 1);
    const C u = mul(roots.w[0], roots.w[1]);
    const V scale = V::set1(1.0 / static_cast<double>(shape.n));
    const u32 b = shape.b;
    const V magic = rounding<WORDS, PAIRS>(b);
    I carry[GROUPS];
    for (u32 k = 0; k < GROUPS; k++) carry[k] = I::set1(carry_bias<PAIRS>(b));
    const auto round = [&](Points<PAIRS> & octet) __attribute__((always_inline)) {
      round_octet<STEP, PAIRS>(octet, data, row_stride, roots, u, scale, magic, b);
      data += GROUPS * B::VECTOR;
    };
    // From the load of a point to the store of its digits there are so many operations one after another that
    // the processor could not look from one octet into the next. Where an octet leaves registers for more,
    // the next one is rounded before it is packed.
    constexpr bool AHEAD = GROUPS * (PAIRS ? 4 : 8) <= 8;
    u8* out[8];
    for (u32 h = 0; h < 8; h++) out[h] = runs.out[h];
    u64 at = 0;
    I word[GROUPS * WORDS];
    Points<PAIRS> points, next;
    round(points);
    for (u64 o = 1; o < runs.octets; o++, at += b) {
      if constexpr (AHEAD) round(next);
      pack_octet<WORDS, PAIRS>(word, points, carry, b);
      // What is written above the octet's b bytes is overwritten next: the run goes on for at least b bytes.
      for (u32 k = 0; k < GROUPS; k++) store_runs<WORDS>(out + k * I::LANES, at, word + k * WORDS);
      if constexpr (AHEAD)
        points = next;
      else
        round(points);
    }
    // The last octet ends where another run begins: exactly b bytes, the last eight of them at once.
    pack_octet<WORDS, PAIRS>(word, points, carry, b);
    alignas(64) u64 words[8 * WORDS]; // word w of run h at 8 w + h
    for (u32 k = 0; k < GROUPS; k++) {
      for (u32 w = 0; w < WORDS; w++) word[k * WORDS + w].store(words + 8 * w + k * I::LANES);
    }
    for (u32 h = 0; h < 8; h++) {
      u8* const to = out[h] + at;
      u64 last = words[h];
      if constexpr (WORDS > 1) {
        for (u32 w = 0; w < WORDS - 1; w++) __builtin_memcpy(to + 8 * w, &words[8 * w + h], 8);
        const u64 below = words[8 * (WORDS - 2) + h], top = words[8 * (WORDS - 1) + h];
        last = static_cast<u64>((static_cast<u128>(top) << 64 | below) >> (8 * (b - 8 * (WORDS - 1))));
      }
      __builtin_memcpy(to + b - 8, &last, 8);
    }
    for (u32 k = 0; k < GROUPS; k++) carry[k].store(words + k * I::LANES);
    for (u32 h = 0; h < 8; h++) runs.carry[h] = static_cast<s64>(words[h] - carry_bias<PAIRS>(b));
  }

  template <bool STEP, bool PAIRS>
  static void run_bits(const double* data, u64 row_stride, const Shape& shape, const CarryRuns& runs) {
    if (shape.b <= 8) return run<STEP, 1, PAIRS>(data, row_stride, shape, runs);
    if (shape.b <= 16) return run<STEP, 2, PAIRS>(data, row_stride, shape, runs);
    run<STEP, 3, PAIRS>(data, row_stride, shape, runs);
  }
  template <bool STEP>
  static void run_digits(const double* data, u64 row_stride, const Shape& shape, const CarryRuns& runs) {
    if (runs.pairs) return run_bits<STEP, true>(data, row_stride, shape, runs);
    run_bits<STEP, false>(data, row_stride, shape, runs);
  }

  static void carry(const double* data, u64 row_stride, bool step, const Shape& shape,
                    const CarryRuns& runs) {
    if (step) return run_digits<true>(data, row_stride, shape, runs);
    run_digits<false>(data, row_stride, shape, runs);
  }
};

} // namespace
} // namespace kelvane::km_FFTv2
