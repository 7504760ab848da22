// The series of ArcCoth, Zeta(3), the Lemniscate, Catalan's and the Euler-Mascheroni constant against MPFR
// and, range by range, against exact rational sums.
#include <gtest/gtest.h>
#include <mpfr.h>

#include <memory>

#include "series/recursion.h"
#include "series/series_arccoth.h"
#include "series/series_arcsinlemn.h"
#include "series/series_catalan.h"
#include "series/series_euler_gamma.h"
#include "series/series_zeta3.h"
#include "series/sum_P2B3.h"
#include "shell/exception.h"
#include "support/bignum.h"
#include "support/short.h"
#include "support/tables.h"

namespace kelvane {
namespace {

using test::OwnedEFPh;
using test::Work;
using test::Z;

class F {
public:
  explicit F(u64 words) { mpfr_init2(x_, static_cast<mpfr_prec_t>(64 * words + 512)); }
  F(u64 words, const kob_cdi_EFPh& v) : F(words) {
    mpfr_set_z_2exp(x_, Z::of_words(v.T, v.L).get(), 64 * v.exp, MPFR_RNDN);
  }
  ~F() { mpfr_clear(x_); }
  F(const F&) = delete;
  F& operator=(const F&) = delete;
  mpfr_ptr get() { return x_; }

private:
  mpfr_t x_;
};

// Bits behind the point to which two numbers agree.
double agreeing_bits(F& a, F& b) {
  F d(2);
  mpfr_sub(d.get(), a.get(), b.get(), MPFR_RNDN);
  return mpfr_zero_p(d.get()) ? 1e9 : -static_cast<double>(mpfr_get_exp(d.get()));
}

// One series of the P, Q, R shape with what it should give: (outside Q + weight R) / (divisor Q).
struct Case {
  std::string name;
  std::shared_ptr<kc_BSS_P2B3_Type0> series;
  u64 outside, weight, divisor;
  std::function<void(mpfr_ptr)> reference;
};

// ArcSinlemn(n/d) by exact terms: (2k)!/(4^k k!^2) x^(4k+1)/(4k+1).
void arcsinlemn(mpfr_ptr out, u64 n, u64 d) {
  F t(static_cast<u64>(mpfr_get_prec(out)) / 64), s(static_cast<u64>(mpfr_get_prec(out)) / 64);
  mpfr_set_ui(t.get(), n, MPFR_RNDN);
  mpfr_div_ui(t.get(), t.get(), d, MPFR_RNDN);
  mpfr_set_zero(out, 1);
  for (u64 k = 1; mpfr_get_exp(t.get()) > -mpfr_get_prec(out); k++) {
    mpfr_div_ui(s.get(), t.get(), 4 * k - 3, MPFR_RNDN);
    mpfr_add(out, out, s.get(), MPFR_RNDN);
    mpfr_mul_ui(t.get(), t.get(), (2 * k - 1) * n * n * n * n, MPFR_RNDN);
    mpfr_div_ui(t.get(), t.get(), 2 * k, MPFR_RNDN);
    mpfr_div_ui(t.get(), t.get(), d * d * d * d, MPFR_RNDN);
  }
}

std::vector<Case> cases() {
  std::vector<Case> list;
  for (const u64 x : {u64{2}, u64{3}, u64{26}, u64{8749}, u64{4294967295}, u64{6917529027641081857}})
    list.push_back({"ArcCoth(" + std::to_string(x) + ")", std::make_shared<Series_ArcCoth>(x), 0, x, 1,
                    [x](mpfr_ptr out) {
                      mpfr_set_uj(out, x, MPFR_RNDN);
                      mpfr_ui_div(out, 1, out, MPFR_RNDN);
                      mpfr_atanh(out, out, MPFR_RNDN);
                    }});
  const auto zeta3 = [](mpfr_ptr out) { mpfr_zeta_ui(out, 3, MPFR_RNDN); };
  list.push_back({"AZ1", std::make_shared<Series_Zeta3_AZ1>(), 0, 1, 2, zeta3});
  list.push_back({"AZ2", std::make_shared<Series_Zeta3_AZ2>(), 0, 1, 8, zeta3});
  list.push_back({"Lupas", std::make_shared<Series_Catalan_Lupas>(), 0, 1, 2,
                  [](mpfr_ptr out) { mpfr_const_catalan(out, MPFR_RNDN); }});
  for (const auto& [n, d] : {std::pair<u64, u64>{1, 2}, {7, 23}, {2, 3}, {7, 137}})
    list.push_back({"ArcSinlemn(" + std::to_string(n) + "/" + std::to_string(d) + ")",
                    std::make_shared<Series_ArcSinlemn>(n, d), n, n, d,
                    [n = n, d = d](mpfr_ptr out) { arcsinlemn(out, n, d); }});
  return list;
}

std::vector<u64> precisions() {
  std::vector<u64> list;
  for (u64 w = 5; w <= 24; w++) list.push_back(w);
  for (const u64 w : {55, 101, 333}) list.push_back(w);
  if (!short_run()) list.push_back(1500);
  return list;
}

bool same(const kob_cdi_EFPh& a, const kob_cdi_EFPh& b) {
  return a.L == b.L && a.exp == b.exp && a.hash == b.hash && std::equal(a.T, a.T + a.L, b.T);
}

TEST(SeriesPQR, EverySeriesReachesEveryPrecision) {
  for (const Case& c : cases())
    for (const u64 w : precisions()) {
      OwnedEFPh Q(sum_capacity(w)), R(sum_capacity(w));
      const SeriesContext context{test::context(4 * w + 64, 1 + w % 4), nullptr};
      Work work(sum_work_bytes(*c.series, w, context.multiply));
      sum_series_quietly(*c.series, w, context, Q, R, work.data());
      F q(w, Q), r(w, R), expected(w);
      mpfr_mul_ui(r.get(), r.get(), c.weight, MPFR_RNDN);
      F outside(w);
      mpfr_mul_ui(outside.get(), q.get(), c.outside, MPFR_RNDN);
      mpfr_add(r.get(), r.get(), outside.get(), MPFR_RNDN);
      mpfr_div(r.get(), r.get(), q.get(), MPFR_RNDN);
      mpfr_div_ui(r.get(), r.get(), c.divisor, MPFR_RNDN);
      c.reference(expected.get());
      EXPECT_GE(agreeing_bits(r, expected), 64.0 * static_cast<double>(w)) << c.name << ", " << w << " words";
    }
}

// The sizes stated bound the integers of every range, or buffers would overflow: far out, where a computation
// of 9 * 10^13 digits ends, as well as at the start.
TEST(SeriesPQR, RangesStayWithinTheirStatedSize) {
  for (const Case& c : cases())
    for (const u64 start : {u64{0}, u64{1}, u64{1000}, u64{1} << 32, u64{1} << 47})
      for (u64 length = 1; length <= 3; length++) {
        OwnedEFPh out[3] = {OwnedEFPh(48), OwnedEFPh(48), OwnedEFPh(48)};
        kob_cdi_EFPh views[3] = {out[0], out[1], out[2]};
        c.series->leaf(start, start + length, views);
        for (const kob_cdi_EFPh& x : views)
          EXPECT_LE(x.L, c.series->range_words(start, start + length))
              << c.name << " " << start << " + " << length;
      }
}

// A range summed by the recursion with a given leaf width has the same integers as term by term.
template <class Series> void expect_leaf_equals_merges(const Series& series, u64 a, u64 terms) {
  constexpr u64 N = Series::INTEGERS;
  std::vector<OwnedEFPh> left(N, OwnedEFPh(200)), right(N, OwnedEFPh(200)), whole(N, OwnedEFPh(200));
  kob_cdi_EFPh l[N], r[N], out[N], expected[N];
  for (u64 m = 1; m < terms; m++) {
    for (u64 i = 0; i < N; i++) {
      l[i].attach(left[i].storage.data(), 200);
      r[i].attach(right[i].storage.data(), 200);
      out[i].attach(whole[i].storage.data(), 200);
    }
    const km_MULv3::Context context = test::context(4096);
    Work work(series.merge_bytes(200, context));
    series.leaf(a, a + m, l);
    series.leaf(a + m, a + terms, r);
    series.merge(context, a, a + m, a + terms, l, r, out, true, work.data(),
                 series.merge_bytes(200, context));
    std::vector<OwnedEFPh> one(N, OwnedEFPh(200));
    for (u64 i = 0; i < N; i++) expected[i].attach(one[i].storage.data(), 200);
    series.leaf(a, a + terms, expected);
    for (u64 i = 0; i < N; i++) {
      EXPECT_EQ(out[i].hash, out[i].hash_of_words());
      EXPECT_TRUE(same(out[i], expected[i]))
          << "integer " << i << " of " << a << " + " << terms << " split at " << m;
    }
  }
}

TEST(SeriesShapes, ALeafIsTheMergeOfItsParts) {
  for (const Case& c : cases()) expect_leaf_equals_merges(*c.series, 4, 5);
  for (const u64 a : {u64{0}, u64{7}, u64{1} << 33}) {
    expect_leaf_equals_merges(static_cast<const kc_BSS_P2B2_BBP&>(Series_Catalan_Huvent()), a, 4);
    expect_leaf_equals_merges(Series_EulerGamma_BM_AB(5), a, 6);
    expect_leaf_equals_merges(Series_EulerGamma_BM_AB(32), a, 6);
  }
}

// c(k) q(k) of Huvent's series from its nine fractions, exactly.
TEST(SeriesHuvent, TheNumeratorIsTheSumOfItsFractions) {
  struct Fraction {
    u64 u, v;
    long c;
  };
  constexpr Fraction FRACTIONS[] = {{12, 1, 576}, {6, 1, -144}, {4, 1, -64}, {12, 5, -144}, {2, 1, -8},
                                    {12, 7, -72}, {4, 3, -8},   {6, 5, -9},  {12, 11, 18}};
  const Series_Catalan_Huvent series;
  for (const u64 k :
       {u64{1}, u64{2}, u64{3}, u64{1000}, (u64{1} << 22) + 1, u64{1} << 32, (u64{1} << 47) + 12345}) {
    Z q = Z::of(1), r, part;
    for (const Fraction& f : FRACTIONS)
      for (int i = 0; i < 2; i++) mpz_mul(q.get(), q.get(), Z::of(f.u * k + f.v).get());
    for (const Fraction& f : FRACTIONS) {
      part = q;
      for (int i = 0; i < 2; i++) mpz_divexact(part.get(), part.get(), Z::of(f.u * k + f.v).get());
      mpz_mul_si(part.get(), part.get(), f.c);
      mpz_sub(r.get(), r.get(), part.get());
    }
    OwnedEFPh Q(48), R(48);
    kob_cdi_EFPh out[] = {Q, R};
    series.leaf(k - 1, k, out);
    EXPECT_EQ(test::value(out[0], 0), q) << k;
    EXPECT_EQ(test::value(out[1], 0), r) << k;
    EXPECT_LE(out[1].L, series.range_words(k - 1, k));
  }
}

struct Huvent {
  OwnedEFPh Q, R;
  Huvent(u64 w, u64 threads, SeriesFault* fault = nullptr) : Q(sum_capacity(w)), R(sum_capacity(w)) {
    const Series_Catalan_Huvent series;
    const SeriesContext context{test::context(4 * w + 128, threads), fault};
    Work work(sum_work_bytes(series, w, context.multiply));
    sum_series_quietly(series, w, context, Q, R, work.data());
  }
};

TEST(SeriesHuvent, EveryPrecisionIsReached) {
  for (const u64 w : precisions()) {
    const Huvent s(w, 1 + w % 4);
    F q(w, s.Q), r(w, s.R), expected(w);
    mpfr_mul_2ui(q.get(), q.get(), 6 * Series_Catalan_Huvent().terms(w), MPFR_RNDN);
    mpfr_div(r.get(), r.get(), q.get(), MPFR_RNDN);
    mpfr_mul_ui(r.get(), r.get(), 1334025, MPFR_RNDN);
    mpfr_add_ui(r.get(), r.get(), 469137217, MPFR_RNDN);
    mpfr_div_ui(r.get(), r.get(), 512265600, MPFR_RNDN);
    mpfr_const_catalan(expected.get(), MPFR_RNDN);
    EXPECT_GE(agreeing_bits(r, expected), 64.0 * static_cast<double>(w)) << w << " words";
  }
}

struct AB {
  OwnedEFPh D, T, V;
  AB(u32 k, u64 w, u64 threads, SeriesFault* fault = nullptr)
      : D(sum_capacity(w)), T(sum_capacity(w)), V(sum_capacity(w)) {
    const Series_EulerGamma_BM_AB series(k);
    const SeriesContext context{test::context(4 * w + 128, threads), fault};
    Work work(sum_work_bytes(series, w, context.multiply));
    sum_series_quietly(series, w, context, D, T, V, work.data());
  }
};

// Plain and refined at the smallest exponents that their error bounds allow, against MPFR.
TEST(SeriesEulerGamma, BothFormulasReachEveryPrecision) {
  for (const u64 w : precisions())
    for (const bool refined : {false, true}) {
      u32 k = 1;
      const double needed = NATS_PER_WORD * static_cast<double>(w) + 4;
      while ((refined ? 8 : 4) * static_cast<double>(u64{1} << k) < needed) k++;
      const AB s(k, w, 1 + w % 4);
      F d(w, s.D), t(w, s.T), v(w, s.V), b(w), expected(w);
      mpfr_sqr(b.get(), d.get(), MPFR_RNDN);
      mpfr_add(t.get(), t.get(), b.get(), MPFR_RNDN);
      mpfr_div(b.get(), b.get(), t.get(), MPFR_RNDN); // 1/B
      mpfr_mul(d.get(), d.get(), t.get(), MPFR_RNDN);
      mpfr_div(v.get(), v.get(), d.get(), MPFR_RNDN);
      if (refined) {
        const Series_EulerGamma_BM_C series(k);
        OwnedEFPh Q(sum_capacity(w)), R(sum_capacity(w));
        const SeriesContext context{test::context(4 * w + 64), nullptr};
        Work work(sum_work_bytes(series, w, context.multiply));
        sum_series_quietly(series, w, context, Q, R, work.data());
        F q(w, Q), r(w, R);
        mpfr_div(r.get(), r.get(), q.get(), MPFR_RNDN);
        mpfr_add_ui(r.get(), r.get(), 1, MPFR_RNDN);
        mpfr_div_2ui(r.get(), r.get(), k + 2, MPFR_RNDN);
        mpfr_mul(r.get(), r.get(), b.get(), MPFR_RNDN);
        mpfr_mul(r.get(), r.get(), b.get(), MPFR_RNDN);
        mpfr_sub(v.get(), v.get(), r.get(), MPFR_RNDN);
      }
      mpfr_const_log2(t.get(), MPFR_RNDN);
      mpfr_mul_ui(t.get(), t.get(), k, MPFR_RNDN);
      mpfr_sub(v.get(), v.get(), t.get(), MPFR_RNDN);
      mpfr_const_euler(expected.get(), MPFR_RNDN);
      EXPECT_GE(agreeing_bits(v, expected), 64.0 * static_cast<double>(w) - 2)
          << (refined ? "refined, " : "plain, ") << w << " words, k = " << k;
    }
}

// D, H, T, V against exact rational sums, and within the sizes stated, for ranges below, across and above n.
TEST(SeriesEulerGamma, ARangeHasItsFourIntegers) {
  for (const u32 k : {3u, 20u, 40u})
    for (const u64 a : {u64{0}, u64{5}, u64{250}, (u64{1} << k) - 2, u64{3} << k})
      for (u64 terms = 1; terms <= 6; terms++) {
        const Series_EulerGamma_BM_AB series(k);
        OwnedEFPh H(64), D(64), T(64), V(64);
        kob_cdi_EFPh out[] = {H, D, T, V};
        series.leaf(a, a + terms, out);
        Z d = Z::of(1), h, t, v;
        for (u64 j = a + 1; j <= a + terms; j++) { // the sums over d, d^2 and d^3
          const Z term = Z::of(j);
          mpz_mul(h.get(), h.get(), term.get());
          mpz_add(h.get(), h.get(), d.get());
          mpz_mul(d.get(), d.get(), term.get());
          for (int i = 0; i < 2; i++) mpz_mul(t.get(), t.get(), term.get());
          for (int i = 0; i < 3; i++) mpz_mul(v.get(), v.get(), term.get());
          Z power = Z::of(1), weighted;
          mpz_mul_2exp(power.get(), power.get(), 2 * k * (j - a));
          mpz_add(t.get(), t.get(), power.get());
          mpz_mul(weighted.get(), h.get(), power.get());
          mpz_add(v.get(), v.get(), weighted.get());
        }
        const Z* expected[] = {&h, &d, &t, &v};
        for (u64 i = 0; i < 4; i++) {
          EXPECT_EQ(test::value(out[i], 0), *expected[i]) << "integer " << i << ", " << a << " + " << terms;
          EXPECT_LE(out[i].L, series.range_words(a, a + terms))
              << "integer " << i << ", " << a << " + " << terms;
        }
      }
}

TEST(SeriesShapes, EveryThreadCountGivesTheSameNumbers) {
  for (const u64 w : {9, 60, 700}) {
    const u32 k = static_cast<u32>(5 + std::bit_width(w));
    const Huvent huvent(w, 1);
    const AB ab(k, w, 1);
    for (const u64 threads : {2, 3, 7, 64, 256}) {
      const Huvent other(w, threads);
      EXPECT_TRUE(same(huvent.Q, other.Q) && same(huvent.R, other.R))
          << w << " words, " << threads << " threads";
      const AB other_ab(k, w, threads);
      EXPECT_TRUE(same(ab.D, other_ab.D) && same(ab.T, other_ab.T) && same(ab.V, other_ab.V))
          << w << " words, " << threads << " threads";
    }
  }
}

// Flips one bit of the first product that is not on the left edge.
class Flip final : public SeriesFault {
public:
  void after_merge(kob_cdi_EFPh& result, u64 a, u64 b) override {
    if (a == 0 || result.L == 0 || done_) return;
    result.T[result.L / 2] ^= 16;
    done_ = true;
    range_ = "Modular Redundancy Check Failed:\na = " + std::to_string(a) + "\nb = " + std::to_string(b);
  }
  bool done_ = false;
  std::string range_;
};

TEST(SeriesShapes, AFlippedWordIsFoundWithItsRange) {
  for (const bool huvent : {false, true})
    for (const u64 threads : {1, 4}) {
      Flip flip;
      testing::internal::CaptureStdout();
      if (huvent)
        EXPECT_THROW(Huvent(300, threads, &flip), kc_BSRModularCheckFailed);
      else
        EXPECT_THROW(AB(13, 300, threads, &flip), kc_BSRModularCheckFailed);
      const std::string printed = testing::internal::GetCapturedStdout();
      EXPECT_TRUE(flip.done_);
      EXPECT_NE(printed.find(flip.range_), std::string::npos) << printed;
    }
}

} // namespace
} // namespace kelvane
