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
      Work work(kcm_rcp_work_bytes(p, test::context(2 * p + 8, 1)));
      ASSERT_EQ(kcm_rcp_E(test::context(2 * p + 8), T, A, p, temporaries.data(), PL, work.data()), 0) << p;
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
      Work work(kcm_div_work_bytes(p, test::context(2 * p + 8, 2)));
      ASSERT_EQ(kcm_div_t9_B(test::context(2 * p + 8, 2), T, N, D, p, temporaries.data(), PL, work.data(),
                             newton::Meter()),
                0)
          << p;
      ASSERT_TRUE(close(T, Z::of_words(N.T, N.L), Z::of_words(D.T, D.L), p, slack(p)))
          << "seed 12, round " << round;
      EXPECT_LE(PL, p <= 9 ? 2 * p + 9 : p + (p + 2) / 2 * 2 + 10)
          << "the stated work area suffices at p = " << p;
    }
  }
}

TEST(Newton, InverseSquareRootAtEveryPrecision) {
  Words random(13);
  for (const u64 p : precisions()) {
    for (const u64 x :
         {u64{2}, u64{3}, u64{5}, u64{8}, u64{10005}, random.word() | 1, ~u64{0}, (u64{1} << 63) + 1}) {
      OwnedGFP T(p + 3);
      const u64 PL = newton::temporary_words(p);
      std::vector<u64> temporaries(PL);
      Work work(kcm_invsqrt_work_bytes(p, test::context(2 * p + 8, 1)));
      ASSERT_EQ(kcm_invsqrt_udw_E(test::context(2 * p + 8), T, x, p, temporaries.data(), PL, work.data()), 0)
          << p;
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
