// Products of the hybrid NTT against GMP.
#include "multiply/hnt_fixture.h"

#include <algorithm>

namespace kelvane::test {
namespace {

using km_MULv3::Term;

// Lengths of products at which the shape changes, by their last length.
std::vector<u64> boundaries(u64 most) {
  const ntt::ShapeList list = ntt::shapes(ntt::backend_of(simd::active_isa()));
  std::vector<u64> all;
  for (u64 i = 0; i < list.count; i++) {
    const u64 words = list.first[i].capacity_words();
    if (words >= 17410 && words <= most) all.push_back(words);
  }
  return all;
}

// Every shape, full of ones (the largest coefficients that can be), and one word less and more.
TEST(HntProducts, ShapeBoundaries) {
  const u64 most = short_run() ? 40000 : u64{1} << 18;
  std::mt19937_64 random(1);
  for (const simd::Isa isa : every_isa()) {
    const Forced forced(isa);
    for (const u64 words : boundaries(most)) {
      for (const u64 n : {words - 1, words, words + 1}) {
        const Pattern pattern = n == words ? Pattern::ones : static_cast<Pattern>(n % 3);
        const Words a = operand(n / 2, pattern, random), b = operand(n - n / 2, pattern, random);
        const Record record(n, 1 + n % 2);
        ASSERT_EQ(difference(record.product(a, b), expected_product(a, b)), "")
            << n << " words, pattern " << static_cast<int>(pattern) << ", " << name(isa) << ", w "
            << record->shape().w << " b " << record->shape().b << " N " << record->shape().N();
      }
    }
  }
}

// Outputs that end within a row of every part of the tiles, or before: how rows are put together in groups
// depends on how much of the shape an output fills.
TEST(HntProducts, OutputsShortOfTheShape) {
  std::mt19937_64 random(8);
  for (const simd::Isa isa : every_isa()) {
    const Forced forced(isa);
    for (const u64 words : boundaries(short_run() ? 36000 : 150000)) {
      const Record record(words, 1);
      const u64 part = words / 8 / 8 * 8;
      for (const u64 n : {words - words / 16 - 3, 7 * part, 7 * part - 1, words / 2 + random() % 100}) {
        const Words a = operand(n / 2, Pattern::ones, random), b = operand(n - n / 2, Pattern::ones, random);
        ASSERT_EQ(difference(record.product(a, b), expected_product(a, b)), "")
            << n << " of " << words << " words, " << name(isa) << ", w " << record->shape().w << " N "
            << record->shape().N();
      }
    }
  }
}

TEST(HntProducts, UnequalLengthsAndSquares) {
  std::mt19937_64 random(2);
  const int rounds = scale(4);
  for (const simd::Isa isa : every_isa()) {
    const Forced forced(isa);
    for (int round = 0; round < rounds; round++) {
      const u64 n = 17410 + random() % 60000;
      for (const u64 ratio : {u64{2}, u64{3}, u64{7}, u64{1000}, n}) {
        const Pattern pattern = static_cast<Pattern>(random() % 3);
        const Words a = operand(n - n / ratio, pattern, random), b = operand(n / ratio, pattern, random);
        km_MULv3::Context context;
        context.threads = 1 + random() % 2;
        const Buffer work(km_MULv3::product_cost(n, context.threads));
        Engine tables(n, isa);
        context.tables = tables.context.tables;
        Words got(n);
        km_MULv3::multiply(context, got.data(), a.data(), a.size(), b.data(), b.size(), work.data());
        ASSERT_EQ(difference(got, expected_product(a, b)), "")
            << a.size() << " x " << b.size() << ' ' << name(isa);
      }
      const Words a = operand(n / 2 + 1, static_cast<Pattern>(round % 3), random);
      ASSERT_EQ(difference(Record(2 * a.size(), 1).square(a), expected_product(a, a)), "")
          << a.size() << name(isa);
    }
  }
}

// Long enough for made row lists and for streaming stores, over several rows of the plan's kinds.
TEST(HntProducts, LongRows) {
  if (short_run()) GTEST_SKIP() << "long products";
  std::mt19937_64 random(3);
  for (const u64 n : {u64{400000}, u64{700000}, u64{1600000}}) {
    const Words a = operand(n / 2, Pattern::random, random), b = operand(n - n / 2, Pattern::sparse, random);
    const Words want = expected_product(a, b);
    for (const simd::Isa isa : every_isa()) {
      const Forced forced(isa);
      ASSERT_EQ(difference(Record(n, 2).product(a, b), want), "") << n << ' ' << name(isa);
    }
  }
}

// Wherever a result begins within a cache line, and wherever it cuts a run, nothing beside it is touched.
TEST(HntProducts, ResultsAnywhere) {
  std::mt19937_64 random(9);
  for (const u64 n : {u64{18000}, u64{150000}}) {
    if (short_run() && n > 100000) continue;
    for (u64 offset = 0; offset < 8; offset++) {
      const u64 words = n - random() % 600;
      const Words a = operand(words / 2, static_cast<Pattern>(offset % 3), random);
      const Words b = operand(words - words / 2, Pattern::random, random);
      const Words want = expected_product(a, b);
      for (const simd::Isa isa : every_isa()) {
        const Forced forced(isa);
        const Record record(n, 1);
        const Buffer out(8 * (offset + words + 8)), TA(record->transform_bytes()), TB(record->second_bytes());
        std::fill_n(out.words(), offset + words + 8, 0x5555);
        record->product(out.words() + offset, a.data(), a.size(), b.data(), b.size(), TA.data(), TB.data(),
                        record.scratch());
        const Words got(out.words(), out.words() + offset + words + 8);
        Words all(offset, 0x5555);
        all.insert(all.end(), want.begin(), want.end());
        all.resize(all.size() + 8, 0x5555);
        ASSERT_EQ(difference(got, all), "") << words << " words at " << offset << ' ' << name(isa);
      }
    }
  }
}

TEST(HntProducts, ThreadsAndReducedMemoryMakeNoDifference) {
  std::mt19937_64 random(4);
  const u64 n = short_run() ? 20000 : 150001;
  const Words a = operand(n / 3, Pattern::random, random), b = operand(n - n / 3, Pattern::ones, random);
  const Words want = expected_product(a, b), square = expected_product(b, b);
  for (const simd::Isa isa : every_isa()) {
    const Forced forced(isa);
    for (const u64 threads : {1, 2, 3, 5, 256}) {
      for (const bool reduced : {false, true}) {
        const Record record(n, threads, reduced);
        ASSERT_EQ(difference(record.product(a, b), want), "")
            << threads << ' ' << reduced << ' ' << name(isa);
      }
      ASSERT_EQ(difference(Record(2 * b.size(), threads, true).square(b), square), "")
          << threads << name(isa);
    }
    const u64 full = km_MULv3::product_cost(n, 2), less = km_MULv3::product_cost(n, 2, true);
    EXPECT_LT(less, full * 7 / 10) << name(isa);
    EXPECT_LE(full, km_MULv3::memory_cost(n, 2));
    EXPECT_LE(less, km_MULv3::memory_cost(n, 2, true));
  }
}

// Capacity of the shortest transform of packed points, 0 if the active instruction set has none.
u64 packed_words() {
  const ntt::ShapeList list = ntt::shapes(ntt::backend_of(simd::active_isa()));
  for (u64 i = 0; i < list.count; i++) {
    if (list.first[i].packed) return list.first[i].capacity_words();
  }
  return 0;
}

// A kept transform serves several products, beside raw ones and itself.
TEST(HntProducts, TransformsAreValues) {
  std::mt19937_64 random(5);
  for (const simd::Isa isa : every_isa()) {
    const Forced forced(isa);
    const u64 n = short_run() ? 18000 : std::max(u64{50000}, packed_words());
    const Record record(n, 2);
    const Words a = operand(n / 2, Pattern::random, random), b = operand(n / 2, Pattern::ones, random);
    const auto kept = record.transform(a);
    for (int use = 0; use < 2; use++) {
      const auto passing = record.transform(b, use == 0);
      Words got(n);
      record->inverse_fmul(got.data(), n, passing->data(), kept->data(), record.scratch());
      ASSERT_EQ(difference(got, expected_product(a, b)), "") << use << name(isa);
    }
    const auto passing = record.transform(b), raw = record.transform(a, true);
    Words got(n);
    record->inverse_fmul(got.data(), n, passing->data(), raw->data(), record.scratch());
    ASSERT_EQ(difference(got, expected_product(a, b)), "") << name(isa);
    record->inverse_fsqr(got.data(), n, kept->data(), record.scratch());
    ASSERT_EQ(difference(got, expected_product(a, a)), "") << name(isa);
  }
}

class Integer {
public:
  Integer() { mpz_init(z_); }
  ~Integer() { mpz_clear(z_); }
  Integer(const Integer&) = delete;
  Integer& operator=(const Integer&) = delete;
  mpz_ptr get() { return z_; }
  void add(const Words& a, const Words& b, bool subtract) {
    Integer x, y;
    mpz_import(x.get(), a.size(), -1, 8, 0, 0, a.data());
    mpz_import(y.get(), b.size(), -1, 8, 0, 0, b.data());
    if (subtract)
      mpz_submul(z_, x.get(), y.get());
    else
      mpz_addmul(z_, x.get(), y.get());
  }
  Words words(u64 n) const {
    Words out(n);
    mpz_export(out.data(), nullptr, -1, 8, 0, 0, z_);
    return out;
  }

private:
  mpz_t z_;
};

// The lengths at which sums and wrapped products are tried.
std::vector<u64> lengths_of_sums() {
  std::vector<u64> lengths = boundaries(short_run() ? 20000 : long_run() ? u64{1} << 18 : 50000);
  if (!short_run() && packed_words() != 0) lengths.push_back(packed_words());
  return lengths;
}

// Sums at full headroom, all ones at the full capacity, with the largest differences of coefficients.
TEST(HntProducts, SumsAndDifferences) {
  std::mt19937_64 random(6);
  for (const simd::Isa isa : every_isa()) {
    const Forced forced(isa);
    for (const u64 words : lengths_of_sums()) {
      for (int kind = 0; kind < 4; kind++) {
        // kind 0: four products added; 1: two added, two subtracted; 2: one minus one, raw transforms;
        // 3: three added.
        const u64 count = kind == 2 ? 2 : kind == 3 ? 3 : 4, n = words;
        const Record record(n, 1 + (n + static_cast<u64>(kind)) % 5);
        std::vector<Words> a, b;
        std::vector<std::unique_ptr<Buffer>> T;
        std::vector<Term> terms;
        Integer sum;
        for (u64 i = 0; i < count; i++) {
          const bool subtract = (kind == 1 || kind == 2) && i >= count / 2;
          // The subtracted products are shorter, so that the sum is positive; the last words leave room for
          // four.
          a.push_back(operand(n / 2 - (subtract ? 2 : 0), Pattern::ones, random));
          b.push_back(operand(n / 2 - (subtract ? 2 : 0), i == 3 ? Pattern::sparse : Pattern::ones, random));
          if (!subtract) a.back().back() >>= 2;
          sum.add(a.back(), b.back(), subtract);
          T.push_back(record.transform(a.back(), kind == 2));
          T.push_back(record.transform(b.back(), kind == 2));
          terms.push_back({T[2 * i]->data(), T[2 * i + 1]->data(), subtract});
        }
        Words got(n);
        record->inverse_sum(got.data(), n, terms.data(), count, record.scratch());
        ASSERT_EQ(difference(got, sum.words(n)), "") << n << " kind " << kind << ' ' << name(isa);
      }
    }
  }
}

TEST(HntProducts, WrappedProducts) {
  std::mt19937_64 random(7);
  for (const simd::Isa isa : every_isa()) {
    const Forced forced(isa);
    for (const u64 words : lengths_of_sums()) {
      for (int kind = 0; kind < 4; kind++) {
        // kind 0, 1: products of full length, random and all ones; 2: a sum of two; 3: a negative difference.
        const Record record(words, 1 + (words + static_cast<u64>(kind)) % 5);
        const u64 n = record->wrap_words();
        ASSERT_EQ(n, words);
        const Pattern pattern = kind == 0 ? Pattern::random : Pattern::ones;
        Words a = operand(n, pattern, random), b = operand(n, pattern, random),
              c = operand(n, pattern, random);
        if (kind == 1) b[0]--;
        if (kind == 2) c[n - 1] = 12345;
        if (kind == 3) a[n - 1] = 1; // a b - c b, c > a
        const auto TA = record.transform(a, kind == 0), TB = record.transform(b), TC = record.transform(c);
        const Term terms[2] = {{TA->data(), TB->data(), false}, {TC->data(), TB->data(), kind == 3}};
        Words got(n);
        record->inverse_wrapped(got.data(), terms, kind < 2 ? 1 : 2, record.scratch());
        Integer sum, modulus, result;
        sum.add(a, b, false);
        if (kind >= 2) sum.add(c, b, kind == 3);
        mpz_setbit(modulus.get(), 64 * n);
        mpz_sub_ui(modulus.get(), modulus.get(), 1);
        mpz_import(result.get(), n, -1, 8, 0, 0, got.data());
        mpz_sub(sum.get(), sum.get(), result.get());
        ASSERT_NE(mpz_divisible_p(sum.get(), modulus.get()), 0) << n << " kind " << kind << ' ' << name(isa);
      }
    }
  }
}

} // namespace
} // namespace kelvane::test
