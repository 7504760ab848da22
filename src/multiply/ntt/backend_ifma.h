// Eight residues in 64-bit lanes, by 52-bit integer multiplication.
//
// p < 2^48 < 1.005 p. A lane stands for its low 52 bits: multiplications ignore the upper bits, additions
// never carry out of them, so only the value modulo 2^52 counts, and it is right as long as the true value
// lies in [0, 2^52) = [0, 16 p). All bounds below are in units of p.
//
//   mul(x, f) with f = (w, floor(2^52 w / p)): x w - floor(x q / 2^52) p. The floor is less than 2 below
//     x w / p (1 for itself, x / 2^52 < 1 for q's own): in [0, 2).
//   red(x) = x - floor(x / 2^48) p = (x mod 2^48) + floor(x / 2^48) (2^48 - p): below 2^48 + 15 (2^48 - p),
//   where
//     15 (2^48 - p) < 0.07 p for every prime of the set: in [0, 1.1).
//
// Forward values lie in [2, 12), inverse values in [0, 2).
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

struct Ifma {
  using V = __m512i;
  static constexpr Backend BACKEND = Backend::ifma;
  static constexpr u32 LANES = 8, LOG_LANES = 3;
  static constexpr u64 MASK = (u64{1} << 52) - 1;

  struct Tw {
    V w, q;
  };
  struct K {
    V minus_p, p, p2, p4, p6, montgomery;
    explicit K(u64 prime) {
      minus_p = set((u64{1} << 52) - prime);
      p = set(prime);
      p2 = set(2 * prime);
      p4 = set(4 * prime);
      p6 = set(6 * prime);
      u64 inverse = prime; // 1 / p modulo 2^52: each step doubles the right bits, of which p itself has 3
      for (int i = 0; i < 5; i++) inverse *= 2 - prime * inverse;
      montgomery = set(inverse & MASK);
    }
  };

  NTT_INLINE V set(u64 x) { return _mm512_set1_epi64(static_cast<long long>(x)); }
  NTT_INLINE V load(const u64* a) { return _mm512_load_si512(a); }
  NTT_INLINE void store(u64* a, V v) { _mm512_store_si512(a, v); }
  NTT_INLINE void stream(u64* a, V v) { _mm512_stream_si512(reinterpret_cast<__m512i*>(a), v); }
  NTT_INLINE Tw broadcast(const u64* w, u64 quotients) { return {set(w[0]), set(w[quotients])}; }
  NTT_INLINE Tw broadcast(const Factor& f) { return {set(f.value), set(f.quotient)}; }
  NTT_INLINE Tw lanes(const u64* w, u64 quotients) { return {load(w), load(w + quotients)}; }

  NTT_INLINE V add(V a, V b) { return _mm512_add_epi64(a, b); }
  NTT_INLINE V sub(V a, V b) { return _mm512_sub_epi64(a, b); }
  NTT_INLINE V low(V a, V b, V c) { return _mm512_madd52lo_epu64(a, b, c); }  // a + low half of b c
  NTT_INLINE V high(V a, V b, V c) { return _mm512_madd52hi_epu64(a, b, c); } // a + high half of b c
  NTT_INLINE V zero() { return _mm512_setzero_si512(); }

  NTT_INLINE V mul(V x, const Tw& f, const K& k) {
    const V q = high(zero(), x, f.q);
    return low(low(zero(), x, f.w), q, k.minus_p);
  }
  NTT_INLINE V red(V x, const K& k) { return low(x, high(zero(), x, set(16)), k.minus_p); }
  // [0, 2) -> [0, 1), upper bits cleared.
  NTT_INLINE V reduce_once(V x, const K& k) {
    x = _mm512_and_si512(x, set(MASK));
    return _mm512_min_epu64(x, sub(x, k.p));
  }

