// Reciprocal, quotient and inverse square root against GMP, at every small precision and at large ones.
#include <gtest/gtest.h>

#include "arithmetic/kcm_div.h"
#include "arithmetic/kcm_invsqrt.h"
#include "arithmetic/kcm_rcp.h"
#include "shell/exception.h"
#include "support/bignum.h"
#include "support/tables.h"

namespace kelvane {
namespace {

using test::OwnedGFP;
using test::shifted;
using test::value;
using test::Words;
using test::Work;
using test::Z;

std::vector<u64> precisions() {
  std::vector<u64> list;
  for (u64 p = 1; p <= 70; p++) list.push_back(p);
  for (const u64 p : {100, 127, 128, 129, 500, 1023, 3000}) list.push_back(p);
  // Around the first lengths whose last step, or the one before, works modulo 2^(64 m) - 1; some beyond.
  for (const u64 p : {8703, 11602, 11603, 11604, 11605, 17403, 17404, 17405, 17407, 23210, 31013})
    list.push_back(p);
  return list;
}

void set(OwnedGFP& x, const std::vector<u64>& w, s64 exp) {
  std::copy(w.begin(), w.end(), x.buffer);
  x.set_value(w.size(), exp, 1);
}

// |found - exact| in units of 2^(-64 (p + 1)) of the exact value must stay below 2^bits.
// exact = numerator / denominator, found scaled by 2^(64 scale).
testing::AssertionResult close(const OwnedGFP& found, const Z& numerator, const Z& denominator, u64 p,
                               unsigned bits) {
  Z left, difference;
  mpz_mul(left.get(), Z::of_words(found.T, found.L).get(), denominator.get());
  const s64 e = found.exp;
  const Z right = e < 0 ? shifted(numerator, -e) : numerator;
  if (e > 0) left = shifted(left, e);
  mpz_sub(difference.get(), left.get(), right.get());
  mpz_abs(difference.get(), difference.get());
  difference = shifted(difference, static_cast<s64>(p + 1));
  Z bound;
  mpz_mul_2exp(bound.get(), right.get(), bits);
  if (mpz_cmp(difference.get(), bound.get()) < 0) return testing::AssertionSuccess();
  return testing::AssertionFailure() << "p = " << p << ", found " << Z::of_words(found.T, found.L).text()
                                     << " exp " << e;
}

// Level 1 squares a double's error and no more: 2^-100. From level 2 on only truncations count.
unsigned slack(u64 p) {
  return p == 1 ? 28 : 8;
}

TEST(Newton, ReciprocalAtEveryPrecision) {
  Words random(11);
  for (const u64 p : precisions()) {
    for (int round = 0; round < (p <= 70 ? 12 : 2); round++) {
      const std::vector<u64> a = random.number(1 + random.below(p + 4));
      OwnedGFP A(a.size()), T(p + 3);
      set(A, a, static_cast<s64>(random.below(9)) - 4);
      const u64 PL = newton::temporary_words(p);
      std::vector<u64> temporaries(PL);
      const km_MULv3::Context context = test::context(2 * p + 8, 1 + p % 3);
      Work work(kcm_rcp_work_bytes(p, context));
      ASSERT_EQ(kcm_rcp_E(context, T, A, p, temporaries.data(), PL, work.data()), 0) << p;
      Z one = Z::of(1), denominator = Z::of_words(A.T, A.L);
      if (A.exp >= 0)
        denominator = shifted(denominator, A.exp);
      else
        one = shifted(one, -A.exp);
      ASSERT_TRUE(close(T, one, denominator, p, slack(p))) << "seed 11, round " << round;
    }
  }
}

TEST(Newton, QuotientAtEveryPrecision) {
  Words random(12);
  for (const u64 p : precisions()) {
    for (int round = 0; round < (p <= 70 ? 12 : 2); round++) {
      const std::vector<u64> n = random.number(1 + random.below(p + 4)),
                             d = random.number(1 + random.below(p + 4));
      OwnedGFP N(n.size()), D(d.size()), T(p + 3);
      set(N, n, 0);
      set(D, d, 0);
      const u64 PL = kcm_div_words(p);
      std::vector<u64> temporaries(PL);
      km_MULv3::Context context = test::context(2 * p + 8, 2);
      context.reduced_memory = round % 2 != 0;
      Work work(kcm_div_work_bytes(p, context));
      ASSERT_EQ(kcm_div_t9_B(context, T, N, D, p, temporaries.data(), PL, work.data(), newton::Meter()), 0)
          << p;
      ASSERT_TRUE(close(T, Z::of_words(N.T, N.L), Z::of_words(D.T, D.L), p, slack(p)))
          << "seed 12, round " << round;
      EXPECT_LE(PL, p <= 9 ? 2 * p + 9 : p + (p + 2) / 2 * 2 + 10)
          << "the stated work area suffices at p = " << p;
    }
  }
}

// Integers, with every other length of divisor and quotient; quotients of 1, of 2^(64 j), next to them, and
// of numbers of ones: what is left of the dividend is 0 or just above or below.
TEST(Newton, QuotientsThatEndEarly) {
  Words random(14);
  for (const u64 p : {1u, 2u, 3u, 7u, 64u, 500u, 11603u, 20000u}) {
    const km_MULv3::Context context = test::context(2 * p + 8, 2);
    const u64 PL = kcm_div_words(p);
    std::vector<u64> temporaries(PL);
    Work work(kcm_div_work_bytes(p, context));
    for (int round = 0; round < (p < 1000 ? 40 : 10); round++) {
      const u64 nk = 1 + random.below(p + 2), nd = 1 + random.below(p + 2);
      std::vector<u64> d = random.number(nd), k = random.number(nk);
      if (round % 5 == 1) (k.assign(nk, 0), k[nk - 1] = 1);
      if (round % 5 == 2) k.assign(nk, ~u64{0});
      if (round % 5 == 3) (d.assign(nd, 0), d[nd - 1] = 1);
      Z product;
      mpz_mul(product.get(), Z::of_words(d.data(), nd).get(), Z::of_words(k.data(), nk).get());
      const int off = round % 3 - 1; // one unit beside it
      off<0 && mpz_cmp_ui(product.get(), 1)> 0 ? mpz_sub_ui(product.get(), product.get(), 1)
                                               : mpz_add_ui(product.get(), product.get(), off == 1 ? 1 : 0);
      std::vector<u64> n(nd + nk + 1, 0);
      mpz_export(n.data(), nullptr, -1, 8, 0, 0, product.get());
      OwnedGFP N(n.size()), D(nd), T(p + 3);
      set(N, n, static_cast<s64>(random.below(5)) - 2);
      set(D, d, 0);
      ASSERT_EQ(kcm_div_t9_B(context, T, N, D, p, temporaries.data(), PL, work.data(), newton::Meter()), 0)
          << p << ", round " << round;
      Z numerator = Z::of_words(N.T, N.L), denominator = Z::of_words(D.T, D.L);
      (N.exp >= 0 ? numerator : denominator) = shifted(N.exp >= 0 ? numerator : denominator, std::abs(N.exp));
      ASSERT_TRUE(close(T, numerator, denominator, p, slack(p))) << "seed 14, round " << round;
    }
  }
}

TEST(Newton, InverseSquareRootAtEveryPrecision) {
  Words random(13);
  for (const u64 p : precisions()) {
    std::vector<u64> arguments{3, 10005, ~u64{0}};
    if (p < 4000) arguments.insert(arguments.end(), {2, 5, 8, random.word() | 1, (u64{1} << 63) + 1});
    for (const u64 x : arguments) {
      OwnedGFP T(p + 3);
      const u64 PL = newton::temporary_words(p);
      std::vector<u64> temporaries(PL);
      const km_MULv3::Context context = test::context(2 * p + 8, 1 + p % 3);
      Work work(kcm_invsqrt_work_bytes(p, context));
      ASSERT_EQ(kcm_invsqrt_udw_E(context, T, x, p, temporaries.data(), PL, work.data()), 0) << p;
      // T^2 x = 1 (1 + 2 d): twice the relative error of T.
      Z square;
      mpz_mul(square.get(), Z::of_words(T.T, T.L).get(), Z::of_words(T.T, T.L).get());
      mpz_mul(square.get(), square.get(), Z::of(x).get());
      Z difference, one = shifted(Z::of(1), -2 * T.exp);
      mpz_sub(difference.get(), square.get(), one.get());
      mpz_abs(difference.get(), difference.get());
      difference = shifted(difference, static_cast<s64>(p + 1));
      Z bound;
      mpz_mul_2exp(bound.get(), one.get(), slack(p));
      ASSERT_LT(mpz_cmp(difference.get(), bound.get()), 0) << "p = " << p << ", x = " << x;
    }
  }
}

// S/sqrt(x) from a root of half the length, in the root's own words: T^2 x = S^2.
TEST(Newton, ProductsByAnInverseSquareRoot) {
  Words random(15);
  for (const u64 p : precisions()) {
    for (int round = 0; round < (p <= 70 ? 6 : 1); round++) {
      km_MULv3::Context context = test::context(2 * p + 8, 1 + p % 3);
      context.reduced_memory = round % 2 != 0;
      const u64 x = round % 3 == 0 ? 10005 : round % 3 == 1 ? u64{8} : random.word() | 2;
      const u64 q = newton::lower_level(p);
      const std::vector<u64> s = random.number(1 + random.below(p + 4));
      OwnedGFP S(s.size()), T(p + 3);
      set(S, s, static_cast<s64>(random.below(9)) - 4);
      std::vector<u64> temporaries(newton::temporary_words(p));
      Work work(std::max(kcm_invsqrt_work_bytes(p, context), kcm_mul_invsqrt_work_bytes(p, context)));
      ASSERT_EQ(kcm_invsqrt_udw_E(context, T, x, q, temporaries.data(), temporaries.size(), work.data()), 0);
      ASSERT_EQ(kcm_mul_invsqrt(context, T, S, T, x, p, work.data()), 0) << p;
      Z left, right, difference;
      mpz_mul(left.get(), Z::of_words(T.T, T.L).get(), Z::of_words(T.T, T.L).get());
      mpz_mul(left.get(), left.get(), Z::of(x).get());
      mpz_mul(right.get(), Z::of_words(S.T, S.L).get(), Z::of_words(S.T, S.L).get());
      const s64 e = 2 * (T.exp - S.exp);
      (e < 0 ? right : left) = shifted(e < 0 ? right : left, std::abs(e));
      mpz_sub(difference.get(), left.get(), right.get());
      mpz_abs(difference.get(), difference.get());
      difference = shifted(difference, static_cast<s64>(p + 1));
      mpz_mul_2exp(right.get(), right.get(), slack(p) + 1);
      ASSERT_LT(mpz_cmp(difference.get(), right.get()), 0)
          << "p = " << p << ", x = " << x << ", seed 15, round " << round;
    }
  }
}

TEST(Newton, AnExactReciprocalNeedsNoCorrection) {
  OwnedGFP A(1), T(9);
  set(A, {u64{1} << 32}, 0);
  const u64 PL = newton::temporary_words(6);
  std::vector<u64> temporaries(PL);
  Work work(kcm_rcp_work_bytes(6, test::context(2 * 6 + 8, 1)));
  ASSERT_EQ(kcm_rcp_E(test::context(40), T, A, 6, temporaries.data(), PL, work.data()), 0);
  EXPECT_TRUE(value(T, 8) == shifted(Z::of(u64{1} << 32), 7));
}

TEST(NewtonDeathTest, SpaceIsCheckedBeforeWork) {
  OwnedGFP A(1), T(7);
  set(A, {3}, 0);
  std::vector<u64> temporaries(64);
  Work work(kcm_rcp_work_bytes(5, test::context(2 * 5 + 8, 1)));
  // AL = p + 2 is one word short, and p + 2 is the figure shown.
  EXPECT_EXIT(kcm_rcp_E(test::context(40), T, A, 5, temporaries.data(), 64, work.data()),
              testing::ExitedWithCode(1), "");
  EXPECT_EXIT(kcm_rcp_E(test::context(40), T, A, 4, temporaries.data(), 5, work.data()),
              testing::ExitedWithCode(1), "");
}

} // namespace
} // namespace kelvane
