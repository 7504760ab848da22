// The products of a Newton step against GMP: whole ones, those modulo 2^(64 m) - 1, and what is read off
// them.
#include "arithmetic/step_products.h"

#include <gtest/gtest.h>

#include "arithmetic/newton.h"
#include "arithmetic/redundancy.h"
#include "arithmetic/words/add.h"
#include "arithmetic/words/residue.h"
#include "shell/exception.h"
#include "support/bignum.h"
#include "support/capture.h"
#include "support/tables.h"

namespace kelvane {
namespace {

using test::OwnedGFP;
using test::Words;
using test::Work;
using test::Z;

// 2^(64 m) - 1.
Z modulus(u64 m) {
  Z M = shifted(Z::of(1), static_cast<s64>(m));
  mpz_sub_ui(M.get(), M.get(), 1);
  return M;
}
Z times(const Z& a, const Z& b) {
  Z r;
  mpz_mul(r.get(), a.get(), b.get());
  return r;
}
bool congruent(const Z& a, const Z& b, const Z& M) {
  return mpz_congruent_p(a.get(), b.get(), M.get()) != 0;
}
Z number(const std::vector<u64>& w) {
  return Z::of_words(w.data(), w.size());
}

TEST(StepProducts, AgainstGMP) {
  Words random(41);
  for (const u64 n : {u64{1}, u64{30}, u64{5000}, u64{8705}, u64{8706}, u64{12000}, u64{30011}}) {
    for (int kind = 0; kind < 4; kind++) { // kept or apart; with or without a pair; the last with less memory
      const bool keep = kind < 2, pair = kind % 2 != 0;
      km_MULv3::Context context = test::context(4 * n + 64, 1 + random.below(3));
      context.reduced_memory = kind == 3;
      const StepProducts::Needs needs{
          .whole = 2 * n + 1, .wrapped = n + 1, .full = 2 * n + 1, .keep = keep, .pair = pair};
      Work work(StepProducts::work_bytes(needs, context));
      StepProducts products(context, needs, work.data());
      ASSERT_GE(products.m(), needs.wrapped);
      const Z M = modulus(products.m());
      const std::vector<u64> x = random.number(n), a = random.number(n + 1), b = random.number(1 + n / 2);
      const auto factor = [](const std::vector<u64>& w) { return StepProducts::Factor{w.data(), w.size()}; };
      const auto what = [&] {
        return testing::Message() << n << " words, kind " << kind << ", m " << products.m() << ", seed 41";
      };
      products.keep(factor(x));
      for (int round = 0; round < 2; round++) { // what is kept serves again
        ASSERT_TRUE(Z::of_words(products.whole(factor(b)), b.size() + n) == times(number(b), number(x)))
            << what();
        if (keep || pair) {
          ASSERT_TRUE(congruent(Z::of_words(products.wrapped(factor(a)), products.m()),
                                times(number(a), number(x)), M))
              << what();
        }
        if (pair) {
          ASSERT_TRUE(congruent(Z::of_words(products.wrapped(factor(a), factor(b)), products.m()),
                                times(number(a), number(b)), M))
              << what();
        }
        ASSERT_TRUE(congruent(Z::of_words(products.wrapped(factor(x), factor(x)), products.m()),
                              times(number(x), number(x)), M))
            << what();
      }
    }
  }
}

// All ones, zeros, differences of 0 and of 1 to both sides, carries that come in at the bottom again; numbers
// that go round the modulus several times.
TEST(StepProducts, DifferencesModulo) {
  Words random(42);
  for (const u64 m : {2u, 3u, 8u, 33u}) {
    for (int round = 0; round < 400; round++) {
      const u64 n = 1 + random.below(3 * m), at = random.below(3 * m);
      const std::vector<u64> N = random.number(n);
      // The difference wanted: 0, 1 or any below M/2.
      std::vector<u64> d = random.number(m);
      d[m - 1] &= ~u64{0} >> 1;
      if (round % 4 == 0) d.assign(m, 0);
      if (round % 4 == 1) (d.assign(m, 0), d[0] = 1);
      const bool negative = random.below(2) != 0;
      const Z M = modulus(m);
      // w = N 2^(64 at) +- d
      Z w = shifted(number(N), static_cast<s64>(at));
      negative ? mpz_sub(w.get(), w.get(), number(d).get()) : mpz_add(w.get(), w.get(), number(d).get());
      mpz_fdiv_r(w.get(), w.get(), M.get());
      std::vector<u64> words(m, 0), found(m);
      mpz_export(words.data(), nullptr, -1, 8, 0, 0, w.get());
      if (mpz_sgn(w.get()) == 0 && round % 3 == 0) words.assign(m, ~u64{0}); // the other form of zero
      const bool sign = newton::subtract_modulo(words.data(), m, N.data(), n, at);
      newton::copy_magnitude(found.data(), words.data(), m, sign);
      ASSERT_EQ(found, d) << "m " << m << ", round " << round << ", seed 42";
      ASSERT_TRUE(sign == negative || number(d) == Z()) << "m " << m << ", round " << round << ", seed 42";
      ASSERT_EQ(newton::magnitude_length(words.data(), m, sign), words::normalized_length(d.data(), m));

      const std::vector<u64> x = random.number(m);
      const u64 factor = round % 5 == 0 ? ~u64{0} : random.word();
      std::vector<u64> y = x;
      newton::multiply_modulo(y.data(), m, factor);
      ASSERT_TRUE(congruent(number(y), times(number(x), Z::of(factor)), M)) << "m " << m << ' ' << factor;
    }
  }
}

// y is told from 1 by its residue: 1 itself, the largest deviation that level p allows on both sides, and one
// that is larger.
TEST(StepProducts, DeviationsFromOne) {
  constexpr u64 q = 5, m = 12, unit = 14; // 1 is at word 14 of numbers modulo 2^(64 12) - 1
  const s64 largest = static_cast<s64>(unit + 2 - q);
  const auto read = [&](const Z& deviation, bool over, OwnedGFP& e) {
    Z y = shifted(Z::of(1), unit);
    over ? mpz_add(y.get(), y.get(), deviation.get()) : mpz_sub(y.get(), y.get(), deviation.get());
    mpz_fdiv_r(y.get(), y.get(), modulus(m).get());
    std::vector<u64> w(m, 0);
    mpz_export(w.data(), nullptr, -1, 8, 0, 0, y.get());
    return newton::deviation_from_one(w.data(), m, unit, e, q, 99, "kcm_rcp_E()");
  };
  OwnedGFP e(q + 3);
  EXPECT_EQ(read(Z(), true, e), newton::Deviation::none);
  for (const bool over : {true, false}) {
    Z deviation = shifted(Z::of(1), largest);
    mpz_sub_ui(deviation.get(), deviation.get(), 1);
    ASSERT_EQ(read(deviation, over, e), over ? newton::Deviation::over : newton::Deviation::under);
    EXPECT_EQ(e.mag(), 2 - static_cast<s64>(q));
    EXPECT_EQ(e.L, q + 3);
    ASSERT_EQ(read(Z::of(7), over, e), over ? newton::Deviation::over : newton::Deviation::under);
    EXPECT_TRUE(test::value(e, unit) == Z::of(7));
    const Captured refused = capture(
        [&] {
          if (read(shifted(Z::of(1), largest), over, e) == newton::Deviation::failed) exit(7);
        },
        "");
    EXPECT_EQ(refused.status, 7);
    EXPECT_NE(refused.output.find(over ? "-2  -3\nkcm_rcp_E(): Over-Estimate -> Convergence Failure\n"
                                       : "-2  -3\nkcm_rcp_E(): Under-Estimate -> Convergence Failure\n"),
              std::string::npos)
        << refused.output;
  }
}

// A wrong word in a product modulo M is noticed; so is a word in the wrong place.
TEST(StepProducts, AFaultShowsInTheWrappedResidue) {
  Words random(43);
  const u64 m = 64;
  std::vector<u64> w(m);
  for (u64& x : w) x = random.word();
  const u64 hash = residue::hash_wrapped(w.data(), m);
  EXPECT_NO_THROW(check_wrapped_residue(hash, 1, w.data(), m));
  for (u64 i = 0; i < m; i++) {
    std::vector<u64> wrong = w;
    wrong[i] ^= u64{1} << random.below(64);
    EXPECT_THROW(check_wrapped_residue(hash, 1, wrong.data(), m), kc_BSRModularCheckFailed) << i;
    wrong = w;
    std::swap(wrong[i], wrong[(i + 1 + random.below(31)) % m]);
    EXPECT_THROW(check_wrapped_residue(hash, 1, wrong.data(), m), kc_BSRModularCheckFailed) << i;
  }
}

} // namespace
} // namespace kelvane
