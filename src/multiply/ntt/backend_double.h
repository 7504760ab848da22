// Residues in doubles with fused multiply-add, on the lanes D (4 or 8).
//
// p < 2^49 < 1.001 p; values are integers, balanced around 0. All bounds below are in units of p, for |x|;
// every factor is below 0.54: stored ones are at most 0.5, made ones (scale) 0.5 + 0.068 * 0.54.
//
//   mul(x, f): h = x f rounded, q = h / p rounded to an integer by adding and subtracting C = 1.5 * 2^52,
//   which
//     asks for |h / p| < 2^51: |x| <= 7.4. The sum's single rounding makes |q - h/p| <= 1/2 + 2^-53 |h/p|, so
//     h - q p, an integer below 2^53, is exact; l = x f - h is exact and at most 2^-53 |h|. With |h| <= 0.54
//     |x| p^2 both errors add up to less than 2 * 0.54 |x| 2^49 2^-53 < 0.068 |x|:   |mul(x)| <= 0.5 + 0.068
//     |x|.
//   red(x) = x - round(x / p) p for |x| < 2^53: at most 0.501.
//
// Forward values are at most 2.1, inverse values 1.4.
#pragma once

// GCC 12 takes the deliberately undefined pass-through operands of its own intrinsics for mistakes.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wuninitialized"
#if !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif
#include <immintrin.h>
#pragma GCC diagnostic pop

#include "multiply/ntt/twiddles.h"
#include "shell/types.h"

#define NTT_INLINE [[gnu::always_inline]] static inline

