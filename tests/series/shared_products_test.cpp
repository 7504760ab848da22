// The products of a merge: the same integers whatever the work memory, with reduced memory and any threads.
#include <gtest/gtest.h>

#include "multiply/fft/km_FFTv2.h"
#include "series/recursion.h"
#include "series/series_catalan.h"
#include "series/series_pi.h"
#include "series/shared_products.h"
#include "support/bignum.h"
#include "support/short.h"
#include "support/tables.h"

namespace kelvane {
namespace {

using test::OwnedEFPh;
using test::value;
using test::Words;
using test::Work;
using test::Z;

// Two ranges' integers, R last and side by side, as a merge finds them; and what it makes of them.
struct Merge {
  std::vector<u64> storage;
  kob_cdi_EFPh left[3], right[3];
  std::vector<OwnedEFPh> out;

  // Words of (P, Q, R) of both, every one with one word of room.
  Merge(const std::vector<u64> (&l)[3], const std::vector<u64> (&r)[3]) {
    u64 words = 0;
    for (int i = 0; i < 3; i++) words += l[i].size() + r[i].size() + 4;
    storage.resize(words);
    u64* at = storage.data();
    const auto place = [&](kob_cdi_EFPh& x, const std::vector<u64>& from) {
      x.attach(at, from.size() + 2);
      x.set_words(from.data(), from.size());
      at += x.AL;
    };
    for (int i = 0; i < 2; i++) {
      place(left[i], l[i]);
      place(right[i], r[i]);
    }
    place(left[2], l[2]);
    place(right[2], r[2]);
    const u64 n = kc_BSS_P2B3_Type0::longest(left) + kc_BSS_P2B3_Type0::longest(right);
    for (int i = 0; i < 3; i++) out.emplace_back(n + 2);
  }
};

class Operands {
public:
  Operands(u64 words, u64 seed) {
    Words random(seed);
    for (int i = 0; i < 3; i++) {
      // Of about the same length, as in a series; the left R and right Q longest, so that R stays positive.
      l_[i] = random.number(i == 2 ? words : words - 1 - random.below(words / 20));
      r_[i] = random.number(i == 1 ? words : words - 1 - random.below(words / 20));
    }
  }
  // Every digit of b bits 2^(b-1).
  static Operands heavy(u64 words, u64 b) {
    std::vector<u64> x(words, 0);
    for (u64 bit = b - 1; bit < 64 * words; bit += b) x[bit / 64] |= u64{1} << bit % 64;
    Operands operands(words, 1);
    for (int i = 0; i < 3; i++) operands.l_[i] = operands.r_[i] = x;
    return operands;
  }
  Merge merge() const { return Merge(l_, r_); }

private:
  std::vector<u64> l_[3], r_[3];
};

// Q = Ql Qr, R = Rl Qr +- Pl Rr, P = Pl Pr by GMP.
void expect_right(const Operands& operands, const Merge& m, bool subtract, bool need_P,
                  const std::string& what) {
  const Merge fresh = operands.merge();
  Z l[3], r[3], p, q, s;
  for (int i = 0; i < 3; i++) {
    l[i] = value(fresh.left[i], 0);
    r[i] = value(fresh.right[i], 0);
  }
  mpz_mul(p.get(), l[0].get(), r[0].get());
  mpz_mul(q.get(), l[1].get(), r[1].get());
  mpz_mul(s.get(), l[2].get(), r[1].get());
  if (subtract)
    mpz_submul(s.get(), l[0].get(), r[2].get());
  else
    mpz_addmul(s.get(), l[0].get(), r[2].get());
  if (need_P) {
    ASSERT_TRUE(value(m.out[0], 0) == p) << "P, " << what;
    ASSERT_EQ(m.out[0].hash, m.out[0].hash_of_words()) << "P, " << what;
  }
  ASSERT_TRUE(value(m.out[1], 0) == q) << "Q, " << what;
  ASSERT_EQ(m.out[1].hash, m.out[1].hash_of_words()) << "Q, " << what;
  ASSERT_TRUE(value(m.out[2], 0) == s) << "R, " << what;
  ASSERT_EQ(m.out[2].hash, m.out[2].hash_of_words()) << "R, " << what;
}

// The least work that a merge may have, a little more than each of the larger forms needs, and plenty.
TEST(MergeProducts, EveryAmountOfWorkGivesTheSame) {
  const Series_Pi_Chudnovsky series;
  std::vector<u64> lengths{30, 400, 8700, 8720, 12000};
  if (long_run()) lengths.insert(lengths.end(), {50000, 131000, 270000});
  for (const u64 words : lengths) {
    if (short_run() && words > 8720) continue;
    const Operands operands(words, words);
    u64 transforms_shared = 0;
    for (const bool reduced : {false, true}) {
      for (const u64 threads : {1, 3}) {
        km_MULv3::Context context = test::context(4 * words, threads);
        context.reduced_memory = reduced;
        const u64 least = series.merge_bytes(words, context);
        u64 plenty = least;
        {
          km_MULv3::btp_storage storage;
          const auto* const record =
              km_MULv3::select(2 * words + 2, test::context(4 * words, threads), &storage);
          plenty += 5 * record->transform_bytes() + record->scratch_bytes();
        }
        for (const u64 bytes : {least, least + (plenty - least) / 3, plenty}) {
          for (const bool subtract : {false, true}) {
            for (const bool need_P : {false, true}) {
              Merge m = operands.merge();
              Work work(bytes);
              const std::string what = std::to_string(words) + " words, " + std::to_string(bytes) +
                                       " bytes, " + std::to_string(threads) + " threads" +
                                       (reduced ? ", reduced" : "") + (subtract ? ", difference" : ", sum");
              transforms_shared += MergeProducts(context, 2 * words + 1, work.data(), bytes).possible();
              kob_cdi_EFPh out[3] = {m.out[0], m.out[1], m.out[2]};
              // m - a odd: subtract
              series.merge(context, 0, subtract ? 1 : 2, 4, m.left, m.right, out, need_P, work.data(), bytes);
              for (u64 i = 0; i < 3; i++) static_cast<kob_cdi_EFPh&>(m.out[i]) = out[i];
              expect_right(operands, m, subtract, need_P, what);
              if (HasFatalFailure()) return;
            }
          }
        }
      }
    }
    // The forms have all been met.
    EXPECT_TRUE(transforms_shared >= 16 && transforms_shared <= 32) << words << ": " << transforms_shared;
  }
}

// Integers whose digits are all of the largest size: rounded transforms of them may not be added.
TEST(MergeProducts, HeavyIntegers) {
  const Series_Pi_Chudnovsky series;
  for (const u64 words : {u64{60}, u64{1000}, u64{4000}}) {
    const Operands operands = Operands::heavy(words, km_FFTv2::make_plan(64 * (2 * words + 1), 1).b);
    const km_MULv3::Context context = test::context(4 * words, 1);
    const u64 bytes = 20 * series.merge_bytes(words, context);
    Work work(bytes);
    Merge m = operands.merge();
    kob_cdi_EFPh out[3] = {m.out[0], m.out[1], m.out[2]};
    MergeProducts products(context, 2 * words + 1, work.data(), bytes);
    ASSERT_TRUE(products.possible()) << words;
    EXPECT_FALSE(products.merge(m.left, m.right, false, &out[0], out[1], out[2])) << words;
    series.merge(context, 0, 2, 4, m.left, m.right, out, true, work.data(), bytes);
    for (u64 i = 0; i < 3; i++) static_cast<kob_cdi_EFPh&>(m.out[i]) = out[i];
    expect_right(operands, m, false, true, std::to_string(words) + " words");
  }
}

// Q = Ql Qr, R = (Rl Qr) 2^bits -+ Ql Rr with the least work, in which Rl and Rr pass one after the other,
// and with plenty: as a merge of halves, exactly, and as a segment's with a tail whose R ends above or below
// Q's last word.
TEST(FractionMerge, EveryAmountOfWorkGivesTheSame) {
  const Series_Catalan_Huvent series;
  constexpr u64 TERMS = 700; // behind the left range: 65.6 words of shift
  std::vector<u64> lengths{30, 400, 8700, 12000};
  if (long_run()) lengths.push_back(131000);
  for (const u64 words : lengths) {
    Words random(words);
    const std::vector<u64> Ql = random.number(words), Rl = random.number(words),
                           Qr = random.number(words - 1), Rr = random.number(words - 2);
    const u64 capacity = words + 80;
    for (const u64 threads : {1, 3})
      for (const bool plenty : {false, true})
        for (const s64 tail_exponent : {-1, 0, 40, 90}) { // of R, that of Q being 0; -1: halves
          const bool tail = tail_exponent >= 0;
          const bool subtract = (words / 10 + threads) % 2 != 0;
          const km_MULv3::Context context = test::context(4 * words + 400, threads);
          const std::string what = std::to_string(words) + " words, tail's exponent " +
                                   std::to_string(tail_exponent) + (plenty ? ", plenty" : ", least");
          std::vector<u64> storage(2 * capacity + 80);
          kob_cdi_EFPh left[2];
          left[0].attach(storage.data(), capacity);
          left[1].attach(storage.data() + capacity, capacity + 80);
          left[0].set_words(Ql.data(), words);
          left[1].set_words(Rl.data(), words);
          OwnedEFPh right_Q(Qr, 0, capacity), right_R(Rr, std::max<s64>(0, tail_exponent), capacity);
          kob_cdi_EFPh right[] = {right_Q, right_R};
          OwnedEFPh out_Q(2 * capacity), out_R(2 * capacity);
          kob_cdi_EFPh out[] = {out_Q, out_R};

          Z q, r, x;
          mpz_mul(q.get(), value(left[0], 0).get(), value(right[0], 0).get());
          mpz_mul(r.get(), value(left[1], 0).get(), value(right[0], 0).get());
          mpz_mul_2exp(r.get(), r.get(), series.shift * TERMS);
          mpz_mul(x.get(), value(left[0], 0).get(), value(right[1], 0).get());
          if (tail && mpz_cmp(x.get(), r.get()) >= 0) continue;
          if (subtract)
            mpz_sub(r.get(), r.get(), x.get());
          else
            mpz_add(r.get(), r.get(), x.get());

          const u64 first = subtract ? 1 : 2;
          const u64 least = tail ? series.tail_merge_bytes(capacity, words, 0, context)
                                 : series.merge_bytes(capacity, context);
          const u64 bytes = plenty ? 2 * least : least;
          Work work(bytes);
          if (!tail) {
            series.merge(context, 0, first, first + TERMS, left, right, out, true, work.data(), bytes);
            ASSERT_TRUE(value(out[0], 0) == q && value(out[1], 0) == r) << what;
            ASSERT_TRUE(out[0].hash == out[0].hash_of_words() && out[1].hash == out[1].hash_of_words())
                << what;
            continue;
          }
          const u64 keep = words + 20;
          series.merge_tail(context, {0, first, first + TERMS, keep, left, right}, work.data(), bytes);
          for (const auto& [number, exact] : {std::pair(right[0], q), std::pair(right[1], r)}) {
            ASSERT_EQ(number.L, keep) << what;
            mpz_sub(x.get(), exact.get(), value(number, 0).get());
            // Each of the two truncations is off by one unit of the last word.
            mpz_tdiv_q_2exp(x.get(), x.get(), static_cast<mp_bitcnt_t>(64 * number.exp));
            ASSERT_LE(mpz_cmpabs_ui(x.get(), 1), 0) << what;
            ASSERT_EQ(number.hash, number.hash_of_words()) << what;
          }
        }
  }
}

// x y and z y with y kept, z y over both operands.
TEST(SharedProducts, EveryAmountOfWorkGivesTheSame) {
  std::vector<u64> lengths{20, 500, 8600, 9000, 20000};
  if (long_run()) lengths.insert(lengths.end(), {100000, 250000});
  for (const u64 words : lengths) {
    Words random(words);
    const std::vector<u64> x = random.number(words), y = random.number(words), z = random.number(words);
    for (const bool reduced : {false, true}) {
      km_MULv3::Context context = test::context(4 * words, 2);
      context.reduced_memory = reduced;
      const u64 least = km_MULv3::memory_cost(2 * words, 2, reduced);
      for (const u64 bytes : {least, km_MULv3::memory_cost(2 * words, 2, false)}) {
        std::vector<u64> memory(2 * words);
        std::copy(y.begin(), y.end(), memory.begin());
        std::copy(z.begin(), z.end(), memory.begin() + static_cast<s64>(words));
        const OwnedEFPh X(x, 0), want_y(y, 0), want_z(z, 0);
        kob_cdi_EFPh Y, ZZ, over;
        Y.attach(memory.data(), words);
        Y.L = words;
        Y.finish_words();
        ZZ.attach(memory.data() + words, words);
        ZZ.L = words;
        ZZ.finish_words();
        OwnedEFPh first(2 * words), second(2 * words);
        Work work(bytes);
        SharedProducts products(context, 2 * words, work.data(), bytes);
        products.keep(Y);
        products.multiply(first, X);
        products.multiply(second, ZZ);
        Z want;
        mpz_mul(want.get(), value(X, 0).get(), value(want_y, 0).get());
        ASSERT_TRUE(value(first, 0) == want) << words << (reduced ? " reduced" : "");
        ASSERT_EQ(first.hash, first.hash_of_words());
        mpz_mul(want.get(), value(want_z, 0).get(), value(want_y, 0).get());
        ASSERT_TRUE(value(second, 0) == want) << words << (reduced ? " reduced" : "");
        if (!km_MULv3::may_multiply_over(2 * words)) continue;
        over.attach(memory.data(), 2 * words);
        products.multiply_over(over, ZZ);
        ASSERT_TRUE(value(over, 0) == want) << words << (reduced ? " reduced" : "") << ", over";
        ASSERT_EQ(over.hash, over.hash_of_words());
      }
    }
  }
}

} // namespace
} // namespace kelvane
