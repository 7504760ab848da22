#include "control/constant_e.h"

#include <algorithm>

#include "arithmetic/kcm_div.h"
#include "arithmetic/redundancy.h"
#include "control/phases.h"
#include "series/series_e.h"
#include "shell/console.h"
#include "shell/settings.h"

namespace kelvane {

namespace {

constexpr AlgorithmNames NAMES[] = {
    {"exp(1)", "Taylor Series of exp(1)", "Taylor Series of exp(1)"},
    {"exp(-1)", "Taylor Series of exp(-1)", "Taylor Series of exp(-1)   (same speed)"}};

// Words of P, Q and the quotient. P holds the result in the end.
struct Sizes {
  u64 p, series, result;
  Sizes(const Series_E_Taylor& s, u64 precision_words)
      : p(run_precision(precision_words)), series(e_series_capacity(s, p) + 1),
        result(std::max(series, number_words(p))) {}
};

} // namespace

kcr_Constant_E::kcr_Constant_E() : kcr_NamedConstant(NAMES) {
  algorithm_count = 2;
}
std::string kcr_Constant_E::get_name() const {
  return "e";
}

u64 kcr_Constant_E::get_memory_B(s32 algorithm, const MemoryQuery& query, MemoryFigure* result) const {
  if (algorithm != 0 && algorithm != 1) return 0;
  if (result == nullptr) return 1;
  const Series_E_Taylor series(algorithm == 1);
  const Sizes sizes(series, query.precision_words);
  MemoryPlan plan;
  plan.allocate(sizes.result * sizeof(u64));
  plan.allocate(sizes.series * sizeof(u64));
  plan.step(e_series_work_bytes(series, sizes.p, query_context(query)));
  plan.allocate(number_words(sizes.p) * sizeof(u64));
  plan.step(division_bytes(sizes.p, query_context(query)));
  plan.release(number_words(sizes.p) * sizeof(u64));
  plan.release(sizes.series * sizeof(u64));
  plan_finish(plan, query);
  *result = memory_figure(plan, query);
  return result->total();
}

void kcr_Constant_E::run_B(s32 algorithm, ComputeContext& context) const {
  if (algorithm != 0 && algorithm != 1) return;
  const Series_E_Taylor series(algorithm == 1);
  const Sizes sizes(series, context.settings.precision_words);
  const u64 p = sizes.p;
  const HeapBlock result(context.heap, sizes.result * sizeof(u64));
  kob_cdi_GFP e;
  e.attach(result.words(), sizes.result);
  {
    const HeapBlock q_block(context.heap, sizes.series * sizeof(u64));
    kob_cdi_EFPh P, Q;
    P.attach(result.words(), sizes.result);
    Q.attach(q_block.words(), sizes.series);
    begin_phase(context, "Summing Series");
    {
      const u64 bytes = e_series_work_bytes(series, p, context.multiply);
      const HeapBlock work(context.heap, bytes);
      sum_series_e(series, p, {context.multiply, context.faults.series}, P, Q, work.data());
    }
    end_phase();

    // exp(1): e = (P + Q) / Q.  exp(-1): e = Q / (Q - P).
    begin_phase(context, "Division");
    const HeapBlock t_block(context.heap, number_words(p) * sizeof(u64));
    kob_cdi_GFP T;
    T.attach(t_block.words(), number_words(p));
    {
      const HeapBlock work(context.heap, division_bytes(p, context.multiply));
      if (algorithm == 0)
        P.add_in_place(Q);
      else
        P.reverse_sub_in_place(Q);
      const kob_cdi_EFPh* sum[] = {&P};
      modular_redundancy_check(sum, 1, 1, series.terms(p));
      const kob_cdi_GFP N = as_GFP(algorithm == 0 ? P : Q), D = as_GFP(algorithm == 0 ? Q : P);
      divide(context.multiply, T, N, D, p, work.data());
    }
    end_phase();
    e.set_truncated(T, p);
  }
  Console::print("\n");
  finish(context, e);
}

} // namespace kelvane