namespace kelvane::ntt {
namespace {

template <class D> struct Double : D {
  using V = typename D::V;
  using D::add;
  using D::broadcast_bits;
  using D::fma;
  using D::fms;
  using D::fnma;
  using D::load;
  using D::multiply;
  using D::set;
  using D::store;
  using D::sub;

  struct Tw {
    V w;
  };
  struct K {
    V p, inverse, round;
    explicit K(u64 prime) {
      p = set(static_cast<double>(prime));
      inverse = set(1.0 / static_cast<double>(prime));
      round = set(6755399441055744.0);
    }
  };

  NTT_INLINE Tw broadcast(const u64* w, u64) { return {broadcast_bits(*w)}; }
  NTT_INLINE Tw broadcast(const Factor& f) { return {broadcast_bits(f.value)}; }
  NTT_INLINE Tw lanes(const u64* w, u64) { return {load(w)}; }
  NTT_INLINE V multiple(V x, const K& k) { return sub(fma(x, k.inverse, k.round), k.round); } // round(x / p)

  NTT_INLINE V mul(V x, const Tw& f, const K& k) {
    const V h = multiply(x, f.w), l = fms(x, f.w, h);
    return add(fnma(multiple(h, k), k.p, h), l);
  }
  NTT_INLINE V red(V x, const K& k) { return fnma(multiple(x, k), k.p, x); }

  // 0.501 + (0.5 + 0.068 * 2.1): returns 1.2.
  NTT_INLINE void forward2(V& x0, V& x1, const Tw& s, const K& k) {
    const V a = red(x0, k), b = mul(x1, s, k);
    x0 = add(a, b);
    x1 = sub(a, b);
  }
  // From 2.1: b, c <= 0.643, y0 <= 1.144, x1 + c <= 2.743, its product <= 0.687. Returns 1.84.
  NTT_INLINE void forward4(V& x0, V& x1, V& x2, V& x3, const Tw& s2, const Tw& s, const Tw& is, const K& k) {
    const V a = red(x0, k), b = mul(x2, s2, k), c = mul(x3, s2, k);
    const V y0 = add(a, b), y2 = sub(a, b);
    const V t = mul(add(x1, c), s, k), u = mul(sub(x1, c), is, k);
    x0 = add(y0, t);
    x1 = sub(y0, t);
    x2 = add(y2, u);
    x3 = sub(y2, u);
  }
  // Root (s = 1) with x2 = x3 = 0, from digits <= 0.501. Returns 1.1.
  NTT_INLINE void forward4_half(V& x0, V& x1, V& x2, V& x3, const Tw& i, const K& k) {
    const V a = x0, t = x1, u = mul(x1, i, k);
    x0 = add(a, t);
    x1 = sub(a, t);
    x2 = add(a, u);
    x3 = sub(a, u);
  }
  // See Ifma::forward3. From 1.4: m <= 1.4 + 0.5 + 0.068 * 2.8, n <= 0.7. Returns 2.8; from digits
  // (0.501): 1.7.
  NTT_INLINE void forward3(V& x0, V& x1, V& x2, const Tw& minus_half, const Tw& third, const K& k) {
    const V sum = add(x1, x2), m = add(x0, mul(sum, minus_half, k)), n = mul(sub(x1, x2), third, k);
    x0 = red(add(x0, sum), k);
    x1 = add(m, n);
    x2 = sub(m, n);
  }

  // From 1.4: x1 <= 0.5 + 0.068 * 2.8 = 0.7.
  NTT_INLINE void inverse2(V& x0, V& x1, const Tw& s, const K& k) {
    const V t = red(add(x0, x1), k);
    x1 = mul(sub(x0, x1), s, k);
    x0 = t;
  }
  // From 1.4: y0, y2 <= 2.8, y1, y3 <= 0.7; x2 <= 0.5 + 0.068 * 5.6 = 0.89. Returns 1.4.
  NTT_INLINE void inverse4(V& x0, V& x1, V& x2, V& x3, const Tw& s2, const Tw& s, const Tw& is, const K& k) {
    const V y0 = add(x0, x1), y1 = mul(sub(x0, x1), s, k), y2 = add(x2, x3), y3 = mul(sub(x2, x3), is, k);
    x0 = red(add(y0, y2), k);
    x2 = mul(sub(y0, y2), s2, k);
    x1 = add(y1, y3);
    x3 = mul(sub(y1, y3), s2, k);
  }
  NTT_INLINE void inverse3(V& x0, V& x1, V& x2, const Tw& minus_half, const Tw& third, const K& k) {
    forward3(x0, x1, x2, minus_half, third, k);
  }

  // Cyclic transforms of length L over the vectors.
  NTT_INLINE void cyclic(V* x, const Tw* turns, const K& k) {
    x[0] = red(x[0], k); // all inputs <= 0.55 now: the others come from products
    if constexpr (D::LANES == 8) {
      // y <= 1.1, i6, i7 <= 0.58, z2, z3 <= 2.2, z4..z7 <= 1.7. Returns 2.9.
      const V y0 = add(x[0], x[4]), y4 = sub(x[0], x[4]), y1 = add(x[1], x[5]), y5 = sub(x[1], x[5]);
      const V y2 = add(x[2], x[6]), y6 = sub(x[2], x[6]), y3 = add(x[3], x[7]), y7 = sub(x[3], x[7]);
      const V i6 = mul(y6, turns[0], k), i7 = mul(y7, turns[0], k);
      const V z0 = add(y0, y2), z2 = sub(y0, y2), z1 = add(y1, y3), z3 = mul(sub(y1, y3), turns[0], k);
      const V z4 = add(y4, i6), z6 = sub(y4, i6), z5 = mul(add(y5, i7), turns[1], k);
      const V z7 = mul(sub(y5, i7), turns[2], k);
      x[0] = add(z0, z1);
      x[1] = sub(z0, z1);
      x[2] = add(z2, z3);
      x[3] = sub(z2, z3);
      x[4] = add(z4, z5);
      x[5] = sub(z4, z5);
      x[6] = add(z6, z7);
      x[7] = sub(z6, z7);
    } else {
      const V y0 = add(x[0], x[2]), y2 = sub(x[0], x[2]), y1 = add(x[1], x[3]);
      const V y3 = mul(sub(x[1], x[3]), turns[0], k);
      x[0] = add(y0, y1);
      x[1] = sub(y0, y1);
      x[2] = add(y2, y3);
      x[3] = sub(y2, y3);
    }
  }
  // From 1.4. Length 8: z0, z2, z4, z6 <= 2.8, z3, z5, z7 <= 0.7, y2 <= 5.6, y1, y3 <= 3.5, y6 <= 0.89, y5
  // <= 1.4, y7 <= 0.6. Returns x0 <= 0.501 and the others <= 6.5, which go through a product.
  NTT_INLINE void cyclic_inverse(V* x, const Tw* turns, const K& k) {
    if constexpr (D::LANES == 8) {
      const V z0 = add(x[0], x[1]), z1 = sub(x[0], x[1]), z2 = add(x[2], x[3]), z4 = add(x[4], x[5]);
      const V z3 = mul(sub(x[2], x[3]), turns[0], k), z5 = mul(sub(x[4], x[5]), turns[1], k);
      const V z6 = add(x[6], x[7]), z7 = mul(sub(x[6], x[7]), turns[2], k);
      const V y0 = red(add(z0, z2), k), y2 = sub(z0, z2), y1 = add(z1, z3), y3 = sub(z1, z3);
      const V y4 = red(add(z4, z6), k), y6 = mul(sub(z4, z6), turns[0], k);
      const V y5 = add(z5, z7), y7 = mul(sub(z5, z7), turns[0], k);
      x[0] = red(add(y0, y4), k);
      x[4] = sub(y0, y4);
      x[2] = add(y2, y6);
      x[6] = sub(y2, y6);
      x[1] = add(y1, y5);
      x[5] = sub(y1, y5);
      x[3] = add(y3, y7);
      x[7] = sub(y3, y7);
    } else {
      const V y0 = add(x[0], x[1]), y1 = sub(x[0], x[1]), y2 = add(x[2], x[3]);
      const V y3 = mul(sub(x[2], x[3]), turns[0], k);
      x[0] = red(add(y0, y2), k);
      x[2] = sub(y0, y2);
      x[1] = add(y1, y3);
      x[3] = sub(y1, y3);
    }
  }

  struct Scale {
    Tw by;
    V unused;
  };
  NTT_INLINE V reciprocal(u64) { return set(0.0); }
  NTT_INLINE Tw scale(V f, const Scale& by, const K& k) { return {mul(f, by.by, k)}; }
  NTT_INLINE void store(u64* a, u64, const Tw& f) { store(a, f.w); }

  NTT_INLINE V product(V x, V y, const K& k) { return mul(red(x, k), Tw{red(y, k)}, k); } // 0.54
  NTT_INLINE V accumulate(V sum, V x, bool subtract, const K&) {
    return subtract ? sub(sum, x) : add(sum, x);
  }
  NTT_INLINE V negative(V x, const K&) { return sub(set(0.0), x); }
  NTT_INLINE V settled(V sum, const K& k) { return red(sum, k); } // of at most four products, 2.2

  // Recombination: residues <= 2.8 plus a bias <= 0.5; minus a digit < p_i < 1.001 p: <= 4.4.
  NTT_INLINE V biased(V x, const Tw& bias) { return add(x, bias.w); }
  NTT_INLINE V first_digit(V x, const K& k) { return next_digit(red(x, k), k); }
  NTT_INLINE V garner(V x, V d, const Tw& f, const K& k) { return mul(sub(x, d), f, k); }
  NTT_INLINE V next_digit(V x, const K& k) { return D::add_if_negative(x, k.p); } // from (-1, 1)

  // Limbs of 48 bits: each product at most 0.54; reduced at the end.
  using Limb = V;
  struct DigitReader {
    static constexpr u64 BEYOND = 4; // words behind the digits that may be read
    typename D::I offsets, last;
    u32 b, limbs;
    explicit DigitReader(u32 bits) : b(bits), limbs((bits + 47) / 48) {
      offsets = D::lane_multiples(bits);
      last = D::set_integer((u64{1} << (bits - 48 * (limbs - 1))) - 1);
    }
    [[gnu::always_inline]] Limb read(const u64* base, u64 bit, u32 j) const {
      const typename D::I mask = j + 1 == limbs ? last : D::set_integer((u64{1} << 48) - 1);
      return D::gather_bits(base, bit + 48 * j, b, offsets, mask);
    }
  };
  template <u32 N> NTT_INLINE V digit(const Limb (&l)[N], const Tw* f, const K& k) {
    V sum = mul(l[0], f[0], k);
    for (u32 j = 1; j < N; j++) sum = add(sum, mul(l[j], f[j], k));
    return red(sum, k);
  }
  NTT_INLINE V zero_digit(const K&) { return set(0.0); }
};

} // namespace
} // namespace kelvane::ntt
