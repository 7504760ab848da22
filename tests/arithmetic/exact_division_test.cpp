// Exact quotients against GMP.
#include "arithmetic/exact_division.h"

#include <gtest/gtest.h>

#include "support/bignum.h"
#include "support/tables.h"

namespace kelvane {
namespace {

using test::Words;
using test::Work;
using test::Z;

// Quotients of several dividends by one divisor, lengths from one word to beyond the FFT's, divisors much
// shorter and much longer than the quotient. What is no multiple of the divisor gives the quotient modulo a
// power of 2^64, which every multiple's exact one is, too.
TEST(ExactDivision, QuotientsAreThoseModuloAPowerOfTheBase) {
  constexpr u64 SEED = 20261;
  Words random(SEED);
  for (const u64 divisor_words : {1, 2, 9, 64, 700, 2500})
    for (const u64 quotient_words : {1, 2, 3, 31, 32, 33, 97, 650, 5000, 12000})
      for (const u64 threads : {1, 3}) {
        std::vector<u64> G = random.number(divisor_words), inverse(quotient_words);
        G[0] |= 1;
        const km_MULv3::Context context = test::context(40000, threads);
        {
          Work work(inverse_bytes(quotient_words, context));
          invert_modulo_power(context, inverse.data(), quotient_words, G.data(), divisor_words, work.data());
        }
        Work memory(ExactDivision::memory_bytes(quotient_words)),
            work(ExactDivision::work_bytes(quotient_words));
        const ExactDivision division(context, inverse.data(), quotient_words, memory.data(), work.data());
        const Z g = Z::of_words(G.data(), divisor_words);
        for (const u64 n : {quotient_words, quotient_words / 2 + 1})
          for (const bool exact : {true, false}) {
            Z y = Z::of_words(random.number(n).data(), n), x;
            std::vector<u64> X;
            if (exact) {
              mpz_mul(x.get(), y.get(), g.get());
              X.resize(n + divisor_words);
              mpz_export(X.data(), nullptr, -1, sizeof(u64), 0, 0, x.get());
            } else {
              X = random.number(n);
              x = Z::of_words(X.data(), X.size());
              mpz_set_ui(y.get(), 0);
              mpz_setbit(y.get(), 64 * n);
              ASSERT_NE(mpz_invert(y.get(), g.get(), y.get()), 0);
              mpz_mul(y.get(), y.get(), x.get());
              mpz_fdiv_r_2exp(y.get(), y.get(), 64 * n);
            }
            std::vector<u64> out(n);
            division.divide(out.data(), X.data(), n, work.data());
            EXPECT_EQ(Z::of_words(out.data(), n), y)
                << n << " words by " << divisor_words << ", room for " << quotient_words << ", " << threads
                << " threads, exact " << exact << ", seed " << SEED;
          }
      }
}

} // namespace
} // namespace kelvane
