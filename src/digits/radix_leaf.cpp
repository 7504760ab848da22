// Repeated multiplication by 10^19, four multiplications per pass. See radix_leaf.h.

#include "digits/radix_leaf.h"

#include "digits/radix_plan.h"

namespace kelvane::CBRv2 {

namespace {

// carry <- the words carried out of STEPS multiplications of f[0, l) by R in place, first one first.
//
// Word i leaves step k as it enters step k + 1, so one pass over the words serves all steps, and
// the steps' carries are independent chains: the multiplier is kept busy, not the adder.
template <int STEPS> inline void multiply_pass(u64* f, u64 l, u64* carry) {
  u64 c[STEPS] = {};
  for (u64 i = 0; i < l; ++i) {
    u64 word = f[i];
    for (int k = 0; k < STEPS; ++k) {
      const u128 t = static_cast<u128>(word) * RADIX + c[k]; // at most (2^64 - 1) R + R - 1 < 2^64 R
      word = static_cast<u64>(t);
      c[k] = static_cast<u64>(t >> 64); // below R
    }
    f[i] = word;
  }
  for (int k = 0; k < STEPS; ++k) carry[k] = c[k];
}

} // namespace

void radix_words(u64* top, u64 n, u64* end) {
  constexpr int STEPS = 4;
  u64 carry[STEPS];
  while (n >= STEPS) {
    const u64 l = fraction_words(n);
    multiply_pass<STEPS>(end - l, l, carry);
    for (int k = 0; k < STEPS; ++k) *--top = carry[k];
    n -= STEPS;
  }
  for (; n > 0; --n) {
    const u64 l = fraction_words(n);
    multiply_pass<1>(end - l, l, --top);
  }
}

} // namespace kelvane::CBRv2
