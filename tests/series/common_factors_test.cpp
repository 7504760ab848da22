// What blocks of terms have in common: the exponents against events counted one by one, the bounds that sizes
// rely on, and divided ranges against the same integers undivided.
#include "series/common_factors.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <memory>

#include "series/recursion.h"
#include "series/series_catalan.h"
#include "series/series_pi.h"
#include "series/series_zeta3.h"
#include "shell/exception.h"
#include "support/bignum.h"
#include "support/tables.h"

namespace kelvane {
namespace {

using test::OwnedEFPh;
using test::Work;
using test::Z;

struct Case {
  std::string name;
  std::shared_ptr<kc_BSS_P2B3_Type0> series;
  std::vector<u64> of_constants; // primes of the constants in q(k), whose events are not counted
};

std::vector<Case> cases() {
  return {{"Chudnovsky", std::make_shared<Series_Pi_Chudnovsky>(), {5, 23, 29}},
          {"Ramanujan", std::make_shared<Series_Pi_Ramanujan>(), {11}},
          {"Lupas", std::make_shared<Series_Catalan_Lupas>(), {}},
          {"AZ1", std::make_shared<Series_Zeta3_AZ1>(), {}},
          {"AZ2", std::make_shared<Series_Zeta3_AZ2>(), {3}}};
}

template <class F> void for_prime_powers(u64 from, u64 to, const F& f) {
  for (u64 p = from; p <= to; p++) {
    bool prime = p > 1;
    for (u64 d = 2; d * d <= p; d++) prime &= p % d != 0;
    if (!prime) continue;
    for (u64 q = p; q <= to; q *= p) f(p, q);
  }
}

u64 events(const u64* factors, u32 count, u64 q) {
  u64 n = 0;
  for (u32 i = 0; i < count; i++) n += factors[i] % q == 0;
  return n;
}

// Far out no two factors of a term fit one word, so that each linear form is a factor of its own. Ranges of
// every length below, at and above the prime powers; the least over all that begin within a period.
TEST(CommonFactors, ExponentsAreTheEventsOfTheWorstTermOfTheWorstRange) {
  constexpr u64 FAR = (u64{1} << 33) + 5, POWERS = 40;
  for (const Case& c : cases())
    for_prime_powers(c.series->common_factors()->smallest_prime, POWERS, [&](u64 p, u64 q) {
      std::vector<u64> P, Q;
      for (u64 k = FAR + 1; k <= FAR + POWERS + 121; k++) {
        SeriesTerm t;
        c.series->term(k, t);
        P.push_back(events(t.p, t.p_factors, q));
        Q.push_back(events(t.q, t.q_factors, q));
      }
      for (const u64 m : {1, 2, 5, 9, 10, 11, 27, 50, 121}) {
        u64 worst = ~u64{0};
        for (u64 a = 0; a < q; a++) {
          u64 numerators = 0, denominators = 0;
          for (u64 i = a; i < a + m; i++) denominators += Q[i];
          u64 least = denominators;
          for (u64 i = a; i < a + m; i++) { // term i of R
            denominators -= Q[i];
            if (c.series->plain) numerators += P[i];
            least = std::min(least, numerators + denominators);
            if (!c.series->plain) numerators += P[i];
          }
          worst = std::min({worst, least, numerators});
        }
        const u64 e = c.series->common_factors()->exponent(q, m);
        EXPECT_LE(e, worst) << c.name << ", " << q << ", " << m;
        if (std::count(c.of_constants.begin(), c.of_constants.end(), p) == 0) {
          EXPECT_EQ(e, worst) << c.name << ", " << q << ", " << m;
        }
      }
    });

  const Series_Catalan_Huvent huvent;
  for_prime_powers(5, 200, [&](u64, u64 q) {
    for (const u64 m : {1, 2, 5, 9, 10, 11, 27, 50}) {
      u64 worst = ~u64{0};
      for (u64 a = FAR; a < FAR + q; a++) {
        u64 all = 0, most = 0;
        for (u64 k = a + 1; k <= a + m; k++) {
          BBPTerm t;
          huvent.term(k, t);
          const u64 n = events(t.q, t.q_factors, q);
          all += n;
          most = std::max(most, n);
        }
        worst = std::min(worst, all - most);
      }
      const u64 e = huvent.common_factors()->exponent(q, m);
      EXPECT_LE(e, worst) << q << ", " << m;
      // Both bounds, of the multiples and of the most at one index, need not be met in one range.
      EXPECT_GE(e + 4, worst) << q << ", " << m;
    }
  });
}

TEST(CommonFactors, BoundsHoldForEveryLength) {
  std::vector<Case> list = cases();
  const Series_Catalan_Huvent huvent;
  for (u64 i = 0; i <= list.size(); i++) {
    const CommonFactors& factors =
        *(i < list.size() ? list[i].series->common_factors() : huvent.common_factors());
    for (const u64 m : {64, 100, 1000, 3000}) {
      double nats = 0;
      for_prime_powers(factors.smallest_prime, 16 * m, [&](u64 p, u64 q) {
        const u64 e = factors.exponent(q, m);
        nats += static_cast<double>(e) * std::log(static_cast<double>(p));
        if (q > factors.reach * m) {
          EXPECT_EQ(e, 0u) << i << ", " << q << ", " << m;
        }
      });
      EXPECT_LE(factors.log_at_least(static_cast<double>(m)), nats) << i << ", " << m;
      EXPECT_GE(factors.log_at_most(static_cast<double>(m)), nats) << i << ", " << m;
    }
  }
}

// The integers of [a, b) by GMP.
struct Integers {
  Z P = Z::of(1), Q, R;
};
Z product(const u64* factors, u32 count) {
  Z z = Z::of(1);
  for (u32 i = 0; i < count; i++) mpz_mul(z.get(), z.get(), Z::of(factors[i]).get());
  return z;
}
Integers leaf(const kc_BSS_P2B3_Type0& series, u64 k) {
  SeriesTerm t;
  series.term(k, t);
  Integers x{product(t.p, t.p_factors), product(t.q, t.q_factors), Z::of_words(t.poly, t.poly_words)};
  if (series.plain) mpz_mul(x.R.get(), x.R.get(), x.P.get());
  return x;
}
Integers leaf(const kc_BSS_P2B2_BBP& series, u64 k) {
  BBPTerm t;
  series.term(k, t);
  return {Z::of(1), product(t.q, t.q_factors), Z::of_words(t.r, t.r_words)};
}
bool alternates(const kc_BSS_P2B3_Type0& series) {
  return series.alternating;
}
bool alternates(const kc_BSS_P2B2_BBP&) {
  return true;
}
u64 shift(const kc_BSS_P2B3_Type0&) {
  return 0;
}
u64 shift(const kc_BSS_P2B2_BBP& series) {
  return series.shift;
}
// A series of fractions has Ql where others have Pl.
const Z& before(const kc_BSS_P2B3_Type0&, const Integers& x) {
  return x.P;
}
const Z& before(const kc_BSS_P2B2_BBP&, const Integers& x) {
  return x.Q;
}
template <class Series> Integers exact(const Series& series, u64 a, u64 b) {
  if (b - a == 1) return leaf(series, b);
  const u64 m = a + (b - a) / 2;
  Integers l = exact(series, a, m), r = exact(series, m, b), x;
  mpz_mul(x.P.get(), l.P.get(), r.P.get());
  mpz_mul(x.Q.get(), l.Q.get(), r.Q.get());
  mpz_mul(x.R.get(), l.R.get(), r.Q.get());
  mpz_mul_2exp(x.R.get(), x.R.get(), shift(series) * (b - m));
  if (alternates(series) && ((m - a) & 1) != 0)
    mpz_submul(x.R.get(), before(series, l).get(), r.R.get());
  else
    mpz_addmul(x.R.get(), before(series, l).get(), r.R.get());
  return x;
}

// A segment of two blocks and more by the recursion; `divided` as RecursionLevels has it.
template <class Series> struct Range {
  std::vector<OwnedEFPh> out;
  Range(const Series& series, u64 a, u64 b, u64 threads, bool divide, bool need_first,
        SeriesFault* fault = nullptr) {
    using Tree = Recursion<Series>;
    const SeriesContext context{test::context(400000, threads), fault};
    RecursionLevels levels = Tree::plan(series, a, b, threads);
    if (!divide) levels.divided = 0;
    out.assign(Series::INTEGERS, OwnedEFPh(0));
    std::vector<kob_cdi_EFPh> x(Series::INTEGERS);
    for (u64 i = 0; i < Series::INTEGERS; i++) {
      out[i].storage.resize(series.capacity(a, b, levels.divided));
      out[i].attach(out[i].storage.data(), out[i].storage.size());
      x[i] = out[i];
    }
    const u64 bytes = Tree::work_bytes(series, a, b, context.multiply, levels);
    Work work(bytes);
    Tree(series, context).run(a, b, x.data(), need_first, threads, levels, work.data(), bytes);
    for (u64 i = 0; i < Series::INTEGERS; i++) static_cast<kob_cdi_EFPh&>(out[i]) = x[i];
  }
};

bool same(const kob_cdi_EFPh& a, const kob_cdi_EFPh& b) {
  return a.L == b.L && a.exp == b.exp && a.hash == b.hash && std::equal(a.T, a.T + a.L, b.T);
}

// All integers are the exact ones over one and the same number, which is as large as stated at least.
template <class Series> void expect_divided(const Series& series, u64 a, u64 terms, const std::string& name) {
  const u64 b = a + terms;
  const Integers x = exact(series, a, b);
  const bool three = Series::INTEGERS == 3;
  const Range<Series> whole(series, a, b, 1, false, true), divided(series, a, b, 1, true, true);
  const std::vector<Z> expected = three ? std::vector<Z>{x.P, x.Q, x.R} : std::vector<Z>{x.Q, x.R};
  Z factor;
  ASSERT_NE(series.divided_level(a, b), 0u) << name;
  for (u64 i = 0; i < Series::INTEGERS; i++) {
    EXPECT_EQ(test::value(whole.out[i], 0), expected[i]) << name << ", integer " << i;
    const Z quotient = test::value(divided.out[i], 0);
    EXPECT_EQ(divided.out[i].hash, divided.out[i].hash_of_words()) << name << ", integer " << i;
    ASSERT_NE(mpz_divisible_p(expected[i].get(), quotient.get()), 0) << name << ", integer " << i;
    Z g;
    mpz_divexact(g.get(), expected[i].get(), quotient.get());
    if (i != 0) {
      EXPECT_EQ(g, factor) << name << ", integer " << i;
    }
    factor = g;
  }
  EXPECT_GE(static_cast<double>(mpz_sizeinbase(factor.get(), 2)) * 0.6931471805599453,
            series.common_factors()->removed(terms, series.divided_level(a, b)))
      << name;
  for (const u64 threads : {2, 5}) {
    const Range<Series> other(series, a, b, threads, true, three ? false : true);
    for (u64 i = three ? 1 : 0; i < Series::INTEGERS; i++)
      EXPECT_TRUE(same(divided.out[i], other.out[i]))
          << name << ", integer " << i << ", " << threads << " threads";
  }
}

TEST(CommonFactors, DividedRangesAreTheExactOnesOverOneNumber) {
  for (const Case& c : cases()) {
    const u64 block = c.series->common_factors()->block;
    expect_divided(*c.series, 0, 2 * block, c.name);
    expect_divided(*c.series, 100001, 2 * block + 333, c.name);
  }
  // Long enough for transforms over prime fields, and for a P with shorter ones of its own.
  const Series_Pi_Chudnovsky chudnovsky;
  const kc_BSS_P2B3_Type0& pi = chudnovsky;
  expect_divided(pi, 7, 8 * chudnovsky.common_factors()->block, "Chudnovsky");
  const Series_Catalan_Huvent huvent;
  const kc_BSS_P2B2_BBP& series = huvent;
  expect_divided(series, 0, 4 * huvent.common_factors()->block + 1, "Huvent");
  expect_divided(series, 54321, 2 * huvent.common_factors()->block, "Huvent");
}

// Flips a bit of a quotient: the second time that a divided range's integers are handed over.
class FlipQuotient final : public SeriesFault {
public:
  FlipQuotient(u64 a, u64 b, u64 times) : a_(a), b_(b), times_(times) {}
  void after_merge(kob_cdi_EFPh& result, u64 a, u64 b) override {
    if (a == a_ && b == b_ && ++calls_ == times_) result.T[result.L / 2] ^= 2;
  }
  u64 calls_ = 0;

private:
  u64 a_, b_, times_;
};

TEST(CommonFactors, AFlippedWordOfAQuotientIsFound) {
  const Series_Pi_Chudnovsky series;
  const u64 a = 1000, b = a + 2 * series.common_factors()->block, m = a + (b - a) / 2;
  const kc_BSS_P2B3_Type0& shape = series;
  for (u64 times = 4; times <= 6; times++) { // three integers merged, then three quotients
    FlipQuotient flip(a, m, times);
    testing::internal::CaptureStdout();
    EXPECT_THROW(Range<kc_BSS_P2B3_Type0>(shape, a, b, 1, true, true, &flip), kc_BSRModularCheckFailed)
        << times;
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(flip.calls_, 6u);
  }
}

} // namespace
} // namespace kelvane
