// Recombination with 52-bit multiplications, eight runs side by side: lane l of every vector belongs to run l
// of the group, so that one shift, one carry and one place in the sum serve all lanes.
//
// Digits. With P_i = p_0 .. p_(i-1), residue i arrives as y_i = x_i / P_i modulo p_i in [0, 3), in units of
// p_i, and the table holds c_j = -P_j / P_i modulo p_i, so that
//     d_i = y_i + d_0 c_0 + .. + d_(i-1) c_(i-1)  modulo p_i.
// The whole sum is reduced once. Its quotient is summed in sixteenths: floor(16 y_i / 2^48) falls short of
// 16 y_i / p_i by less than 1.3, floor(16 d_j q_j / 2^52) with q_j = floor(2^52 c_j / p_i) of its share by
// less than 1 + 1/16 (d_j < 2^48 brings the error of q_j to 1 at most: 2 in all). With W <= 8: less than 15.3
// sixteenths and the fraction itself, so the remainder is in [0, 2) and one subtraction is left.
//
// Words. The runs are summed in base 2^52 without carries. Coefficient t adds d_i P_i 2^(t b) for each of its
// digits: with t b = 52 k + s the factors P_i 2^s < 2^(48 i + 52) have i + 1 limbs, and the low and high
// halves of d_i times limb j go to limbs k + j and k + j + 1. The W + 1 limbs that a coefficient reaches stay
// in registers; those below the next one's are complete and leave with their carry. A limb gathers at most
// 2 W halves from one coefficient, and W + 2 coefficients reach it, b being at least 52: below 2^4 2^4 2^52.
// At the end 16 limbs are packed into 13 words, and lanes are transposed into runs.
#pragma once

#include "multiply/ntt/backend_ifma.h"
#include "multiply/ntt/recombine_impl.h"

namespace kelvane::ntt {
namespace {

template <u32 W> class Recombiner<Ifma, W> {
  using V = __m512i;
  static constexpr u32 I = 4; // coefficients at a time
  static constexpr u32 BLOCK_LIMBS = 16, BLOCK_WORDS = 13;
  // Whole blocks, and what the last coefficients reach.
  static constexpr u32 MAX_LIMBS_OF_RUN = (MAX_RUN_WORDS / BLOCK_WORDS + 2) * BLOCK_LIMBS;

public:
  static constexpr u32 RUNS = 8;
  static constexpr bool STREAMS = true; // shape.stream: past the caches

  Recombiner(const Shape& shape, const Factor* bias)
      : T_(shape.tile()), run_words_(shape.run_words()), overhang_(shape.overhang_words()),
        stream_(shape.stream) {
    alignas(64) u64 shift[MAX_TILE];
    for (u64 t = 0; t <= T_; t++) at_[t] = static_cast<u32>(t * shape.b / 52);
    for (u64 t = 0; t < T_; t++) shift[t] = t * shape.b % 52;
    u64 limbs[W + 1] = {1}; // of P_i
    for (u32 i = 0; i < W; i++) {
      const PrimeTable& table = prime_table(Ifma::BACKEND, i);
      p_[i] = table.p;
      for (u32 j = 0; j < i; j++) garner_[i][j] = table.garner[j];
      bias_[i] = bias == nullptr ? 0 : bias[i].value;
      if (i > 0)
        bias_[i] = field_of(Ifma::BACKEND, i).mul(bias_[i], p_[i] - table.garner[0].value); // over P_i
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
        carry += static_cast<u128>(limbs[j]) * p_[i];
        limbs[j] = static_cast<u64>(carry) & Ifma::MASK;
        carry >>= 52;
      }
    }
  }

