// The transform's kernels on vectors of 2 doubles, SSE3.
#include "multiply/fft/kernels.h"
#include "multiply/simd/vector_sse3.h"

namespace kelvane::km_FFTv2 {
namespace {

using simd::Vec2;

KELVANE_INLINE void load_octet(Vec2* out, const DigitSource& s, const u8* p) {
  const u32 drop = 31 - s.b;
  s32 d[8];
  for (u32 j = 0; j < 8; j++) {
    u32 x;
    __builtin_memcpy(&x, p + (j < 4 ? 0 : s.layout.upper) + s.layout.byte[j], 4);
    d[j] = ((static_cast<s32>(x << s.layout.shift[j]) >> drop) + 1) >> 1;
  }
  for (u32 v = 0; v < 4; v++) out[v] = {_mm_cvtepi32_pd(_mm_set_epi32(0, 0, d[2 * v + 1], d[2 * v]))};
}

template <u32 WORDS>
requires(WORDS >= 2) KELVANE_INLINE void store_runs(u8* const* out, u64 at, const simd::Int2* w) {
  const auto to = [&](u32 run, u32 byte) { return reinterpret_cast<__m128i*>(out[run] + at + byte); };
  _mm_storeu_si128(to(0, 0), _mm_unpacklo_epi64(w[0].v, w[1].v));
  _mm_storeu_si128(to(1, 0), _mm_unpackhi_epi64(w[0].v, w[1].v));
  if constexpr (WORDS == 3) {
    _mm_storel_epi64(to(0, 16), w[2].v);
    _mm_storel_epi64(to(1, 16), _mm_unpackhi_epi64(w[2].v, w[2].v));
  }
}

} // namespace
} // namespace kelvane::km_FFTv2

#include "multiply/fft/kernels_impl.h"

namespace kelvane::km_FFTv2::sse3 {
constinit const Kernels KERNELS2 = make_kernels<simd::Vec2, simd::Int2>("sse3 x2");
} // namespace kelvane::km_FFTv2::sse3
