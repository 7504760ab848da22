// Products through the dispatcher against GMP.
#include <gmp.h>
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "multiply/table/km_MULv3.h"

namespace kelvane {
namespace {

TEST(Products, DenseLengths) {
  std::mt19937_64 random(1);
  for (u64 na = 1; na <= 200; na++) {
    for (u64 nb : {u64{1}, na / 2 + 1, na}) {
      std::vector<u64> a(na), b(nb), out(na + nb), want(na + nb);
      for (u64& x : a) x = na % 2 ? ~u64{0} : random();
      for (u64& x : b) x = nb % 3 ? ~u64{0} : random();
      std::vector<u64> work(km_MULv3::product_cost(na + nb, 1) / 8 + 8);
      void* base = work.data();
      size_t space = work.size() * 8;
      std::align(64, space - 64, base, space);
      km_MULv3::Context context;
      km_MULv3::multiply(context, out.data(), a.data(), na, b.data(), nb, base);
      mpn_mul(want.data(), a.data(), static_cast<mp_size_t>(na), b.data(), static_cast<mp_size_t>(nb));
      ASSERT_EQ(out, want) << na << " x " << nb;
      std::vector<u64> out2(2 * na), want2(2 * na);
      std::vector<u64> work2(km_MULv3::product_cost(2 * na, 1) / 8 + 8);
      km_MULv3::square(context, out2.data(), a.data(), na, work2.data());
      mpn_sqr(want2.data(), a.data(), static_cast<mp_size_t>(na));
      ASSERT_EQ(out2, want2) << na;
    }
  }
}

} // namespace
} // namespace kelvane
