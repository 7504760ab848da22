// Residues to coefficients to words, on a backend F.
//
// Garner: with mixed-radix digits d_0 .. d_(W-1), the coefficient is d_0 + p_0 (d_1 + p_1 (d_2 + ...)), and
//     d_k = (.. ((x_k - d_0) / p_0 - d_1) / p_1 .. - d_(k-1)) / p_(k-1) modulo p_k.
// Coefficient i of a run is then shifted by i b bits and added to the run's words.
#pragma once

#include <cstring>

#include "multiply/ntt/passes_impl.h"
#include "multiply/simd/always_inline.h"

namespace kelvane::ntt {
namespace {

// b <= 208, T <= 64: 208 words, and the coefficient that begins in the last of them.
constexpr u32 MAX_RUN_WORDS = 224;

// Where the words of a group of runs go: of each its own, and what hangs over.
constexpr u32 MAX_RUNS = 8;
struct RunsTo {
  u64 *words[MAX_RUNS], *overhang[MAX_RUNS];
};

// sum[0, N] += t[0, N]; the last carry is 0.
template <u32 N> inline void add_words(u64* sum, const u64* t) {
  u64 x;
#define KELVANE_ADD_FIRST "movq (%1), %0\n\taddq %0, (%2)\n\t"
#define KELVANE_ADD(i)                                                                                       \
  "movq "                                                                                                    \
  "8*" #i "(%1), %0\n\tadcq %0, " #i "*8(%2)\n\t"
#define KELVANE_CHAIN(...)                                                                                   \
  __asm__ volatile(KELVANE_ADD_FIRST __VA_ARGS__ : "=&r"(x) : "r"(t), "r"(sum) : "memory", "cc")
  if constexpr (N == 3) {
    KELVANE_CHAIN(KELVANE_ADD(1) KELVANE_ADD(2) KELVANE_ADD(3));
  } else if constexpr (N == 4) {
    KELVANE_CHAIN(KELVANE_ADD(1) KELVANE_ADD(2) KELVANE_ADD(3) KELVANE_ADD(4));
  } else if constexpr (N == 5) {
    KELVANE_CHAIN(KELVANE_ADD(1) KELVANE_ADD(2) KELVANE_ADD(3) KELVANE_ADD(4) KELVANE_ADD(5));
  } else if constexpr (N == 6) {
    KELVANE_CHAIN(KELVANE_ADD(1) KELVANE_ADD(2) KELVANE_ADD(3) KELVANE_ADD(4) KELVANE_ADD(5) KELVANE_ADD(6));
  } else {
    static_assert(N == 7);
    KELVANE_CHAIN(KELVANE_ADD(1) KELVANE_ADD(2) KELVANE_ADD(3) KELVANE_ADD(4) KELVANE_ADD(5) KELVANE_ADD(6)
                      KELVANE_ADD(7));
  }
#undef KELVANE_CHAIN
#undef KELVANE_ADD
#undef KELVANE_ADD_FIRST
}

// Digits from the vector unit, the rest in general registers: Horner's rule over the digits.
template <class F, u32 W> class Recombiner {
public:
  Recombiner(const Shape& shape, const Factor* bias)
      : b_(shape.b), T_(shape.tile()), run_words_(shape.run_words()), overhang_(shape.overhang_words()) {
    for (u32 i = 0; i < W; i++) {
      const PrimeTable& table = prime_table(F::BACKEND, i);
      p_[i] = table.p;
      bias_[i] = F::broadcast(bias == nullptr ? Factor{} : bias[i]);
      for (u32 j = 0; j < i; j++) inverse_[i][j] = F::broadcast(table.garner[j]);
    }
  }

  static constexpr u32 RUNS = 1;
  static constexpr bool STREAMS = false;

  // The words of the run with residues at residues.points(i, t) go to `to`. *top, unless null, is raised to
  // its largest d_(W-1). Meanwhile `ahead` advances by `parts`.
  template <class Residues>
  void put_runs(const RunsTo& to, const Residues& residues, u64* top, Ahead& ahead, u64 parts) const {
    ahead.advance(parts);
    u64 sum[MAX_RUN_WORDS];
    for (u64 i = 0; i < run_words_ + overhang_ + 8; i++) sum[i] = 0;
    u64 bit = 0;
    for (u64 t = 0; t < T_; t += I * F::LANES) {
      typename F::V d[W][I];
#pragma GCC unroll 8
      for (u32 i = 0; i < W; i++) digit(i, d, residues.points(i, t));
      alignas(64) u64 digit[W][I * F::LANES];
      for (u32 i = 0; i < W; i++) {
        for (u32 n = 0; n < I; n++) F::store_integer(digit[i] + n * F::LANES, d[i][n]);
      }
      if (top != nullptr) {
        for (const u64 x_top : digit[W - 1]) *top = x_top > *top ? x_top : *top;
      }
      for (u32 lane = 0; lane < I * F::LANES; lane++, bit += b_) {
        u64 c[WORDS + 1] = {digit[W - 1][lane]};
#pragma GCC unroll 8
        for (u32 step = 1; step < W; step++) { // c has `step` words
          const u32 i = W - 1 - step;
          u128 carry = digit[i][lane];
#pragma GCC unroll 8
          for (u32 j = 0; j <= step; j++) {
            if (j == WORDS) break; // the top word of the last steps is 0
            carry += static_cast<u128>(c[j]) * p_[i];
            c[j] = static_cast<u64>(carry);
            carry >>= 64;
          }
        }
        const u32 shift = bit & 63;
#pragma GCC unroll 8
        for (u32 j = WORDS; j > 0; j--) c[j] = c[j] << shift | c[j - 1] >> 1 >> (63 - shift);
        c[0] <<= shift;
        add_words<WORDS>(sum + (bit >> 6), c);
      }
    }
    std::memcpy(to.words[0], sum, 8 * run_words_);
    std::memcpy(to.overhang[0], sum + run_words_, 8 * overhang_);
  }

private:
  static constexpr u32 I = F::LANES == 1 ? 1 : 2;                          // vectors at a time
  static constexpr u32 WORDS = (primes_of(F::BACKEND).bits * W + 63) / 64; // of a coefficient

  // Digit i of I vectors of coefficients, from the digits before it.
  [[gnu::always_inline]] void digit(u32 i, typename F::V (&d)[W][I], const u64* x) const {
    const typename F::K k(p_[i]);
    typename F::V t[I];
    for (u32 n = 0; n < I; n++) t[n] = F::biased(F::load(x + n * F::LANES), bias_[i]);
#pragma GCC unroll 8
    for (u32 j = 0; j < i; j++) {
      for (u32 n = 0; n < I; n++) t[n] = F::garner(t[n], d[j][n], inverse_[i][j], k);
    }
    for (u32 n = 0; n < I; n++) d[i][n] = i == 0 ? F::first_digit(t[n], k) : F::next_digit(t[n], k);
  }

  u64 b_, T_, run_words_, overhang_;
  u64 p_[W];
  typename F::Tw bias_[W], inverse_[W][W];
};

} // namespace
} // namespace kelvane::ntt