  // Node s: (x0, x1) -> (x0 + s x1, x0 - s x1). Returns [2, 7.1).
  NTT_INLINE void forward2(V& x0, V& x1, const Tw& s, const K& k) {
    const V a = add(red(x0, k), k.p4), b = mul(x1, s, k);
    x0 = add(a, b);
    x1 = sub(a, b);
  }
  // Nodes s2 = s^2, then s and i s. From [2, 12): a in [6, 7.1), b, c in [0, 2); a + b < 9.1, a - b >= 4,
  // x1 + c < 14, x1 - c >= 0. Returns [2, 11.1).
  NTT_INLINE void forward4(V& x0, V& x1, V& x2, V& x3, const Tw& s2, const Tw& s, const Tw& is, const K& k) {
    const V a = add(red(x0, k), k.p6), b = mul(x2, s2, k), c = mul(x3, s2, k);
    const V y0 = add(a, b), y2 = sub(a, b);
    const V t = mul(add(x1, c), s, k), u = mul(sub(x1, c), is, k);
    x0 = add(y0, t);
    x1 = sub(y0, t);
    x2 = add(y2, u);
    x3 = sub(y2, u);
  }
  // The same at the root (s = 1) with x2 = x3 = 0. Returns [2, 7.1).
  NTT_INLINE void forward4_half(V& x0, V& x1, V& x2, V& x3, const Tw& i, const K& k) {
    const V a = add(red(x0, k), k.p4), t = red(x1, k), u = mul(x1, i, k);
    x0 = add(a, t);
    x1 = sub(a, t);
    x2 = add(a, u);
    x3 = sub(a, u);
  }
  // x_t <- x0 + w^t x1 + w^(2t) x2 = x0 - (x1 + x2)/2 +- (w - w^2)/2 (x1 - x2) for t = 1, 2.
  // a in [4, 5.1), b, c < 1.1, m, n in [0, 2). Returns [2, 9.1).
  NTT_INLINE void forward3(V& x0, V& x1, V& x2, const Tw& minus_half, const Tw& third, const K& k) {
    const V a = add(red(x0, k), k.p4), b = red(x1, k), c = red(x2, k);
    const V m = add(a, mul(add(b, c), minus_half, k)), n = mul(sub(add(b, k.p2), c), third, k);
    x0 = add(a, add(b, c));
    x1 = add(m, n);
    x2 = sub(m, n);
  }

  NTT_INLINE void inverse2(V& x0, V& x1, const Tw& s, const K& k) {
    const V t = red(add(x0, x1), k);
    x1 = mul(sub(add(x0, k.p2), x1), s, k);
    x0 = t;
  }
  // Sums < 4, differences + 2 < 4; of those < 8: all below 16. Returns [0, 2).
  NTT_INLINE void inverse4(V& x0, V& x1, V& x2, V& x3, const Tw& s2, const Tw& s, const Tw& is, const K& k) {
    const V y0 = add(x0, x1), y1 = mul(sub(add(x0, k.p2), x1), s, k);
    const V y2 = add(x2, x3), y3 = mul(sub(add(x2, k.p2), x3), is, k);
    x0 = red(add(y0, y2), k);
    x2 = mul(sub(add(y0, k.p4), y2), s2, k);
    x1 = red(add(y1, y3), k);
    x3 = mul(sub(add(y1, k.p2), y3), s2, k);
  }
  // From [0, 2): b + c < 4, everything < 8. Returns [0, 1.1).
  NTT_INLINE void inverse3(V& x0, V& x1, V& x2, const Tw& minus_half, const Tw& third, const K& k) {
    const V a = x0, b = x1, c = x2;
    const V m = add(a, mul(add(b, c), minus_half, k)), n = mul(sub(add(b, k.p2), c), third, k);
    x0 = red(add(a, add(b, c)), k);
    x1 = red(add(m, n), k);
    x2 = red(sub(add(m, k.p2), n), k);
  }

