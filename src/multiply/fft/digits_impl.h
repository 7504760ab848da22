// Digits into the root's radix-4 step. Part of the kernel sources fft_kernels_*.cpp (internal linkage), which
// define before it load_octet(V* out, const DigitSource&, const u8* p): the eight digits whose bytes begin at
// p (the byte below them); DigitSource::WINDOW bytes from p on are readable.
#pragma once

#include "multiply/fft/blocks_impl.h"

namespace kelvane::km_FFTv2 {
namespace {

template <class V> struct Digits {
  using C = Cx<V>;
  using B = Blocks<V>;
  static constexpr u32 PER_OCTET = 8 / V::LANES; // vectors

  KELVANE_INLINE static void octet(V* out, const DigitSource& s, u64 digit) {
    load_octet(out, s, s.window(digit));
    if (s.top_set && digit + 8 == s.total) { // the last digit of all keeps its own sign
      alignas(64) double top[8] = {0, 0, 0, 0, 0, 0, 0, static_cast<double>(u64{1} << s.b)};
      out[PER_OCTET - 1] = out[PER_OCTET - 1] + V::load(top + 8 - V::LANES);
    }
  }

  // RUNS of the eight runs (four rows, real then imaginary parts) hold digits, the others are zero: an
  // operand of half the product's length or less has real parts only. NORM: returns the sum of squares.
  template <u32 RUNS, bool NORM>
  static double step(double* dst, u64 row_stride, const Shape& shape, const DigitSource& digits, u64 position,
                     u64 octets) {
    const StepRoots<V> roots = B::template step_roots<2>(*shape.table, 1);
    const C s = roots.w[0], t = roots.w[1];
    const u64 quarter = shape.n / 4;
    V norm = V::zero();
    for (u64 o = 0; o < octets; o++, position += 8) {
      V run[8][PER_OCTET];
      for (u32 h = 0; h < RUNS; h++) octet(run[h], digits, h * quarter + position);
      for (u32 v = 0; NORM && v < PER_OCTET; v++) {
        V squares = run[0][v] * run[0][v];
        for (u32 h = 1; h < RUNS; h++) squares = fmadd(run[h][v], run[h][v], squares);
        norm = norm + squares;
      }
      for (u32 v = 0; v < PER_OCTET; v++, dst += B::VECTOR) {
        C x[4];
        if constexpr (RUNS == 8) {
          for (u32 j = 0; j < 4; j++) x[j] = {run[j][v], run[j + 4][v]};
          radix4(x[0], x[1], x[2], x[3], s, t);
        } else if constexpr (RUNS == 4) {
          // a +- s b for real a, b: two conjugates.
          x[0] = {fmadd(run[2][v], s.r, run[0][v]), run[2][v] * s.i};
          x[1] = {fmadd(run[3][v], s.r, run[1][v]), run[3][v] * s.i};
          x[2] = {fnmadd(run[2][v], s.r, run[0][v]), V::zero() - x[0].i};
          x[3] = {fnmadd(run[3][v], s.r, run[1][v]), V::zero() - x[1].i};
          butterfly(x[0], x[1], t);
          butterfly_i(x[2], x[3], t);
        } else if constexpr (RUNS == 2) {
          const V a = run[0][v], b = run[1][v];
          x[0] = {fmadd(b, t.r, a), b * t.i};
          x[1] = {fnmadd(b, t.r, a), V::zero() - x[0].i};
          x[2] = {fnmadd(b, t.i, a), b * t.r}; // i t = (-t.i, t.r)
          x[3] = {fmadd(b, t.i, a), V::zero() - x[2].i};
        } else {
          for (u32 j = 0; j < 4; j++) x[j] = {run[0][v], V::zero()};
        }
        for (u32 j = 0; j < 4; j++) x[j].store(dst + j * row_stride);
      }
    }
    if constexpr (!NORM) return 0;
    alignas(64) double lanes[V::LANES];
    norm.store(lanes);
    double sum = 0;
    for (const double x : lanes) sum += x;
    return sum;
  }

  template <bool NORM>
  static double step_of(double* dst, u64 row_stride, const Shape& shape, const DigitSource& digits,
                        u64 position, u64 octets) {
    // Digits above the operand's are zero but for one, which may hold the carry of the digit below it.
    const u64 used = 8 * digits.size / digits.b + 2, quarter = shape.n / 4;
    if (used <= quarter) return step<1, NORM>(dst, row_stride, shape, digits, position, octets);
    if (used <= 2 * quarter) return step<2, NORM>(dst, row_stride, shape, digits, position, octets);
    if (used <= 4 * quarter) return step<4, NORM>(dst, row_stride, shape, digits, position, octets);
    return step<8, NORM>(dst, row_stride, shape, digits, position, octets);
  }
  static void digits_step(double* dst, u64 row_stride, const Shape& shape, const DigitSource& digits,
                          u64 position, u64 octets) {
    step_of<false>(dst, row_stride, shape, digits, position, octets);
  }
  static double digits_norm_step(double* dst, u64 row_stride, const Shape& shape, const DigitSource& digits,
                                 u64 position, u64 octets) {
    return step_of<true>(dst, row_stride, shape, digits, position, octets);
  }
};

} // namespace
} // namespace kelvane::km_FFTv2
