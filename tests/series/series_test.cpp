// The series of Pi and e against MPFR, their schedules, thread counts and checks.
#include <gtest/gtest.h>
#include <mpfr.h>

#include "series/schedule.h"
#include "series/series_e.h"
#include "series/series_pi.h"
#include "series/sum_P2B3.h"
#include "shell/exception.h"
#include "support/bignum.h"
#include "support/short.h"
#include "support/tables.h"

namespace kelvane {
namespace {

using test::OwnedEFPh;
using test::Work;

// An owned MPFR number.
class F {
public:
  explicit F(u64 words) { mpfr_init2(x_, static_cast<mpfr_prec_t>(64 * words + 256)); }
  ~F() { mpfr_clear(x_); }
  F(const F&) = delete;
  F& operator=(const F&) = delete;
  mpfr_ptr get() { return x_; }
  void set(const kob_cdi_EFPh& v) {
    mpfr_set_z_2exp(x_, test::Z::of_words(v.T, v.L).get(), 64 * v.exp, MPFR_RNDN);
  }

private:
  mpfr_t x_;
};

// -log2 of the relative difference.
double agreeing_bits(F& a, F& b) {
  F d(2);
  mpfr_sub(d.get(), a.get(), b.get(), MPFR_RNDN);
  if (mpfr_zero_p(d.get())) return 1e9;
  mpfr_div(d.get(), d.get(), b.get(), MPFR_RNDN);
  return -static_cast<double>(mpfr_get_exp(d.get()));
}

struct PiSum {
  OwnedEFPh Q, R;
  explicit PiSum(u64 w) : Q(sum_capacity(w) + 1), R(sum_capacity(w) + 1) {}
};

void sum(const kc_BSS_P2B3_Type0& series, u64 w, u64 threads, PiSum& s, SeriesFault* fault = nullptr) {
  Work work(sum_work_bytes(series, w, test::context(4 * w + 64, threads)));
  sum_series_P2B3(series, w, {test::context(4 * w + 64, threads), fault}, s.Q, s.R, work.data());
}

double pi_bits(const kc_BSS_P2B3_Type0& series, u64 w, u64 threads) {
  PiSum s(w);
  sum(series, w, threads, s);
  EXPECT_EQ(s.Q.hash, s.Q.hash_of_words());
  EXPECT_EQ(s.R.hash, s.R.hash_of_words());
  F q(w), r(w), pi(w);
  q.set(s.Q);
  r.set(s.R);
  const bool chudnovsky = series.alternating;
  F d(w);
  mpfr_mul_ui(d.get(), q.get(), chudnovsky ? 13591409 : 1103, MPFR_RNDN);
  if (chudnovsky)
    mpfr_sub(d.get(), d.get(), r.get(), MPFR_RNDN);
  else
    mpfr_add(d.get(), d.get(), r.get(), MPFR_RNDN);
  mpfr_sqrt_ui(r.get(), chudnovsky ? 10005 : 8, MPFR_RNDN);
  mpfr_mul(d.get(), d.get(), r.get(), MPFR_RNDN);
  mpfr_mul_ui(q.get(), q.get(), chudnovsky ? 4270934400 : 9801, MPFR_RNDN);
  mpfr_div(d.get(), q.get(), d.get(), MPFR_RNDN);
  mpfr_const_pi(pi.get(), MPFR_RNDN);
  return agreeing_bits(d, pi);
}

std::vector<u64> precisions() {
  std::vector<u64> list;
  for (u64 w = 1; w <= 40; w++) list.push_back(w);
  for (const u64 w : {55, 100, 101, 200, 333, 520, 1000, 2500}) list.push_back(w);
  if (!short_run()) list.push_back(12000);
  return list;
}

TEST(SeriesPi, BothFormulasReachEveryPrecision) {
  const Series_Pi_Chudnovsky chudnovsky;
  const Series_Pi_Ramanujan ramanujan;
  for (const u64 w : precisions()) {
    EXPECT_GE(pi_bits(chudnovsky, w, 1), 64.0 * static_cast<double>(w)) << w << " words";
    EXPECT_GE(pi_bits(ramanujan, w, 1), 64.0 * static_cast<double>(w)) << w << " words";
  }
}

TEST(SeriesPi, EveryThreadCountGivesTheSameIntegers) {
  const Series_Pi_Chudnovsky series;
  for (const u64 w : {3, 40, 700, 3000}) {
    PiSum one(w);
    sum(series, w, 1, one);
    for (const u64 threads : {2, 3, 8, 64, 256}) {
      PiSum many(w);
      sum(series, w, threads, many);
      const auto same = [](const kob_cdi_EFPh& a, const kob_cdi_EFPh& b) {
        return a.L == b.L && a.exp == b.exp && a.hash == b.hash && std::equal(a.T, a.T + a.L, b.T);
      };
      EXPECT_TRUE(same(one.Q, many.Q) && same(one.R, many.R)) << w << " words, " << threads << " threads";
    }
  }
}

// The stated bounds on sizes hold, or buffers would overflow: every range fits range_words().
TEST(SeriesPi, RangesStayWithinTheirStatedSize) {
  for (const bool first : {true, false}) {
    const Series_Pi_Chudnovsky chudnovsky;
    const Series_Pi_Ramanujan ramanujan;
    const kc_BSS_P2B3_Type0& series = first ? static_cast<const kc_BSS_P2B3_Type0&>(chudnovsky) : ramanujan;
    for (u64 start : {u64{0}, u64{1}, u64{1000}, u64{1} << 20, u64{1} << 32, u64{1} << 42})
      for (u64 length = 1; length <= 4; length++) {
        OwnedEFPh out[3] = {OwnedEFPh(48), OwnedEFPh(48), OwnedEFPh(48)};
        kob_cdi_EFPh views[3] = {out[0], out[1], out[2]};
        series.leaf(start, start + length, views);
        for (const kob_cdi_EFPh& x : views)
          EXPECT_LE(x.L, series.range_words(start, start + length)) << start << " + " << length;
      }
  }
}

TEST(Schedule, SegmentsCoverTheTermsAndNeedLessAndLess) {
  const Series_Pi_Chudnovsky series;
  for (const u64 w : {1, 5, 20, 100, 1000, 100000, 100000000}) {
    const Schedule s = build_schedule(series, w);
    ASSERT_GE(s.count, 1u);
    EXPECT_TRUE(s.terms >= 1000 || s.count <= 2) << s.count << " segments";
    EXPECT_EQ(s.list[0].begin, 0u);
    EXPECT_EQ(s.list[s.count - 1].end, s.terms);
    EXPECT_EQ(s.list[s.count - 1].remainder_precision, 0u);
    for (u64 i = 1; i < s.count; i++) {
      EXPECT_EQ(s.list[i].begin, s.list[i - 1].end);
      EXPECT_LT(s.list[i].remainder_precision, s.list[i - 1].remainder_precision);
    }
    // The first segment's integers reach the precision and go little beyond.
    EXPECT_LE(s.list[0].integer_words, w + 8);
  }
}

TEST(SeriesE, BothSignsReachEveryPrecision) {
  for (const bool alternating : {false, true}) {
    const Series_E_Taylor series(alternating);
    for (const u64 w : precisions()) {
      for (const u64 threads : {1, 5}) {
        OwnedEFPh P(e_series_capacity(series, w)), Q(e_series_capacity(series, w));
        Work work(e_series_work_bytes(series, w, test::context(4 * w + 64, threads)));
        sum_series_e(series, w, {test::context(4 * w + 64, threads), nullptr}, P, Q, work.data());
        F p(w), q(w), e(w);
        p.set(P);
        q.set(Q);
        if (alternating)
          mpfr_sub(p.get(), q.get(), p.get(), MPFR_RNDN);
        else
          mpfr_add(p.get(), q.get(), p.get(), MPFR_RNDN);
        if (alternating)
          mpfr_div(p.get(), q.get(), p.get(), MPFR_RNDN);
        else
          mpfr_div(p.get(), p.get(), q.get(), MPFR_RNDN);
        mpfr_set_ui(q.get(), 1, MPFR_RNDN);
        mpfr_exp(e.get(), q.get(), MPFR_RNDN);
        EXPECT_GE(agreeing_bits(p, e), 64.0 * static_cast<double>(w))
            << w << " words, exp(" << (alternating ? -1 : 1) << ")";
      }
    }
  }
}

// Flips one bit of one product of one merge.
class Flip final : public SeriesFault {
public:
  Flip(u64 a, u64 b) : a_(a), b_(b) {}
  void after_merge(kob_cdi_EFPh& result, u64 a, u64 b) override {
    if (a == a_ && b == b_ && result.L != 0 && !done_) {
      result.T[result.L / 2] ^= 4;
      done_ = true;
    }
  }
  bool done_ = false;

private:
  u64 a_, b_;
};

TEST(SeriesPi, AFlippedWordIsFoundWithItsRange) {
  const Series_Pi_Chudnovsky series;
  const Schedule schedule = build_schedule(series, 400);
  const u64 a = schedule.list[0].begin, b = schedule.list[0].end, m = a + (b - a) / 2;
  for (const u64 threads : {1, 4}) {
    PiSum s(400);
    Flip flip(m, b);
    testing::internal::CaptureStdout();
    EXPECT_THROW(sum(series, 400, threads, s, &flip), kc_BSRModularCheckFailed);
    const std::string printed = testing::internal::GetCapturedStdout();
    EXPECT_TRUE(flip.done_);
    EXPECT_NE(printed.find("Modular Redundancy Check Failed:\na = " + std::to_string(m) +
                           "\nb = " + std::to_string(b)),
              std::string::npos)
        << printed;
  }
}

} // namespace
} // namespace kelvane
