// Products of floating numbers by their transforms: values, residues, and what is refused.
#include <gtest/gtest.h>

#include <unistd.h>

#include <memory>

#include "arithmetic/kob_cdi_EFPh.h"
#include "multiply/fft/km_FFTv2.h"
#include "multiply/hnt/km_HNT.h"
#include "shell/exception.h"
#include "support/bignum.h"
#include "support/capture.h"
#include "support/short.h"
#include "support/tables.h"

namespace kelvane {
namespace {

using test::OwnedEFPh;
using test::value;
using test::Words;
using test::Work;
using test::Z;
using Transform = kob_cdi_EFPh::Transform;

// Records for products of n words, transforms of numbers, a scratch.
class Transforms {
public:
  Transforms(u64 n, u64 threads)
      : record_(km_MULv3::select(n, test::context(n, threads), &storage_)),
        scratch_(record_->scratch_bytes()) {}
  Transform make(const kob_cdi_EFPh& x, bool once = false) {
    memory_.push_back(std::make_unique<Work>(record_->transform_bytes()));
    Transform t;
    if (once)
      t.forward_once(*record_, memory_.back()->data(), x, scratch_.data());
    else
      t.forward(*record_, memory_.back()->data(), x, scratch_.data());
    return t;
  }
  const km_MULv3::abstract_btp& record() const { return *record_; }
  void* scratch() { return scratch_.data(); }

private:
  km_MULv3::btp_storage storage_;
  km_MULv3::abstract_btp* record_;
  Work scratch_;
  std::vector<std::unique_ptr<Work>> memory_;
};

Z times(const Z& a, const Z& b) {
  Z r;
  mpz_mul(r.get(), a.get(), b.get());
  return r;
}
// a b +- c d
Z combined(const Z& a, const Z& b, const Z& c, const Z& d, bool subtract) {
  Z r = times(a, b);
  if (subtract)
    mpz_submul(r.get(), c.get(), d.get());
  else
    mpz_addmul(r.get(), c.get(), d.get());
  return r;
}

constexpr s64 SCALE = 40; // above every exponent's magnitude below

TEST(TransformedProducts, OneInverseOfOneProduct) {
  Words random(1);
  for (const u64 n : {u64{20}, u64{54}, u64{55}, u64{600}, u64{17409}, u64{17410}, u64{40000}}) {
    for (int round = 0; round < 3; round++) {
      const u64 nb = 1 + random.below(n / 2);
      const OwnedEFPh A(random.number(n - nb), -5), B(random.number(nb), 7);
      Transforms transforms(n, 1 + random.below(3));
      OwnedEFPh D(n);
      D.set_inverse_fmul(transforms.make(A, round == 0), transforms.make(B), transforms.scratch());
      ASSERT_TRUE(value(D, SCALE) == times(value(A, SCALE), value(B, 0))) << n << ' ' << nb;
      ASSERT_EQ(D.hash, D.hash_of_words());
      OwnedEFPh S(2 * nb);
      S.set_inverse_fsqr(transforms.make(B), transforms.scratch());
      ASSERT_TRUE(value(S, 0) == times(value(B, 0), value(B, 0))) << nb;
      ASSERT_EQ(S.hash, S.hash_of_words());
    }
  }
}

// Sums and differences, with every exponent, unequal lengths, room for the carry or just enough for the
// result, transforms made for one use and kept ones.
TEST(TransformedProducts, OneInverseOfTwoProducts) {
  Words random(2);
  std::vector<u64> lengths{60, 300, 1999, 9000, 17410, 20011, 35000};
  if (long_run()) {
    for (u64 n = 50000; n < 400000; n += n / 4) lengths.push_back(n);
  }
  for (const u64 n : lengths) {
    const int rounds = scale(8);
    for (int round = 0; round < rounds; round++) {
      const bool subtract = round % 2 != 0, once = round % 4 < 2;
      const u64 nb = 1 + random.below(n / 2), nd = 1 + random.below(n / 2), short_by = subtract ? 1 : 0;
      const s64 ea = static_cast<s64>(random.below(30)) - 15, eb = static_cast<s64>(random.below(30)) - 15;
      const s64 ec = static_cast<s64>(random.below(30)) - 15, ed = ea + eb - ec;
      // The subtracted product is one word shorter and the other one's operands fill their top words, so the
      // difference is positive.
      std::vector<u64> a = random.number(n - 1 - nb), b = random.number(nb);
      a.back() |= u64{1} << 63;
      b.back() |= u64{1} << 63;
      const OwnedEFPh A(a, ea), B(b, eb);
      const OwnedEFPh C(random.number(n - 1 - short_by - nd), ec), D(random.number(nd), ed);
      Transforms transforms(n, 1 + random.below(3));
      const Transform TA = transforms.make(A, once), TB = transforms.make(B, false),
                      TC = transforms.make(C, once), TD = transforms.make(D, false);
      OwnedEFPh R(round < 4 ? n : n + 5);
      R.set_inverse_fmul_ext(TA, TB, TC, TD, subtract, transforms.scratch());
      const Z want = combined(value(A, SCALE), value(B, SCALE), value(C, SCALE), value(D, SCALE), subtract);
      ASSERT_GT(mpz_sgn(want.get()), 0) << "seed 2, round " << round << ": the operands are no case";
      ASSERT_TRUE(value(R, 2 * SCALE) == want)
          << "n " << n << ", " << A.L << " x " << B.L << (subtract ? " - " : " + ") << C.L << " x " << D.L
          << ", seed 2, round " << round;
      ASSERT_EQ(R.exp, ea + eb);
      ASSERT_EQ(R.hash, R.hash_of_words()) << "n " << n << ", seed 2, round " << round;
      ASSERT_TRUE(R.L > 0 && R.T[R.L - 1] != 0);
      // What was kept serves again: TB and TD are whole; so are TC's unless it was made for one use.
      OwnedEFPh again(n + 1);
      again.set_inverse_fmul(transforms.make(C), TD, transforms.scratch());
      ASSERT_TRUE(value(again, 2 * SCALE) == times(value(C, SCALE), value(D, SCALE))) << n << ' ' << round;
    }
  }
}

// A difference that cancels nearly everything: A B - C D = 1 word or fewer, from (x + 1)(x - 1) = x^2 - 1.
TEST(TransformedProducts, DifferencesThatCancel) {
  Words random(3);
  const u64 n = 18000, half = n / 2;
  std::vector<u64> x = random.number(half);
  x[0] |= 2;
  x[0] &= ~u64{1};
  std::vector<u64> more = x, less = x;
  more[0] += 1;
  less[0] -= 1;
  const OwnedEFPh X(x, 3), M(more, 3), S(less, 3);
  Transforms transforms(n + 2, 2);
  OwnedEFPh R(n + 2);
  const Transform TY = transforms.make(X);
  R.set_inverse_fmul_ext(transforms.make(X), TY, transforms.make(M), transforms.make(S), true,
                         transforms.scratch());
  EXPECT_EQ(R.L, 1u);
  EXPECT_EQ(R.T[0], 1u);
  EXPECT_EQ(R.exp, 6);
  EXPECT_EQ(R.hash, R.hash_of_words());
}

// A wrong word in a transform shows in the residue.
TEST(TransformedProducts, AFaultShowsInTheResidue) {
  Words random(4);
  const u64 n = 18000;
  const OwnedEFPh A(random.number(n / 2), 0), B(random.number(n / 2 - 1), 0);
  Transforms transforms(n, 1);
  const Transform TA = transforms.make(A), TB = transforms.make(B), TC = transforms.make(A),
                  TD = transforms.make(B);
  static_cast<u64*>(TC.data)[1000] ^= 1;
  OwnedEFPh R(n);
  R.set_inverse_fmul_ext(TA, TB, TC, TD, false, transforms.scratch());
  EXPECT_NE(R.hash, R.hash_of_words());
}

TEST(TransformedProducts, WhatIsRefused) {
  Words random(5);
  const u64 n = 17500;
  const OwnedEFPh A(random.number(n / 2), 0), B(random.number(n / 2), 0), long_one(random.number(n), 0),
      other_exponent(random.number(n / 2), 1);
  Transforms transforms(n, 1), longer(400000, 1);
  ASSERT_FALSE(transforms.record().accepts(longer.record()));
  const Transform TA = transforms.make(A), TB = transforms.make(B), TC = longer.make(A), TD = longer.make(B);
  // A transform of more words than a product leaves room for.
  Transform too_long = TA, shifted = TA;
  too_long.L = transforms.record().capacity_bits() / 64;
  shifted.exp = 1;
  OwnedEFPh R(400000), small(n - 1);

  // kind 1: one product; 2: the sum of two; the pairs in question are the first or the second.
  const auto refused = [&](const std::function<void()>& body, const char* message, int status = 1) {
    const Captured result = capture(body, "\n");
    EXPECT_EQ(result.status, status) << message;
    EXPECT_NE(result.output.find(message), std::string::npos)
        << "wanted: " << message << "\ngot: " << result.output;
  };
  const char *const one = "kob_cdi_EFPh::set_inverse_fmul()", *const two =
                                                                  "kob_cdi_EFPh::set_inverse_fmul_ext()";
  const std::string mismatch = ": Mismatching Transform Parameters", range = ": Truncated Range";
  refused([&] { R.set_inverse_fmul(TA, TC, transforms.scratch()); }, (one + mismatch).c_str());
  refused([&] { R.set_inverse_fmul(too_long, TB, transforms.scratch()); }, (one + range).c_str());
  refused([&] { small.set_inverse_fmul(TA, TB, transforms.scratch()); }, "Insufficient Allocated Space");
  const auto ext = [&](kob_cdi_EFPh& out, const Transform& a, const Transform& b, const Transform& c,
                       const Transform& d) {
    return [&, a, b, c, d] { out.set_inverse_fmul_ext(a, b, c, d, false, transforms.scratch()); };
  };
  refused(ext(R, TA, TC, TA, TB), (two + mismatch).c_str());
  refused(ext(R, TA, TB, TB, TD), (two + mismatch).c_str());
  refused(ext(R, TA, TB, TC, TD), (two + mismatch).c_str()); // each pair agrees, the two do not
  refused(ext(R, too_long, TB, TB, TB), (two + range).c_str());
  refused(ext(R, TA, TB, too_long, TB), (two + range).c_str());
  refused(ext(small, TA, TB, TB, TB), "Insufficient Allocated Space");
  // Of rounded transforms, heavy ones: digits of the largest size only; and those of short products.
  const u64 short_n = 2000, digit = km_FFTv2::make_plan(64 * short_n, 1).b;
  std::vector<u64> heavy(short_n / 2, 0);
  for (u64 bit = digit - 1; bit < 64 * heavy.size(); bit += digit) heavy[bit / 64] |= u64{1} << bit % 64;
  Transforms rounded(short_n, 1), basecase(40, 1);
  const Transform TH = rounded.make(OwnedEFPh(heavy, 0)), TS = basecase.make(OwnedEFPh(random.number(20), 0));
  for (const Transform& t : {TH, TS}) {
    const Captured sum = capture(ext(R, t, t, t, t), "\n");
    EXPECT_NE(sum.status, 0);
    EXPECT_NE(sum.output.find("The products can not be added."), std::string::npos) << sum.output;
  }
  const Captured exponents = capture(ext(R, TA, TB, shifted, TB), "\n");
  EXPECT_NE(exponents.status, 0);
  EXPECT_NE(exponents.output.find("Exponents differ."), std::string::npos) << exponents.output;
}

// Over the operands' own words; a refused one has written nothing.
TEST(TransformedProducts, OverTheOperands) {
  Words random(6);
  for (const bool reduced : {false, true}) {
    for (const u64 n : {u64{56}, u64{1000}, u64{17409}, u64{17410}, u64{30001}}) {
      km_MULv3::Context context = test::context(n, 2);
      context.reduced_memory = reduced;
      Work work(km_MULv3::product_cost(n, 2, reduced));
      std::vector<u64> memory = random.number(n + 1);
      const u64 nb = 1 + random.below(n - 1);
      kob_cdi_EFPh A, B, D;
      A.attach(memory.data(), n - nb);
      B.attach(memory.data() + (n - nb), nb);
      memory[n - nb - 1] |= 1;
      memory[n - 1] |= 1;
      A.L = n - nb;
      B.L = nb;
      A.finish_words();
      B.finish_words();
      A.exp = -3;
      A.hash = A.hash_of_words();
      const Z want = times(value(A, 3), value(B, 0));
      D.attach(memory.data(), n);
      D.set_product_over(context, A, B, work.data());
      ASSERT_TRUE(value(D, 3) == want) << n << ' ' << nb << (reduced ? " reduced" : "");
      ASSERT_EQ(D.hash, D.hash_of_words());
      const Captured result = capture(
          [&] {
            D.attach(memory.data(), A.L + B.L - 1);
            D.set_product_over(context, A, B, work.data());
          },
          "\n");
      EXPECT_EQ(result.status, 1);
      EXPECT_NE(result.output.find("Insufficient Allocated Space"), std::string::npos);
    }
  }
}

} // namespace
} // namespace kelvane
