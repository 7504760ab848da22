// Four doubles, AVX2 with fused multiply-add, and two doubles of the same instruction set for transforms too
// short for four. Included by *_avx2.cpp only; internal linkage (see vector_sse3.h).
#pragma once

#ifndef __AVX2__
#error "vector_avx2.h belongs to files compiled for AVX2"
#endif

#include <immintrin.h>

#include "shell/types.h"

namespace kelvane::simd {
namespace {

struct Vec4 {
  static constexpr u32 LANES = 4, LOG_LANES = 2;
  static constexpr bool FUSED = true;

  __m256d v;

  static Vec4 load(const double* p) { return {_mm256_load_pd(p)}; }
  static Vec4 set1(double x) { return {_mm256_set1_pd(x)}; }
  static Vec4 zero() { return {_mm256_setzero_pd()}; }
  void store(double* p) const { _mm256_store_pd(p, v); }
  void stream(double* p) const { _mm256_stream_pd(p, v); }

  friend Vec4 operator+(Vec4 a, Vec4 b) { return {_mm256_add_pd(a.v, b.v)}; }
  friend Vec4 operator-(Vec4 a, Vec4 b) { return {_mm256_sub_pd(a.v, b.v)}; }
  friend Vec4 operator*(Vec4 a, Vec4 b) { return {_mm256_mul_pd(a.v, b.v)}; }
};

inline Vec4 fmadd(Vec4 a, Vec4 b, Vec4 c) {
  return {_mm256_fmadd_pd(a.v, b.v, c.v)};
}
inline Vec4 fmsub(Vec4 a, Vec4 b, Vec4 c) {
  return {_mm256_fmsub_pd(a.v, b.v, c.v)};
}
inline Vec4 fnmadd(Vec4 a, Vec4 b, Vec4 c) {
  return {_mm256_fnmadd_pd(a.v, b.v, c.v)};
}

inline void transpose(Vec4 (&x)[4]) {
  const __m256d a = _mm256_unpacklo_pd(x[0].v, x[1].v), b = _mm256_unpackhi_pd(x[0].v, x[1].v);
  const __m256d c = _mm256_unpacklo_pd(x[2].v, x[3].v), d = _mm256_unpackhi_pd(x[2].v, x[3].v);
  x[0].v = _mm256_permute2f128_pd(a, c, 0x20);
  x[1].v = _mm256_permute2f128_pd(b, d, 0x20);
  x[2].v = _mm256_permute2f128_pd(a, c, 0x31);
  x[3].v = _mm256_permute2f128_pd(b, d, 0x31);
}

struct Int4 {
  static constexpr u32 LANES = 4;
  __m256i v;

  static Int4 load(const void* p) { return {_mm256_load_si256(static_cast<const __m256i*>(p))}; }
  static Int4 set1(u64 x) { return {_mm256_set1_epi64x(static_cast<long long>(x))}; }
  void store(void* p) const { _mm256_store_si256(static_cast<__m256i*>(p), v); }

  friend Int4 operator+(Int4 a, Int4 b) { return {_mm256_add_epi64(a.v, b.v)}; }
  friend Int4 operator-(Int4 a, Int4 b) { return {_mm256_sub_epi64(a.v, b.v)}; }
  friend Int4 operator&(Int4 a, Int4 b) { return {_mm256_and_si256(a.v, b.v)}; }
  friend Int4 operator|(Int4 a, Int4 b) { return {_mm256_or_si256(a.v, b.v)}; }
  friend Int4 operator<<(Int4 a, u32 s) {
    return {_mm256_sll_epi64(a.v, _mm_cvtsi32_si128(static_cast<int>(s)))};
  }
  friend Int4 operator>>(Int4 a, u32 s) {
    return {_mm256_srl_epi64(a.v, _mm_cvtsi32_si128(static_cast<int>(s)))};
  }
};

// Two doubles.
struct Vec2 {
  static constexpr u32 LANES = 2, LOG_LANES = 1;
  static constexpr bool FUSED = true;

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
  return {_mm_fmadd_pd(a.v, b.v, c.v)};
}
inline Vec2 fmsub(Vec2 a, Vec2 b, Vec2 c) {
  return {_mm_fmsub_pd(a.v, b.v, c.v)};
}
inline Vec2 fnmadd(Vec2 a, Vec2 b, Vec2 c) {
  return {_mm_fnmadd_pd(a.v, b.v, c.v)};
}

inline void transpose(Vec2 (&x)[2]) {
  const __m128d a = x[0].v, b = x[1].v;
  x[0].v = _mm_unpacklo_pd(a, b);
  x[1].v = _mm_unpackhi_pd(a, b);
}

} // namespace
} // namespace kelvane::simd
