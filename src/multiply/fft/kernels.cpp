#include "multiply/fft/kernels.h"

#include <cstring>

namespace kelvane::km_FFTv2 {

// Octet offset 0 is the byte below the first digit; its bit 7 is the bit below the digit. Digit j with the
// bit below begins at bit 7 + j b.
DigitSource::DigitSource(const u64* A, u64 words, u64 points, u32 bits)
    : bytes(reinterpret_cast<const u8*>(A)), size(8 * words), total(2 * points), b(bits) {
  top_set = words > 0 && 8 * size == total * b && A[words - 1] >> 63 != 0;
  upper = (7 + 4 * b) / 8;
  for (u32 j = 0; j < 8; j++) {
    const u32 at = 7 + j * b - (j < 4 ? 0 : 8 * upper);
    byte[j] = static_cast<u8>(at / 8);
    shift[j] = 31 - b - at % 8; // at least 31 - 21 - 7
    for (u32 i = 0; i < 4; i++) shuffle[4 * j + i] = static_cast<u8>(byte[j] + i);
  }
  // Windows from tail_start on would reach beyond the operand.
  tail_start = size >= WINDOW ? size - WINDOW + 1 : 0;
  std::memset(tail, 0, sizeof tail);
  std::memcpy(tail, bytes + tail_start, size - tail_start);
  head[0] = 0;
  std::memcpy(head + 1, size >= WINDOW ? bytes : tail, WINDOW - 1);
}

const Kernels& kernels_for(simd::Isa isa, u32 q) {
  // The root's step and the lanes' own steps take 2 + log2 L of the q levels; q is at least 4.
  if (isa >= simd::Isa::avx512 && q >= 6) return avx512::KERNELS8;
  if (isa >= simd::Isa::avx2) return avx2::KERNELS4;
  return sse3::KERNELS2;
}

} // namespace kelvane::km_FFTv2
