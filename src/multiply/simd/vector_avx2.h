// Four doubles, AVX2 with fused multiply-add. Included by *_avx2.cpp only; internal linkage (see
// vector_sse3.h).
#pragma once

#ifndef __AVX2__
#error "vector_avx2.h belongs to files compiled for AVX2"
#endif

#include <immintrin.h>

#include "multiply/simd/always_inline.h"
#include "shell/types.h"

namespace kelvane::simd {
namespace {

struct Vec4 {
  static constexpr u32 LANES = 4, LOG_LANES = 2;
  static constexpr bool FUSED = true;

  __m256d v;

  KELVANE_INLINE static Vec4 load(const double* p) { return {_mm256_load_pd(p)}; }
  KELVANE_INLINE static Vec4 set1(double x) { return {_mm256_set1_pd(x)}; }
  KELVANE_INLINE static Vec4 zero() { return {_mm256_setzero_pd()}; }
  KELVANE_INLINE void store(double* p) const { _mm256_store_pd(p, v); }
  KELVANE_INLINE void stream(double* p) const { _mm256_stream_pd(p, v); }

  KELVANE_INLINE friend Vec4 operator+(Vec4 a, Vec4 b) { return {_mm256_add_pd(a.v, b.v)}; }
  KELVANE_INLINE friend Vec4 operator-(Vec4 a, Vec4 b) { return {_mm256_sub_pd(a.v, b.v)}; }
  KELVANE_INLINE friend Vec4 operator*(Vec4 a, Vec4 b) { return {_mm256_mul_pd(a.v, b.v)}; }
};

KELVANE_INLINE Vec4 fmadd(Vec4 a, Vec4 b, Vec4 c) {
  return {_mm256_fmadd_pd(a.v, b.v, c.v)};
}
KELVANE_INLINE Vec4 fmsub(Vec4 a, Vec4 b, Vec4 c) {
  return {_mm256_fmsub_pd(a.v, b.v, c.v)};
}
KELVANE_INLINE Vec4 fnmadd(Vec4 a, Vec4 b, Vec4 c) {
  return {_mm256_fnmadd_pd(a.v, b.v, c.v)};
}

KELVANE_INLINE void transpose(Vec4 (&x)[4]) {
  const __m256d a = _mm256_unpacklo_pd(x[0].v, x[1].v), b = _mm256_unpackhi_pd(x[0].v, x[1].v);
  const __m256d c = _mm256_unpacklo_pd(x[2].v, x[3].v), d = _mm256_unpackhi_pd(x[2].v, x[3].v);
  x[0].v = _mm256_permute2f128_pd(a, c, 0x20);
  x[1].v = _mm256_permute2f128_pd(b, d, 0x20);
  x[2].v = _mm256_permute2f128_pd(a, c, 0x31);
  x[3].v = _mm256_permute2f128_pd(b, d, 0x31);
}

// The even elements of both, in turn, and the odd ones: a0 b0 a2 b2, a1 b1 a3 b3.
KELVANE_INLINE Vec4 unpack_low(Vec4 a, Vec4 b) {
  return {_mm256_unpacklo_pd(a.v, b.v)};
}
KELVANE_INLINE Vec4 unpack_high(Vec4 a, Vec4 b) {
  return {_mm256_unpackhi_pd(a.v, b.v)};
}

struct Int4 {
  static constexpr u32 LANES = 4;
  __m256i v;

  KELVANE_INLINE static Int4 bits(Vec4 a) { return {_mm256_castpd_si256(a.v)}; }
  KELVANE_INLINE static Int4 load(const void* p) {
    return {_mm256_load_si256(static_cast<const __m256i*>(p))};
  }
  KELVANE_INLINE static Int4 set1(u64 x) { return {_mm256_set1_epi64x(static_cast<long long>(x))}; }
  KELVANE_INLINE void store(void* p) const { _mm256_store_si256(static_cast<__m256i*>(p), v); }

  KELVANE_INLINE friend Int4 operator+(Int4 a, Int4 b) { return {_mm256_add_epi64(a.v, b.v)}; }
  KELVANE_INLINE friend Int4 operator-(Int4 a, Int4 b) { return {_mm256_sub_epi64(a.v, b.v)}; }
  KELVANE_INLINE friend Int4 operator&(Int4 a, Int4 b) { return {_mm256_and_si256(a.v, b.v)}; }
  KELVANE_INLINE friend Int4 operator|(Int4 a, Int4 b) { return {_mm256_or_si256(a.v, b.v)}; }
  KELVANE_INLINE friend Int4 operator<<(Int4 a, u32 s) {
    return {_mm256_sll_epi64(a.v, _mm_cvtsi32_si128(static_cast<int>(s)))};
  }
  KELVANE_INLINE friend Int4 operator>>(Int4 a, u32 s) {
    return {_mm256_srl_epi64(a.v, _mm_cvtsi32_si128(static_cast<int>(s)))};
  }
};

// Transposes the square of pieces of 128 bits.
KELVANE_INLINE void transpose_pieces(Int4* x) {
  const __m256i a = x[0].v, b = x[1].v;
  x[0].v = _mm256_permute2x128_si256(a, b, 0x20);
  x[1].v = _mm256_permute2x128_si256(a, b, 0x31);
}

} // namespace
} // namespace kelvane::simd
