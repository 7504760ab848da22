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
    for (const u64 quotient_words : {1, 2, 31, 32, 33, 97, 650, 5000, 12000})
      for (const u64 threads : {1, 3}) {
        std::vector<u64> G = random.number(divisor_words);
        G[0] |= 1;
        const km_MULv3::Context context = test::context(40000, threads);
        const u64 bytes = ExactDivision::work_bytes(divisor_words, quotient_words, context);
        Work work(bytes);
        const ExactDivision division(context, G.data(), divisor_words, quotient_words, work.data(), bytes);
        const Z g = Z::of_words(G.data(), divisor_words);
        for (const u64 n : {quotient_words, quotient_words / 2 + 1})
          for (const bool exact : {true, false}) {
            std::vector<u64> X(divisor_words + n - 1), out(n);
            Z y = Z::of_words(random.number(n).data(), n), x;
            if (exact) {
              if (X.size() < n + divisor_words) y = Z::of_words(random.number(n).data(), n - (n > 1));
              mpz_mul(x.get(), y.get(), g.get());
              if (mpz_size(x.get()) > X.size()) continue;
              mpz_export(X.data(), nullptr, -1, sizeof(u64), 0, 0, x.get());
            } else {
              X = random.number(X.size());
              x = Z::of_words(X.data(), X.size());
              mpz_set_ui(y.get(), 0);
              mpz_setbit(y.get(), 64 * n);
              ASSERT_NE(mpz_invert(y.get(), g.get(), y.get()), 0);
              mpz_mul(y.get(), y.get(), x.get());
              mpz_fdiv_r_2exp(y.get(), y.get(), 64 * n);
            }
            division.divide(out.data(), X.data(), X.size());
            EXPECT_EQ(Z::of_words(out.data(), n), y)
                << n << " words by " << divisor_words << ", room for " << quotient_words << ", " << threads
                << " threads, exact " << exact << ", seed " << SEED;
          }
      }
}

} // namespace
} // namespace kelvane
