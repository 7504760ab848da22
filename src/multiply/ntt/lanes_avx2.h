// 4 doubles, AVX2 with fused multiply-add. Included by *_avx2.cpp only.
#pragma once

#include <immintrin.h>

#include "multiply/ntt/backend_double.h"

namespace kelvane::ntt {
namespace {

struct Lanes4 {
  using V = __m256d;
  using I = __m256i;
  static constexpr Backend BACKEND = Backend::double4;
  static constexpr bool PACKS = false, SETTLES = false;
  static constexpr u32 LANES = 4, LOG_LANES = 2;

  NTT_INLINE V set(double x) { return _mm256_set1_pd(x); }
  NTT_INLINE I set_integer(u64 x) { return _mm256_set1_epi64x(static_cast<long long>(x)); }
  NTT_INLINE V broadcast_bits(u64 x) { return _mm256_castsi256_pd(set_integer(x)); }
  NTT_INLINE V load(const u64* a) {
    return _mm256_castsi256_pd(_mm256_load_si256(reinterpret_cast<const I*>(a)));
  }
  NTT_INLINE void store(u64* a, V v) { _mm256_store_si256(reinterpret_cast<I*>(a), _mm256_castpd_si256(v)); }
  NTT_INLINE void stream(u64* a, V v) {
    _mm256_stream_si256(reinterpret_cast<I*>(a), _mm256_castpd_si256(v));
  }
  NTT_INLINE void fence() { _mm_sfence(); }

  NTT_INLINE V add(V a, V b) { return _mm256_add_pd(a, b); }
  NTT_INLINE V sub(V a, V b) { return _mm256_sub_pd(a, b); }
  NTT_INLINE V multiply(V a, V b) { return _mm256_mul_pd(a, b); }
  NTT_INLINE V fma(V a, V b, V c) { return _mm256_fmadd_pd(a, b, c); }
  NTT_INLINE V fms(V a, V b, V c) { return _mm256_fmsub_pd(a, b, c); }
  NTT_INLINE V fnma(V a, V b, V c) { return _mm256_fnmadd_pd(a, b, c); }
  NTT_INLINE I add_integer(I a, I b) { return _mm256_add_epi64(a, b); }
  NTT_INLINE V add_if_negative(V x, V p) {
    return add(x, _mm256_and_pd(p, _mm256_cmp_pd(x, _mm256_setzero_pd(), _CMP_LT_OQ)));
  }
  NTT_INLINE I lane_multiples(u32 b) {
    const auto s = static_cast<long long>(b);
    return _mm256_setr_epi64x(0, s, 2 * s, 3 * s);
  }
  // Integers below 2^52 and doubles: the integer is the low part of 2^52 plus it.
  // Four loads one by one are faster than a gather.
  NTT_INLINE V gather_bits(const u64* base, u64 bit, u32 b, I offsets, I mask) {
    const V unit = set(4503599627370496.0);
    const auto word = [&](u64 l) {
      long long x;
      __builtin_memcpy(&x, reinterpret_cast<const char*>(base) + ((bit + l * b) >> 3), 8);
      return x;
    };
    const I at = add_integer(set_integer(bit), offsets);
    I g = _mm256_setr_epi64x(word(0), word(1), word(2), word(3));
    g = _mm256_srlv_epi64(g, _mm256_and_si256(at, set_integer(7)));
    return sub(_mm256_or_pd(_mm256_castsi256_pd(_mm256_and_si256(g, mask)), unit), unit);
  }
  NTT_INLINE void store_integer(u64* a, V x) {
    const V unit = set(4503599627370496.0);
    store(a, _mm256_xor_pd(add(x, unit), unit));
  }

  NTT_INLINE void transpose(V* x) {
    const V a = _mm256_unpacklo_pd(x[0], x[1]), b = _mm256_unpackhi_pd(x[0], x[1]);
    const V c = _mm256_unpacklo_pd(x[2], x[3]), d = _mm256_unpackhi_pd(x[2], x[3]);
    x[0] = _mm256_permute2f128_pd(a, c, 0x20);
    x[1] = _mm256_permute2f128_pd(b, d, 0x20);
    x[2] = _mm256_permute2f128_pd(a, c, 0x31);
    x[3] = _mm256_permute2f128_pd(b, d, 0x31);
  }
};

} // namespace
} // namespace kelvane::ntt
