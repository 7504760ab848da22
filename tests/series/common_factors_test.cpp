// What blocks of terms have in common: the exponents against the events counted one by one and against the
// integers themselves, and the bounds of sizes that buffers rely on.
#include "series/common_factors.h"

#include <gtest/gtest.h>

#include <cmath>
#include <memory>

#include "series/recursion.h"
#include "series/series_catalan.h"
#include "series/series_pi.h"
#include "series/series_zeta3.h"
#include "support/bignum.h"
#include "support/tables.h"

namespace kelvane {
namespace {

using test::OwnedEFPh;
using test::Work;
using test::Z;

struct Case {
  std::string name;
  std::shared_ptr<kc_BSS> series;
  const CommonFactors& factors() const { return *series->common_factors(); }
};

std::vector<Case> cases() {
  return {{"Chudnovsky", std::make_shared<Series_Pi_Chudnovsky>()},
          {"Ramanujan", std::make_shared<Series_Pi_Ramanujan>()},
          {"Lupas", std::make_shared<Series_Catalan_Lupas>()},
          {"Huvent", std::make_shared<Series_Catalan_Huvent>()},
          {"AZ1", std::make_shared<Series_Zeta3_AZ1>()},
          {"AZ2", std::make_shared<Series_Zeta3_AZ2>()}};
}

template <class F> void for_prime_powers(u64 from, u64 to, const F& f) {
  for (u64 p = from; p <= to; p++) {
    bool prime = p > 1;
    for (u64 d = 2; d * d <= p; d++) prime &= p % d != 0;
    if (!prime) continue;
    for (u64 q = p; q <= to; q *= p) f(p, q);
  }
}

double log_factor(const CommonFactors& factors, u64 a, u64 b) {
  double nats = 0;
  for_prime_powers(factors.smallest_prime, factors.reach * (b - a), [&](u64 p, u64 q) {
    nats += static_cast<double>(factors.exponent(q, a, b)) * std::log(static_cast<double>(p));
  });
  return nats;
}

TEST(CommonFactors, BoundsHoldForEveryBlock) {
  for (const Case& c : cases())
    for (const u64 m : {64, 100, 256, 1000, 3000})
      for (const u64 a : {u64{0}, u64{m}, u64{12345}, u64{1} << 20, (u64{1} << 40) + 77}) {
        const double nats = log_factor(c.factors(), a, a + m);
        EXPECT_LE(c.factors().log_at_least(static_cast<double>(m)), nats) << c.name << " " << a << " + " << m;
        EXPECT_GE(c.factors().log_at_most(static_cast<double>(m)), nats) << c.name << " " << a << " + " << m;
        if (getenv("SHOW")) {
          const double t = static_cast<double>(m);
          printf("%s %lu+%lu: %.2f %.2f %.2f bits\n", c.name.c_str(), a, m,
                 c.factors().log_at_least(t) / t * 1.4427, nats / t * 1.4427,
                 c.factors().log_at_most(t) / t * 1.4427);
        }
      }
}

} // namespace
} // namespace kelvane
