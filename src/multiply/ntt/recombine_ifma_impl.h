// Recombination with 52-bit multiplications, eight runs side by side: lane l of every vector belongs to run l
// of the group, so that one shift, one carry and one place in the sum serve all lanes.
//
// Coefficients. With P the product of the W primes and M_i = P / p_i, residue i arrives as
// y_i = x_i / (g_i M_i) modulo p_i, g_i a small multiplier (see twiddles.h), so that the coefficient is
//     c = sum of y_i g_i M_i  - q P,   0 <= c < P,   q = floor(sum of y_i g_i / p_i).
// The y_i are in [0, 4), in units of p_i, and not reduced: q < 4 * 8 * 11 < 2^9. The second sum is formed in
// units of 2^-36: floor(y_i f_i / 2^52) with f_i = floor(2^88 g_i / p_i) falls short by less than 1.25, all of
// them by less than 10. A right coefficient is below 2^k <= P, k an integer (see shape.h), while P is at most
// a twentieth below 2^(48 W): c / P < 0.53. So the floor of the sum and 1/4 is q, and what is left of the sum
// is c / P.
//
// Words. The runs are summed in base 2^52 without carries. Coefficient t adds 2^(t b) c: with t b = 52 k + s
// the factors g_i M_i 2^s < 2^(48 (W - 1) + 4 + 52) have W limbs, and the low and high halves of y_i times
// limb j go to limbs k + j and k + j + 1. For -P 2^s = l - h 2^(52 W), 0 < l < 2^(52 W), q l is added alike
// and q h, below 2^50, is taken from limb k + W. The limbs of a coefficient are summed by themselves and then
// added to those that the last ones have reached; those below the next coefficient's are complete and leave
// with their carry, which may be negative. A limb gathers at most 2 W + 2 halves from one coefficient, and
// W + 1 coefficients reach it, b being at least 52: below 2^5 2^4 2^52. At the end 16 limbs are packed into
// 13 words, and lanes are transposed into runs.
#pragma once

#include <algorithm>

#include "multiply/ntt/backend_ifma.h"
#include "multiply/ntt/recombine_impl.h"

namespace kelvane::ntt {
namespace {

template <u32 W> class Recombiner<Ifma, W> {
  using V = __m512i;
  static constexpr u32 BLOCK_LIMBS = 16, BLOCK_WORDS = 13;
  // Whole blocks, and what the last coefficients reach.
  static constexpr u32 MAX_LIMBS_OF_RUN = (MAX_RUN_WORDS / BLOCK_WORDS + 2) * BLOCK_LIMBS;

public:
  static constexpr u32 RUNS = 8;
  static constexpr bool STREAMS = true; // shape.stream: past the caches

  Recombiner(const Shape& shape, const Factor* bias)
      : T_(shape.tile()), run_words_(shape.run_words()), overhang_(shape.overhang_words()),
        stream_(shape.stream) {
    const u32 set = transform_set(Ifma::BACKEND, W);
    alignas(64) u64 shift[MAX_TILE];
    for (u64 t = 0; t <= T_; t++) at_[t] = static_cast<u32>(t * shape.b / 52);
    for (u64 t = 0; t < T_; t++) shift[t] = t * shape.b % 52;
    for (u32 i = 0; i <= W; i++) { // P comes last
      u64 limbs[W + 1] = {i < W ? prime_table(Ifma::BACKEND, i).multiplier[set] : 1};
      for (u32 j = 0; j < W; j++) {
        if (j != i) multiply(limbs, prime_table(Ifma::BACKEND, j).p);
      }
      for (u64 t = 0; t < T_; t += 8) shifted(radix_[t / 8] + i * W, limbs, Ifma::load(shift + t), i == W);
      if (i == W) break;
      const PrimeTable& table = prime_table(Ifma::BACKEND, i);
      fraction_[i] = static_cast<u64>((static_cast<u128>(table.multiplier[set]) << 88) / table.p);
      bias_[i] = bias == nullptr ? 0 : field_of(Ifma::BACKEND, i).mul(bias[i].value, table.scale[set]);
    }
    last_prime_ = prime_table(Ifma::BACKEND, W - 1).p;
  }

  // The words of run l, from residues at x + l T and on, prime i at i stride, go to `to`. *top, unless null,
  // is raised to the largest floor(c / (p_0 .. p_(W-2))), or up to 2^16 less. Meanwhile `ahead` advances by
  // `parts`.
  void put_runs(const RunsTo& to, const u64* x, u64 stride, u64* top, Ahead& ahead, u64 parts) const {
    const u64 parts_of_step = (parts * 8 + T_ - 1) / T_;
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
      for (u32 n = 0; n < 8; n++) {
        const V fraction = add_coefficient(a, residues[0][n], radix_[t / 8][0] + n);
        if (top != nullptr) most = _mm512_max_epi64(most, fraction);
        leave(at_[t + n + 1] - at_[t + n], a, limb, carry);
      }
      ahead.advance(parts_of_step);
    }
    leave_some<W + 1>(a, limb, carry);
    if (top != nullptr) {
      const auto fraction = static_cast<u64>(_mm512_reduce_max_epi64(most));
      *top = std::max(*top, static_cast<u64>(static_cast<u128>(fraction) * last_prime_ >> FRACTION_LOG));
    }
    const u64 words = run_words_ + overhang_, blocks = (words + BLOCK_WORDS - 1) / BLOCK_WORDS;
    while (limb < limbs + blocks * BLOCK_LIMBS) *limb++ = Ifma::zero();
    for (u64 block = 0; block < blocks; block++)
      pack(limbs + block * BLOCK_WORDS, limbs + block * BLOCK_LIMBS);
    store_runs(to, limbs);
  }

private:
  static constexpr u32 MAX_TILE = 64;
  static constexpr u32 FRACTION_LOG = 36;

