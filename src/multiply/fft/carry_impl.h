// Points to words: scaling, rounding, carries. Part of the kernel sources fft_kernels_*.cpp (internal
// linkage).
//
// Point values are signed: digits are balanced. Eight far-apart runs of digits are carried side by side, one
// to a lane, each from a carry of 0; the signed carry out of every run is added to the next one afterwards
// (finish_carries). With M the bit pattern of 1.5 * 2^52, a point value x (|x| < 2^51) scaled and added to
// that number in one rounding has the bit pattern M + x. M is a multiple of 2^b, so with the signed carry c
//   digit = (M + x + c) mod 2^b,   next carry + M / 2^b = floor((M + x + c) / 2^b)
// need neither the subtraction of M nor an arithmetic shift. M / 2^b is taken off the next point before the
// carry arrives, so that the chain from digit to digit is one addition and one shift.
#pragma once

#include "multiply/fft/blocks_impl.h"

namespace kelvane::km_FFTv2 {
namespace {

template <class V, class I> struct Carry {
  using C = Cx<V>;
  using B = Blocks<V>;
  static constexpr u32 L = V::LANES, GROUPS = 8 / I::LANES;
  static constexpr u64 MAGIC_BITS = 0x4338000000000000;
  static constexpr double MAGIC = 6755399441055744.0; // 1.5 * 2^52

  // tile[8 d + h] <- bit pattern of point d of the octet in run h.
  template <bool STEP>
  KELVANE_INLINE static void round_octet(double* tile, const double* src, u64 row_stride,
                                         const StepRoots<V>& roots, C u, V scale) {
    const V magic = V::set1(MAGIC);
    for (u32 v = 0; v < 8 / L; v++, src += B::VECTOR) {
      C x[4];
      for (u32 j = 0; j < 4; j++) x[j] = C::load(src + j * row_stride);
      if constexpr (STEP) inverse_radix4(x[0], x[1], x[2], x[3], roots.w[0], roots.w[1], u);
      V run[8];
      for (u32 j = 0; j < 4; j++) {
        run[j] = fmadd(x[j].r, scale, magic);
        run[j + 4] = fmadd(x[j].i, scale, magic);
      }
      for (u32 h = 0; h < 8; h += L) {
        V t[L];
        for (u32 j = 0; j < L; j++) t[j] = run[h + j];
        transpose(t);
        for (u32 d = 0; d < L; d++) t[d].store(tile + (v * L + d) * 8 + h);
      }
    }
  }

  // The octet's 8 b bits of every run: words[8 w + h], w = 0 .. WORDS-1.
  template <u32 WORDS>
  KELVANE_INLINE static void pack_octet(u64* words, const double* tile, I* carry, u32 b) {
    const I mask = I::set1((u64{1} << b) - 1), bias = I::set1(MAGIC_BITS >> b);
    for (u32 k = 0; k < GROUPS; k++) {
      I digit[8];
      I c = carry[k]; // M / 2^b too large
      for (u32 d = 0; d < 8; d++) {
        const I x = (I::load(tile + 8 * d + k * I::LANES) - bias) + c;
        digit[d] = x & mask;
        c = x >> b;
      }
      carry[k] = c;
      I pair[4]; // 2 b bits each, at most 42
      for (u32 i = 0; i < 4; i++) pair[i] = digit[2 * i] | digit[2 * i + 1] << b;
      u64* const out = words + k * I::LANES;
      if constexpr (WORDS <= 2) { // b <= 16: half an octet fits a word
        const I low = pair[0] | pair[1] << 2 * b, high = pair[2] | pair[3] << 2 * b;
        (low | high << 4 * b).store(out);
        if constexpr (WORDS == 2) (high >> (64 - 4 * b)).store(out + 8);
      } else { // 17 <= b <= 21: the pairs begin at bits 0, 2b, 4b in [68, 84], 6b in [102, 126]
        (pair[0] | pair[1] << 2 * b).store(out);
        (pair[1] >> (64 - 2 * b) | pair[2] << (4 * b - 64) | pair[3] << (6 * b - 64)).store(out + 8);
        (pair[3] >> (128 - 6 * b)).store(out + 16);
      }
    }
  }

  template <bool STEP, u32 WORDS>
  static void run(const double* data, u64 row_stride, const Shape& shape, const CarryRuns& runs) {
    const StepRoots<V> roots = B::template step_roots<2>(*shape.table, 1);
    const C u = mul(roots.w[0], roots.w[1]);
    const V scale = V::set1(1.0 / static_cast<double>(shape.n));
    const u32 b = shape.b;
    I carry[GROUPS];
    for (u32 k = 0; k < GROUPS; k++) carry[k] = I::set1(MAGIC_BITS >> b);
    alignas(64) double tile[64];
    alignas(64) u64 words[8 * WORDS];
    u8* out = runs.out;
    for (u64 o = 1; o < runs.octets; o++, data += (8 / L) * B::VECTOR, out += b) {
      round_octet<STEP>(tile, data, row_stride, roots, u, scale);
      pack_octet<WORDS>(words, tile, carry, b);
      // Whole words are written; what they hold above the octet's b bytes is zero and overwritten next.
      for (u32 h = 0; h < 8; h++) {
        for (u32 w = 0; w < WORDS; w++) __builtin_memcpy(out + h * runs.stride + 8 * w, &words[8 * w + h], 8);
      }
    }
    // The last octet ends where another run begins: exactly b bytes, the last eight of them at once.
    round_octet<STEP>(tile, data, row_stride, roots, u, scale);
    pack_octet<WORDS>(words, tile, carry, b);
    for (u32 h = 0; h < 8; h++) {
      u8* const to = out + h * runs.stride;
      u64 last = words[h];
      if constexpr (WORDS > 1) {
        for (u32 w = 0; w < WORDS - 1; w++) __builtin_memcpy(to + 8 * w, &words[8 * w + h], 8);
        const u64 below = words[8 * (WORDS - 2) + h], top = words[8 * (WORDS - 1) + h];
        last = static_cast<u64>((static_cast<u128>(top) << 64 | below) >> (8 * (b - 8 * (WORDS - 1))));
      }
      __builtin_memcpy(to + b - 8, &last, 8);
    }
    for (u32 k = 0; k < GROUPS; k++) carry[k].store(words + k * I::LANES);
    for (u32 h = 0; h < 8; h++) runs.carry[h] = static_cast<s64>(words[h] - (MAGIC_BITS >> b));
  }

  template <bool STEP>
  static void run_bits(const double* data, u64 row_stride, const Shape& shape, const CarryRuns& runs) {
    if (shape.b <= 8) return run<STEP, 1>(data, row_stride, shape, runs);
    if (shape.b <= 16) return run<STEP, 2>(data, row_stride, shape, runs);
    run<STEP, 3>(data, row_stride, shape, runs);
  }

  static void carry(const double* data, u64 row_stride, bool step, const Shape& shape,
                    const CarryRuns& runs) {
    if (step) return run_bits<true>(data, row_stride, shape, runs);
    run_bits<false>(data, row_stride, shape, runs);
  }
};

} // namespace
} // namespace kelvane::km_FFTv2
