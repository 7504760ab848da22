// Recombination with 52-bit multiplications: coefficients are assembled, packed and shifted in the vector
// unit, eight at a time; only their addition to the run is left to the general registers.
#pragma once

#include "multiply/ntt/backend_ifma.h"
#include "multiply/ntt/recombine_impl.h"

namespace kelvane::ntt {
namespace {

template <u32 W> class Recombiner<Ifma, W> : RecombinerBase<Ifma, W> {
  using Base = RecombinerBase<Ifma, W>;
  using V = __m512i;
  static constexpr u32 WORDS = Base::WORDS, I = 2;

public:
  Recombiner(const Shape& shape, const Factor* bias) : Base(shape, bias) {
    // p_0 .. p_(i-1) in limbs of 52 bits: W limbs hold it, each prime having 48.
    u64 limbs[W + 1] = {1};
    for (u32 i = 0; i < W; i++) {
      for (u32 j = 0; j < W; j++) radix_[i][j] = Ifma::set(limbs[j]);
      u128 carry = 0;
      for (u32 j = 0; j < W; j++) {
        carry += static_cast<u128>(limbs[j]) * this->p_[i];
        limbs[j] = static_cast<u64>(carry) & Ifma::MASK;
        carry >>= 52;
      }
    }
    lane_bits_ = _mm512_mullo_epi64(_mm512_setr_epi64(0, 1, 2, 3, 4, 5, 6, 7), Ifma::set(this->b_));
  }

  void add_run(u64* sum, const u64* x, u64 stride, u64 T, u64* top) const {
    alignas(64) u64 words[4][WORDS + 1][8]; // T <= 32
    for (u64 t = 0; t < T; t += 8 * I) {
      if (T - t < 8 * I)
        assemble<1>(words + t / 8, x + t, stride, t, top);
      else
        assemble<I>(words + t / 8, x + t, stride, t, top);
    }
    u64 bit = 0;
    for (u64 t = 0; t < T; t += 8) {
      for (u32 lane = 0; lane < 8; lane++, bit += this->b_) {
        add_words<WORDS, 8>(sum + (bit >> 6), &words[t / 8][0][lane]);
      }
    }
  }

private:
  template <u32 N>
  [[gnu::always_inline]] void assemble(u64 (*words)[WORDS + 1][8], const u64* x, u64 stride, u64 t,
                                       u64* top) const {
    V d[W][N];
    this->template digits<N>(d, x, stride);
    if (top != nullptr) {
      V most = Ifma::set(*top);
      for (u32 n = 0; n < N; n++) most = _mm512_max_epu64(most, d[W - 1][n]);
      *top = _mm512_reduce_max_epu64(most);
    }
    for (u32 n = 0; n < N; n++) {
      // Limb j gathers at most W low and W high halves: below 2 W 2^52 < 2^56; one sweep of carries.
      V a[W + 1];
      a[0] = d[0][n];
      for (u32 j = 1; j <= W; j++) a[j] = Ifma::zero();
#pragma GCC unroll 8
      for (u32 i = 1; i < W; i++) {
#pragma GCC unroll 8
        for (u32 j = 0; j < i; j++) {
          a[j] = Ifma::low(a[j], d[i][n], radix_[i][j]);
          a[j + 1] = Ifma::high(a[j + 1], d[i][n], radix_[i][j]);
        }
      }
      const V mask = Ifma::set(Ifma::MASK);
#pragma GCC unroll 8
      for (u32 j = 0; j + 1 < W; j++) {
        a[j + 1] = Ifma::add(a[j + 1], _mm512_srli_epi64(a[j], 52));
        a[j] = _mm512_and_si512(a[j], mask);
      }
      V w[WORDS + 1];
      for (u32 j = 0; j <= WORDS; j++) w[j] = Ifma::zero();
#pragma GCC unroll 8
      for (u32 j = 0; j < W; j++) {
        const u32 at = 52 * j / 64, shift = 52 * j % 64;
        if (at < WORDS) w[at] = _mm512_or_si512(w[at], _mm512_slli_epi64(a[j], shift));
        if (shift > 12 && at + 1 < WORDS)
          w[at + 1] = _mm512_or_si512(w[at + 1], _mm512_srli_epi64(a[j], 64 - shift));
      }
      const V bits = Ifma::add(Ifma::set((t + 8 * n) * this->b_), lane_bits_);
      const V shift = _mm512_and_si512(bits, Ifma::set(63)), back = Ifma::sub(Ifma::set(64), shift);
      Ifma::store(words[n][0], _mm512_sllv_epi64(w[0], shift));
#pragma GCC unroll 8
      for (u32 j = 1; j <= WORDS; j++) { // a shift by 64 gives 0
        Ifma::store(words[n][j],
                    _mm512_or_si512(_mm512_sllv_epi64(w[j], shift), _mm512_srlv_epi64(w[j - 1], back)));
      }
    }
  }

  V radix_[W][W], lane_bits_;
};

} // namespace
} // namespace kelvane::ntt
