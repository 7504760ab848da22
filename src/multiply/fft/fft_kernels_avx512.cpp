// The transform's kernels on vectors of 8 doubles, AVX-512.
#include "multiply/fft/kernels.h"
#include "multiply/simd/vector_avx512.h"

namespace kelvane::km_FFTv2 {
namespace {

using simd::Vec8;

// Bytes gathered in 32-bit lanes, shifted to the top, the b + 1 bits brought down signed.
KELVANE_INLINE void load_octet(Vec8* out, const DigitSource& s, const u8* p) {
  const __m128i low = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
  const __m128i high = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + s.upper));
  const __m256i raw = _mm256_inserti128_si256(_mm256_castsi128_si256(low), high, 1);
  const __m256i order = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(s.shuffle));
  const __m256i shift = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(s.shift));
  const __m256i top = _mm256_sllv_epi32(_mm256_shuffle_epi8(raw, order), shift);
  const __m256i d = _mm256_sra_epi32(top, _mm_cvtsi32_si128(static_cast<int>(31 - s.b)));
  out[0] = {_mm512_cvtepi32_pd(_mm256_srai_epi32(_mm256_add_epi32(d, _mm256_set1_epi32(1)), 1))};
}

} // namespace
} // namespace kelvane::km_FFTv2

#include "multiply/fft/kernels_impl.h"

namespace kelvane::km_FFTv2::avx512 {
constinit const Kernels KERNELS8 = make_kernels<simd::Vec8, simd::Int8>("avx512 x8");
} // namespace kelvane::km_FFTv2::avx512
