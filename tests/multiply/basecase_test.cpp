// Schoolbook and Karatsuba products, both word sizes and both builds, against GMP.
#include "multiply/basecase/basecase.h"

#include <cstring>

#include "multiply/basecase/km_MULB.h"
#include "multiply/product_fixture.h"
#include "support/short.h"

namespace kelvane::test {
namespace {

template <class W> W* scratch(const Buffer& buffer) {
  return static_cast<W*>(buffer.data());
}

// The words of a as W, copied so that no array is seen through two types.
template <class W> std::vector<W> as(const Words& a) {
  std::vector<W> out(a.size() * sizeof(u64) / sizeof(W));
  std::memcpy(out.data(), a.data(), 8 * a.size());
  return out;
}

// Lengths in words of W; odd 32-bit lengths are cut from a whole word.
template <class W> void check_product(u64 na, u64 nb, Pattern pattern, std::mt19937_64& random) {
  constexpr u64 per_word = 8 / sizeof(W);
  std::vector<W> a = as<W>(operand((na + 1) / per_word + 1, pattern, random));
  std::vector<W> b = as<W>(operand((nb + 1) / per_word + 1, pattern, random));
  a.resize(na);
  b.resize(nb);
  const auto number = [](const std::vector<W>& x) {
    Words out((x.size() + per_word - 1) / per_word, 0);
    std::memcpy(out.data(), x.data(), x.size() * sizeof(W));
    return out;
  };
  std::vector<W> want = as<W>(expected_product(number(a), number(b)));
  want.resize(na + nb);

  std::vector<W> out(na + nb, W{0x77});
  {
    const Buffer work(km_MULB::scratch_words<W>(na, nb) * sizeof(W));
    km_MULB::multiply_unbalanced(out.data(), a.data(), na, b.data(), nb, scratch<W>(work));
    ASSERT_EQ(out, want) << na << " x " << nb << " words of " << sizeof(W) << " bytes, pattern "
                         << static_cast<int>(pattern);
  }
  if (na != nb) return;
  const Buffer work(km_MULB::scratch_words<W>(na) * sizeof(W));
  km_MULB::multiply(out.data(), a.data(), b.data(), na, scratch<W>(work));
  ASSERT_EQ(out, want) << na << " words of " << sizeof(W) << " bytes";
  want = as<W>(expected_product(number(a), number(a)));
  want.resize(2 * na);
  km_MULB::square(out.data(), a.data(), na, scratch<W>(work));
  ASSERT_EQ(out, want) << "square of " << na << " words of " << sizeof(W) << " bytes";
}

template <class W> void check_all_lengths() {
  std::mt19937_64 random(31);
  for (u64 n = 1; n <= 130; n++) {
    for (const Pattern pattern : {Pattern::ones, Pattern::random, Pattern::sparse}) {
      check_product<W>(n, n, pattern, random);
    }
  }
  for (int i = 0; i < scale(2000); i++) {
    check_product<W>(random() % 90 + 1, random() % 90 + 1, static_cast<Pattern>(i % 3), random);
  }
}

TEST(Karatsuba, Words64) {
  check_all_lengths<u64>();
}
TEST(Karatsuba, Words32) {
  check_all_lengths<u32>();
}

// Halves that are equal give a difference of zero; for odd lengths a low half with a zero top word may be the
// smaller one.
TEST(Karatsuba, DifferencesOfTheHalves) {
  std::mt19937_64 random(32);
  for (const u64 n : {10u, 11u, 12u, 13u, 20u, 21u, 26u, 27u}) {
    const u64 h = n - n / 2;
    Words a = operand(n, Pattern::random, random), b = operand(n, Pattern::random, random);
    for (u64 i = 0; i < n / 2; i++) a[h + i] = a[i];
    a[h - 1] = n % 2 == 0 ? a[h - 1] : 0; // a0 = a1
    b[h - 1] = 0;
    for (u64 i = h; i < n; i++) b[i] = ~u64{0}; // b0 < b1
    Words out(2 * n);
    const Buffer work(8 * km_MULB::scratch_words<u64>(n));
    for (const Words* const y : {&a, &b}) {
      km_MULB::multiply(out.data(), a.data(), y->data(), n, work.words());
      ASSERT_EQ(difference(out, expected_product(a, *y)), "") << n;
    }
    km_MULB::square(out.data(), b.data(), n, work.words());
    ASSERT_EQ(difference(out, expected_product(b, b)), "") << n;
  }
}

// Both builds of the schoolbook kernels, whichever is in force.
TEST(Basecase, Builds) {
  std::mt19937_64 random(33);
  for (u64 na = 1; na <= 40; na++) {
    for (u64 nb = 1; nb <= 14; nb++) {
      const Pattern pattern = static_cast<Pattern>((na + nb) % 3);
      const Words a = operand(na, pattern, random), b = operand(nb, pattern, random);
      const Words want = expected_product(a, b), square = expected_product(a, a);
      Words out(na + nb), out2(2 * na);
      km_MULB::PORTABLE_PRODUCTS(out.data(), a.data(), na, b.data(), nb);
      ASSERT_EQ(difference(out, want), "") << na << " x " << nb;
      km_MULB::PORTABLE_SQUARES(out2.data(), a.data(), na);
      ASSERT_EQ(difference(out2, square), "") << na;
      if (!km_MULB::has_adx()) continue;
      km_MULB::ADX_PRODUCTS(out.data(), a.data(), na, b.data(), nb);
      ASSERT_EQ(difference(out, want), "") << na << " x " << nb << ", adx";
      km_MULB::ADX_SQUARES(out2.data(), a.data(), na);
      ASSERT_EQ(difference(out2, square), "") << na << ", adx";
    }
  }
}

// The parameter records of both word sizes, through which the table reaches these kernels.
template <class W> void check_record(u64 max_length) {
  std::mt19937_64 random(34);
  const km_MULB::algorithm<W> algorithm;
  EXPECT_EQ(algorithm.make_parameters(4, km_MULv3::Context{}, nullptr), nullptr);
  for (u64 n = 2; n <= max_length * sizeof(W) / 8; n++) {
    km_MULv3::btp_storage storage;
    const km_MULv3::abstract_btp& record =
        *algorithm.make_parameters(n * 8 / sizeof(W), km_MULv3::Context{}, &storage);
    ASSERT_GE(record.capacity_bits(), 64 * n);
    ASSERT_EQ(algorithm.memory_cost(n * 8 / sizeof(W), 1),
              2 * record.transform_bytes() + record.scratch_bytes());
    const u64 na = random() % (n - 1) + 1;
    const Words a = operand(na, Pattern::random, random), b = operand(n - na, Pattern::ones, random);
    const Buffer TA(record.transform_bytes()), TB(record.transform_bytes()), work(record.scratch_bytes());
    record.forward(TA.data(), a.data(), na, work.data());
    record.forward(TB.data(), b.data(), n - na, work.data());
    Words out(n);
    record.inverse_fmul(out.data(), n, TA.data(), TB.data(), work.data());
    ASSERT_EQ(difference(out, expected_product(a, b)), "") << na << " x " << n - na;
  }
}
TEST(Karatsuba, Records) {
  check_record<u64>(54);
  check_record<u32>(108);
}

} // namespace
} // namespace kelvane::test
