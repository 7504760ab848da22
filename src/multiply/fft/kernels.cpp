#include "multiply/fft/kernels.h"

#include <cstring>

namespace kelvane::km_FFTv2 {

namespace {

constexpr u32 MIN_BITS = 8, MAX_BITS_OF_DIGIT = 21;

struct Layouts {
  OctetLayout of[MAX_BITS_OF_DIGIT + 1 - MIN_BITS];
};

// Octet offset 0 is the byte below the first digit; its bit 7 is the bit below the digit. Digit j with the
// bit below begins at bit 7 + j b.
constexpr Layouts make_layouts() {
  Layouts layouts{};
  for (u32 b = MIN_BITS; b <= MAX_BITS_OF_DIGIT; b++) {
    OctetLayout& at = layouts.of[b - MIN_BITS];
    at.upper = (7 + 4 * b) / 8;
    for (u32 j = 0; j < 8; j++) {
      const u32 bit = 7 + j * b - (j < 4 ? 0 : 8 * at.upper);
      at.byte[j] = static_cast<u8>(bit / 8);
      at.shift[j] = 31 - b - bit % 8; // at least 31 - 21 - 7
      for (u32 i = 0; i < 4; i++) at.shuffle[4 * j + i] = static_cast<u8>(at.byte[j] + i);
    }
  }
  return layouts;
}
constexpr Layouts LAYOUTS = make_layouts();

} // namespace

const OctetLayout& octet_layout(u32 b) {
  return LAYOUTS.of[b - MIN_BITS];
}

DigitSource::DigitSource(const u64* A, u64 words, u64 points, u32 bits)
    : bytes(reinterpret_cast<const u8*>(A)), size(8 * words), total(2 * points), b(bits),
      layout(octet_layout(bits)) {
  top_set = words > 0 && 8 * size == total * b && A[words - 1] >> 63 != 0;
  // Windows from tail_start on would reach beyond the operand.
  std::memset(tail, 0, sizeof tail);
  head[0] = 0;
  if (size >= WINDOW) { // the usual case, in copies of fixed length
    tail_start = size - WINDOW + 1;
    std::memcpy(tail, bytes + tail_start, WINDOW - 1);
    std::memcpy(head + 1, bytes, WINDOW - 1);
    return;
  }
  tail_start = 0;
  std::memcpy(tail, bytes, size);
  std::memcpy(head + 1, tail, WINDOW - 1);
}

bool pairs_fit(double t, u32 b) {
  return b >= 13 && t <= static_cast<double>(((u64{1} << 63) - (u64{1} << 56)) >> b);
}

const Kernels& kernels_for(simd::Isa isa, u32 q) {
  // The root's step and the lanes' own steps take 2 + log2 L of the q levels; q is at least 4.
  if (isa >= simd::Isa::avx512 && q >= 6) return avx512::KERNELS8;
  if (isa >= simd::Isa::avx2) return avx2::KERNELS4;
  return sse3::KERNELS2;
}

} // namespace kelvane::km_FFTv2
