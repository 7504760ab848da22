// Eight doubles, AVX-512. Included by *_avx512.cpp only; internal linkage (see vector_sse3.h).
#pragma once

#ifndef __AVX512F__
#error "vector_avx512.h belongs to files compiled for AVX-512"
#endif

// GCC 12 takes the deliberately undefined pass-through operands of its own intrinsics for mistakes.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wuninitialized"
#if !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif
#include <immintrin.h>
#pragma GCC diagnostic pop

#include "multiply/simd/always_inline.h"
#include "shell/types.h"

namespace kelvane::simd {
namespace {

struct Vec8 {
  static constexpr u32 LANES = 8, LOG_LANES = 3;
  static constexpr bool FUSED = true;

  __m512d v;

  KELVANE_INLINE static Vec8 load(const double* p) { return {_mm512_load_pd(p)}; }
  KELVANE_INLINE static Vec8 set1(double x) { return {_mm512_set1_pd(x)}; }
  KELVANE_INLINE static Vec8 zero() { return {_mm512_setzero_pd()}; }
  KELVANE_INLINE void store(double* p) const { _mm512_store_pd(p, v); }
  KELVANE_INLINE void stream(double* p) const { _mm512_stream_pd(p, v); }

  KELVANE_INLINE friend Vec8 operator+(Vec8 a, Vec8 b) { return {_mm512_add_pd(a.v, b.v)}; }
  KELVANE_INLINE friend Vec8 operator-(Vec8 a, Vec8 b) { return {_mm512_sub_pd(a.v, b.v)}; }
  KELVANE_INLINE friend Vec8 operator*(Vec8 a, Vec8 b) { return {_mm512_mul_pd(a.v, b.v)}; }
};

KELVANE_INLINE Vec8 fmadd(Vec8 a, Vec8 b, Vec8 c) {
  return {_mm512_fmadd_pd(a.v, b.v, c.v)};
}
KELVANE_INLINE Vec8 fmsub(Vec8 a, Vec8 b, Vec8 c) {
  return {_mm512_fmsub_pd(a.v, b.v, c.v)};
}
KELVANE_INLINE Vec8 fnmadd(Vec8 a, Vec8 b, Vec8 c) {
  return {_mm512_fnmadd_pd(a.v, b.v, c.v)};
}

// Three rounds of exchanges at distances 1, 2 and 4.
KELVANE_INLINE void transpose(Vec8 (&x)[8]) {
  __m512d a[8], b[8];
  for (int i = 0; i < 8; i += 2) {
    a[i] = _mm512_unpacklo_pd(x[i].v, x[i + 1].v);
    a[i + 1] = _mm512_unpackhi_pd(x[i].v, x[i + 1].v);
  }
  // 128-bit pieces of two vectors: 0x88 takes pieces 0, 2 of each, 0xdd pieces 1, 3.
  for (int i = 0; i < 8; i += 4) {
    for (int j = 0; j < 2; j++) {
      b[i + j] = _mm512_shuffle_f64x2(a[i + j], a[i + j + 2], 0x88);
      b[i + j + 2] = _mm512_shuffle_f64x2(a[i + j], a[i + j + 2], 0xdd);
    }
  }
  for (int j = 0; j < 4; j++) {
    x[j].v = _mm512_shuffle_f64x2(b[j], b[j + 4], 0x88);
    x[j + 4].v = _mm512_shuffle_f64x2(b[j], b[j + 4], 0xdd);
  }
}

// The even elements of both, in turn, and the odd ones: a0 b0 a2 b2 ..., a1 b1 a3 b3 ...
KELVANE_INLINE Vec8 unpack_low(Vec8 a, Vec8 b) {
  return {_mm512_unpacklo_pd(a.v, b.v)};
}
KELVANE_INLINE Vec8 unpack_high(Vec8 a, Vec8 b) {
  return {_mm512_unpackhi_pd(a.v, b.v)};
}

struct Int8 {
  static constexpr u32 LANES = 8;
  __m512i v;

  KELVANE_INLINE static Int8 bits(Vec8 a) { return {_mm512_castpd_si512(a.v)}; }
  KELVANE_INLINE static Int8 load(const void* p) { return {_mm512_load_si512(p)}; }
  KELVANE_INLINE static Int8 set1(u64 x) { return {_mm512_set1_epi64(static_cast<long long>(x))}; }
  KELVANE_INLINE void store(void* p) const { _mm512_store_si512(p, v); }

  KELVANE_INLINE friend Int8 operator+(Int8 a, Int8 b) { return {_mm512_add_epi64(a.v, b.v)}; }
  KELVANE_INLINE friend Int8 operator-(Int8 a, Int8 b) { return {_mm512_sub_epi64(a.v, b.v)}; }
  KELVANE_INLINE friend Int8 operator&(Int8 a, Int8 b) { return {_mm512_and_si512(a.v, b.v)}; }
  KELVANE_INLINE friend Int8 operator|(Int8 a, Int8 b) { return {_mm512_or_si512(a.v, b.v)}; }
  KELVANE_INLINE friend Int8 operator<<(Int8 a, u32 s) {
    return {_mm512_sll_epi64(a.v, _mm_cvtsi32_si128(static_cast<int>(s)))};
  }
  KELVANE_INLINE friend Int8 operator>>(Int8 a, u32 s) {
    return {_mm512_srl_epi64(a.v, _mm_cvtsi32_si128(static_cast<int>(s)))};
  }
};

// Transposes the square of pieces of 128 bits. 0x88 takes the pieces 0 and 2 of each, 0xdd pieces 1 and 3.
KELVANE_INLINE void transpose_pieces(Int8* x) {
  const __m512i low02 = _mm512_shuffle_i64x2(x[0].v, x[1].v, 0x88);
  const __m512i low13 = _mm512_shuffle_i64x2(x[0].v, x[1].v, 0xdd);
  const __m512i high02 = _mm512_shuffle_i64x2(x[2].v, x[3].v, 0x88);
  const __m512i high13 = _mm512_shuffle_i64x2(x[2].v, x[3].v, 0xdd);
  x[0].v = _mm512_shuffle_i64x2(low02, high02, 0x88);
  x[1].v = _mm512_shuffle_i64x2(low13, high13, 0x88);
  x[2].v = _mm512_shuffle_i64x2(low02, high02, 0xdd);
  x[3].v = _mm512_shuffle_i64x2(low13, high13, 0xdd);
}

} // namespace
} // namespace kelvane::simd
