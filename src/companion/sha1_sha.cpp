// SHA-1 with the processor's SHA instructions. See sha1.h.

#include <immintrin.h>

#include <utility>

#include "companion/sha1.h"

namespace kelvane::companion {

namespace {

// Four rounds, number 4 G to 4 G + 3. w is a ring of the last 16 words of the message schedule, four to a
// register; e holds what the rounds before left for the fifth variable.
template <int G> inline void rounds(__m128i& abcd, __m128i& e, __m128i* w) {
  const __m128i sum = G == 0 ? _mm_add_epi32(e, w[0]) : _mm_sha1nexte_epu32(e, w[G & 3]);
  e = abcd;
  abcd = _mm_sha1rnds4_epu32(abcd, sum, G / 5); // 20 rounds share a function and a constant
  if constexpr (G < 16) {
    const __m128i mixed = _mm_xor_si128(_mm_sha1msg1_epu32(w[G & 3], w[(G + 1) & 3]), w[(G + 2) & 3]);
    w[G & 3] = _mm_sha1msg2_epu32(mixed, w[(G + 3) & 3]);
  }
}

template <int... G>
inline void all_rounds(__m128i& abcd, __m128i& e, __m128i* w, std::integer_sequence<int, G...>) {
  (rounds<G>(abcd, e, w), ...);
}

} // namespace

void Sha1::blocks_sha(u32* state, const u8* data, u64 blocks) {
  // The instructions want the first variable, and the first word of a message, in the highest lane.
  const __m128i reversed = _mm_set_epi64x(0x0001020304050607, 0x08090a0b0c0d0e0f);
  __m128i abcd = _mm_shuffle_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(state)), 0x1b);
  __m128i e = _mm_set_epi32(static_cast<int>(state[4]), 0, 0, 0);
  for (; blocks > 0; --blocks, data += 64) {
    const __m128i abcd_before = abcd, e_before = e;
    __m128i w[4];
    for (int i = 0; i < 4; ++i)
      w[i] = _mm_shuffle_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(data) + i), reversed);
    all_rounds(abcd, e, w, std::make_integer_sequence<int, 20>());
    e = _mm_sha1nexte_epu32(e, e_before);
    abcd = _mm_add_epi32(abcd, abcd_before);
  }
  _mm_storeu_si128(reinterpret_cast<__m128i*>(state), _mm_shuffle_epi32(abcd, 0x1b));
  state[4] = static_cast<u32>(_mm_extract_epi32(e, 3));
}

} // namespace kelvane::companion
