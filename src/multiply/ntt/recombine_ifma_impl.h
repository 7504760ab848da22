// Recombination with 52-bit multiplications, eight runs side by side: lane l of every vector belongs to run l
// of the group, so that one shift, one carry and one place in the sum serve all lanes.
//
// Coefficients. With P the product of the W primes and M_i = P / p_i, residue i arrives as
// y_i = x_i / (g_i M_i) modulo p_i, g_i a small multiplier (see twiddles.h), so that the coefficient is
//     c = sum of y_i g_i M_i  - q P,   0 <= c < P,   q = floor(sum of y_i g_i / p_i).
// The sum is formed by pairs of primes, and what is left of an odd number, which takes fewer multiplications:
//     u = y_i g_i p_j + y_j g_j p_i,   c = sum of u N - q P,   N = P / (p_i p_j) < 2^(48 (W - 2)).
// The y_i are in [0, 8), in units of p_i, and not reduced. A bias is a sum of the same kind with y_i in
// [0, 1), formed once. With G the sum of the g_i, at most 24, q <= 9 G < Q = 9 G + 1 <= 217.
//
// The sum of the fractions u / (p_i p_j) is formed in units of 2^-36: u has two limbs of base 2^52 and is
// below 8 * 16 * 2^96 = 2^103, v is its upper limb less a carry of the lower one, and floor(v f / 2^52) with
// 2^140 / (p_i p_j) - 3 < f falls short by less than 3, that of an odd prime, floor(y f / 2^52) with
// f = floor(2^88 g / p), by less than 2, the bias by less than 2: all of them by less than 14. A right
// coefficient is below 2^k <= P, k an integer (see shape.h), while P is at most a twentieth below 2^(48 W):
// c / P < 0.53. So the floor of the sum and 1/4 is q, and what is left of the sum is c / P.
//
// For -q P the u of the first pair, below 16 * 2^96, is raised by (Q - q) p_0 p_1, to less than 2^104, and
// every sum begins with -Q P. Limb j < W - 1 of a sum gathers at most 4 halves from each pair, 2 from an odd
// prime and what it begins with, below 17 * 2^52; the highest makes up the rest and may be negative.
//
// Words. The runs are summed in base 2^52 without carries. Coefficient t adds 2^(t b) c: with t b = 52 k + s
// limb j of c adds the lower 52 bits of 2^s times it to limb k + j, the others, below 17 * 2^s, to limb
// k + j + 1. The limbs below the next coefficient's are complete and leave with their carry, which may be
// negative. W + 1 coefficients reach a limb, b being at least 52: below 9 * 10 * 2^52. At the end 16 limbs
// are packed into 13 words, and lanes are transposed into runs.
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
    for (u64 t = 0; t <= T_; t++) at_[t] = static_cast<u32>(t * shape.b / 52);
    for (u64 t = 0; t < T_; t++) shift_[t] = static_cast<u32>(t * shape.b % 52);
    u64 p[W], g[W];
    for (u32 i = 0; i < W; i++) {
      p[i] = prime_table(Ifma::BACKEND, i).p;
      g[i] = prime_table(Ifma::BACKEND, i).multiplier[set];
    }
    for (u32 k = 0; k < PAIRS; k++) {
      const u32 i = 2 * k, j = i + 1;
      partner_[i] = Ifma::set(g[i] * p[j]);
      partner_[j] = Ifma::set(g[j] * p[i]);
      broadcast(others_[k], product_of_others(p, i, j, 1));
      const u64 f = static_cast<u64>((static_cast<u128>(1) << 92) / p[i]);
      fraction_[k] = Ifma::set(static_cast<u64>((static_cast<u128>(f) << 48) / p[j]));
    }
    if constexpr (ODD) {
      broadcast(last_, product_of_others(p, W - 1, W - 1, g[W - 1]));
      fraction_[PAIRS] = Ifma::set(fraction_of(p, g, W - 1));
    }
    const u128 first = static_cast<u128>(p[0]) * p[1];
    first_[0] = Ifma::set(static_cast<u64>(first) & Ifma::MASK);
    first_[1] = Ifma::set(static_cast<u64>(first >> 52));
    begin(p, g, bias, set);
    last_prime_ = p[W - 1];
  }

  // The words of run l go to `to`. residues.load(i, t, v) brings those modulo prime i of coefficients t to
  // t + 7, run l's in v[l], each in [0, 8) p_i. *top, unless null, is raised to the largest
  // floor(c / (p_0 .. p_(W-2))), or up to 2^16 less. Meanwhile `ahead` advances by `parts`.
  template <class Residues>
  void put_runs(const RunsTo& to, const Residues& residues, u64* top, Ahead& ahead, u64 parts) const {
    const u64 parts_of_step = (parts * 8 + T_ - 1) / T_;
    V limbs[MAX_LIMBS_OF_RUN];
    V* limb = limbs;
    V a[W + 1], carry = Ifma::zero(), most = Ifma::set(QUARTER);
    for (u32 j = 0; j <= W; j++) a[j] = Ifma::zero();
    for (u64 t = 0; t < T_; t += 8) {
      V u[8][W];
      const V fraction = form_pairs(u, residues, t);
      if (top != nullptr) most = _mm512_max_epi64(most, fraction);
      for (u32 n = 0; n < 8; n++) {
        V c[W];
        coefficient(c, u[n]);
        add_shifted(a, c, shift_[t + n]);
        leave(at_[t + n + 1] - at_[t + n], a, limb, carry);
      }
      ahead.advance(parts_of_step);
    }
    leave_some<W + 1>(a, limb, carry);
    if (top != nullptr) {
      const u64 fraction = static_cast<u64>(_mm512_reduce_max_epi64(most)) - QUARTER;
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
  static constexpr u32 PAIRS = W / 2;
  static constexpr bool ODD = W % 2 != 0;
  static constexpr u32 FRACTION_LOG = 36;
  static constexpr u64 FRACTION = (u64{1} << FRACTION_LOG) - 1, QUARTER = u64{1} << (FRACTION_LOG - 2);

  // Numbers of W limbs while constants are made.
  struct Limbs {
    u64 limb[W] = {};
    // this <- this x, which fits.
    void multiply(u64 x) {
      u128 carry = 0;
      for (u64& l : limb) {
        carry += static_cast<u128>(l) * x;
        l = static_cast<u64>(carry) & Ifma::MASK;
        carry >>= 52;
      }
    }
  };
  // x times the primes but numbers i and j.
  static Limbs product_of_others(const u64* p, u32 i, u32 j, u64 x) {
    Limbs product;
    product.limb[0] = x;
    for (u32 k = 0; k < W; k++) {
      if (k != i && k != j) product.multiply(p[k]);
    }
    return product;
  }
  static void broadcast(V (&to)[W], const Limbs& x) {
    for (u32 j = 0; j < W; j++) to[j] = Ifma::set(x.limb[j]);
  }
  static u64 fraction_of(const u64* p, const u64* g, u32 i) {
    return static_cast<u64>((static_cast<u128>(g[i]) << 88) / p[i]);
  }
  // What every sum begins with: that of the bias, less Q P.
  void begin(const u64* p, const u64* g, const Factor* bias, u32 set) {
    u64 Q = 1;
    for (u32 i = 0; i < W; i++) Q += 9 * g[i];
    const Limbs subtracted = product_of_others(p, W, W, Q);
    s64 sum[W];
    for (u32 j = 0; j < W; j++) sum[j] = -static_cast<s64>(subtracted.limb[j]);
    u128 fraction = 0;
    for (u32 i = 0; i < W && bias != nullptr; i++) {
      const u64 y = field_of(Ifma::BACKEND, i).mul(bias[i].value, prime_table(Ifma::BACKEND, i).scale[set]);
      Limbs x = product_of_others(p, i, i, g[i]);
      x.multiply(y);
      for (u32 j = 0; j < W; j++) sum[j] += static_cast<s64>(x.limb[j]);
      fraction += static_cast<u128>(fraction_of(p, g, i)) * y;
    }
    for (u32 j = 0; j + 1 < W; j++) { // the highest limb keeps the sign
      sum[j + 1] += sum[j] >> 52;
      sum[j] &= static_cast<s64>(Ifma::MASK);
    }
    for (u32 j = 0; j < W; j++) begin_[j] = Ifma::set(static_cast<u64>(sum[j]));
    begin_fraction_ = Ifma::set(QUARTER + static_cast<u64>(fraction >> 52));
    Q_ = Ifma::set(Q);
  }

  // u[n] <- what coefficient t + n is formed of: the lower limb of pair k in 2 k, the upper one in 2 k + 1,
  // and y of an odd prime. Returns the largest 2^FRACTION_LOG (c / P + 1/4).
  template <class Residues>
  KELVANE_INLINE_LARGE V form_pairs(V (&u)[8][W], const Residues& residues, u64 t) const {
    V fraction[8], largest = Ifma::zero();
    for (u32 n = 0; n < 8; n++) fraction[n] = begin_fraction_;
    if constexpr (ODD) {
      V y[8];
      residues.load(W - 1, t, y);
      Ifma::transpose(y);
      for (u32 n = 0; n < 8; n++) {
        u[n][W - 1] = y[n];
        fraction[n] = Ifma::high(fraction[n], y[n], fraction_[PAIRS]);
      }
    }
    for (u32 k = PAIRS; k-- > 0;) { // the first one comes last: q is known then
      V x[8], y[8];
      residues.load(2 * k, t, x);
      Ifma::transpose(x);
      residues.load(2 * k + 1, t, y);
      Ifma::transpose(y);
      const V by_x = partner_[2 * k], by_y = partner_[2 * k + 1], f = fraction_[k];
      for (u32 n = 0; n < 8; n++) {
        V upper = Ifma::high(Ifma::high(Ifma::zero(), x[n], by_x), y[n], by_y);
        V lower = Ifma::low(Ifma::low(Ifma::zero(), x[n], by_x), y[n], by_y);
        fraction[n] = Ifma::high(fraction[n], upper, f);
        if (k == 0) {
          const V q = Ifma::sub(Q_, _mm512_srli_epi64(fraction[n], FRACTION_LOG)); // Q - q
          lower = Ifma::low(lower, q, first_[0]);
          upper = Ifma::low(Ifma::high(upper, q, first_[0]), q, first_[1]);
          largest = _mm512_max_epi64(largest, _mm512_and_si512(fraction[n], Ifma::set(FRACTION)));
        }
        u[n][2 * k] = lower;
        u[n][2 * k + 1] = Ifma::add(upper, _mm512_srli_epi64(lower, 52));
      }
    }
    return largest;
  }

  // The limbs of c. Halves are summed apart: all in one the additions, each waiting for the one before, would
  // take longer than the multipliers need.
  KELVANE_INLINE_LARGE void coefficient(V (&c)[W], const V (&u)[W]) const {
    V low_lower[W], high_lower[W], low_upper[W], high_upper[W];
#pragma GCC unroll 8
    for (u32 j = 0; j < W; j++) {
      low_lower[j] = begin_[j];
      high_lower[j] = low_upper[j] = high_upper[j] = Ifma::zero();
    }
    if constexpr (ODD) {
#pragma GCC unroll 8
      for (u32 j = 0; j + 1 < W; j++) {
        low_lower[j] = Ifma::low(low_lower[j], u[W - 1], last_[j]);
        high_lower[j + 1] = Ifma::high(high_lower[j + 1], u[W - 1], last_[j]);
      }
    }
#pragma GCC unroll 4
    for (u32 k = 0; k < PAIRS; k++) {
#pragma GCC unroll 8
      for (u32 j = 0; j + 2 < W; j++) {
        const V limb = others_[k][j], lower = u[2 * k], upper = u[2 * k + 1];
        low_lower[j] = Ifma::low(low_lower[j], lower, limb);
        high_lower[j + 1] = Ifma::high(high_lower[j + 1], lower, limb);
        low_upper[j + 1] = Ifma::low(low_upper[j + 1], upper, limb);
        high_upper[j + 2] = Ifma::high(high_upper[j + 2], upper, limb);
      }
    }
#pragma GCC unroll 8
    for (u32 j = 0; j < W; j++)
      c[j] = Ifma::add(Ifma::add(low_lower[j], high_upper[j]), Ifma::add(high_lower[j], low_upper[j]));
  }

  // a += 2^s c.
  KELVANE_INLINE_LARGE static void add_shifted(V (&a)[W + 1], const V (&c)[W], u32 s) {
    const V power = Ifma::set(u64{1} << s), down = Ifma::set(52 - s);
#pragma GCC unroll 8
    for (u32 j = 0; j < W; j++) {
      a[j] = Ifma::low(a[j], c[j], power);
      a[j + 1] = Ifma::add(a[j + 1], _mm512_srav_epi64(c[j], down));
    }
  }

  // The lowest N limbs leave, the others move down.
  template <u32 N> KELVANE_INLINE_LARGE static void leave_some(V (&a)[W + 1], V*& limb, V& carry) {
    for (u32 j = 0; j < N; j++) {
      const V sum = Ifma::add(a[j], carry);
      *limb++ = _mm512_and_si512(sum, Ifma::set(Ifma::MASK));
      carry = _mm512_srai_epi64(sum, 52);
    }
    for (u32 j = 0; j <= W; j++) a[j] = j + N <= W ? a[j + N] : Ifma::zero();
  }
  KELVANE_INLINE_LARGE static void leave(u32 n, V (&a)[W + 1], V*& limb, V& carry) {
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
  KELVANE_INLINE_LARGE static void pack(V* words, const V* limbs) {
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
      for (u64 j = 0; j < overhang_; j++) to.overhang[run][j] = lanes[8 * j + run];
    }
  }

  u64 T_, run_words_, overhang_;
  bool stream_;
  u64 last_prime_;
  // Constants, the same in all lanes.
  V partner_[2 * PAIRS];         // g_i p_j for the pair (i, j)
  V others_[PAIRS][W], last_[W]; // N, and g M of an odd prime
  V fraction_[PAIRS + ODD];      // f
  V first_[2], Q_;               // p_0 p_1
  V begin_[W], begin_fraction_;
  u32 shift_[MAX_TILE];
  u32 at_[MAX_TILE + 1]; // limb in which coefficient t begins
};

} // namespace
} // namespace kelvane::ntt
