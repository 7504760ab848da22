// The transform's kernels on vectors of 8 doubles, AVX-512.
#include "multiply/fft/kernels.h"
#include "multiply/simd/vector_avx512.h"

namespace kelvane::km_FFTv2 {
namespace {

using simd::Vec8;

// Bytes gathered in 32-bit lanes, shifted to the top, the b + 1 bits brought down signed.
KELVANE_INLINE void load_octet(Vec8* out, const DigitSource& s, const u8* p) {
  const __m128i low = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
  const __m128i high = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + s.layout.upper));
  const __m256i raw = _mm256_inserti128_si256(_mm256_castsi128_si256(low), high, 1);
  const __m256i order = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(s.layout.shuffle));
  const __m256i shift = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(s.layout.shift));
  const __m256i top = _mm256_sllv_epi32(_mm256_shuffle_epi8(raw, order), shift);
  const __m256i d = _mm256_sra_epi32(top, _mm_cvtsi32_si128(static_cast<int>(31 - s.b)));
  out[0] = {_mm512_cvtepi32_pd(_mm256_srai_epi32(_mm256_add_epi32(d, _mm256_set1_epi32(1)), 1))};
}

// Words of eight runs, transposed: 16 or 32 bytes of a run at once.
template <u32 WORDS>
requires(WORDS >= 2) KELVANE_INLINE void store_runs(u8* const* out, u64 at, const simd::Int8* w) {
  const __m512i even = _mm512_unpacklo_epi64(w[0].v, w[1].v), odd = _mm512_unpackhi_epi64(w[0].v, w[1].v);
  if constexpr (WORDS == 2) {
    const auto store = [&](u32 h, __m128i x) {
      _mm_storeu_si128(reinterpret_cast<__m128i*>(out[h] + at), x);
    };
    store(0, _mm512_castsi512_si128(even));
    store(1, _mm512_castsi512_si128(odd));
    store(2, _mm512_extracti64x2_epi64(even, 1));
    store(3, _mm512_extracti64x2_epi64(odd, 1));
    store(4, _mm512_extracti64x2_epi64(even, 2));
    store(5, _mm512_extracti64x2_epi64(odd, 2));
    store(6, _mm512_extracti64x2_epi64(even, 3));
    store(7, _mm512_extracti64x2_epi64(odd, 3));
  } else {
    const __m512i zero = _mm512_setzero_si512();
    const __m512i even2 = _mm512_unpacklo_epi64(w[2].v, zero), odd2 = _mm512_unpackhi_epi64(w[2].v, zero);
    const __m512i low = _mm512_setr_epi64(0, 1, 8, 9, 2, 3, 10, 11);
    const __m512i high = _mm512_setr_epi64(4, 5, 12, 13, 6, 7, 14, 15);
    const auto store = [&](u32 h, __m512i x) { // runs h and h + 2
      _mm256_storeu_si256(reinterpret_cast<__m256i*>(out[h] + at), _mm512_castsi512_si256(x));
      _mm256_storeu_si256(reinterpret_cast<__m256i*>(out[h + 2] + at), _mm512_extracti64x4_epi64(x, 1));
    };
    store(0, _mm512_permutex2var_epi64(even, low, even2));
    store(1, _mm512_permutex2var_epi64(odd, low, odd2));
    store(4, _mm512_permutex2var_epi64(even, high, even2));
    store(5, _mm512_permutex2var_epi64(odd, high, odd2));
  }
}

} // namespace
} // namespace kelvane::km_FFTv2

#include "multiply/fft/kernels_impl.h"

namespace kelvane::km_FFTv2::avx512 {
constinit const Kernels KERNELS8 = make_kernels<simd::Vec8, simd::Int8>("avx512 x8");
} // namespace kelvane::km_FFTv2::avx512