  // The words of run l, from residues at x + l T and on, prime i at i stride, go to `to`. *top, unless null,
  // is raised to the largest d_(W-1). Meanwhile `ahead` advances by `parts`.
  void put_runs(const RunsTo& to, const u64* x, u64 stride, u64* top, Ahead& ahead, u64 parts) const {
    const u64 parts_of_step = (parts * I + T_ - 1) / T_;
    V limbs[MAX_LIMBS_OF_RUN];
    V* limb = limbs;
    V a[W + 1], carry = Ifma::zero(), most = Ifma::zero();
    for (u32 j = 0; j <= W; j++) a[j] = Ifma::zero();
    for (u64 t = 0; t < T_; t += 8) {
      alignas(64) u64 residues[W][8][8]; // [prime][coefficient][run]
      for (u32 i = 0; i < W; i++) {
        V v[8];
        for (u32 run = 0; run < 8; run++) v[run] = Ifma::load(x + i * stride + run * T_ + t);
        Ifma::transpose(v);
        for (u32 n = 0; n < 8; n++) Ifma::store(residues[i][n], v[n]);
      }
      for (u32 n = 0; n < 8; n += I) {
        V d[W][I];
#pragma GCC unroll 8
        for (u32 i = 0; i < W; i++) digit(i, d, residues[i][n]);
        for (u32 m = 0; m < I; m++) {
          const u64* const radix = &radix_[t / 8][0][n + m];
#pragma GCC unroll 8
          for (u32 i = 0; i < W; i++) add_digit(i, a, d[i][m], radix);
          leave(at_[t + n + m + 1] - at_[t + n + m], a, limb, carry);
          most = _mm512_max_epu64(most, d[W - 1][m]);
        }
        ahead.advance(parts_of_step);
      }
    }
    leave_some<W + 1>(a, limb, carry);
    if (top != nullptr) {
      const u64 seen = _mm512_reduce_max_epu64(most);
      *top = seen > *top ? seen : *top;
    }
    const u64 words = run_words_ + overhang_, blocks = (words + BLOCK_WORDS - 1) / BLOCK_WORDS;
    while (limb < limbs + blocks * BLOCK_LIMBS) *limb++ = Ifma::zero();
    for (u64 block = 0; block < blocks; block++)
      pack(limbs + block * BLOCK_WORDS, limbs + block * BLOCK_LIMBS);
    store_runs(to, limbs);
  }

private:
  static constexpr u32 MAX_TILE = 64;

  // Digit i of I vectors of coefficients, from the digits before it.
  [[gnu::always_inline]] void digit(u32 i, V (&d)[W][I], const u64* x) const {
    V sum[I], q[I];
    for (u32 m = 0; m < I; m++) {
      sum[m] = Ifma::add(Ifma::load(x + m * 8), Ifma::set(bias_[i]));
      q[m] = _mm512_srli_epi64(_mm512_slli_epi64(sum[m], 12), 56); // of the low 52 bits, the upper 8
    }
#pragma GCC unroll 8
    for (u32 j = 0; j < i; j++) {
      const Ifma::Tw c = Ifma::broadcast(garner_[i][j]);
      for (u32 m = 0; m < I; m++) {
        q[m] = Ifma::high(q[m], _mm512_slli_epi64(d[j][m], 4), c.q);
        sum[m] = Ifma::low(sum[m], d[j][m], c.w);
      }
    }
    const V p = Ifma::set(p_[i]), minus_p = Ifma::set((u64{1} << 52) - p_[i]);
    for (u32 m = 0; m < I; m++) {
      sum[m] = Ifma::low(sum[m], _mm512_srli_epi64(q[m], 4), minus_p);
      sum[m] = _mm512_and_si512(sum[m], Ifma::set(Ifma::MASK));
      d[i][m] = _mm512_min_epu64(sum[m], Ifma::sub(sum[m], p));
    }
  }

  // a += digit i times P_i 2^s; entries of `radix` are 8 words apart.
  [[gnu::always_inline]] static void add_digit(u32 i, V* a, V digit, const u64* radix) {
#pragma GCC unroll 8
    for (u32 j = 0; j <= i; j++) {
      const V r = Ifma::set(radix[8 * (i * (i + 1) / 2 + j)]);
      a[j] = Ifma::low(a[j], digit, r);
      a[j + 1] = Ifma::high(a[j + 1], digit, r);
    }
  }

