#include "multiply/fft/carry.h"

namespace kelvane::km_FFTv2 {

namespace {

// Adds x 2^(8 byte) to the number; returns the carry out of the top.
s64 add_at(u64* words, u64 size, u64 byte, s64 x) {
  s128 sum = static_cast<s128>(x) * (s128{1} << 8 * (byte % 8)); // below 2^(48 + 56)
  for (u64 i = byte / 8; i < size && sum != 0; i++) {
    sum += words[i];
    words[i] = static_cast<u64>(sum);
    sum >>= 64;
  }
  return static_cast<s64>(sum);
}

} // namespace

void finish_carries(u64* words, u64 size, const s64* carry, u64 runs, u64 run_bytes) {
  s64 top = carry[runs - 1];
  for (u64 i = 0; i + 1 < runs; i++) top += add_at(words, size, (i + 1) * run_bytes, carry[i]);
  add_at(words, size, 0, -top);
}

} // namespace kelvane::km_FFTv2