  // Cyclic transform of length 8 over the vectors, x0 < 16, the others < 2. Sums and shifted differences of
  // two values < 2 are < 4; z4..z7 < 6; z3 is < 8 before its product. Returns [0, 7.1).
  NTT_INLINE void cyclic(V* x, const Tw* turns, const K& k) {
    const V x0 = red(x[0], k);
    const V y0 = add(x0, x[4]), y4 = sub(add(x0, k.p2), x[4]), y1 = add(x[1], x[5]),
            y5 = sub(add(x[1], k.p2), x[5]);
    const V y2 = add(x[2], x[6]), y6 = sub(add(x[2], k.p2), x[6]), y3 = add(x[3], x[7]);
    const V y7 = sub(add(x[3], k.p2), x[7]), i6 = mul(y6, turns[0], k), i7 = mul(y7, turns[0], k);
    const V z0 = red(add(y0, y2), k), z2 = red(sub(add(y0, k.p4), y2), k), z1 = red(add(y1, y3), k);
    const V z3 = mul(sub(add(y1, k.p4), y3), turns[0], k);
    const V z4 = add(y4, i6), z6 = sub(add(y4, k.p2), i6);
    const V z5 = mul(add(y5, i7), turns[1], k), z7 = mul(sub(add(y5, k.p2), i7), turns[2], k);
    x[0] = add(z0, z1);
    x[1] = sub(add(z0, k.p2), z1);
    x[2] = add(z2, z3);
    x[3] = sub(add(z2, k.p2), z3);
    x[4] = add(z4, z5);
    x[5] = sub(add(z4, k.p2), z5);
    x[6] = add(z6, z7);
    x[7] = sub(add(z6, k.p2), z7);
  }
  // The inverse, from [0, 2): z < 4, z3, z5, z7 < 2; y1, y3 < 6, y2 < 8, y5 < 4. Returns x0 < 1.1 and the
  // others < 10, which go through a product.
  NTT_INLINE void cyclic_inverse(V* x, const Tw* turns, const K& k) {
    const V z0 = add(x[0], x[1]), z1 = sub(add(x[0], k.p2), x[1]), z2 = add(x[2], x[3]), z4 = add(x[4], x[5]);
    const V z3 = mul(sub(add(x[2], k.p2), x[3]), turns[0], k),
            z5 = mul(sub(add(x[4], k.p2), x[5]), turns[1], k);
    const V z6 = add(x[6], x[7]), z7 = mul(sub(add(x[6], k.p2), x[7]), turns[2], k);
    const V y0 = red(add(z0, z2), k), y2 = sub(add(z0, k.p4), z2), y1 = add(z1, z3),
            y3 = sub(add(z1, k.p2), z3);
    const V y4 = red(add(z4, z6), k), y6 = mul(sub(add(z4, k.p4), z6), turns[0], k);
    const V y5 = add(z5, z7), y7 = mul(sub(add(z5, k.p2), z7), turns[0], k);
    x[0] = red(add(y0, y4), k);
    x[4] = sub(add(y0, k.p2), y4);
    x[2] = add(y2, y6);
    x[6] = sub(add(y2, k.p2), y6);
    x[1] = add(y1, y5);
    x[5] = sub(add(y1, k.p4), y5);
    x[3] = add(y3, y7);
    x[7] = sub(add(y3, k.p2), y7);
  }

  NTT_INLINE void transpose(V* a) {
    V t[8], b[8];
    for (int i = 0; i < 8; i += 2) {
      t[i] = _mm512_unpacklo_epi64(a[i], a[i + 1]);
      t[i + 1] = _mm512_unpackhi_epi64(a[i], a[i + 1]);
    }
    for (int i = 0; i < 8; i += 4) {
      for (int j = 0; j < 2; j++) {
        b[i + j] = _mm512_shuffle_i64x2(t[i + j], t[i + j + 2], 0x88);
        b[i + j + 2] = _mm512_shuffle_i64x2(t[i + j], t[i + j + 2], 0xdd);
      }
    }
    for (int j = 0; j < 4; j++) {
      a[j] = _mm512_shuffle_i64x2(b[j], b[j + 4], 0x88);
      a[j + 4] = _mm512_shuffle_i64x2(b[j], b[j + 4], 0xdd);
    }
  }