  // The lowest N limbs leave, the others move down.
  template <u32 N> [[gnu::always_inline]] static void leave_some(V* a, V*& limb, V& carry) {
    for (u32 j = 0; j < N; j++) {
      const V sum = Ifma::add(a[j], carry);
      *limb++ = _mm512_and_si512(sum, Ifma::set(Ifma::MASK));
      carry = _mm512_srli_epi64(sum, 52);
    }
    for (u32 j = 0; j <= W; j++) a[j] = j + N <= W ? a[j + N] : Ifma::zero();
  }
  [[gnu::always_inline]] static void leave(u32 n, V* a, V*& limb, V& carry) {
    static_assert(MAX_RUN_WORDS <= 224); // b <= 208 = 4 * 52
    if (n == 1)
      leave_some<1>(a, limb, carry);
    else if (n == 2)
      leave_some<2>(a, limb, carry);
    else if (n == 3)
      leave_some<3>(a, limb, carry);
    else
      leave_some<4>(a, limb, carry);
  }

  // 13 words <- 16 limbs, in place or below; a word takes its bits from two or three limbs.
  [[gnu::always_inline]] static void pack(V* words, const V* limbs) {
    V limb[BLOCK_LIMBS];
#pragma GCC unroll 16
    for (u32 k = 0; k < BLOCK_LIMBS; k++) limb[k] = limbs[k];
#pragma GCC unroll 16
    for (u32 n = 0; n < BLOCK_WORDS; n++) {
      const u32 k = 64 * n / 52, from = 64 * n % 52;
      V word = _mm512_or_si512(_mm512_srli_epi64(limb[k], from), _mm512_slli_epi64(limb[k + 1], 52 - from));
      if (from > 40) word = _mm512_or_si512(word, _mm512_slli_epi64(limb[k + 2], 104 - from));
      words[n] = word;
    }
  }

  // words[n] holds word n of every run. Whole cache lines are written at once, past the caches if the runs of
  // the group, a multiple of eight words apart in all but the shortest products, agree in where they begin.
  void store_runs(const RunsTo& to, const V* words) const {
    const auto line_offset = [](const u64* a) { return reinterpret_cast<std::uintptr_t>(a) / 8 % 8; };
    const u64 head = (8 - line_offset(to.words[0])) % 8;
    bool stream = stream_;
    for (u32 run = 1; run < RUNS; run++)
      stream = stream && line_offset(to.words[run]) == line_offset(to.words[0]);
    const auto one_by_one = [&](u64 from, u64 end) {
      const u64* const lanes = reinterpret_cast<const u64*>(words);
      for (u32 run = 0; run < RUNS; run++) {
        for (u64 i = from; i < end; i++) to.words[run][i] = lanes[8 * i + run];
      }
    };
    one_by_one(0, head);
    u64 i = head;
    for (; i + 8 <= run_words_; i += 8) {
      V v[8];
      for (u32 n = 0; n < 8; n++) v[n] = words[i + n];
      Ifma::transpose(v);
      for (u32 run = 0; run < RUNS; run++) {
        if (stream)
          Ifma::stream(to.words[run] + i, v[run]);
        else
          _mm512_storeu_si512(to.words[run] + i, v[run]);
      }
    }
    one_by_one(i, run_words_);
    const u64* const lanes = reinterpret_cast<const u64*>(words + run_words_);
    for (u32 run = 0; run < RUNS; run++) {
      for (u64 j = 0; j < overhang_; j++) to.overhang[run * overhang_ + j] = lanes[8 * j + run];
    }
  }

  u64 T_, run_words_, overhang_;
  bool stream_;
  u64 p_[W], bias_[W];
  Factor garner_[W][W];
  u32 at_[MAX_TILE + 1];                                    // limb in which coefficient t begins
  alignas(64) u64 radix_[MAX_TILE / 8][W * (W + 1) / 2][8]; // [t / 8][limb j of P_i 2^s][t % 8]
};

} // namespace
} // namespace kelvane::ntt
