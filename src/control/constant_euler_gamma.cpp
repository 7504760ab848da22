#include "control/constant_euler_gamma.h"

#include <algorithm>

#include "arithmetic/kcm_div.h"
#include "arithmetic/redundancy.h"
#include "control/weighted_sum.h"
#include "series/series_arccoth.h"
#include "series/series_euler_gamma.h"
#include "series/sum_P2B3.h"
#include "shell/console.h"
#include "shell/exception.h"
#include "shell/settings.h"

namespace kelvane {

namespace {

constexpr u64 MOST_K = 48; // indices reach 5 n and squares of n fit the leaves' words

// k Log(2): 18 A(26) - 2 A(4801) + 8 A(8749), or 38 A(127) + 24 A(244) + 44 A(251) + 54 A(449), A being
// ArcCoth.
WeightedSum log_of_n(s32 algorithm, u64 k) {
  WeightedSum sum;
  const auto add = [&](u64 c, u64 x, bool subtract = false) {
    sum.add(std::make_unique<Series_ArcCoth>(x), false, c * k, x, 1, subtract);
  };
  if (algorithm == 0) {
    add(18, 26);
    add(2, 4801, true);
    add(8, 8749);
  } else {
    add(38, 127);
    add(24, 244);
    add(44, 251);
    add(54, 449);
  }
  return sum;
}

// C = (Q + R)/(2^(k+2) Q).
WeightedSum series_C(u32 k) {
  WeightedSum sum;
  sum.add(std::make_unique<Series_EulerGamma_BM_C>(k), true, 1, 1, u64{4} << k);
  return sum;
}

// What a run needs to know: precisions in words, and whether the third series counts.
struct Frame {
  u64 p;     // of the result
  u64 c = 0; // of C/B^2, which begins 4 n nats lower; 0: below the precision, or not asked for
  u64 slot;  // words of D, T, V
  Frame(s32 algorithm, u32 k, u64 precision_words)
      : p(run_precision(precision_words)), slot(std::max(sum_capacity(p) + 1, number_words(p))) {
    const double behind = nats(precision_words) - 4 * static_cast<double>(u64{1} << k);
    if (algorithm == 1 && behind + 8 > 0)
      c = run_precision(static_cast<u64>(std::max(0.0, behind) * WORDS_PER_NAT) + 2);
  }
  static double nats(u64 words) { return NATS_PER_WORD * static_cast<double>(words); }
  // The formula's own error, e^(-4n) or e^(-8n), against the precision.
  static bool reaches(s32 algorithm, u64 k, u64 precision_words) {
    return k >= 1 && k <= MOST_K &&
           (algorithm == 1 ? 8 : 4) * static_cast<double>(u64{1} << k) >= nats(precision_words) + 4;
  }
};

// A block's number.
kob_cdi_GFP number(const HeapBlock& block, u64 words) {
  kob_cdi_GFP x;
  x.attach(block.words(), words);
  return x;
}

constexpr u64 bytes(u64 words) {
  return words * sizeof(u64);
}

// The blocks of sum_AB() in order: T, V, D, then D^2. `inverse`, for D^2/(D^2 + T) to c words, is its
// caller's.
void plan_AB(MemoryPlan& plan, const Series_EulerGamma_BM_AB& series, const Frame& f,
             const km_MULv3::Context& multiply) {
  for (int i = 0; i < 3; i++) plan.allocate(bytes(f.slot));
  plan.step(sum_work_bytes(series, f.p, multiply));
  plan.allocate(bytes(number_words(f.p)));
  plan.step(product_work_bytes(f.p, f.p, multiply));
  if (f.c != 0) plan.step(division_bytes(f.c, multiply));
  plan.release(bytes(number_words(f.p)));
  plan.step(division_bytes(f.p, multiply));
  for (int i = 0; i < 3; i++) plan.release(bytes(f.slot));
}

// result <- A/B = V/(D (D^2 + T)), inverse <- 1/B = D^2/(D^2 + T) when f.c is not 0.
void sum_AB(ComputeContext& context, const Series_EulerGamma_BM_AB& series, const Frame& f,
            const km_MULv3::Context& multiply, kob_cdi_GFP& result, kob_cdi_GFP& inverse) {
  const u64 p = f.p;
  const HeapBlock slot_T(context.heap, bytes(f.slot)), slot_V(context.heap, bytes(f.slot)),
      slot_D(context.heap, bytes(f.slot));
  kob_cdi_EFPh D, T, V;
  D.attach(slot_D.words(), f.slot);
  T.attach(slot_T.words(), f.slot);
  V.attach(slot_V.words(), f.slot);
  {
    const HeapBlock work(context.heap, sum_work_bytes(series, p, multiply));
    sum_series_quietly(series, p, {multiply, context.faults.series}, D, T, V, work.data());
  }
  const kob_cdi_EFPh* sums[] = {&D, &T, &V};
  modular_redundancy_check(sums, 3, 0, series.terms(p));

  kob_cdi_GFP S = as_GFP(T), denominator = as_GFP(D);
  {
    const HeapBlock square(context.heap, bytes(number_words(p)));
    kob_cdi_GFP D2 = number(square, number_words(p));
    {
      const HeapBlock work(context.heap, product_work_bytes(p, p, multiply));
      set_square(multiply, D2, as_GFP(D), p, p, work.data());
      S.trim(p);
      S.set_add_magnitude(S, D2, p); // T is the larger one: B is far above 1
      set_product(multiply, denominator, as_GFP(D), p, S, p, p, work.data());
    }
    if (f.c != 0) {
      const HeapBlock work(context.heap, division_bytes(f.c, multiply));
      divide_quietly(multiply, inverse, D2, S, f.c, work.data());
    }
  }
  const HeapBlock work(context.heap, division_bytes(p, multiply));
  divide_quietly(multiply, result, as_GFP(V), denominator, p, work.data());
}

// The blocks of subtract_C() in order: C, and the products' work.
void plan_C(MemoryPlan& plan, u32 k, u64 c, const km_MULv3::Context& multiply) {
  plan.allocate(bytes(number_words(c)));
  series_C(k).plan(plan, c, multiply);
  plan.step(product_work_bytes(c, c, multiply));
  plan.release(bytes(number_words(c)));
}

// result <- result - C/B^2.
void subtract_C(ComputeContext& context, Console::Progress& progress, u32 k, const Frame& f,
                const km_MULv3::Context& multiply, kob_cdi_GFP& inverse, kob_cdi_GFP& result) {
  const HeapBlock block(context.heap, bytes(number_words(f.c)));
  kob_cdi_GFP C = number(block, number_words(f.c));
  series_C(k).run(context, &progress, f.c, C);
  const HeapBlock work(context.heap, product_work_bytes(f.c, f.c, multiply));
  for (int i = 0; i < 2; i++) set_product(multiply, C, C, f.c, inverse, f.c, f.c, work.data());
  C.sign = 0;
  add_signed(result, C, f.p);
}

} // namespace

kcr_Constant_BrentMcMillan::kcr_Constant_BrentMcMillan(u64 k) {
  algorithm_count = 2;
  parameter = k;
  extra = static_cast<u32>(k);
}
std::string kcr_Constant_BrentMcMillan::get_name() const {
  return "Euler's Constant";
}
std::string kcr_Constant_BrentMcMillan::get_full_name() const {
  return "Euler-Mascheroni Constant (parameter override)";
}
std::string kcr_Constant_BrentMcMillan::get_algorithm_short_name(s32 algorithm) const {
  return algorithm == 0 ? "Brent-McMillan" : algorithm == 1 ? "Brent-McMillan (Refined)" : "";
}
std::string kcr_Constant_BrentMcMillan::get_algorithm_name(s32 algorithm) const {
  if (algorithm != 0 && algorithm != 1) return "";
  return std::string(algorithm == 0 ? "Brent-McMillan" : "Brent-McMillan with Refinement") + " ( n = 2^" +
         std::to_string(extra) + " )";
}

// The run's blocks in order: the result, 1/B to C's precision, then those of each part.
u64 kcr_Constant_BrentMcMillan::get_memory_B(s32 algorithm, const MemoryQuery& query,
                                             MemoryFigure* result) const {
  if (algorithm != 0 && algorithm != 1) return 0;
  if (result == nullptr) return 1;
  if (!Frame::reaches(algorithm, extra, query.precision_words)) fatal("Parameter out of range");
  const Frame f(algorithm, extra, query.precision_words);
  const km_MULv3::Context multiply = query_context(query);
  MemoryPlan plan;
  plan.allocate(bytes(number_words(f.p)));
  plan.allocate(bytes(number_words(f.c)));
  plan_AB(plan, Series_EulerGamma_BM_AB(extra), f, multiply);
  if (f.c != 0) plan_C(plan, extra, f.c, multiply);
  plan.release(bytes(number_words(f.c)));
  plan.allocate(bytes(number_words(f.p)));
  log_of_n(algorithm, extra).plan(plan, f.p, multiply);
  plan.release(bytes(number_words(f.p)));
  plan_finish(plan, query);
  *result = memory_figure(plan, query);
  return result->total();
}

void kcr_Constant_BrentMcMillan::run_B(s32 algorithm, ComputeContext& context) const {
  if (algorithm != 0 && algorithm != 1) return;
  const u64 precision_words = context.settings.precision_words;
  if (!Frame::reaches(algorithm, extra, precision_words)) fatal("Parameter out of range");
  const Frame f(algorithm, extra, precision_words);
  const Series_EulerGamma_BM_AB series(extra);
  const WeightedSum logarithm = log_of_n(algorithm, extra);
  const HeapBlock result_block(context.heap, bytes(number_words(f.p)));
  kob_cdi_GFP result = number(result_block, number_words(f.p));

  const double AB_cost = sum_cost(series, f.p), AB_finish = quotient_cost(f.p);
  const double C_cost = f.c != 0 ? series_C(extra).cost(f.c) : 0;
  begin_phase(context, "Summing Series A and B");
  Console::print("Summing Series A and B...  ");
  print_terms(series.terms(f.p));
  {
    Console::Progress progress("Summing: ", AB_cost + AB_finish + C_cost + logarithm.cost(f.p), 87);
    km_MULv3::Context multiply = context.multiply;
    multiply.progress = &progress;
    {
      const HeapBlock inverse_block(context.heap, bytes(number_words(f.c)));
      kob_cdi_GFP inverse = number(inverse_block, number_words(f.c));
      sum_AB(context, series, f, multiply, result, inverse);
      progress.add(AB_finish);
      end_phase();

      if (algorithm == 1) {
        begin_phase(context, "Summing Series C");
        Console::print("\nSumming Series C...  ");
        if (f.c == 0) {
          Console::print("skipped\n");
        } else {
          print_terms(Series_EulerGamma_BM_C(extra).terms(f.c));
          subtract_C(context, progress, extra, f, multiply, inverse, result);
          end_phase();
        }
      }
    }
    begin_phase(context, "Log(2)");
    Console::print("\nLog(2)...  ");
    print_terms(logarithm.terms(f.p));
    const HeapBlock log_block(context.heap, bytes(number_words(f.p)));
    kob_cdi_GFP log_n = number(log_block, number_words(f.p));
    logarithm.run(context, &progress, f.p, log_n);
    log_n.sign = 0;
    add_signed(result, log_n, f.p);
    end_phase();
  }
  finish(context, result);
}

kcr_Constant_EulerGamma::kcr_Constant_EulerGamma() : kcr_Constant_BrentMcMillan(0) {}
std::string kcr_Constant_EulerGamma::get_full_name() const {
  return "Euler-Mascheroni Constant";
}
void kcr_Constant_EulerGamma::prepare(u64 precision_words) {
  const double x = static_cast<double>(precision_words) * 11.090354888959125 + 10;
  extra = x <= 4 ? 2 : 3;
  while (static_cast<double>(u64{1} << extra) < x) extra++;
}

} // namespace kelvane
