// The word kernels against GMP; halves against the same number in whole words.
#include "arithmetic/words/add.h"

#include <gmp.h>
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

#include "support/short.h"

namespace kelvane::test {
namespace {

using Words = std::vector<u64>;

// Words that make carries run: mostly 0 and 2^64 - 1.
Words operand(u64 n, std::mt19937_64& random) {
  Words a(n);
  for (u64& x : a) {
    const u64 kind = random() % 4;
    x = kind == 0 ? random() : kind == 1 ? 0 : ~u64{0};
  }
  return a;
}

mp_size_t size(u64 n) {
  return static_cast<mp_size_t>(n);
}

TEST(WordKernels, AdditionAndSubtraction) {
  std::mt19937_64 random(11);
  for (u64 n = 1; n <= 70; n++) {
    for (int repeat = 0; repeat < scale(20); repeat++) {
      SCOPED_TRACE(testing::Message() << "n = " << n << ", case " << repeat);
      const Words a = operand(n, random), b = operand(n, random);
      Words sum(n), difference(n), got(n);
      const u64 carry = mpn_add_n(sum.data(), a.data(), b.data(), size(n));
      const u64 borrow = mpn_sub_n(difference.data(), a.data(), b.data(), size(n));
      ASSERT_EQ(words::add(got.data(), a.data(), b.data(), n), carry);
      ASSERT_EQ(got, sum);
      ASSERT_EQ(words::sub(got.data(), a.data(), b.data(), n), borrow);
      ASSERT_EQ(got, difference);
      got = a;
      ASSERT_EQ(words::add_in_place(got.data(), b.data(), n), carry);
      ASSERT_EQ(got, sum);
      got = b; // D equal to the second operand
      ASSERT_EQ(words::sub(got.data(), a.data(), got.data(), n), borrow);
      ASSERT_EQ(got, difference);

      const u64 more = carry + mpn_add_1(sum.data(), sum.data(), size(n), 1);
      ASSERT_EQ(words::add_carry(got.data(), a.data(), b.data(), n, 1), more);
      ASSERT_EQ(got, sum);
      const u64 less = borrow + mpn_sub_1(difference.data(), difference.data(), size(n), 1);
      ASSERT_EQ(words::sub_borrow(got.data(), a.data(), b.data(), n, 1), less);
      ASSERT_EQ(got, difference);
    }
  }
}

// Lengths in halves, odd ones too, at addresses that are multiples of four only.
TEST(WordKernels, Halves) {
  std::mt19937_64 random(12);
  for (u64 n = 1; n <= 41; n++) {
    for (int repeat = 0; repeat < scale(40); repeat++) {
      SCOPED_TRACE(testing::Message() << "n = " << n << ", case " << repeat);
      std::vector<u32> a(n + 1), b(n + 1), d(n + 2, 0x5a5a5a5a);
      for (u64 i = 0; i <= n; i++) {
        a[i] = random() % 3 == 0 ? static_cast<u32>(random()) : ~u32{0};
        b[i] = random() % 3 == 0 ? static_cast<u32>(random()) : random() % 2 == 0 ? 0 : ~u32{0};
      }
      const u64 shift = random() % 2; // the operands' first half
      const u32 c = static_cast<u32>(random() % 2);
      std::vector<u32> sum(n), difference(n);
      u64 carry = c, borrow = c;
      for (u64 i = 0; i < n; i++) {
        const u64 s = u64{a[shift + i]} + b[i] + carry;
        sum[i] = static_cast<u32>(s);
        carry = s >> 32;
        const u64 t = u64{a[shift + i]} - b[i] - borrow;
        difference[i] = static_cast<u32>(t);
        borrow = t >> 63;
      }
      ASSERT_EQ(words::add_carry(d.data() + 1, a.data() + shift, b.data(), n, c), carry);
      ASSERT_TRUE(std::equal(sum.begin(), sum.end(), d.begin() + 1));
      ASSERT_EQ(d[0], 0x5a5a5a5a);
      ASSERT_EQ(words::sub_borrow(d.data() + 1, a.data() + shift, b.data(), n, c), borrow);
      ASSERT_TRUE(std::equal(difference.begin(), difference.end(), d.begin() + 1));
      ASSERT_EQ(d[0], 0x5a5a5a5a);
    }
  }
}

TEST(WordKernels, CarriesThatRunOn) {
  for (const u64 tail : {u64{0}, u64{1}, u64{5}}) {
    // 2^(64 (2 + tail)) - 1 plus 1 becomes 1 in the guard; taking it away again restores the ones.
    Words a(3 + tail, ~u64{0});
    a.back() = 0;
    const Words before = a;
    const Words one = {1, 0};
    words::add_propagate(a.data(), one.data(), 2);
    EXPECT_EQ(a.back(), 1u);
    for (u64 i = 0; i + 1 < a.size(); i++) EXPECT_EQ(a[i], 0u);
    words::sub_propagate(a.data(), one.data(), 2);
    EXPECT_EQ(a, before);

    Words b = before;
    EXPECT_EQ(words::add_word(b.data(), b.size() - 1, 7), 1u); // stops at the length given
    EXPECT_EQ(b.back(), 0u);
    EXPECT_EQ(b[0], 6u);
    EXPECT_EQ(words::sub_word(b.data(), b.size() - 1, 7), 1u);
    EXPECT_EQ(b, before);
  }
  // The same on halves: the carry of an odd length leaves in the middle of a word.
  u32 h[4] = {~u32{0}, ~u32{0}, ~u32{0}, 0};
  const u32 one[1] = {1};
  words::add_propagate(h, one, 1);
  EXPECT_EQ(h[3], 1u);
  EXPECT_EQ(h[0] | h[1] | h[2], 0u);
  words::sub_propagate(h, one, 1);
  EXPECT_EQ(h[3], 0u);
  EXPECT_EQ(words::add_word(h, 3, 2), 1u);
  EXPECT_EQ(words::sub_word(h, 3, 2), 1u);
  EXPECT_EQ(h[0] & h[1] & h[2], ~u32{0});
}

TEST(WordKernels, ProductsByOneWordAndShifts) {
  std::mt19937_64 random(13);
  for (u64 n = 1; n <= 40; n++) {
    for (int repeat = 0; repeat < scale(10); repeat++) {
      SCOPED_TRACE(testing::Message() << "n = " << n << ", case " << repeat);
      const Words a = operand(n, random), b = operand(n, random);
      const u64 x = repeat % 2 == 0 ? ~u64{0} : random(), c = repeat % 3 == 0 ? ~u64{0} : random();
      Words want(n), got(n);
      u64 carry = mpn_mul_1(want.data(), a.data(), size(n), x);
      carry += mpn_add_1(want.data(), want.data(), size(n), c);
      ASSERT_EQ(words::mul_word(got.data(), a.data(), n, x, c), carry);
      ASSERT_EQ(got, want);
      got = want = b;
      carry = mpn_addmul_1(want.data(), a.data(), size(n), x);
      ASSERT_EQ(words::mul_word_add(got.data(), a.data(), n, x), carry);
      ASSERT_EQ(got, want);
      got = a; // in place
      carry = mpn_mul_1(want.data(), a.data(), size(n), x);
      ASSERT_EQ(words::mul_word_in_place(got.data(), n, x), carry);
      ASSERT_EQ(got, want);

      const unsigned s = static_cast<unsigned>(random() % 63) + 1;
      got = a;
      carry = mpn_lshift(want.data(), a.data(), size(n), s);
      ASSERT_EQ(words::shift_left(got.data(), got.data(), n, s), carry);
      ASSERT_EQ(got, want);
      got = a;
      carry = mpn_rshift(want.data(), a.data(), size(n), s);
      ASSERT_EQ(words::shift_right(got.data(), got.data(), n, s), carry);
      ASSERT_EQ(got, want);

      words::complement(got.data(), a.data(), n);
      mpn_com(want.data(), a.data(), size(n));
      ASSERT_EQ(got, want);
      const int order = mpn_cmp(a.data(), b.data(), size(n)), mine = words::compare(a.data(), b.data(), n);
      ASSERT_EQ(order > 0, mine > 0);
      ASSERT_EQ(order < 0, mine < 0);
    }
  }
  const Words zeros = {0, 5, 0, 0};
  EXPECT_EQ(words::normalized_length(zeros.data(), 4), 2u);
  EXPECT_EQ(words::normalized_length(zeros.data(), 1), 0u);
}

} // namespace
} // namespace kelvane::test
