#include "multiply/fft/kernels.h"

namespace kelvane::km_FFTv2 {

// Octet offset 0 is the byte below the first digit; its bit 7 is the bit below the digit. Digit j with the
// bit below begins at bit 7 + j b.
DigitSource::DigitSource(const u64* A, u64 words, u64 points, u32 bits)
    : bytes(reinterpret_cast<const u8*>(A)), size(8 * words), total(2 * points), b(bits) {
  upper = (7 + 4 * b) / 8;
  for (u32 j = 0; j < 8; j++) {
    const u32 at = 7 + j * b - (j < 4 ? 0 : 8 * upper);
    byte[j] = static_cast<u8>(at / 8);
    shift[j] = 31 - b - at % 8; // at least 31 - 21 - 7
    for (u32 i = 0; i < 4; i++) shuffle[4 * j + i] = static_cast<u8>(byte[j] + i);
  }
}

const Kernels& kernels_for(simd::Isa isa, u32 q) {
  // The root's step takes 2 of the q levels, a base block 2 log2 L.
  if (isa >= simd::Isa::avx512 && q >= 2 + 6) return avx512::KERNELS8;
  if (isa >= simd::Isa::avx2 && q >= 2 + 4) return avx2::KERNELS4;
  if (isa >= simd::Isa::avx2) return avx2::KERNELS2;
  return sse3::KERNELS2;
}

} // namespace kelvane::km_FFTv2