  // limbs <- limbs x, W + 1 of 52 bits.
  static void multiply(u64* limbs, u64 x) {
    u128 carry = 0;
    for (u32 j = 0; j <= W; j++) {
      carry += static_cast<u128>(limbs[j]) * x;
      limbs[j] = static_cast<u64>(carry) & Ifma::MASK;
      carry >>= 52;
    }
  }
  // Limbs of x 2^s for eight s: W of them, or of a `negative` one the W of l and then h.
  static void shifted(u64 (*out)[8], const u64* x, V s, bool negative) {
    V borrow = Ifma::zero();
    for (u32 j = 0; j < W + negative; j++) {
      V limb = _mm512_sllv_epi64(Ifma::set(x[j]), s);
      if (j > 0)
        limb = _mm512_or_si512(limb, _mm512_srlv_epi64(Ifma::set(x[j - 1]), Ifma::sub(Ifma::set(52), s)));
      limb = _mm512_and_si512(limb, Ifma::set(Ifma::MASK));
      if (negative && j < W) {
        const V difference = Ifma::sub(borrow, limb);
        borrow = _mm512_srai_epi64(difference, 52);
        limb = _mm512_and_si512(difference, Ifma::set(Ifma::MASK));
      } else if (negative) {
        limb = Ifma::sub(limb, borrow);
      }
      Ifma::store(out[j], limb);
    }
  }

  // a += 2^s c for the coefficient with residues at y, 64 words apart; constants at `radix`, 8 words apart.
  // Returns 2^FRACTION_LOG c / P.
  [[gnu::always_inline]] V add_coefficient(V* a, const u64* y, const u64* radix) const {
    V sum[W + 1], fraction = Ifma::zero();
    for (u32 j = 0; j <= W; j++) sum[j] = Ifma::zero();
    const auto add = [&](u32 i, V factor) __attribute__((always_inline)) {
#pragma GCC unroll 8
      for (u32 j = 0; j < W; j++) {
        const V limb = Ifma::set(radix[8 * (i * W + j)]);
        sum[j] = Ifma::low(sum[j], factor, limb);
        sum[j + 1] = Ifma::high(sum[j + 1], factor, limb);
      }
    };
#pragma GCC unroll 8
    for (u32 i = 0; i < W; i++) {
      const V residue = Ifma::add(Ifma::load(y + 64 * i), Ifma::set(bias_[i]));
      fraction = Ifma::high(fraction, residue, Ifma::set(fraction_[i]));
      add(i, residue);
    }
    const V q = _mm512_srli_epi64(Ifma::add(fraction, Ifma::set(u64{1} << (FRACTION_LOG - 2))), FRACTION_LOG);
    add(W, q);
    sum[W] = Ifma::sub(sum[W], Ifma::low(Ifma::zero(), q, Ifma::set(radix[8 * (W + 1) * W])));
#pragma GCC unroll 16
    for (u32 j = 0; j <= W; j++) a[j] = Ifma::add(a[j], sum[j]);
    return Ifma::sub(fraction, _mm512_slli_epi64(q, FRACTION_LOG));
  }

  // The lowest N limbs leave, the others move down.
  template <u32 N> [[gnu::always_inline]] static void leave_some(V* a, V*& limb, V& carry) {
    for (u32 j = 0; j < N; j++) {
      const V sum = Ifma::add(a[j], carry);
      *limb++ = _mm512_and_si512(sum, Ifma::set(Ifma::MASK));
      carry = _mm512_srai_epi64(sum, 52);
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
  u64 bias_[W], fraction_[W], last_prime_;
  u32 at_[MAX_TILE + 1]; // limb in which coefficient t begins
  // [t / 8][limb j of g_i M_i 2^s, of l, h][t % 8]
  alignas(64) u64 radix_[MAX_TILE / 8][W * (W + 1) + 1][8];
};

} // namespace
} // namespace kelvane::ntt
