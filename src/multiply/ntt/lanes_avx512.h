// 8 doubles, AVX-512. Included by *_avx512.cpp only.
#pragma once

// GCC 12 takes the deliberately undefined pass-through operands of its own intrinsics for mistakes.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wuninitialized"
#if !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif
#include <immintrin.h>
#pragma GCC diagnostic pop

#include "multiply/ntt/backend_double.h"

namespace kelvane::ntt {
namespace {

struct Lanes8 {
  using V = __m512d;
  using I = __m512i;
  static constexpr Backend BACKEND = Backend::double8;
  static constexpr bool PACKS = false, SETTLES = false;
  static constexpr u32 LANES = 8, LOG_LANES = 3;

  NTT_INLINE V set(double x) { return _mm512_set1_pd(x); }
  NTT_INLINE I set_integer(u64 x) { return _mm512_set1_epi64(static_cast<long long>(x)); }
  NTT_INLINE V broadcast_bits(u64 x) { return _mm512_castsi512_pd(set_integer(x)); }
  NTT_INLINE V load(const u64* a) {
    return _mm512_castsi512_pd(_mm512_load_si512(reinterpret_cast<const I*>(a)));
  }
  NTT_INLINE void store(u64* a, V v) { _mm512_store_si512(reinterpret_cast<I*>(a), _mm512_castpd_si512(v)); }
  NTT_INLINE void stream(u64* a, V v) {
    _mm512_stream_si512(reinterpret_cast<I*>(a), _mm512_castpd_si512(v));
  }
  NTT_INLINE void fence() { _mm_sfence(); }

  NTT_INLINE V add(V a, V b) { return _mm512_add_pd(a, b); }
  NTT_INLINE V sub(V a, V b) { return _mm512_sub_pd(a, b); }
  NTT_INLINE V multiply(V a, V b) { return _mm512_mul_pd(a, b); }
  NTT_INLINE V fma(V a, V b, V c) { return _mm512_fmadd_pd(a, b, c); }
  NTT_INLINE V fms(V a, V b, V c) { return _mm512_fmsub_pd(a, b, c); }
  NTT_INLINE V fnma(V a, V b, V c) { return _mm512_fnmadd_pd(a, b, c); }
  NTT_INLINE I add_integer(I a, I b) { return _mm512_add_epi64(a, b); }
  NTT_INLINE V add_if_negative(V x, V p) {
    return _mm512_mask_add_pd(x, _mm512_cmp_pd_mask(x, _mm512_setzero_pd(), _CMP_LT_OQ), x, p);
  }
  NTT_INLINE I lane_multiples(u32 b) {
    return _mm512_mullo_epi64(_mm512_setr_epi64(0, 1, 2, 3, 4, 5, 6, 7), set_integer(b));
  }
  // Lane l: the bits from bit + l b on (offsets: l b), masked (at most 52 of them), as numbers. A load at a
  // byte brings at least 57 bits.
  NTT_INLINE V gather_bits(const u64* base, u64 bit, u32, I offsets, I mask) {
    const I at = add_integer(set_integer(bit), offsets);
    I g = _mm512_i64gather_epi64(_mm512_srli_epi64(at, 3), base, 1);
    g = _mm512_srlv_epi64(g, _mm512_and_si512(at, set_integer(7)));
    return _mm512_cvtepi64_pd(_mm512_and_si512(g, mask));
  }
  NTT_INLINE void store_integer(u64* a, V x) { _mm512_store_si512(a, _mm512_cvtpd_epi64(x)); }

  NTT_INLINE void transpose(V* a) {
    V t[8], b[8];
    for (int i = 0; i < 8; i += 2) {
      t[i] = _mm512_unpacklo_pd(a[i], a[i + 1]);
      t[i + 1] = _mm512_unpackhi_pd(a[i], a[i + 1]);
    }
    for (int i = 0; i < 8; i += 4) {
      for (int j = 0; j < 2; j++) {
        b[i + j] = _mm512_shuffle_f64x2(t[i + j], t[i + j + 2], 0x88);
        b[i + j + 2] = _mm512_shuffle_f64x2(t[i + j], t[i + j + 2], 0xdd);
      }
    }
    for (int j = 0; j < 4; j++) {
      a[j] = _mm512_shuffle_f64x2(b[j], b[j + 4], 0x88);
      a[j + 4] = _mm512_shuffle_f64x2(b[j], b[j + 4], 0xdd);
    }
  }
};

} // namespace
} // namespace kelvane::ntt
