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
//
// Where two points fit a word together, |x + 2^b y| < 2^63, they are carried as one digit of 2 b bits: half
// the chain and a third fewer operations. Points are at most n 2^(2b-2) (see precision.h), so the pair and
// the carry, at most 2^-b of it, are below n 2^(3b-2) 17/16. Here 2^63 takes the place of M: a multiple of
// 2^(2b).
#pragma once

#include "multiply/fft/blocks_impl.h"

namespace kelvane::km_FFTv2 {
namespace {

// Words w[0, WORDS) of the runs h, lane h of each, to out + h stride. At most 2 b bytes may be written.
template <u32 WORDS, class I> KELVANE_INLINE void store_runs(u8* out, u64 stride, const I* w) {
  alignas(64) u64 words[WORDS][I::LANES];
  for (u32 i = 0; i < WORDS; i++) w[i].store(words[i]);
  for (u32 h = 0; h < I::LANES; h++) {
    for (u32 i = 0; i < WORDS; i++) __builtin_memcpy(out + h * stride + 8 * i, &words[i][h], 8);
  }
}

template <class V, class I> struct Carry {
  using C = Cx<V>;
  using B = Blocks<V>;
  static constexpr u32 L = V::LANES, GROUPS = 8 / I::LANES;
  static constexpr u64 MAGIC_BITS = 0x4338000000000000;
  static constexpr double MAGIC = 6755399441055744.0; // 1.5 * 2^52

  // The octet's bit patterns M + x, lane for run: in registers when one vector has all runs, else in memory.
  // In registers pairs are formed before the transposition, which then has half as many vectors: x[i] is
  // point 2 i plus 2^b times the next one.
  static constexpr bool IN_REGISTERS = L == 8 && GROUPS == 1;
  struct Points {
    I x[IN_REGISTERS ? 8 : 1];
    alignas(64) double tile[IN_REGISTERS ? 8 : 64]; // [point][run]
    KELVANE_INLINE I at(u32 group, u32 d) const {
      if constexpr (IN_REGISTERS)
        return x[d];
      else
        return I::load(tile + 8 * d + group * I::LANES);
    }
    KELVANE_INLINE I pair(u32 group, u32 i, u32 b) const {
      if constexpr (IN_REGISTERS)
        return x[i];
      else
        return at(group, 2 * i) + (at(group, 2 * i + 1) << b);
    }
  };

  template <bool STEP, bool PAIRS>
  KELVANE_INLINE static void round_octet(Points& points, const double* src, u64 row_stride,
                                         const StepRoots<V>& roots, C u, V scale, u32 b) {
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
      if constexpr (IN_REGISTERS && PAIRS) {
        transpose_pairs(points.x, run, b);
        continue;
      }
      for (u32 h = 0; h < 8; h += L) {
        V t[L];
        for (u32 j = 0; j < L; j++) t[j] = run[h + j];
        transpose(t);
        for (u32 d = 0; d < L; d++) {
          if constexpr (IN_REGISTERS)
            points.x[d] = I::bits(t[d]);
          else
            t[d].store(points.tile + (v * L + d) * 8 + h);
        }
      }
    }
  }

  // What a carry is too large by.
  template <bool PAIRS> KELVANE_INLINE static u64 carry_bias(u32 b) {
    return PAIRS ? u64{1} << (63 - 2 * b) : MAGIC_BITS >> b;
  }
  // Whether two points fit a word.
  static bool pairs_fit(const Shape& shape) {
    return shape.n <= ((u64{1} << 63) - (u64{1} << 59)) >> (3 * shape.b - 2);
  }

  // The octet's 8 b bits of every run: word w of the runs of group k, a run to a lane, at word[k * WORDS +
  // w].
  template <u32 WORDS, bool PAIRS>
  KELVANE_INLINE static void pack_octet(I* word, const Points& points, I* carry, u32 b) {
    for (u32 k = 0; k < GROUPS; k++) {
      I pair[4]; // 2 b bits each, at most 42
      I c = carry[k];
      if constexpr (PAIRS) {
        const u64 both = MAGIC_BITS + (MAGIC_BITS << b);
        const I bias = I::set1((u64{1} << 63) - (u64{1} << (63 - 2 * b)) - both);
        const I mask = I::set1((u64{1} << 2 * b) - 1);
        for (u32 i = 0; i < 4; i++) {
          const I x = (points.pair(k, i, b) + bias) + c;
          pair[i] = x & mask;
          c = x >> 2 * b;
        }
      } else {
        const I mask = I::set1((u64{1} << b) - 1), bias = I::set1(MAGIC_BITS >> b);
        I digit[8];
        for (u32 d = 0; d < 8; d++) {
          const I x = (points.at(k, d) - bias) + c;
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
    I carry[GROUPS];
    for (u32 k = 0; k < GROUPS; k++) carry[k] = I::set1(carry_bias<PAIRS>(b));
    Points points;
    I word[GROUPS * WORDS];
    u8* out = runs.out;
    for (u64 o = 1; o < runs.octets; o++, data += (8 / L) * B::VECTOR, out += b) {
      round_octet<STEP, PAIRS>(points, data, row_stride, roots, u, scale, b);
      pack_octet<WORDS, PAIRS>(word, points, carry, b);
      // What is written above the octet's b bytes is overwritten next: the run goes on for at least b bytes.
      for (u32 k = 0; k < GROUPS; k++)
        store_runs<WORDS>(out + k * I::LANES * runs.stride, runs.stride, word + k * WORDS);
    }
    // The last octet ends where another run begins: exactly b bytes, the last eight of them at once.
    round_octet<STEP, PAIRS>(points, data, row_stride, roots, u, scale, b);
    pack_octet<WORDS, PAIRS>(word, points, carry, b);
    alignas(64) u64 words[8 * WORDS]; // word w of run h at 8 w + h
    for (u32 k = 0; k < GROUPS; k++) {
      for (u32 w = 0; w < WORDS; w++) word[k * WORDS + w].store(words + 8 * w + k * I::LANES);
    }
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
    if (pairs_fit(shape)) return run_bits<STEP, true>(data, row_stride, shape, runs);
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