  // f g as a factor with its exact quotient. With y = f g in [0, 1) p, v = floor(2^99 / p) and
  // q = 2 floor(16 y v / 2^52), q falls short of 2^52 y / p by less than 2 (1 + 1) = 4; the remainder
  // 2^52 y - q p is then in [0, 5 p), its multiples of 2^48 are taken first and one p at most is left.
  struct Scale {
    Tw by;
    V v;
  };
  NTT_INLINE V reciprocal(u64 p) { return set(static_cast<u64>((static_cast<u128>(1) << 99) / p)); }
  NTT_INLINE Tw scale(V f, const Scale& by, const K& k) {
    const V y = reduce_once(mul(f, by.by, k), k);
    V q = high(zero(), _mm512_slli_epi64(y, 4), by.v);
    q = add(q, q);
    const V r = _mm512_and_si512(low(zero(), q, k.minus_p), set(MASK)), e = _mm512_srli_epi64(r, 48);
    q = add(q, e);
    const V s = sub(r, low(zero(), e, k.p));
    return {y, _mm512_mask_add_epi64(q, _mm512_cmpge_epu64_mask(s, k.p), q, set(1))};
  }
  NTT_INLINE void store(u64* a, u64 quotients, const Tw& f) {
    store(a, f.w);
    store(a + quotients, f.q);
  }

  // x y / 2^52 modulo p, x any, y < 16: h - floor(m p / 2^52) + p with equal low halves left out, h < 1.1.
  // In (0, 2.1).
  NTT_INLINE V product(V x, V y, const K& k) {
    const V a = red(x, k);
    const V h = high(zero(), a, y), l = low(zero(), a, y), m = low(zero(), l, k.montgomery);
    return sub(add(h, k.p), high(zero(), m, k.p));
  }
  // Sums of MAX_SUM products stay below 4 * 3 = 12: a subtracted one adds 3 p.
  NTT_INLINE V accumulate(V sum, V x, bool subtract, const K& k) {
    return subtract ? sub(add(sum, add(k.p, k.p2)), x) : add(sum, x);
  }
  NTT_INLINE V negative(V x, const K& k) { return sub(add(k.p, k.p2), x); }

  // Recombination: residues x in [0, 2) plus a bias below 1, (x - d) f in [0, 2) for a digit d < p_i < 2 p,
  // and the digit itself, an integer in [0, p).
  NTT_INLINE V biased(V x, const Tw& bias) { return add(x, bias.w); }
  NTT_INLINE V first_digit(V x, const K& k) { return reduce_once(red(x, k), k); }
  NTT_INLINE V garner(V x, V d, const Tw& f, const K& k) { return mul(add(x, sub(k.p2, d)), f, k); }
  NTT_INLINE V next_digit(V x, const K& k) { return reduce_once(x, k); }

  // The digits' limbs of 52 bits, all but the last masked; residue in [2, 2 + 1.1 + 3 * 2).
  using Limb = V;
  struct DigitReader {
    V offsets;
    u32 b, limbs;
    V last;
    explicit DigitReader(u32 bits) : b(bits), limbs((bits + 51) / 52) {
      offsets = _mm512_mullo_epi64(_mm512_setr_epi64(0, 1, 2, 3, 4, 5, 6, 7), set(bits));
      last = set((u64{1} << (bits - 52 * (limbs - 1))) - 1);
    }
    // Limb j of eight digits from bit `bit` of `base` on. A load at a byte brings at least 57 bits.
    [[gnu::always_inline]] Limb read(const u64* base, u64 bit, u32 j) const {
      const V at = add(set(bit + 52 * j), offsets);
      V g = _mm512_i64gather_epi64(_mm512_srli_epi64(at, 3), base, 1);
      g = _mm512_srlv_epi64(g, _mm512_and_si512(at, set(7)));
      return _mm512_and_si512(g, j + 1 == limbs ? last : set(MASK));
    }
  };
  NTT_INLINE V first_limb(Limb l, const K& k) { return add(red(l, k), k.p2); }
  NTT_INLINE V next_limb(V sum, Limb l, const Tw& f, const K& k) {
    const V q = high(zero(), l, f.q);
    return low(low(sum, l, f.w), q, k.minus_p);
  }
  NTT_INLINE V last_limb(V sum, const K&) { return sum; }
  NTT_INLINE V zero_digit(const K& k) { return k.p2; }
  NTT_INLINE void fence() { _mm_sfence(); }
};

} // namespace
} // namespace kelvane::ntt
