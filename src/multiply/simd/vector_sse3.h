// Two doubles, SSE3: the baseline. Included by *_sse3.cpp only; internal linkage, like every vector type, so
// that no copy compiled for one instruction set can serve another.
#pragma once

#include <emmintrin.h>
#include <pmmintrin.h>

#include "shell/types.h"

namespace kelvane::simd {
namespace {

struct Vec2 {
  static constexpr u32 LANES = 2, LOG_LANES = 1;
  static constexpr bool FUSED = false; // no fused multiply-add

  __m128d v;

  static Vec2 load(const double* p) { return {_mm_load_pd(p)}; }
  static Vec2 set1(double x) { return {_mm_set1_pd(x)}; }
  static Vec2 zero() { return {_mm_setzero_pd()}; }
  void store(double* p) const { _mm_store_pd(p, v); }
  void stream(double* p) const { _mm_stream_pd(p, v); }

  friend Vec2 operator+(Vec2 a, Vec2 b) { return {_mm_add_pd(a.v, b.v)}; }
  friend Vec2 operator-(Vec2 a, Vec2 b) { return {_mm_sub_pd(a.v, b.v)}; }
  friend Vec2 operator*(Vec2 a, Vec2 b) { return {_mm_mul_pd(a.v, b.v)}; }
};

inline Vec2 fmadd(Vec2 a, Vec2 b, Vec2 c) {
  return a * b + c;
} // a b + c
inline Vec2 fmsub(Vec2 a, Vec2 b, Vec2 c) {
  return a * b - c;
} // a b - c
inline Vec2 fnmadd(Vec2 a, Vec2 b, Vec2 c) {
  return c - a * b;
} // c - a b

inline void transpose(Vec2 (&x)[2]) {
  const __m128d a = x[0].v, b = x[1].v;
  x[0].v = _mm_unpacklo_pd(a, b);
  x[1].v = _mm_unpackhi_pd(a, b);
}

// Two 64-bit integers.
struct Int2 {
  static constexpr u32 LANES = 2;
  __m128i v;

  static Int2 load(const void* p) { return {_mm_load_si128(static_cast<const __m128i*>(p))}; }
  static Int2 set1(u64 x) { return {_mm_set1_epi64x(static_cast<long long>(x))}; }
  void store(void* p) const { _mm_store_si128(static_cast<__m128i*>(p), v); }

  friend Int2 operator+(Int2 a, Int2 b) { return {_mm_add_epi64(a.v, b.v)}; }
  friend Int2 operator-(Int2 a, Int2 b) { return {_mm_sub_epi64(a.v, b.v)}; }
  friend Int2 operator&(Int2 a, Int2 b) { return {_mm_and_si128(a.v, b.v)}; }
  friend Int2 operator|(Int2 a, Int2 b) { return {_mm_or_si128(a.v, b.v)}; }
  // Logical shifts; a count of 64 or more gives zero.
  friend Int2 operator<<(Int2 a, u32 s) {
    return {_mm_sll_epi64(a.v, _mm_cvtsi32_si128(static_cast<int>(s)))};
  }
  friend Int2 operator>>(Int2 a, u32 s) {
    return {_mm_srl_epi64(a.v, _mm_cvtsi32_si128(static_cast<int>(s)))};
  }
};

} // namespace
} // namespace kelvane::simd
