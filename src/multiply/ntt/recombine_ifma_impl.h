// Recombination with 52-bit multiplications, eight runs side by side: lane l of every vector belongs to run l
// of the group, so that one shift, one carry and one place in the sum serve all lanes.
//
// The runs are summed in base 2^52 without carries. Coefficient t adds d_i P_i 2^(t b), P_i = p_0 .. p_(i-1),
// for each of its digits: with t b = 52 k + s the factors P_i 2^s < 2^(48 i + 52) have i + 1 limbs, and the
// low and high halves of d_i times limb j go to limbs k + j and k + j + 1. A limb gathers at most 2 W halves
// from one coefficient, and W + 2 coefficients reach it, b being at least 52: below 2^4 2^4 2^52. One sweep
// at the end carries, packs 16 limbs into 13 words, and transposes lanes into runs.
#pragma once

#include "multiply/ntt/backend_ifma.h"
#include "multiply/ntt/recombine_impl.h"

namespace kelvane::ntt {
namespace {

template <u32 W> class Recombiner<Ifma, W> : RecombinerBase<Ifma, W> {
  using Base = RecombinerBase<Ifma, W>;
  using V = __m512i;
  static constexpr u32 I = 2; // coefficients at a time
  static constexpr u32 BLOCK_LIMBS = 16, BLOCK_WORDS = 13;
  static constexpr u32 MAX_LIMBS_OF_RUN = (MAX_RUN_WORDS + BLOCK_WORDS - 1) / BLOCK_WORDS * BLOCK_LIMBS;

public:
  static constexpr u32 RUNS = 8;

  Recombiner(const Shape& shape, const Factor* bias)
      : Base(shape, bias), T_(shape.tile()), words_(shape.run_words() + shape.overhang_words()) {
    alignas(64) u64 shift[MAX_TILE];
    for (u64 t = 0; t < T_; t++) {
      at_[t] = static_cast<u32>(t * shape.b / 52);
      shift[t] = t * shape.b % 52;
    }
    u64 limbs[W + 1] = {1}; // of P_i
    for (u32 i = 0; i < W; i++) {
      for (u64 t = 0; t < T_; t += 8) {
        const V s = Ifma::load(shift + t), back = Ifma::sub(Ifma::set(52), s);
        for (u32 j = 0; j <= i; j++) {
          V limb = _mm512_and_si512(_mm512_sllv_epi64(Ifma::set(limbs[j]), s), Ifma::set(Ifma::MASK));
          if (j > 0) limb = _mm512_or_si512(limb, _mm512_srlv_epi64(Ifma::set(limbs[j - 1]), back));
          Ifma::store(radix_[t / 8][i * (i + 1) / 2 + j], limb);
        }
      }
      u128 carry = 0;
      for (u32 j = 0; j <= W; j++) {
        carry += static_cast<u128>(limbs[j]) * this->p_[i];
        limbs[j] = static_cast<u64>(carry) & Ifma::MASK;
        carry >>= 52;
      }
    }
  }

  // sum[l] <- the words of run l: residues in x + l T and on, prime i at i stride. *top, unless null, is
  // raised to the largest d_(W-1). Meanwhile `ahead` advances by `parts`.
  void add_runs(u64 (*sum)[MAX_RUN_WORDS], const u64* x, u64 stride, u64* top, Ahead& ahead,
                u64 parts) const {
    const u64 parts_of_coefficient = (parts + T_ - 1) / T_;
    V limbs[MAX_LIMBS_OF_RUN];
    const u64 blocks = (words_ + BLOCK_WORDS - 1) / BLOCK_WORDS;
    const u64 reached = at_[T_ - 1] + W + 1, packed = blocks * BLOCK_LIMBS;
    for (u64 k = 0; k < (reached > packed ? reached : packed); k++) limbs[k] = Ifma::zero();
    V most = Ifma::zero();
    // Each digit waits for the one before it. Between them the digits of the last coefficients are added: at
    // first zeros.
    V last[W][I];
    for (u32 i = 0; i < W; i++) {
      for (u32 m = 0; m < I; m++) last[i][m] = Ifma::zero();
    }
    const u32* at = at_;
    const u64* radix = radix_[0][0];
    for (u64 t = 0; t < T_; t += 8) {
      alignas(64) u64 residues[W][8][8]; // [prime][coefficient][run]
      for (u32 i = 0; i < W; i++) {
        V v[8];
        for (u32 run = 0; run < 8; run++) v[run] = Ifma::load(x + i * stride + run * T_ + t);
        Ifma::transpose(v);
        for (u32 n = 0; n < 8; n++) Ifma::store(residues[i][n], v[n]);
      }
      for (u32 n = 0; n < 8; n += I) {
        V d[W][I], a[I][W + 1];
        for (u32 m = 0; m < I; m++) {
          for (u32 j = 0; j <= W; j++) a[m][j] = Ifma::zero();
        }
#pragma GCC unroll 8
        for (u32 i = 0; i < W; i++) {
          this->template digit<I>(i, d, residues[0][n], 64);
          for (u32 m = 0; m < I; m++) add_digit(i, a[m], last[i][m], radix + m);
        }
        for (u32 m = 0; m < I; m++) {
          add_limbs(limbs + *at++, a[m]);
          most = _mm512_max_epu64(most, d[W - 1][m]);
        }
        for (u32 i = 0; i < W; i++) {
          for (u32 m = 0; m < I; m++) last[i][m] = d[i][m];
        }
        at = at_ + t + n;
        radix = &radix_[t / 8][0][n];
        ahead.advance(I * parts_of_coefficient);
      }
    }
    for (u32 m = 0; m < I; m++) {
      V a[W + 1];
      for (u32 j = 0; j <= W; j++) a[j] = Ifma::zero();
#pragma GCC unroll 8
      for (u32 i = 0; i < W; i++) add_digit(i, a, last[i][m], radix + m);
      add_limbs(limbs + *at++, a);
    }
    if (top != nullptr) {
      const u64 seen = _mm512_reduce_max_epu64(most);
      *top = seen > *top ? seen : *top;
    }
    V carry = Ifma::zero();
    for (u64 block = 0; block < blocks; block++) {
      pack(limbs + block * BLOCK_WORDS, limbs + block * BLOCK_LIMBS, carry);
    }
    for (u64 word = 0; word < words_; word += 8) {
      V v[8];
      for (u32 n = 0; n < 8; n++) v[n] = limbs[word + n];
      Ifma::transpose(v);
      for (u32 run = 0; run < 8; run++) Ifma::store(sum[run] + word, v[run]);
    }
  }

private:
  static constexpr u32 MAX_TILE = 64;

  // a += digit i times P_i 2^s; entries of `radix` are 8 words apart.
  [[gnu::always_inline]] static void add_digit(u32 i, V* a, V digit, const u64* radix) {
#pragma GCC unroll 8
    for (u32 j = 0; j <= i; j++) {
      const V r = Ifma::set(radix[8 * (i * (i + 1) / 2 + j)]);
      a[j] = Ifma::low(a[j], digit, r);
      a[j + 1] = Ifma::high(a[j + 1], digit, r);
    }
  }
  [[gnu::always_inline]] static void add_limbs(V* limbs, const V* a) {
    for (u32 j = 0; j <= W; j++) limbs[j] = Ifma::add(limbs[j], a[j]);
  }

  // 13 words <- 16 limbs, in place or below; a word takes its bits from two or three limbs.
  [[gnu::always_inline]] static void pack(V* words, const V* limbs, V& carry) {
    V limb[BLOCK_LIMBS];
#pragma GCC unroll 16
    for (u32 k = 0; k < BLOCK_LIMBS; k++) {
      const V sum = Ifma::add(limbs[k], carry);
      limb[k] = _mm512_and_si512(sum, Ifma::set(Ifma::MASK));
      carry = _mm512_srli_epi64(sum, 52);
    }
#pragma GCC unroll 16
    for (u32 n = 0; n < BLOCK_WORDS; n++) {
      const u32 k = 64 * n / 52, from = 64 * n % 52;
      V word = _mm512_or_si512(_mm512_srli_epi64(limb[k], from), _mm512_slli_epi64(limb[k + 1], 52 - from));
      if (from > 40) word = _mm512_or_si512(word, _mm512_slli_epi64(limb[k + 2], 104 - from));
      words[n] = word;
    }
  }

  u64 T_, words_;
  u32 at_[MAX_TILE];                                        // limb in which coefficient t begins
  alignas(64) u64 radix_[MAX_TILE / 8][W * (W + 1) / 2][8]; // [t / 8][limb j of P_i 2^s][t % 8]
};

} // namespace
} // namespace kelvane::ntt
