// Residues one by one in 64-bit integers, for processors without wide fused arithmetic.
//
// p < 2^62, values in [0, 4 p). mul(x, f) with f = (w, floor(2^64 w / p)) takes any x and returns [0, 2) (in
// units of p): the two floors cost less than 1 each. Forward values lie in [0, 4), inverse values in [0, 2).
#pragma once

#include "multiply/ntt/twiddles.h"
#include "shell/types.h"

#define NTT_INLINE [[gnu::always_inline]] static inline

namespace kelvane::ntt {
namespace {

struct Integer {
  using V = u64;
  static constexpr Backend BACKEND = Backend::integer1;
  static constexpr u32 LANES = 1;
  static constexpr bool PACKS = false, SETTLES = false;

  struct Tw {
    u64 w, q;
  };
  struct K {
    u64 p, p2;
    u64 montgomery; // 1 / p modulo 2^64
    explicit K(u64 prime) : p(prime), p2(2 * prime), montgomery(prime) {
      for (int i = 0; i < 5; i++) montgomery *= 2 - prime * montgomery;
    }
  };

  NTT_INLINE V load(const u64* a) { return *a; }
  NTT_INLINE void store(u64* a, V v) { *a = v; }
  NTT_INLINE void stream(u64* a, V v) { *a = v; }
  NTT_INLINE void fence() {}
  NTT_INLINE Tw broadcast(const u64* w, u64 quotients) { return {w[0], w[quotients]}; }
  NTT_INLINE Tw broadcast(const Factor& f) { return {f.value, f.quotient}; }

  NTT_INLINE u64 high(u64 a, u64 b) { return static_cast<u64>(static_cast<u128>(a) * b >> 64); }
  NTT_INLINE V mul(V x, const Tw& f, const K& k) { return x * f.w - high(x, f.q) * k.p; }
  // [0, 4) -> [0, 2)
  NTT_INLINE V red(V x, const K& k) { return x >= k.p2 ? x - k.p2 : x; }

  NTT_INLINE void forward2(V& x0, V& x1, const Tw& s, const K& k) {
    const V a = red(x0, k), b = mul(x1, s, k);
    x0 = a + b;
    x1 = a + k.p2 - b;
  }
  NTT_INLINE void forward4(V& x0, V& x1, V& x2, V& x3, const Tw& s2, const Tw& s, const Tw& is, const K& k) {
    forward2(x0, x2, s2, k);
    forward2(x1, x3, s2, k);
    forward2(x0, x1, s, k);
    forward2(x2, x3, is, k);
  }
  NTT_INLINE void forward4_half(V& x0, V& x1, V& x2, V& x3, const Tw& i, const K& k) {
    const V a = red(x0, k), t = red(x1, k), u = mul(x1, i, k);
    x0 = a + t;
    x1 = a + k.p2 - t;
    x2 = a + u;
    x3 = a + k.p2 - u;
  }
  // Like the other backends': see Ifma::forward3.
  NTT_INLINE void forward3(V& x0, V& x1, V& x2, const Tw& minus_half, const Tw& third, const K& k) {
    const V a = red(x0, k), b = red(x1, k), c = red(x2, k);
    const V m = red(a + mul(b + c, minus_half, k), k), n = mul(b + k.p2 - c, third, k);
    x0 = a + red(b + c, k);
    x1 = m + n;
    x2 = m + k.p2 - n;
  }

  NTT_INLINE void inverse2(V& x0, V& x1, const Tw& s, const K& k) {
    const V t = red(x0 + x1, k);
    x1 = mul(x0 + k.p2 - x1, s, k);
    x0 = t;
  }
  NTT_INLINE void inverse4(V& x0, V& x1, V& x2, V& x3, const Tw& s2, const Tw& s, const Tw& is, const K& k) {
    inverse2(x0, x1, s, k);
    inverse2(x2, x3, is, k);
    inverse2(x0, x2, s2, k);
    inverse2(x1, x3, s2, k);
  }
  NTT_INLINE void inverse3(V& x0, V& x1, V& x2, const Tw& minus_half, const Tw& third, const K& k) {
    forward3(x0, x1, x2, minus_half, third, k);
    x0 = red(x0, k);
    x1 = red(x1, k);
    x2 = red(x2, k);
  }

