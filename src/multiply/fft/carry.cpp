#include "multiply/fft/carry.h"

#include <cstring>

namespace kelvane::km_FFTv2 {

namespace {

// Adds x to the eight bytes at p; returns the carry out of them: -1, 0 or 1.
s64 add_word(u8* p, s64 x) {
  u64 word;
  std::memcpy(&word, p, 8);
  const u64 sum = word + static_cast<u64>(x);
  std::memcpy(p, &sum, 8);
  return (sum < word ? 1 : 0) - (x < 0 ? 1 : 0);
}

// Adds x, -1 or 1, to the `bytes` bytes at p; returns the carry. Hardly ever called: a carry is much smaller
// than 64 bits.
[[gnu::noinline]] s64 add_far(u8* p, u64 bytes, s64 x) {
  for (; x != 0 && bytes >= 8; p += 8, bytes -= 8) x = add_word(p, x);
  for (; x != 0 && bytes > 0; p++, bytes--) {
    const s64 sum = *p + x;
    *p = static_cast<u8>(sum);
    x = sum >> 8;
  }
  return x;
}

} // namespace

void finish_carries(const Runs& runs, const s64* carry) {
  const auto add = [&](u64 h, s64 x) {
    u8* const p = runs.at(h);
    const s64 over = add_word(p, x);
    return over == 0 ? 0 : add_far(p + 8, runs.bytes - 8, over);
  };
  s64 out = carry[0];
  for (u64 h = 1; h < runs.count; h++) {
    const s64 over = add(h, out);
    out = carry[h] + over;
  }
  for (u64 h = 0; h < runs.count && out != 0; h++) out = add(h, h == 0 ? -out : out);
}

} // namespace kelvane::km_FFTv2
