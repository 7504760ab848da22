// The conversion and its verification against the oracle: sizes, threads, hard fractions, faults.

#include "digits/radix.h"

#include <gtest/gtest.h>

#include <atomic>

#include "arithmetic/words/residue.h"
#include "digits/radix_plan.h"
#include "digits/radix_testing.h"
#include "shell/exception.h"

namespace kelvane::CBRv2 {
namespace {

using test::Integer;
using test::Scratch;
using test::Words;

int run_convert(Words& out, u64 W, const Words& fraction, u64 threads, Faults* hook = nullptr) {
  out.assign(W, ~u64{0});
  Scratch scratch(convert_scratch_bytes(W, fraction.size(), threads));
  const int status = convert({test::root_tables(), threads, nullptr}, out.data(), W, fraction.data(),
                             fraction.size(), scratch.get(), hook);
  EXPECT_TRUE(scratch.intact());
  return status;
}

int run_verify(u64& hash, u64 W, const Words& fraction, u64 threads, Faults* hook = nullptr) {
  Scratch scratch(verify_scratch_bytes(W, fraction.size(), threads));
  const int status = verify({test::root_tables(), threads, nullptr}, W, fraction.data(), fraction.size(),
                            &hash, scratch.get(), hook);
  EXPECT_TRUE(scratch.intact());
  return status;
}

// The converted words as an integer; false when a word is no digit of the radix.
bool value_of(Integer& out, const Words& words) {
  std::string text;
  for (u64 i = words.size(); i-- > 0;) {
    if (words[i] >= RADIX) return false;
    const std::string digits = std::to_string(words[i]);
    text += std::string(19 - digits.size(), '0') + digits;
  }
  mpz_set_str(out.z, text.c_str(), 10);
  return true;
}

// Converts and verifies; returns how far the words are below the true floor (0 or 1), -1 for anything else.
int shortfall(u64 W, const Words& fraction, u64 threads) {
  const Words before = fraction;
  Words out;
  Integer expected, actual;
  test::scaled_floor(expected, fraction, W);
  if (run_convert(out, W, fraction, threads) != 0 || !value_of(actual, out)) return -1;
  u64 hash = 0;
  if (run_verify(hash, W, fraction, threads) != 0 || hash != test::residue_of(expected)) return -1;
  if (residue::hash_radix_words(RADIX, out.data(), W) != test::residue_of(actual)) return -1;
  EXPECT_EQ(fraction, before);
  mpz_sub(expected.z, expected.z, actual.z);
  return mpz_cmp_ui(expected.z, 1) > 0 || mpz_sgn(expected.z) < 0 ? -1
                                                                  : static_cast<int>(mpz_get_ui(expected.z));
}

TEST(Radix, EveryDigitCountFrom100To400) {
  for (u64 D = 100; D <= 400; ++D)
    ASSERT_EQ(shortfall(output_words(D), test::random_fraction(test::words_for(D), D), 1), 0)
        << "digits and seed " << D;
}

// Around every change of the tree's shape: one level more above 128 * 2^k words.
TEST(Radix, WordCountsAroundTheTreesShapes) {
  for (u64 edge = LONGEST_LEAF; edge < 4000; edge *= 2)
    for (u64 W : {edge - 1, edge, edge + 1, edge + 2, edge + 49, edge + 50, edge * 3 / 2})
      for (const u64 n : {fraction_words(W), W, W / 2 + 1, 2 * W})
        ASSERT_EQ(shortfall(W, test::random_fraction(n, W + n), 1), 0)
            << "W " << W << " n " << n << " seed " << W + n;
  for (u64 W = 1; W < 24; ++W)
    for (u64 n = 1; n < 26; ++n)
      ASSERT_EQ(shortfall(W, test::random_fraction(n, W * n), 1), 0)
          << "W " << W << " n " << n << " seed " << W * n;
}

// Long enough for products modulo 2^(64 m) - 1, at the first lengths that have them and at others; short
// fractions, whose zeros make the conversion form products whole.
TEST(Radix, LongProducts) {
  for (const u64 W : {13087u, 13093u, 13100u, 16384u, 26200u, 40001u})
    for (const u64 n : {u64{1}, W / 3, fraction_words(W), W + W / 2}) {
      const Words fraction = test::random_fraction(n, W + n);
      ASSERT_EQ(shortfall(W, fraction, 1 + n % 3), 0) << "W " << W << " n " << n << " seed " << W + n;
    }
  for (const u64 word : {u64{0}, ~u64{0}}) {
    Words fraction(2 * 20000, word);
    ASSERT_EQ(shortfall(20000, fraction, 2), 0) << word;
    fraction[30000] ^= 1;
    ASSERT_EQ(shortfall(20000, fraction, 2), 0) << word;
  }
}

// 1 / (5^exponent) modulo 2^(64 n), times minus `small`: what times the power ends in n words of ones, less
// small - 1.
void nearly_minus_one(Words& out, u64 n, u64 exponent, u64 small) {
  Integer power, modulus;
  mpz_ui_pow_ui(power.z, 5, exponent);
  mpz_setbit(modulus.z, 64 * n);
  mpz_invert(power.z, power.z, modulus.z);
  mpz_mul_ui(power.z, power.z, small);
  mpz_sub(power.z, modulus.z, power.z);
  mpz_fdiv_r(power.z, power.z, modulus.z);
  std::fill_n(out.begin(), n, u64{0});
  mpz_export(out.data(), nullptr, -1, 8, 0, 0, power.z);
}

struct Visits : Faults {
  Stage stage;
  int count = 0;
  explicit Visits(Stage stage_) : stage(stage_) {}
  bool visit(Stage s, u64*, u64) override {
    count += s == stage;
    return false;
  }
};

// What comes down from above word m carries through all the words that the lower half takes: they are ones,
// and would become zeros. R^8192 has no odd bits of two, so that any lowest words can be had.
TEST(Radix, ACarryOutOfTheWordsThatWrapAround) {
  const u64 W = 16384, S = W / 2, n = fraction_words(W);
  for (const u64 small : {u64{1}, u64{12345}}) {
    Words fraction = test::random_fraction(n, 31), out;
    nearly_minus_one(fraction, n - power_zero_words(S), 19 * S, small);
    Visits usual(Faults::PRODUCT), carry(Faults::PRODUCT);
    ASSERT_EQ(run_convert(out, W, test::random_fraction(n, 31), 1, &usual), 0);
    ASSERT_EQ(run_convert(out, W, fraction, 1, &carry), 0);
    EXPECT_GT(carry.count, usual.count) << "no product was formed anew";
    ASSERT_EQ(shortfall(W, fraction, 1), 0) << small;
  }
}

// The sum of the product's two halves exceeds the modulus by which the verification's product is taken.
TEST(Radix, VerificationWhereTheHalvesSumExceedsTheModulus) {
  const u64 W = 16384, n = fraction_words(W);
  Words fraction = test::random_fraction(n, 32);
  nearly_minus_one(fraction, n - power_zero_words(W), 19 * W, 1);
  Visits products(Faults::VERIFY_PRODUCT);
  u64 hash = 0;
  ASSERT_EQ(run_verify(hash, W, fraction, 2, &products), 0);
  EXPECT_EQ(products.count, 2);
  ASSERT_EQ(shortfall(W, fraction, 2), 0);
}

TEST(Radix, LargeOddSizes) {
  for (const u64 D : {9999u, 30011u, 77777u, 200003u})
    ASSERT_EQ(shortfall(output_words(D), test::random_fraction(test::words_for(D), D), 2), 0)
        << "digits and seed " << D;
}

TEST(Radix, AMillionDigits) {
  const u64 D = 1000000;
  ASSERT_EQ(shortfall(output_words(D), test::random_fraction(test::words_for(D), D), 2), 0) << "seed " << D;
}

// A decimal of `digits` random digits as a fraction of n words, rounded up or down.
Words short_decimal(u64 digits, u64 n, bool up, std::mt19937_64& random) {
  Integer x, power;
  mpz_set_ui(x.z, random() | 1);
  mpz_ui_pow_ui(power.z, 10, digits);
  mpz_mod(x.z, x.z, power.z);
  mpz_mul_2exp(x.z, x.z, 64 * n);
  if (up)
    mpz_cdiv_q(x.z, x.z, power.z);
  else
    mpz_fdiv_q(x.z, x.z, power.z);
  Words fraction(n);
  mpz_export(fraction.data(), nullptr, -1, 8, 0, 0, x.z);
  return fraction;
}

// Fractions just above and below short decimals turn into long runs of zeros or nines: the joints of
// the tree lie in such a run, where the two halves may come out one apart.
TEST(Radix, RunsOfZerosAndNines) {
  std::mt19937_64 random(5);
  for (const u64 W : {8u, 130u, 300u, 601u, 3000u, 15000u})
    for (int sample = 0; sample < (W < 10000 ? 24 : 6); ++sample) {
      const u64 n = fraction_words(W) + random() % 3, digits = random() % (19 * W) + 1;
      const int below = shortfall(W, short_decimal(digits, n, sample % 2 == 0, random), 1);
      ASSERT_TRUE(below == 0 || below == 1)
          << "W " << W << " n " << n << " sample " << sample << " digits " << digits;
    }
  for (const u64 W : {8u, 130u, 600u})
    for (const u64 word : {u64{0}, ~u64{0}}) {
      Words fraction(fraction_words(W), word);
      ASSERT_EQ(shortfall(W, fraction, 1), 0);
      fraction[0] ^= 1;
      ASSERT_EQ(shortfall(W, fraction, 1), 0);
    }
}

// The run begins inside the very word in which the halves overlap.
TEST(Radix, HalvesOneApartAreJoined) {
  std::mt19937_64 random(6);
  const u64 W = 2 * LONGEST_LEAF;
  for (u64 digits = 19 * LONGEST_LEAF; digits <= 19 * (LONGEST_LEAF + 1); ++digits)
    for (const bool up : {false, true})
      for (const u64 n : {fraction_words(W) - 20, fraction_words(W)}) {
        const int below = shortfall(W, short_decimal(digits, n, up, random), 1);
        ASSERT_TRUE(below == 0 || below == 1) << "digits " << digits << " n " << n << " up " << up;
      }
}

TEST(Radix, ThreadsDoNotChangeTheWords) {
  const u64 D = 700000, W = output_words(D);
  const Words fraction = test::random_fraction(test::words_for(D), 9);
  Words one, many;
  u64 hash_one = 0, hash_many = 0;
  ASSERT_EQ(run_convert(one, W, fraction, 1), 0);
  ASSERT_EQ(run_verify(hash_one, W, fraction, 1), 0);
  for (const u64 threads : {2u, 3u, 8u, 64u, 256u}) {
    ASSERT_EQ(run_convert(many, W, fraction, threads), 0);
    EXPECT_EQ(many, one) << threads << " threads";
    ASSERT_EQ(run_verify(hash_many, W, fraction, threads), 0);
    EXPECT_EQ(hash_many, hash_one) << threads << " threads";
  }
}

TEST(Radix, EmptyInputAndBadThreadCounts) {
  u64 hash = 7;
  EXPECT_EQ(run_verify(hash, 8, {}, 1), 0);
  EXPECT_EQ(hash, 0u);
  hash = 7;
  EXPECT_EQ(run_verify(hash, 0, Words(3, 1), 1), 0);
  EXPECT_EQ(hash, 0u);
  for (const u64 threads : {0u, 257u}) {
    try {
      convert_scratch_bytes(100, 100, threads);
      ADD_FAILURE();
    } catch (const km_exception& e) {
      EXPECT_EQ(e.text, "kmp_CBRv2_ci_btrf_ap_make(): Thread Inconsistancy");
    }
  }
}

// Damages one word at the given visit of a stage.
struct Damage : Faults {
  Stage stage;
  int at;
  u64 position; // counted from the top when the array is long enough
  std::atomic<int> visits{0};
  Damage(Stage stage_, int at_, u64 position_) : stage(stage_), at(at_), position(position_) {}
  bool visit(Stage s, u64* words, u64 n) override {
    if (s == stage && visits++ == at) words[n - 1 - position % n] ^= u64{1} << (position % 64);
    return false;
  }
};

// Every damaged power and product must be noticed, with one thread and with several, and a second
// call must succeed; a damaged result is noticed by comparing the residues.
void expect_damage_noticed(u64 D, std::initializer_list<int> powers, std::initializer_list<int> products) {
  const u64 W = output_words(D);
  const Words fraction = test::random_fraction(test::words_for(D), 21);
  Words good, out;
  u64 binary = 0;
  ASSERT_EQ(run_convert(good, W, fraction, 1), 0);
  ASSERT_EQ(run_verify(binary, W, fraction, 1), 0);
  std::mt19937_64 random(1);
  const auto expect_noticed = [&](const char* message, auto&& run, Faults::Stage stage, int at) {
    Damage damage(stage, at, random() >> 8);
    testing::internal::CaptureStdout();
    const int status = run(&damage);
    const std::string printed = testing::internal::GetCapturedStdout();
    EXPECT_NE(status, 0) << message << " visit " << at << " position " << damage.position;
    EXPECT_NE(printed.find(message), std::string::npos) << printed;
    EXPECT_NE(printed.find("Expected"), std::string::npos);
    EXPECT_GT(damage.visits, at);
  };
  const auto verifying = [&](Faults* hook) {
    u64 hash;
    return run_verify(hash, W, fraction, 2, hook);
  };
  for (const u64 threads : {1u, 8u}) {
    const auto converting = [&](Faults* hook) { return run_convert(out, W, fraction, threads, hook); };
    for (const int at : powers) expect_noticed("Power Hash Mismatch", converting, Faults::POWER, at);
    for (const int at : products) expect_noticed("Product Hash Mismatch", converting, Faults::PRODUCT, at);
  }
  expect_noticed("Radix Conversion: Power Hash Mismatch", verifying, Faults::VERIFY_POWER, 0);
  expect_noticed("Radix Conversion: Product Hash Mismatch", verifying, Faults::VERIFY_PRODUCT, 0);
  for (int sample = 0; sample < 20; ++sample) {
    Damage damage(Faults::OUTPUT, 0, random() >> 8);
    ASSERT_EQ(run_convert(out, W, fraction, 1, &damage), 0);
    const u64 difference = residue::sub(residue::hash_radix_words(RADIX, out.data(), W), binary);
    EXPECT_FALSE(difference <= 1 || difference == residue::P - 1) << "position " << damage.position;
  }
  ASSERT_EQ(run_convert(out, W, fraction, 1), 0);
  EXPECT_EQ(out, good);
}

TEST(Radix, DamageIsNoticed) {
  expect_damage_noticed(40000, {0, 2, 4}, {0, 1, 5, 20});
  expect_damage_noticed(600000, {0, 7}, {0, 1, 2, 3, 6, 40}); // the first ones modulo 2^(64 m) - 1
}

// A product whose residue is right but whose words are not can only be seen where two halves
// overlap: move one word by 2^61 - 1 units, which the residue does not see.
struct Shift : Faults {
  u64 position;
  explicit Shift(u64 position_) : position(position_) {}
  bool visit(Stage stage, u64* words, u64) override {
    if (stage != PRODUCT) return false;
    u64& word = words[position];
    word = word < residue::P ? word + residue::P : word - residue::P;
    return false;
  }
};

TEST(Radix, HalvesThatDisagreeAreNoticed) {
  const u64 W = 2 * LONGEST_LEAF; // one cut
  const Words fraction = test::random_fraction(fraction_words(W), 2);
  Words out;
  // The top word of the product's fraction, where the lower half begins.
  Shift shift(fraction_words(W) - power_zero_words(LONGEST_LEAF) - 1);
  testing::internal::CaptureStdout();
  const int status = run_convert(out, W, fraction, 1, &shift);
  const std::string printed = testing::internal::GetCapturedStdout();
  EXPECT_NE(status, 0);
  EXPECT_NE(printed.find("(): Overlap Mismatch\nRL       = 256\nExpected = "), std::string::npos) << printed;
  EXPECT_NE(printed.find("\nActual   = "), std::string::npos) << printed;
}

} // namespace
} // namespace kelvane::CBRv2
