// Products through the dispatcher against GMP.
#include <algorithm>

#include "multiply/product_fixture.h"
#include "support/short.h"

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

// multiply_over with the product below, across, exactly on and above either operand, which lie side by side;
// nothing but the product's words and the operands' is written.
void check_overlaps(const km_MULv3::Context& context, const Words& a, const Words& b) {
  constexpr u64 MARK = 0x5a5a5a5a5a5a5a5a;
  const u64 na = a.size(), nb = b.size(), n = na + nb, at = n;
  const Words want = expected_product(a, b);
  const Buffer work(km_MULv3::product_cost(n, context.threads, context.reduced_memory));
  for (const u64 out : {u64{0}, at - 1, at - n / 2, at - nb, at, at + 1, at + na / 2, at + na - 1, at + na,
                        at + na + nb / 2, at + n - 1, at + n}) {
    Words memory(3 * n, MARK);
    std::copy(a.begin(), a.end(), memory.begin() + static_cast<s64>(at));
    std::copy(b.begin(), b.end(), memory.begin() + static_cast<s64>(at + na));
    const u64* const A = memory.data() + at;
    km_MULv3::multiply_over(context, memory.data() + out, A, na, A + na, nb, work.data());
    const auto where = [&] {
      return std::to_string(na) + " x " + std::to_string(nb) + " words at " + std::to_string(at) +
             ", out at " + std::to_string(out) + ", " + std::to_string(context.threads) + " threads" +
             (context.reduced_memory ? ", reduced memory, " : ", ") + name(simd::active_isa());
    };
    const auto from = memory.begin() + static_cast<s64>(out);
    ASSERT_EQ(difference(Words(from, from + static_cast<s64>(n)), want), "") << where();
    for (u64 i = 0; i < memory.size(); i++) {
      const bool operand = i >= at && i < at + n, product = i >= out && i < out + n;
      ASSERT_TRUE(operand || product || memory[i] == MARK) << "word " << i << ": " << where();
    }
  }
}

TEST(Products, OverTheOperands) {
  std::mt19937_64 random(3);
  std::vector<std::pair<u64, u64>> lengths{{28, 27},     {60, 1},      {1, 60},      {300, 299},
                                           {2000, 2000}, {8192, 500},  {17000, 409}, {17000, 410},
                                           {20000, 3},   {9000, 12000}};
  if (long_run())
    lengths.insert(lengths.end(), {{100000, 100000}, {3, 400000}, {262144, 262143}, {600000, 50000}});
  for (const simd::Isa isa : {simd::Isa::sse3, simd::Isa::avx2, simd::Isa::avx512, simd::Isa::avx512ifma}) {
    if (!simd::supported(isa)) continue;
    Engine engine(40000, isa);
    for (const auto& [na, nb] : lengths) {
      const u64 n = na + nb;
      if (short_run() && n > 5000 && n != 17410) continue;
      ASSERT_TRUE(km_MULv3::may_multiply_over(n));
      const Words a = operand(na, static_cast<Pattern>(n % 3), random),
                  b = operand(nb, Pattern::ones, random);
      for (const bool reduced : {false, true}) {
        if (reduced && n <= km_MULv3::LONGEST_FFT) continue;
        km_MULv3::Context context = engine.context;
        context.reduced_memory = reduced;
        context.threads = 1 + (n + reduced) % 3;
        check_overlaps(context, a, b);
        if (HasFatalFailure()) return;
      }
    }
  }
  EXPECT_FALSE(km_MULv3::may_multiply_over(km_MULv3::LONGEST_BASECASE));
}

} // namespace
} // namespace kelvane::test
