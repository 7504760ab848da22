// Butterflies on vectors of complex numbers. Part of the kernel sources fft_kernels_*.cpp (internal linkage).
//
// Forward, node J with s = s_J: (a, b) -> (a + s b, a - s b); inverse, without the factor 1/2:
// (a, b) -> (a + b, conj(s) (a - b)). With fused multiply-add the second output is 2 a - (a + s b): six
// operations instead of ten.
#pragma once

#include "multiply/simd/always_inline.h"
#include "shell/types.h"

namespace kelvane::km_FFTv2 {
namespace {

template <class V> struct Cx {
  V r, i;

  KELVANE_INLINE static Cx load(const double* p) { return {V::load(p), V::load(p + V::LANES)}; }
  KELVANE_INLINE static Cx broadcast(const double* p) { return {V::set1(p[0]), V::set1(p[1])}; }
  KELVANE_INLINE void store(double* p) const {
    r.store(p);
    i.store(p + V::LANES);
  }

  KELVANE_INLINE friend Cx operator+(Cx a, Cx b) { return {a.r + b.r, a.i + b.i}; }
  KELVANE_INLINE friend Cx operator-(Cx a, Cx b) { return {a.r - b.r, a.i - b.i}; }
};

template <class V> KELVANE_INLINE Cx<V> mul(Cx<V> a, Cx<V> w) {
  return {fnmadd(a.i, w.i, a.r * w.r), fmadd(a.i, w.r, a.r * w.i)};
}
template <class V> KELVANE_INLINE Cx<V> mul_conj(Cx<V> a, Cx<V> w) { // a conj(w)
  return {fmadd(a.i, w.i, a.r * w.r), fmsub(a.i, w.r, a.r * w.i)};
}
template <class V> KELVANE_INLINE Cx<V> times_i(Cx<V> a) {
  return {V::zero() - a.i, a.r};
}
// a e(1/8)
template <class V> KELVANE_INLINE Cx<V> rotate_eighth(Cx<V> a) {
  const V h = V::set1(0.70710678118654752440);
  return {(a.r - a.i) * h, (a.r + a.i) * h};
}

template <class V> KELVANE_INLINE void butterfly(Cx<V>& a, Cx<V>& b, Cx<V> s) {
  if constexpr (V::FUSED) {
    const V two = V::set1(2.0);
    const V r = fnmadd(b.i, s.i, fmadd(b.r, s.r, a.r)), i = fmadd(b.i, s.r, fmadd(b.r, s.i, a.i));
    b = {fmsub(two, a.r, r), fmsub(two, a.i, i)};
    a = {r, i};
  } else {
    const Cx<V> t = mul(b, s);
    b = a - t;
    a = a + t;
  }
}
// The same with i s in place of s.
template <class V> KELVANE_INLINE void butterfly_i(Cx<V>& a, Cx<V>& b, Cx<V> s) {
  if constexpr (V::FUSED) {
    const V two = V::set1(2.0);
    const V r = fnmadd(b.i, s.r, fnmadd(b.r, s.i, a.r)), i = fnmadd(b.i, s.i, fmadd(b.r, s.r, a.i));
    b = {fmsub(two, a.r, r), fmsub(two, a.i, i)};
    a = {r, i};
  } else {
    const Cx<V> t = mul(b, s);
    b = {a.r + t.i, a.i - t.r};
    a = {a.r - t.i, a.i + t.r};
  }
}

template <class V> KELVANE_INLINE void inverse_butterfly(Cx<V>& a, Cx<V>& b, Cx<V> s) {
  const Cx<V> d = a - b;
  a = a + b;
  b = mul_conj(d, s);
}
template <class V> KELVANE_INLINE void inverse_butterfly_i(Cx<V>& a, Cx<V>& b, Cx<V> s) {
  const Cx<V> d = {a.i - b.i, b.r - a.r}; // -i (a - b)
  a = a + b;
  b = mul_conj(d, s);
}

// The roots of a radix-2^LOG step below node N: w[0] = s_N, w[1] = s_2N, w[2] = s_4N, and w[3] = s_(4N+2) =
// e(1/8) s_4N. The odd nodes have i times the root of their even sibling.
template <class V> struct StepRoots { Cx<V> w[4]; };

template <class V> KELVANE_INLINE void radix4(Cx<V>& x0, Cx<V>& x1, Cx<V>& x2, Cx<V>& x3, Cx<V> s, Cx<V> t) {
  butterfly(x0, x2, s);
  butterfly(x1, x3, s);
  butterfly(x0, x1, t);
  butterfly_i(x2, x3, t);
}

// The inverse takes the twiddles of two levels together, three products instead of four; u = s t.
template <class V>
KELVANE_INLINE void inverse_radix4(Cx<V>& x0, Cx<V>& x1, Cx<V>& x2, Cx<V>& x3, Cx<V> s, Cx<V> t, Cx<V> u) {
  const Cx<V> a = x0 + x1, p = x0 - x1, c = x2 + x3;
  const Cx<V> q = {x2.i - x3.i, x3.r - x2.r}; // -i (x2 - x3)
  x0 = a + c;
  x2 = mul_conj(a - c, s);
  x1 = mul_conj(p + q, t);
  x3 = mul_conj(p - q, u);
}

// Radix 2^LOG in place without its first SKIP levels: x[k] is the coefficient block k of node N, then node
// 2^LOG N + k.
template <u32 LOG, u32 SKIP = 0, class V> KELVANE_INLINE void radix(Cx<V>* x, const StepRoots<V>& roots) {
  const Cx<V>* const w = roots.w;
  if constexpr (LOG == 1) {
    if constexpr (SKIP == 0) butterfly(x[0], x[1], w[0]);
  } else if constexpr (LOG == 2) {
    if constexpr (SKIP == 0) radix4(x[0], x[1], x[2], x[3], w[0], w[1]);
    if constexpr (SKIP == 1) {
      butterfly(x[0], x[1], w[1]);
      butterfly_i(x[2], x[3], w[1]);
    }
  } else {
    if constexpr (SKIP == 0) {
      radix4(x[0], x[2], x[4], x[6], w[0], w[1]);
      radix4(x[1], x[3], x[5], x[7], w[0], w[1]);
    }
    if constexpr (SKIP == 1) {
      for (u32 i = 0; i < 2; i++) {
        butterfly(x[i], x[i + 2], w[1]);
        butterfly_i(x[i + 4], x[i + 6], w[1]);
      }
    }
    butterfly(x[0], x[1], w[2]);
    butterfly_i(x[2], x[3], w[2]);
    butterfly(x[4], x[5], w[3]);
    butterfly_i(x[6], x[7], w[3]);
  }
}

template <u32 LOG, u32 SKIP = 0, class V>
KELVANE_INLINE void inverse_radix(Cx<V>* x, const StepRoots<V>& roots) {
  const Cx<V>* const w = roots.w;
  if constexpr (LOG == 1) {
    if constexpr (SKIP == 0) inverse_butterfly(x[0], x[1], w[0]);
  } else if constexpr (LOG == 2) {
    if constexpr (SKIP == 0) inverse_radix4(x[0], x[1], x[2], x[3], w[0], w[1], mul(w[0], w[1]));
    if constexpr (SKIP == 1) {
      inverse_butterfly(x[0], x[1], w[1]);
      inverse_butterfly_i(x[2], x[3], w[1]);
    }
  } else {
    inverse_butterfly(x[0], x[1], w[2]);
    inverse_butterfly_i(x[2], x[3], w[2]);
    inverse_butterfly(x[4], x[5], w[3]);
    inverse_butterfly_i(x[6], x[7], w[3]);
    if constexpr (SKIP == 0) {
      const Cx<V> u = mul(w[0], w[1]);
      inverse_radix4(x[0], x[2], x[4], x[6], w[0], w[1], u);
      inverse_radix4(x[1], x[3], x[5], x[7], w[0], w[1], u);
    }
    if constexpr (SKIP == 1) {
      for (u32 i = 0; i < 2; i++) {
        inverse_butterfly(x[i], x[i + 2], w[1]);
        inverse_butterfly_i(x[i + 4], x[i + 6], w[1]);
      }
    }
  }
}

// Radix 3 at a leaf x^3 - w^3: f(w e(u/3)), u = 0, 1, 2, from coefficients already multiplied by 1, w, w^2;
// e(1/3) = -1/2 + i sqrt(3)/2. SIGN -1 gives the conjugate roots.
template <int SIGN, class V> KELVANE_INLINE void leaf3(Cx<V>& a, Cx<V>& b, Cx<V>& c) {
  const V half = V::set1(0.5), sine = V::set1(SIGN * 0.86602540378443864676);
  const Cx<V> t = b + c, d = b - c;
  const Cx<V> m = {fnmadd(half, t.r, a.r), fnmadd(half, t.i, a.i)};
  a = a + t;
  b = {fnmadd(sine, d.i, m.r), fmadd(sine, d.r, m.i)};
  c = {fmadd(sine, d.i, m.r), fnmadd(sine, d.r, m.i)};
}

// Radix 5 likewise: with c1, c2 = cos(2 pi/5), cos(4 pi/5) and s1, s2 their sines,
//   f(u = 1, 4) = a + c1 (b+e) + c2 (c+d) +- i (s1 (b-e) + s2 (c-d))
//   f(u = 2, 3) = a + c2 (b+e) + c1 (c+d) +- i (s2 (b-e) - s1 (c-d))
template <int SIGN, class V> KELVANE_INLINE void leaf5(Cx<V>& a, Cx<V>& b, Cx<V>& c, Cx<V>& d, Cx<V>& e) {
  const V c1 = V::set1(0.30901699437494742410), c2 = V::set1(-0.80901699437494742410);
  const V s1 = V::set1(SIGN * 0.95105651629515357212), s2 = V::set1(SIGN * 0.58778525229247312917);
  const Cx<V> p = b + e, q = c + d, m = b - e, k = c - d;
  const Cx<V> x = {fmadd(c2, q.r, fmadd(c1, p.r, a.r)), fmadd(c2, q.i, fmadd(c1, p.i, a.i))};
  const Cx<V> y = {fmadd(c1, q.r, fmadd(c2, p.r, a.r)), fmadd(c1, q.i, fmadd(c2, p.i, a.i))};
  const Cx<V> v = {fmadd(s2, k.r, s1 * m.r), fmadd(s2, k.i, s1 * m.i)};
  const Cx<V> z = {fmsub(s2, m.r, s1 * k.r), fmsub(s2, m.i, s1 * k.i)};
  a = a + p + q;
  b = {x.r - v.i, x.i + v.r};
  e = {x.r + v.i, x.i - v.r};
  c = {y.r - z.i, y.i + z.r};
  d = {y.r + z.i, y.i - z.r};
}

} // namespace
} // namespace kelvane::km_FFTv2
