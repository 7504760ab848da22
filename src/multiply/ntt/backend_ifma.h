// Eight residues in 64-bit lanes, by 52-bit integer multiplication.
//
// p < 2^48 < 1.005 p. A lane stands for its low 52 bits: multiplications ignore the upper bits, additions
// never carry out of them, so only the value modulo 2^52 counts, and it is right as long as the true value
// lies in [0, 2^52) = [0, 16 p). All bounds below are in units of p.
//
//   mul(x, f) with f = (w, q), q at most 1.14 below 2^52 w / p: x w - floor(x q / 2^52) p. The floor is less
//     than 1 + 1.14 x / 2^52 below x w / p, x / 2^52 being less than a sixteenth of x's bound: in [0, 2) for
//     x < 14, in [0, 2.2) for any.
//   red(x) = x - floor(x / 2^48) p = (x mod 2^48) + floor(x / 2^48) (2^48 - p): below 2^48 + 15 (2^48 - p),
//   where
//     15 (2^48 - p) < 0.07 p for every prime of the set: in [0, 1.1).
//
// Forward values lie in [2, 12), inverse values in [0, 3), in columns [0, 2), packed ones in [0, 1).
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
  static constexpr bool PACKS = true, SETTLES = true;
  static constexpr u64 MASK = (u64{1} << 52) - 1;

  struct Tw {
    V w, q;
  };
  struct K {
    V minus_p, p, p2, p4, p6, p8, montgomery, reciprocal;
    explicit K(u64 prime) {
      minus_p = set((u64{1} << 52) - prime);
      p = set(prime);
      p2 = set(2 * prime);
      p4 = set(4 * prime);
      p6 = set(6 * prime);
      p8 = set(8 * prime);
      u64 inverse = prime; // 1 / p modulo 2^52: each step doubles the right bits, of which p itself has 3
      for (int i = 0; i < 5; i++) inverse *= 2 - prime * inverse;
      montgomery = set(inverse & MASK);
      reciprocal = set(static_cast<u64>((static_cast<u128>(1) << 88) / prime));
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

  // Below 2^48 in the low 48 bits; what stands above them is not cleared. With v = floor(2^88 / p),
  // floor(x v / 2^52) falls short of 2^36 x / p by less than 2, so what is left is below
  // p + 2^-35 p < p + 2^13, and 2^48 - p > 2^37.
  NTT_INLINE V reduce(V x, const K& k) {
    return low(x, _mm512_srli_epi64(high(zero(), x, k.reciprocal), 36), k.minus_p);
  }

  // Packed points: a group of four vectors takes three lines of memory. Vectors 0 to 2 have theirs in the
  // lower 48 bits, the upper 16 of line i are bits 16 i and on of vector 3.
  static constexpr u64 LOW_48 = (u64{1} << 48) - 1;
  template <u32 I> NTT_INLINE V unpack(const u64* group) {
    if constexpr (I < 3) {
      return _mm512_and_si512(load(group + 8 * I), set(LOW_48));
    } else {
      const V a = _mm512_srli_epi64(load(group), 48), b = _mm512_srli_epi64(load(group + 8), 32);
      return choose<0xffff>(a, choose<0xffffffff>(b, _mm512_srli_epi64(load(group + 16), 16)));
    }
  }
  // Line I < 3 from its own vector and vector 3, whatever stands above their lower 48 bits.
  template <u32 I> NTT_INLINE V line(V own, V last) {
    return choose<LOW_48>(own, _mm512_slli_epi64(last, 48 - 16 * I));
  }
  // The bits of MASK from a, the others from b.
  template <u64 MASK_A> NTT_INLINE V choose(V a, V b) {
    return _mm512_ternarylogic_epi64(set(MASK_A), a, b, 0xca);
  }
  // n points from [0, 16), n a multiple of 32.
  NTT_INLINE void pack_points(u64* to, const u64* from, u64 n, const K& constants) {
    const K k = constants;
    for (u64 i = 0; i < n; i += 32, from += 32, to += 24) {
      const V last = reduce(load(from + 24), k);
      store(to, line<0>(reduce(load(from), k), last));
      store(to + 8, line<1>(reduce(load(from + 8), k), last));
      store(to + 16, line<2>(reduce(load(from + 16), k), last));
    }
  }

  // Node s: (x0, x1) -> (x0 + s x1, x0 - s x1). Returns [2, 7.1).
  NTT_INLINE void forward2(V& x0, V& x1, const Tw& s, const K& k) {
    const V a = add(red(x0, k), k.p4), b = mul(x1, s, k);
    x0 = add(a, b);
    x1 = sub(a, b);
  }
  // The last step, before products. Returns [0, 3.1).
  NTT_INLINE void forward2_last(V& x0, V& x1, const Tw& s, const K& k) {
    const V a = red(x0, k), b = mul(x1, s, k);
    x0 = add(a, b);
    x1 = sub(add(a, k.p2), b);
  }
  // Nodes s2 = s^2, then s and i s. From [2, 12): a in [6, 7.1), b, c in [0, 2); a + b < 9.1, a - b >= 4,
  // x1 + c < 14, x1 - c >= 0. Returns [2, 11.1).
  NTT_INLINE void forward4(V& x0, V& x1, V& x2, V& x3, const Tw& s2, const Tw& s, const Tw& is, const K& k) {
    forward4_from(add(red(x0, k), k.p6), x1, x0, x1, x2, x3, s2, s, is, k);
  }
  // The same from packed points, in [0, 1), which need no reduction: a in [6, 7), and x1 is raised by 2.
  NTT_INLINE void forward4_unpacked(V& x0, V& x1, V& x2, V& x3, const Tw& s2, const Tw& s, const Tw& is,
                                    const K& k) {
    forward4_from(add(x0, k.p6), add(x1, k.p2), x0, x1, x2, x3, s2, s, is, k);
  }
  NTT_INLINE void forward4_from(V a, V a1, V& x0, V& x1, V& x2, V& x3, const Tw& s2, const Tw& s,
                                const Tw& is, const K& k) {
    const V b = mul(x2, s2, k), c = mul(x3, s2, k);
    const V y0 = add(a, b), y2 = sub(a, b);
    const V t = mul(add(a1, c), s, k), u = mul(sub(a1, c), is, k);
    x0 = add(y0, t);
    x1 = sub(y0, t);
    x2 = add(y2, u);
    x3 = sub(y2, u);
  }
  // The same to reduced values. As these may come from all of [0, 16), x0 need not be reduced before: y0 in
  // [2, 14), y2 in [2, 14).
  NTT_INLINE void forward4_reduced(V& x0, V& x1, V& x2, V& x3, const Tw& s2, const Tw& s, const Tw& is,
                                   const K& k) {
    const V b = mul(x2, s2, k), c = mul(x3, s2, k);
    const V y0 = add(x0, b), y2 = sub(add(x0, k.p2), b);
    const V t = mul(add(x1, c), s, k), u = mul(sub(x1, c), is, k);
    x0 = reduce(add(y0, t), k);
    x1 = reduce(sub(y0, t), k);
    x2 = reduce(add(y2, u), k);
    x3 = reduce(sub(y2, u), k);
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
    x1 = mul(sub(add(x0, k.p4), x1), s, k);
    x0 = t;
  }
  // The first step, after products, from [0, 8). Returns [0, 2.2).
  NTT_INLINE void inverse2_first(V& x0, V& x1, const Tw& s, const K& k) {
    const V t = red(add(x0, x1), k);
    x1 = mul(sub(add(x0, k.p8), x1), s, k);
    x0 = t;
  }
  // y0, y2 < 6; y1, y3 < 1.5, from differences below 7: 1 + 1.14 * 7 / 16; y0 + y2 < 12, y0 - y2 + 8 < 14.
  // y1 + y3 < 3 stays as it is; inverse4_settled reduces it to return [0, 2).
  NTT_INLINE void inverse4(V& x0, V& x1, V& x2, V& x3, const Tw& s2, const Tw& s, const Tw& is, const K& k) {
    const V y0 = add(x0, x1), y1 = mul(sub(add(x0, k.p4), x1), s, k);
    const V y2 = add(x2, x3), y3 = mul(sub(add(x2, k.p4), x3), is, k);
    x0 = red(add(y0, y2), k);
    x2 = mul(sub(add(y0, k.p8), y2), s2, k);
    x1 = add(y1, y3);
    x3 = mul(sub(add(y1, k.p2), y3), s2, k);
  }
  NTT_INLINE void inverse4_settled(V& x0, V& x1, V& x2, V& x3, const Tw& s2, const Tw& s, const Tw& is,
                                   const K& k) {
    inverse4(x0, x1, x2, x3, s2, s, is, k);
    x1 = red(x1, k);
  }
  // The same to reduced values.
  NTT_INLINE void inverse4_reduced(V& x0, V& x1, V& x2, V& x3, const Tw& s2, const Tw& s, const Tw& is,
                                   const K& k) {
    const V y0 = add(x0, x1), y1 = mul(sub(add(x0, k.p4), x1), s, k);
    const V y2 = add(x2, x3), y3 = mul(sub(add(x2, k.p4), x3), is, k);
    x0 = reduce(add(y0, y2), k);
    x2 = reduce_once(mul(sub(add(y0, k.p8), y2), s2, k), k);
    x1 = reduce(add(y1, y3), k);
    x3 = reduce_once(mul(sub(add(y1, k.p2), y3), s2, k), k);
  }
  // At the root (s = 1), which nothing but the recombination follows: from [0, 2) to [0, 8).
  NTT_INLINE void inverse4_root(V& x0, V& x1, V& x2, V& x3, const Tw& i, const K& k) {
    const V y0 = add(x0, x1), y1 = sub(add(x0, k.p2), x1);
    const V y2 = add(x2, x3), y3 = mul(sub(add(x2, k.p2), x3), i, k);
    x0 = add(y0, y2);
    x1 = add(y1, y3);
    x2 = sub(add(y0, k.p4), y2);
    x3 = sub(add(y1, k.p2), y3);
  }
  // From [0, 3): b + c < 6, everything < 9. Returns [0, 1.1).
  NTT_INLINE void inverse3(V& x0, V& x1, V& x2, const Tw& minus_half, const Tw& third, const K& k) {
    const V a = x0, b = x1, c = x2;
    const V m = add(a, mul(add(b, c), minus_half, k)), n = mul(sub(add(b, k.p4), c), third, k);
    x0 = red(add(a, add(b, c)), k);
    x1 = red(add(m, n), k);
    x2 = red(sub(add(m, k.p2), n), k);
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

  // f g as a factor. With y = f g in [0, 1) p, 2^52 y / p = 16 y + y d, d = 16 (2^48 - p) / p < 0.1. With
  // v = floor(2^55 d), floor(y v / 2^55) is less than (1 + 1/16) / 8 + 1 below y d: q falls short of
  // 2^52 y / p by less than 1.14, not 1.
  struct Scale {
    Tw by;
    V v;
  };
  NTT_INLINE V reciprocal(u64 p) {
    return set(static_cast<u64>((static_cast<u128>((u64{1} << 48) - p) << 59) / p));
  }
  NTT_INLINE Tw scale(V f, const Scale& by, const K& k) {
    const V y = reduce_once(mul(f, by.by, k), k);
    return {y, add(_mm512_slli_epi64(y, 4), _mm512_srli_epi64(high(zero(), y, by.v), 3))};
  }
  NTT_INLINE void store(u64* a, u64 quotients, const Tw& f) {
    store(a, f.w);
    store(a + quotients, f.q);
  }

  // Products of polynomials. Lane l of vector t is coefficient t of polynomial l, modulo z^8 - c_l; a block
  // has eight of them, two for each factor s of the last step: c = s and c = -s. For p - s, 2^52 - 2 less the
  // quotient of s is at most 2 short and not too large.
  NTT_INLINE Tw moduli(const u64* s, u64 quotients, const K& k) {
    const V twice = _mm512_setr_epi64(0, 0, 1, 1, 2, 2, 3, 3);
    const auto pairs = [&](const u64* from) {
      return _mm512_permutexvar_epi64(
          twice, _mm512_castsi256_si512(_mm256_load_si256(reinterpret_cast<const __m256i*>(from))));
    };
    const V w = pairs(s), q = pairs(s + quotients);
    return {_mm512_mask_sub_epi64(w, 0xaa, k.p, w), _mm512_mask_sub_epi64(q, 0xaa, set(MASK - 1), q)};
  }
  // z <- x y / 2^52, Montgomery's reduction once per coefficient. From x, y in [0, 3.1): of a term's product
  // the high half is below 3.1 * 3.1 / 16 = 0.601, with c y in [0, 2) below 0.39; eight of them < 4.81. The
  // low halves add up to less than 2^55: what they carry is below 8. With m = low / p modulo 2^52 the low
  // halves of the sum and of m p are equal; their high halves' difference lies above -1. Returns (0, 5.9).
  // v[t] <- coefficient t of eight polynomials.
  template <bool PACKED> NTT_INLINE void coefficients(V* v, const u64* x) {
    if constexpr (PACKED) {
      for (u32 half = 0; half < 2; half++, v += 4, x += 24) {
        v[0] = unpack<0>(x);
        v[1] = unpack<1>(x);
        v[2] = unpack<2>(x);
        v[3] = unpack<3>(x);
      }
    } else {
      for (u32 t = 0; t < 8; t++) v[t] = load(x + 8 * t);
    }
  }
  template <bool PACKED_X, bool PACKED_Y>
  NTT_INLINE void multiply_polynomials(V* z, const u64* x, const u64* y, const Tw& c, const K& k) {
    V by[15], low_sum[8], high_sum[8]; // c y_1 .. c y_7, y_0 .. y_7
    alignas(64) u64 unpacked[64];
    if constexpr (PACKED_X) {
      V v[8];
      coefficients<true>(v, x);
      for (u32 t = 0; t < 8; t++) store(unpacked + 8 * t, v[t]);
      x = unpacked;
    }
    coefficients<PACKED_Y>(by + 7, y);
    for (u32 t = 1; t < 8; t++) by[t - 1] = mul(by[7 + t], c, k);
    for (u32 t = 0; t < 8; t++) {
      low_sum[t] = zero();
      high_sum[t] = k.p;
    }
#pragma GCC unroll 8
    for (u32 i = 0; i < 8; i++) {
      const V a = load(x + 8 * i);
#pragma GCC unroll 8
      for (u32 t = 0; t < 8; t++) {
        low_sum[t] = low(low_sum[t], a, by[7 + t - i]);
        high_sum[t] = high(high_sum[t], a, by[7 + t - i]);
      }
    }
    for (u32 t = 0; t < 8; t++) z[t] = montgomery(low_sum[t], high_sum[t], k);
  }
  // z <- x^2 / 2^52: terms with i < j once, with 2 x_i < 6.2.
  template <bool PACKED> NTT_INLINE void square_polynomials(V* z, const u64* x, const Tw& c, const K& k) {
    V by[8], twice[8], wrapped[8], low_sum[8], high_sum[8];
    coefficients<PACKED>(by, x);
    for (u32 t = 0; t < 8; t++) {
      twice[t] = add(by[t], by[t]);
      wrapped[t] = t < 4 ? by[t] : mul(by[t], c, k);
      low_sum[t] = zero();
      high_sum[t] = k.p;
    }
#pragma GCC unroll 8
    for (u32 i = 0; i < 8; i++) {
#pragma GCC unroll 8
      for (u32 j = i; j < 8; j++) {
        const V a = i == j ? by[i] : twice[i], b = i + j < 8 ? by[j] : wrapped[j];
        const u32 t = (i + j) % 8;
        low_sum[t] = low(low_sum[t], a, b);
        high_sum[t] = high(high_sum[t], a, b);
      }
    }
    for (u32 t = 0; t < 8; t++) z[t] = montgomery(low_sum[t], high_sum[t], k);
  }
  // high starts with p.
  NTT_INLINE V montgomery(V low_sum, V high_sum, const K& k) {
    const V m = low(zero(), low_sum, k.montgomery);
    return sub(add(high_sum, _mm512_srli_epi64(low_sum, 52)), high(zero(), m, k.p));
  }
  // Sums of up to MAX_SUM terms: each in [0, 2], below 8 together.
  NTT_INLINE V first_term(V x, bool subtract, const K& k) {
    return subtract ? sub(k.p2, red(x, k)) : red(x, k);
  }
  NTT_INLINE V accumulate(V sum, V x, bool subtract, const K& k) {
    return add(sum, first_term(x, subtract, k));
  }
  // One product with its sign: [0, 6).
  NTT_INLINE V negative(V x, const K& k) {
    return sub(k.p6, x);
  }

  // The digits' limbs of 52 bits, all but the last masked; residue in [2, 2 + 4 * 2).
  //
  // Eight digits fill b bytes, so a group's limbs lie at fixed places behind a whole byte. Limb j of the
  // eight is brought together from windows of 64 bytes, each from the first byte that the one before does not
  // hold: two of them, or three for the longest digits. Eight bytes hold a limb and the bits before it.
  using Limb = V;
  struct DigitReader {
    static constexpr u64 BEYOND = 8; // words behind the digits that may be read
    u32 b, limbs;
    u32 window[MAX_LIMBS][3]; // bytes
    __mmask64 third[MAX_LIMBS];
    V bytes[MAX_LIMBS], shift[MAX_LIMBS], last;
    explicit DigitReader(u32 bits) : b(bits), limbs((bits + 51) / 52) {
      last = set((u64{1} << (bits - 52 * (limbs - 1))) - 1);
      for (u32 j = 0; j < limbs; j++) {
        alignas(64) u8 from[64];
        alignas(64) u64 by[8];
        u32 windows = 0;
        third[j] = 0;
        for (u32 lane = 0; lane < 8; lane++) {
          const u32 bit = lane * b + 52 * j, byte = bit / 8;
          if (windows == 0 || byte + 8 > window[j][windows - 1] + 64) window[j][windows++] = byte;
          if (windows == 3) third[j] |= u64{0xff} << (8 * lane);
          const u32 at = byte - window[j][windows - 1] + (windows == 2 ? 64 : 0);
          for (u32 i = 0; i < 8; i++) from[8 * lane + i] = static_cast<u8>(at + i);
          by[lane] = bit % 8;
        }
        if (windows < 2) window[j][1] = window[j][0];
        bytes[j] = _mm512_load_si512(from);
        shift[j] = load(by);
      }
    }
    // Limb j of the eight digits from bit `bit` of `base` on, a multiple of 8.
    [[gnu::always_inline]] Limb read(const u64* base, u64 bit, u32 j) const {
      const u8* const from = reinterpret_cast<const u8*>(base) + bit / 8;
      V v = _mm512_permutex2var_epi8(_mm512_loadu_si512(from + window[j][0]), bytes[j],
                                     _mm512_loadu_si512(from + window[j][1]));
      if (third[j] != 0)
        v = _mm512_mask_permutexvar_epi8(v, third[j], bytes[j], _mm512_loadu_si512(from + window[j][2]));
      return _mm512_and_si512(_mm512_srlv_epi64(v, shift[j]), j + 1 == limbs ? last : set(MASK));
    }
  };
  template <u32 N> NTT_INLINE V digit(const Limb (&l)[N], const Tw* f, const K& k) {
    V sum = k.p2, q = zero();
    for (u32 j = 0; j < N; j++) {
      q = high(q, l[j], f[j].q);
      sum = low(sum, l[j], f[j].w);
    }
    return low(sum, q, k.minus_p);
  }
  NTT_INLINE V zero_digit(const K& k) {
    return k.p2;
  }
  NTT_INLINE void fence() {
    _mm_sfence();
  }
};

} // namespace
} // namespace kelvane::ntt
