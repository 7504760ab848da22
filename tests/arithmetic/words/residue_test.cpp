// Residues modulo 2^61 - 1 against division by GMP.
#include "arithmetic/words/residue.h"

#include <gmp.h>
#include <gtest/gtest.h>

#include <limits>
#include <random>
#include <vector>

#include "support/short.h"

namespace kelvane::test {
namespace {

u64 expected_hash(const std::vector<u64>& a, u64 start) {
  std::vector<u64> number = a;
  number.push_back(start);
  return mpn_mod_1(number.data(), static_cast<mp_size_t>(number.size()), residue::P);
}

// Short arrays, those summed by columns, and the lengths between (122 words a row, 8 rows a block).
TEST(Residue, WordArrays) {
  std::mt19937_64 random(21);
  std::vector<u64> lengths;
  for (u64 n = 0; n <= 40; n++) lengths.push_back(n);
  for (const u64 rows : {7u, 8u, 9u, 15u, 16u, 17u, 100u}) {
    for (const u64 more : {0u, 1u, 121u}) lengths.push_back(rows * 122 + more);
  }
  for (const u64 n : lengths) {
    for (const bool ones : {true, false}) {
      std::vector<u64> a(n);
      for (u64& x : a) x = ones ? ~u64{0} : random();
      for (const u64 start : {u64{0}, u64{1}, random() % residue::P}) {
        ASSERT_EQ(residue::hash_words(a.data(), n, start), expected_hash(a, start))
            << n << (ones ? " words of ones, start " : " random words, start ") << start;
      }
    }
  }
}

// Modulo Q: all lengths around a row of 128 words, and what it is for: a number and its remainder modulo
// 2^(64 m) - 1 have the same residue.
TEST(Residue, WrappedWordArrays) {
  std::mt19937_64 random(23);
  for (const u64 n : {0u, 1u, 2u, 31u, 32u, 33u, 127u, 128u, 129u, 1023u, 1024u, 1025u, 12345u}) {
    for (const bool ones : {true, false}) {
      std::vector<u64> a(n);
      for (u64& x : a) x = ones ? ~u64{0} : random();
      const u64 expected = n == 0 ? 0 : mpn_mod_1(a.data(), static_cast<mp_size_t>(n), residue::Q);
      ASSERT_EQ(residue::hash_wrapped(a.data(), n), expected) << n << (ones ? " ones" : " random");
    }
  }
  for (u64 m = residue::WRAPPED_PERIOD; m <= 320; m += residue::WRAPPED_PERIOD) {
    const std::vector<u64> modulus(m, ~u64{0});
    ASSERT_EQ(residue::hash_wrapped(modulus.data(), m), 0u) << m;
  }
  EXPECT_EQ(residue::mul_wrapped(residue::Q - 1, residue::Q - 1), 1u);
}

TEST(Residue, ZeroIsFullyReduced) {
  const u64 p = residue::P;
  EXPECT_EQ(residue::hash_words(&p, 1), 0u);
  EXPECT_EQ(residue::reduce(~u64{0}), 7u); // 8 (2^61 - 1) + 7
  EXPECT_EQ(residue::reduce(static_cast<u128>(p) << 61), 0u);
  EXPECT_EQ(residue::add(p - 1, 1), 0u);
  EXPECT_EQ(residue::sub(0, 1), p - 1);
}

TEST(Residue, WeightsOfShifts) {
  for (const s64 e : {s64{0}, s64{1}, s64{60}, s64{61}, s64{1000000007}, s64{9223372036854775807}}) {
    EXPECT_EQ(residue::mul(residue::weight(e), residue::weight(-e)), 1u) << e;
  }
  EXPECT_EQ(residue::weight(1), 8u);
  EXPECT_EQ(residue::mul(residue::weight(std::numeric_limits<s64>::min()), residue::weight(1)),
            residue::weight(std::numeric_limits<s64>::min() + 1));
  std::vector<u64> shifted(9, 0);
  shifted.back() = 12345;
  EXPECT_EQ(residue::hash_words(shifted.data(), 9), residue::mul(12345, residue::weight(8)));
}

TEST(Residue, InverseAndOtherRadixes) {
  std::mt19937_64 random(22);
  for (int i = 0; i < scale(50); i++) {
    const u64 a = random() % (residue::P - 1) + 1;
    ASSERT_EQ(residue::mul(a, residue::inverse(a)), 1u) << a;
  }
  // Words in base 10^19, and in the base 2^64 - 1, whose residue is 7.
  for (const u64 radix : {u64{10000000000000000000u}, ~u64{0}, u64{2}}) {
    std::vector<u64> digits(50);
    for (u64& d : digits) d = random() % radix;
    mpz_t value;
    mpz_init(value);
    for (u64 i = digits.size(); i-- > 0;) {
      mpz_mul_ui(value, value, radix);
      mpz_add_ui(value, value, digits[i]);
    }
    ASSERT_EQ(residue::hash_radix_words(radix, digits.data(), digits.size()), mpz_fdiv_ui(value, residue::P))
        << radix;
    mpz_clear(value);
  }
}

} // namespace
} // namespace kelvane::test
