// Sums, counts and searches against slow and plain ones.

#include "companion/analysis.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "arithmetic/words/residue.h"
#include "companion/sha1.h"
#include "support/short.h"

namespace kelvane::companion {
namespace {

std::string random_digits(u64 count, int radix, u64 seed) {
  std::mt19937_64 random(seed);
  std::string digits;
  for (u64 i = 0; i < count; ++i) digits += "0123456789abcdef"[random() % static_cast<u64>(radix)];
  return digits;
}

TEST(Sha1, KnownSums) { // of the standard's examples
  const auto sum = [](const std::string& text) {
    Sha1 sha1;
    sha1.add(text.data(), text.size());
    return sha1.finish();
  };
  EXPECT_EQ(sum(""), "da39a3ee5e6b4b0d3255bfef95601890afd80709");
  EXPECT_EQ(sum("abc"), "a9993e364706816aba3e25717850c26c9cd0d89d");
  EXPECT_EQ(sum("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq"),
            "84983e441c3bd26ebaae4aa1f95129e5e54670f1");
  EXPECT_EQ(sum(std::string(1'000'000, 'a')), "34aa973cd4c4daa4f61eeb2bdbad27316534016f");
}

TEST(Sha1, PiecesAndBothForms) {
  std::mt19937_64 random(2);
  for (u64 size = 0; size < 200; ++size) {
    const std::string text = random_digits(size, 16, size);
    Sha1 whole, pieces;
    whole.add(text.data(), size);
    for (u64 at = 0; at < size;) {
      const u64 n = std::min<u64>(random() % 70, size - at);
      pieces.add(text.data() + at, n);
      at += n;
    }
    ASSERT_EQ(whole.finish(), pieces.finish()) << "size " << size;
  }
  if (!Sha1::has_instructions()) GTEST_SKIP() << "this processor has no SHA instructions";
  const std::string text = random_digits(64 * 100, 16, 3);
  u32 a[5] = {1, 2, 3, 0x80000000, 5}, b[5] = {1, 2, 3, 0x80000000, 5};
  Sha1::blocks_portable(a, reinterpret_cast<const u8*>(text.data()), 100);
  Sha1::blocks_sha(b, reinterpret_cast<const u8*>(text.data()), 100);
  for (int i = 0; i < 5; ++i) EXPECT_EQ(a[i], b[i]) << i;
}

TEST(DigitResidue, DigitByDigit) {
  for (const int radix : {10, 16})
    for (const u64 size : {1u, 15u, 16u, 18u, 19u, 20u, 9727u, 9728u, 9729u, 30000u}) {
      const std::string digits = random_digits(size, radix, size);
      u64 expected = 0;
      for (const char c : digits)
        expected = residue::add(residue::mul(expected, static_cast<u64>(radix)),
                                static_cast<u64>(c <= '9' ? c - '0' : c - 'a' + 10));
      DigitResidue whole(radix), pieces(radix);
      whole.add(digits.data(), size);
      pieces.add(digits.data(), size / 3);
      pieces.add(digits.data() + size / 3, size - size / 3);
      EXPECT_EQ(whole.value(), expected) << "radix " << radix << " size " << size;
      EXPECT_EQ(pieces.value(), expected) << "radix " << radix << " size " << size;
    }
}

TEST(Counts, EachDigitOfAnyLength) {
  for (const int radix : {10, 16})
    for (const u64 size : {0u, 1u, 15u, 16u, 17u, 4079u, 4080u, 4081u, 100003u}) {
      std::string digits = random_digits(size, radix, size);
      if (size == 4081) digits.assign(size, '7'); // one counter as high as it goes
      u64 counts[16] = {}, expected[16] = {};
      for (char& c : digits) {
        c = static_cast<char>(c <= '9' ? c - '0' : c - 'a' + 10);
        ++expected[static_cast<int>(c)];
      }
      count_digits(counts, digits.data(), size, radix);
      for (int d = 0; d < 16; ++d) EXPECT_EQ(counts[d], expected[d]) << "digit " << d << " size " << size;
    }
}

TEST(Counts, ChiSquare) {
  // The first million decimal digits of Pi; the statistic and its probability by an independent program.
  const u64 pi[10] = {99959, 99758, 100026, 100229, 100230, 100359, 99548, 99800, 99985, 100106};
  const ChiSquare chi = chi_square(pi, 10);
  EXPECT_NEAR(chi.value, 5.50908, 1e-5);
  EXPECT_EQ(chi.freedom, 9);
  // Tables: the upper 5 % and 1 % points with 9 and 15 degrees of freedom.
  const struct {
    int radix;
    double point, p;
  } table[] = {{10, 16.919, 0.05}, {10, 21.666, 0.01}, {16, 24.996, 0.05}, {16, 30.578, 0.01}};
  for (const auto& c : table) {
    // Two counts off by x in opposite directions: chi-square 2 x^2 / expected.
    u64 counts[16];
    const double expected = 1e12;
    const auto x = static_cast<u64>(std::sqrt(c.point * expected / 2));
    for (int d = 0; d < c.radix; ++d) counts[d] = static_cast<u64>(expected);
    counts[0] += x;
    counts[1] -= x;
    EXPECT_NEAR(chi_square(counts, c.radix).p, c.p, 2e-5) << c.radix << " " << c.point;
  }
  const u64 none[16] = {};
  EXPECT_EQ(chi_square(none, 16).p, 1);
  EXPECT_NE(counts_svg("a<b", pi, 10).find("a&lt;b"), std::string::npos);
}

// All occurrences, through the search in blocks of random sizes.
std::vector<u64> found(const std::string& text, const std::string& pattern, u64 longest, u64 seed) {
  std::mt19937_64 random(seed);
  PatternSearch search(pattern);
  std::vector<u64> positions;
  for (u64 at = 0; at < text.size();) {
    const u64 n = std::min<u64>(1 + random() % longest, text.size() - at);
    search.add(text.data() + at, n, ~u64{0}, positions);
    at += n;
  }
  return positions;
}

TEST(PatternSearch, FindsEveryOccurrence) {
  std::mt19937_64 random(5);
  for (int round = 0; round < scale(2000); ++round) {
    // Few different digits, so that patterns recur and overlap.
    const auto radix = static_cast<u64>(1 + random() % 3);
    std::string text, pattern;
    for (u64 i = random() % 500; i > 0; --i) text += static_cast<char>('0' + random() % radix);
    for (u64 i = 1 + random() % (round % 2 == 0 ? 5 : 40); i > 0; --i)
      pattern += static_cast<char>('0' + random() % radix);
    std::vector<u64> expected;
    for (size_t at = text.find(pattern); at != std::string::npos; at = text.find(pattern, at + 1))
      expected.push_back(at);
    for (const u64 longest : {1u, 20u, 1000u})
      ASSERT_EQ(found(text, pattern, longest, random()), expected)
          << "text " << text << " pattern " << pattern << " blocks up to " << longest;
  }
}

TEST(PatternSearch, TextsMadeOfThePattern) {
  const u64 size = short_run() ? 200'000 : 4'000'000, m = 20'000;
  const std::string zeros(size, '0');
  std::string pattern(m, '0');
  pattern[m / 2 + 17] = '1'; // every position passes the quick test
  EXPECT_TRUE(found(zeros, pattern, 1'000'000, 1).empty());
  std::string text = zeros;
  text[size - m + m / 2 + 17] = '1';
  EXPECT_EQ(found(text, pattern, 1'000'000, 2), std::vector<u64>{size - m});
  PatternSearch search("00");
  std::vector<u64> positions;
  search.add(zeros.data(), size, 3, positions);
  EXPECT_EQ(positions, (std::vector<u64>{0, 1, 2}));
}

} // namespace
} // namespace kelvane::companion
