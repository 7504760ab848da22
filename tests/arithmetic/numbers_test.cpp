// The number objects against GMP: values, residues, space checks.
#include <gtest/gtest.h>

#include "arithmetic/hashed_integer.h"
#include "arithmetic/redundancy.h"
#include "arithmetic/words/residue.h"
#include "shell/exception.h"
#include "support/bignum.h"

namespace kelvane {
namespace {

using test::OwnedEFPh;
using test::OwnedGFP;
using test::shifted;
using test::value;
using test::Words;
using test::Z;

Z plus(const Z& a, const Z& b) {
  Z r;
  mpz_add(r.get(), a.get(), b.get());
  return r;
}
Z minus(const Z& a, const Z& b) {
  Z r;
  mpz_sub(r.get(), a.get(), b.get());
  return r;
}

TEST(HashedInteger, SumsAndDifferencesCarryTheResidue) {
  Words random(1);
  for (int round = 0; round < 300; round++) {
    std::vector<u64> a = random.number(1 + random.below(12)), b = random.number(1 + random.below(a.size()));
    const Z za = Z::of_words(a.data(), a.size()), zb = Z::of_words(b.data(), b.size());
    HashedInteger A, B;
    a.resize(a.size() + 1);
    A = {a.data(), a.size() - 1, a.size(), residue::hash_words(a.data(), a.size() - 1)};
    B = {b.data(), b.size(), b.size(), residue::hash_words(b.data(), b.size())};
    A.add_in_place(B);
    ASSERT_TRUE(Z::of_words(A.words, A.L) == plus(za, zb)) << round;
    ASSERT_EQ(A.hash, residue::hash_words(A.words, A.L)) << round;
    a.resize(A.L + 1);
    A.words = a.data();
    A.AL = a.size();
    A.sub_in_place(B);
    ASSERT_TRUE(Z::of_words(A.words, A.L) == za) << round;
    ASSERT_EQ(A.hash, residue::hash_words(A.words, A.L)) << round;
  }
}

TEST(EFPh, SumsWithAnyExponents) {
  Words random(2);
  for (int round = 0; round < 2000; round++) {
    const s64 ea = static_cast<s64>(random.below(12)) - 6, eb = static_cast<s64>(random.below(12)) - 6;
    const OwnedEFPh A(random.number(1 + random.below(6)), ea), B(random.number(1 + random.below(6)), eb);
    OwnedEFPh D(24);
    D.set_add(A, B);
    ASSERT_TRUE(value(D, 20) == plus(value(A, 20), value(B, 20))) << "round " << round;
    ASSERT_EQ(D.hash, D.hash_of_words()) << "round " << round;
  }
}

// The in-place forms drop what lies below the first operand's last word, and nothing else.
TEST(EFPh, InPlaceSumsAndDifferences) {
  Words random(3);
  for (int round = 0; round < 2000; round++) {
    const s64 ea = static_cast<s64>(random.below(6));
    OwnedEFPh A(random.number(4 + random.below(4)), ea);
    const u64 nb = 1 + random.below(4);
    const s64 eb = A.mag() - static_cast<s64>(nb) - 1 - static_cast<s64>(random.below(8));
    const OwnedEFPh B(random.number(nb), eb);
    const Z za = value(A, 40), zb = value(B, 40), kept = shifted(shifted(zb, -(ea + 40)), ea + 40);
    OwnedEFPh D(A.L + 8);
    D.set_copy(A);
    D.add_in_place(B);
    ASSERT_TRUE(value(D, 40) == plus(za, kept)) << "round " << round;
    ASSERT_EQ(D.hash, D.hash_of_words()) << "round " << round;
    D.set_copy(A);
    D.sub_in_place(B);
    ASSERT_TRUE(value(D, 40) == minus(za, kept)) << "round " << round;
    ASSERT_EQ(D.hash, D.hash_of_words()) << "round " << round;
  }
}

// Exact without a limit; with one, off by less than a unit of the last of the `keep` words, the residue that
// of what is kept.
TEST(EFPh, SumsAndShiftsKeptToALimit) {
  Words random(5);
  for (int round = 0; round < 2000; round++) {
    const OwnedEFPh A(random.number(1 + random.below(8)), static_cast<s64>(random.below(12))),
        B(random.number(1 + random.below(8)), static_cast<s64>(random.below(12)));
    const u64 bits = random.below(400), keep = 2 + random.below(8);
    const Z sum = plus(value(A, 0), value(B, 0));
    Z shift = value(A, 0);
    mpz_mul_2exp(shift.get(), shift.get(), bits);
    OwnedEFPh exact(40), kept(keep + 2);
    for (const bool add : {true, false}) {
      const Z& expected = add ? sum : shift;
      if (add) {
        exact.set_add_kept(A, B, ~u64{0});
        kept.set_add_kept(A, B, keep);
      } else {
        exact.set_shifted(A, bits, ~u64{0});
        EXPECT_EQ(exact.exp, A.exp); // numbers of A's exponent can be added to it
        kept.set_shifted(A, bits, keep);
      }
      ASSERT_TRUE(value(exact, 0) == expected) << "round " << round;
      ASSERT_EQ(exact.hash, exact.hash_of_words()) << "round " << round;
      ASSERT_EQ(kept.hash, kept.hash_of_words()) << "round " << round;
      ASSERT_LE(kept.L, keep + 2) << "round " << round;
      const Z error = minus(expected, value(kept, 0));
      const u64 size = mpz_sizeinbase(expected.get(), 2);
      ASSERT_GE(mpz_sgn(error.get()), 0) << "round " << round;
      ASSERT_TRUE(mpz_sgn(error.get()) == 0 || mpz_sizeinbase(error.get(), 2) + 64 * (keep - 1) <= size)
          << "round " << round << ", keep " << keep;
    }
  }
}

TEST(EFPh, TruncationTakesTheDroppedWordsOffTheResidueButHidesNoFault) {
  Words random(4);
  OwnedEFPh A(random.number(20), -3);
  A.truncate(7);
  EXPECT_EQ(A.L, 7u);
  EXPECT_EQ(A.exp, 10);
  EXPECT_EQ(A.hash, A.hash_of_words());
  OwnedEFPh B(random.number(20), -3);
  B.T[15] ^= 1;
  B.truncate(7);
  EXPECT_NE(B.hash, B.hash_of_words());
  const kob_cdi_EFPh* results[] = {&B};
  EXPECT_THROW(modular_redundancy_check(results, 1, 5, 9), kc_BSRModularCheckFailed);
}

TEST(EFPhDeathTest, TooLittleRoomIsNamedBeforeAWordIsWritten) {
  const std::vector<u64> ones(5, ~u64{0});
  const OwnedEFPh A(ones, 0), B(ones, 0);
  EXPECT_EXIT(
      {
        OwnedEFPh D(5);
        D.set_add(A, B);
      },
      testing::ExitedWithCode(1), "");
}

TEST(GFP, DoublesTruncationAndSlices) {
  OwnedGFP x(8);
  for (const double d :
       {1.0, 0.5, 3.75, 0x1p-64, 0x1.8p-1074, 0x1.fffffffffffffp+63, 0x1.123456789abcdp-31}) {
    x.set_double(d, 3);
    s64 e = 0;
    const double top = x.get_double(&e);
    EXPECT_EQ(std::ldexp(top, static_cast<int>(64 * (e - 3))), d);
    EXPECT_NE(x.T[x.L - 1], 0u);
    EXPECT_EQ(x.sign, 1);
  }
  x.set_double(-2.5, 0);
  EXPECT_EQ(x.sign, 0);

  Words random(5);
  const std::vector<u64> w = random.number(20);
  OwnedGFP big(20), kept(12);
  std::copy(w.begin(), w.end(), big.buffer);
  big.set_value(20, -9, 0);
  kept.set_truncated(big, 5);
  EXPECT_EQ(kept.L, 7u);
  EXPECT_EQ(kept.exp, 4);
  EXPECT_EQ(kept.sign, 0);
  EXPECT_EQ(kept.T[0], w[13]);
  u64 slice[30];
  big.read_slice(slice, -12, 30);
  for (s64 i = 0; i < 30; i++)
    EXPECT_EQ(slice[i], i - 3 >= 0 && i - 3 < 20 ? w[static_cast<u64>(i - 3)] : 0) << i;
}

TEST(GFP, WordProductsSumsAndDifferences) {
  Words random(6);
  for (int round = 0; round < 1000; round++) {
    const u64 p = 3 + random.below(6);
    OwnedGFP A(p + 4), B(p + 4), R(p + 4);
    const std::vector<u64> a = random.number(1 + random.below(p + 2)), b = random.number(1 + random.below(p));
    std::copy(a.begin(), a.end(), A.buffer);
    std::copy(b.begin(), b.end(), B.buffer);
    A.set_value(a.size(), 0, 1);
    B.set_value(b.size(), A.mag() - static_cast<s64>(b.size() + 1 + random.below(4)), 1);
    const s64 low = A.mag() - static_cast<s64>(p + 2);
    const Z za = value(A, 60), zb = shifted(shifted(value(B, 60), -(60 + low)), 60 + low);
    // A carry into a new top word pushes the last one out.
    const auto cut = [&R](const Z& x) { return shifted(shifted(x, -(60 + R.exp)), 60 + R.exp); };
    R.set_add_magnitude(A, B, p);
    ASSERT_TRUE(value(R, 60) == cut(plus(za, zb))) << round;
    R.set_sub_magnitude(A, B, p);
    ASSERT_TRUE(value(R, 60) == cut(minus(za, zb))) << round;
    const u64 w = random.word();
    R.set_mul_word(A, w);
    Z product;
    mpz_mul(product.get(), za.get(), Z::of(w).get());
    ASSERT_TRUE(value(R, 60) == product) << round;
  }
}

} // namespace
} // namespace kelvane