  // y = f by as a factor with its exact quotient. v = floor(2^125 / p); floor(y v / 2^64) is less than 2
  // short of 2^61 y / p, and the remainder 2^61 y - q p below 3 p < 2^64 is known modulo 2^64, so exactly.
  // The last three bits of the quotient come by long division.
  struct Scale {
    Tw by;
    V v;
  };
  NTT_INLINE V reciprocal(u64 p) { return static_cast<u64>((static_cast<u128>(1) << 125) / p); }
  NTT_INLINE Tw scale(V f, const Scale& by, const K& k) {
    V y = mul(f, by.by, k);
    if (y >= k.p) y -= k.p;
    u64 q = high(y, by.v);       // 2^61 y / p, less than 2 short
    u64 r = (y << 61) - q * k.p; // in [0, 3) p
    for (int i = 0; i < 2; i++) {
      const bool more = r >= k.p;
      r -= more ? k.p : 0;
      q += more;
    }
    for (int i = 0; i < 3; i++) {
      r += r;
      const bool more = r >= k.p;
      r -= more ? k.p : 0;
      q = 2 * q + more;
    }
    return {y, q};
  }
  NTT_INLINE void store(u64* a, u64 quotients, const Tw& f) {
    a[0] = f.w;
    a[quotients] = f.q;
  }

  // x y / 2^64 modulo p for x, y < 4: x is reduced to 2, so x y / 2^64 < 2 p (y < 2^64); minus a multiple,
  // plus p: in (0, 3), brought to [0, 2).
  NTT_INLINE V product(V x, V y, const K& k) {
    const u128 t = static_cast<u128>(red(x, k)) * y;
    const u64 m = static_cast<u64>(t) * k.montgomery;
    return red(static_cast<u64>(t >> 64) + k.p - high(m, k.p), k);
  }
  NTT_INLINE V accumulate(V sum, V x, bool subtract, const K& k) {
    return red(subtract ? sum + k.p2 - x : sum + x, k);
  }
  NTT_INLINE V negative(V x, const K& k) { return red(k.p2 - x, k); }
  NTT_INLINE V settled(V sum, const K&) { return sum; }

  NTT_INLINE V biased(V x, const Tw& bias) { return x + bias.w; } // < 3
  NTT_INLINE V first_digit(V x, const K& k) { return next_digit(red(x, k), k); }
  NTT_INLINE V next_digit(V x, const K& k) { return x >= k.p ? x - k.p : x; }
  // x < 3 is brought below 2, d < p_i < 2 p: the argument of mul is below 4 p.
  NTT_INLINE V garner(V x, V d, const Tw& f, const K& k) { return mul(red(x, k) + k.p2 - d, f, k); }
  NTT_INLINE void store_integer(u64* a, V x) { *a = x; }

  using Limb = u64;
  struct DigitReader {
    static constexpr u64 BEYOND = 1; // words behind the digits that may be read
    u32 b, limbs;
    u64 last;
    explicit DigitReader(u32 bits) : b(bits), limbs((bits + 63) / 64), last(~u64{0} >> (64 * limbs - bits)) {}
    [[gnu::always_inline]] Limb read(const u64* base, u64 bit, u32 j) const {
      const u64* const a = base + (bit >> 6) + j;
      const u32 shift = bit & 63;
      const u64 x = a[0] >> shift | a[1] << 1 << (63 - shift);
      return j + 1 == limbs ? x & last : x;
    }
  };
  // A limb is any 64-bit number.
  template <u32 N> NTT_INLINE V digit(const Limb (&l)[N], const Tw* f, const K& k) {
    V sum = mul(l[0], f[0], k);
    for (u32 j = 1; j < N; j++) sum = red(sum + mul(l[j], f[j], k), k);
    return sum;
  }
  NTT_INLINE V zero_digit(const K&) { return 0; }
};

} // namespace
} // namespace kelvane::ntt
