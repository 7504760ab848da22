// Two doubles, SSE3: the baseline. Included by *_sse3.cpp only; internal linkage, like every vector type, so
// that no copy compiled for one instruction set can serve another.
#pragma once

#include <emmintrin.h>
#include <pmmintrin.h>

#include "multiply/simd/always_inline.h"
#include "shell/types.h"

namespace kelvane::simd {
namespace {

struct Vec2 {
  static constexpr u32 LANES = 2, LOG_LANES = 1;
  static constexpr bool FUSED = false; // no fused multiply-add

  __m128d v;

  KELVANE_INLINE static Vec2 load(const double* p) { return {_mm_load_pd(p)}; }
  KELVANE_INLINE static Vec2 set1(double x) { return {_mm_set1_pd(x)}; }
  KELVANE_INLINE static Vec2 zero() { return {_mm_setzero_pd()}; }
  KELVANE_INLINE void store(double* p) const { _mm_store_pd(p, v); }
  KELVANE_INLINE void stream(double* p) const { _mm_stream_pd(p, v); }

  KELVANE_INLINE friend Vec2 operator+(Vec2 a, Vec2 b) { return {_mm_add_pd(a.v, b.v)}; }
  KELVANE_INLINE friend Vec2 operator-(Vec2 a, Vec2 b) { return {_mm_sub_pd(a.v, b.v)}; }
  KELVANE_INLINE friend Vec2 operator*(Vec2 a, Vec2 b) { return {_mm_mul_pd(a.v, b.v)}; }
};

KELVANE_INLINE Vec2 fmadd(Vec2 a, Vec2 b, Vec2 c) {
  return a * b + c;
} // a b + c
KELVANE_INLINE Vec2 fmsub(Vec2 a, Vec2 b, Vec2 c) {
  return a * b - c;
} // a b - c
KELVANE_INLINE Vec2 fnmadd(Vec2 a, Vec2 b, Vec2 c) {
  return c - a * b;
} // c - a b

KELVANE_INLINE void transpose(Vec2 (&x)[2]) {
  const __m128d a = x[0].v, b = x[1].v;
  x[0].v = _mm_unpacklo_pd(a, b);
  x[1].v = _mm_unpackhi_pd(a, b);
}

// The even elements of both, and the odd ones: a0 b0, a1 b1.
KELVANE_INLINE Vec2 unpack_low(Vec2 a, Vec2 b) {
  return {_mm_unpacklo_pd(a.v, b.v)};
}
KELVANE_INLINE Vec2 unpack_high(Vec2 a, Vec2 b) {
  return {_mm_unpackhi_pd(a.v, b.v)};
}

// Two 64-bit integers.
struct Int2 {
  static constexpr u32 LANES = 2;
  __m128i v;

  KELVANE_INLINE static Int2 bits(Vec2 a) { return {_mm_castpd_si128(a.v)}; }
  KELVANE_INLINE static Int2 load(const void* p) { return {_mm_load_si128(static_cast<const __m128i*>(p))}; }
  KELVANE_INLINE static Int2 set1(u64 x) { return {_mm_set1_epi64x(static_cast<long long>(x))}; }
  KELVANE_INLINE void store(void* p) const { _mm_store_si128(static_cast<__m128i*>(p), v); }

  KELVANE_INLINE friend Int2 operator+(Int2 a, Int2 b) { return {_mm_add_epi64(a.v, b.v)}; }
  KELVANE_INLINE friend Int2 operator-(Int2 a, Int2 b) { return {_mm_sub_epi64(a.v, b.v)}; }
  KELVANE_INLINE friend Int2 operator&(Int2 a, Int2 b) { return {_mm_and_si128(a.v, b.v)}; }
  KELVANE_INLINE friend Int2 operator|(Int2 a, Int2 b) { return {_mm_or_si128(a.v, b.v)}; }
  // Logical shifts; a count of 64 or more gives zero.
  KELVANE_INLINE friend Int2 operator<<(Int2 a, u32 s) {
    return {_mm_sll_epi64(a.v, _mm_cvtsi32_si128(static_cast<int>(s)))};
  }
  KELVANE_INLINE friend Int2 operator>>(Int2 a, u32 s) {
    return {_mm_srl_epi64(a.v, _mm_cvtsi32_si128(static_cast<int>(s)))};
  }
};

// Transposes the square of pieces of 128 bits, which is one piece.
KELVANE_INLINE void transpose_pieces(Int2*) {}

} // namespace
} // namespace kelvane::simd
