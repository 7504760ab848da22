// The transform's kernels on vectors of 4 doubles, AVX2 and FMA.
#include "multiply/fft/kernels.h"
#include "multiply/simd/vector_avx2.h"

namespace kelvane::km_FFTv2 {
namespace {

using simd::Vec4;

// Four digits: their bytes gathered in 32-bit lanes, shifted to the top, the b + 1 bits brought down signed.
KELVANE_INLINE __m128i four_digits(const DigitSource& s, const u8* p, u32 half) {
  const __m128i raw = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + (half == 0 ? 0 : s.layout.upper)));
  const __m128i order = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s.layout.shuffle + 16 * half));
  const __m128i shift = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s.layout.shift + 4 * half));
  const __m128i top = _mm_sllv_epi32(_mm_shuffle_epi8(raw, order), shift);
  const __m128i d = _mm_sra_epi32(top, _mm_cvtsi32_si128(static_cast<int>(31 - s.b)));
  return _mm_srai_epi32(_mm_add_epi32(d, _mm_set1_epi32(1)), 1);
}
KELVANE_INLINE void load_octet(Vec4* out, const DigitSource& s, const u8* p) {
  for (u32 half = 0; half < 2; half++) out[half] = {_mm256_cvtepi32_pd(four_digits(s, p, half))};
}

template <u32 WORDS>
requires(WORDS >= 2) KELVANE_INLINE void store_runs(u8* const* out, u64 at, const simd::Int4* w) {
  const __m256i even = _mm256_unpacklo_epi64(w[0].v, w[1].v), odd = _mm256_unpackhi_epi64(w[0].v, w[1].v);
  if constexpr (WORDS == 2) {
    const auto store = [&](u32 h, __m256i x) { // runs h and h + 2
      _mm_storeu_si128(reinterpret_cast<__m128i*>(out[h] + at), _mm256_castsi256_si128(x));
      _mm_storeu_si128(reinterpret_cast<__m128i*>(out[h + 2] + at), _mm256_extracti128_si256(x, 1));
    };
    store(0, even);
    store(1, odd);
  } else {
    const auto store = [&](u32 h, __m256i x, __m256i top) {
      const auto to = [&](u32 run) { return reinterpret_cast<__m256i*>(out[run] + at); };
      _mm256_storeu_si256(to(h), _mm256_permute2x128_si256(x, top, 0x20));
      _mm256_storeu_si256(to(h + 2), _mm256_permute2x128_si256(x, top, 0x31));
    };
    const __m256i zero = _mm256_setzero_si256();
    store(0, even, _mm256_unpacklo_epi64(w[2].v, zero));
    store(1, odd, _mm256_unpackhi_epi64(w[2].v, zero));
  }
}

} // namespace
} // namespace kelvane::km_FFTv2

#include "multiply/fft/kernels_impl.h"

namespace kelvane::km_FFTv2::avx2 {
constinit const Kernels KERNELS4 = make_kernels<simd::Vec4, simd::Int4>("avx2 x4");
} // namespace kelvane::km_FFTv2::avx2
