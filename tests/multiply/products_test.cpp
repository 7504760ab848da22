// Products through the dispatcher against GMP.
#include "multiply/product_fixture.h"

namespace kelvane::test {
namespace {

Words multiply(const km_MULv3::Context& context, const Words& a, const Words& b) {
  Words out(a.size() + b.size());
  Buffer work(km_MULv3::product_cost(out.size(), context.threads));
  km_MULv3::multiply(context, out.data(), a.data(), a.size(), b.data(), b.size(), work.data());
  return out;
}
Words square(const km_MULv3::Context& context, const Words& a) {
  Words out(2 * a.size());
  Buffer work(km_MULv3::product_cost(out.size(), context.threads));
  km_MULv3::square(context, out.data(), a.data(), a.size(), work.data());
  return out;
}

TEST(Products, EveryLengthUpTo600) {
  for (const simd::Isa isa : supported_isas()) {
    Engine engine(1200, isa);
    std::mt19937_64 random(1);
    for (u64 na = 1; na <= 600; na++) {
      for (const u64 nb : {u64{1}, na / 2 + 1, na}) {
        const Pattern pattern = static_cast<Pattern>((na + nb) % 3);
        const Words a = operand(na, pattern, random), b = operand(nb, pattern, random);
        ASSERT_EQ(difference(multiply(engine.context, a, b), expected_product(a, b)), "")
            << na << " x " << nb << " words, pattern " << static_cast<int>(pattern) << ", " << name(isa);
      }
      const Words a = operand(na, Pattern::ones, random);
      ASSERT_EQ(difference(square(engine.context, a), expected_product(a, a)), "") << na << " " << name(isa);
    }
  }
}

// Shorter operands that go by the schoolbook, through one transform, and against pieces of the longer one,
// with last pieces of every kind; either operand may be the longer.
TEST(Products, UnequalLengths) {
  for (const simd::Isa isa : supported_isas()) {
    Engine engine(40000, isa);
    std::mt19937_64 random(2);
    for (const u64 nb : {1u, 2u, 14u, 15u, 16u, 40u, 97u, 500u, 1300u}) {
      for (const u64 na :
           {u64{53}, u64{1000} * nb % 30011 + 60, 6 * nb, u64{8192} - nb, u64{8192}, 8192 + 3 * nb + 1}) {
        const Pattern pattern = static_cast<Pattern>((na + nb) % 3);
        const Words a = operand(na, pattern, random), b = operand(nb, pattern, random);
        const Words want = expected_product(a, b);
        ASSERT_EQ(difference(multiply(engine.context, a, b), want), "")
            << na << " x " << nb << ", " << name(isa);
        ASSERT_EQ(difference(multiply(engine.context, b, a), want), "")
            << nb << " x " << na << ", " << name(isa);
      }
    }
  }
}

} // namespace
} // namespace kelvane::test
