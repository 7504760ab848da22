#include "control/constant_pi.h"

#include <algorithm>
#include <memory>

#include "arithmetic/kcm_div.h"
#include "arithmetic/kcm_invsqrt.h"
#include "arithmetic/redundancy.h"
#include "control/phases.h"
#include "series/series_pi.h"
#include "series/sum_P2B3.h"
#include "shell/console.h"
#include "shell/exception.h"
#include "shell/settings.h"

namespace kelvane {

namespace {

constexpr AlgorithmNames NAMES[] = {
    {"Chudnovsky", "Chudnovsky Formula", "Chudnovsky Formula      (fastest)"},
    {"Ramanujan", "Ramanujan's Formula", "Ramanujan's Formula     (~40% slower)"},
    {"Chudnovsky", "Chudnovsky Formula (reduced memory)",
     "Chudnovsky Formula      (reduced memory)\n"
     "This runs the Chudnovsky Formula using alternate parameters\n"
     "that use less memory at the cost of performance."},
    {"Ramanujan", "Ramanujan's Formula (reduced memory)",
     "Ramanujan's Formula     (reduced memory)\n"
     "This runs Ramanujan's Formula using alternate parameters\n"
     "that use less memory at the cost of performance."}};

// Pi = C Q / ((A Q -/+ R) sqrt(r)): the finisher's constants. The sign is minus for an alternating series,
// whose first term counts negative while R is stored positive.
struct Formula {
  bool reduced_memory;
  u64 A, C, r;
};
constexpr Formula FORMULAS[] = {{false, 13591409, 4270934400, 10005},
                                {false, 1103, 9801, 8},
                                {true, 13591409, 4270934400, 10005},
                                {true, 1103, 9801, 8}};

bool known(s32 algorithm) {
  return algorithm >= 0 && algorithm <= 3;
}

std::unique_ptr<kc_BSS_P2B3_Type0> make_series(s32 algorithm) {
  if (algorithm == 0 || algorithm == 2) return std::make_unique<Series_Pi_Chudnovsky>();
  return std::make_unique<Series_Pi_Ramanujan>();
}

// Words of the two large integers of the series (one more than the sum keeps, for the product by A), which
// also serve as the quotient, the root and the result.
u64 slot_words(u64 p) {
  return std::max(sum_capacity(p) + 2, number_words(p));
}

} // namespace

kcr_Constant_Pi::kcr_Constant_Pi() : kcr_NamedConstant(NAMES) {
  algorithm_count = 2;
}
std::string kcr_Constant_Pi::get_name() const {
  return "Pi";
}

// The run's blocks in order. Slot 0: Q, then 1/sqrt(r), then Pi. Slot 1: R, then the quotient.
// Slot 2: A Q -/+ R.
u64 kcr_Constant_Pi::get_memory_B(s32 algorithm, const MemoryQuery& query, MemoryFigure* result) const {
  if (!known(algorithm)) return 0;
  if (result == nullptr) return 1;
  const u64 p = run_precision(query.precision_words);
  const bool reduced = FORMULAS[algorithm].reduced_memory;
  const km_MULv3::Context multiply = query_context(query, reduced);
  const u64 slot = slot_words(p) * sizeof(u64);
  MemoryPlan plan;
  plan.allocate(slot);
  plan.allocate(slot);
  plan.step(sum_work_bytes(*make_series(algorithm), p, multiply));
  plan.allocate(slot);
  plan.step(division_bytes(p, multiply));
  plan.release(slot);
  plan.step(inverse_square_root_bytes(newton::lower_level(p), multiply));
  plan.step(kcm_mul_invsqrt_work_bytes(p, multiply));
  plan.release(slot);
  plan_finish(plan, query, reduced);
  *result = memory_figure(plan, query);
  return result->total();
}

void kcr_Constant_Pi::run_B(s32 algorithm, ComputeContext& context) const {
  if (!known(algorithm)) return;
  const Formula& formula = FORMULAS[algorithm];
  const std::unique_ptr<kc_BSS_P2B3_Type0> series = make_series(algorithm);
  const u64 p = run_precision(context.settings.precision_words);
  const u64 words = slot_words(p);
  context.multiply.reduced_memory = formula.reduced_memory;

  const HeapBlock slot0(context.heap, words * sizeof(u64));
  kob_cdi_GFP pi;
  pi.attach(slot0.words(), words);
  {
    const HeapBlock slot1(context.heap, words * sizeof(u64));
    kob_cdi_GFP quotient;
    {
      kob_cdi_EFPh Q, R, D;
      Q.attach(slot0.words(), words);
      R.attach(slot1.words(), words);
      begin_phase(context, "Summing Series");
      {
        const HeapBlock work(context.heap, sum_work_bytes(*series, p, context.multiply));
        sum_series_P2B3(*series, p, {context.multiply, context.faults.series}, Q, R, work.data());
      }
      end_phase();

      begin_phase(context, "Finishing Series");
      const HeapBlock slot2(context.heap, words * sizeof(u64));
      D.attach(slot2.words(), words);
      D.set_copy(Q);
      D.mul_word_in_place(formula.A);
      if (series->alternating)
        D.sub_in_place(R);
      else
        D.add_in_place(R);
      const kob_cdi_EFPh* sum[] = {&D};
      modular_redundancy_check(sum, 1, 0, series->terms(p));
      quotient.attach(slot1.words(), words); // R is not needed any more
      const HeapBlock work(context.heap, division_bytes(p, context.multiply));
      divide(context.multiply, quotient, as_GFP(Q), as_GFP(D), p, work.data());
      end_phase();
    }

    inverse_square_root(context, pi, formula.r,
                        newton::lower_level(p)); // its last step comes with the product

    begin_phase(context, "Final Multiply");
    Console::print("Final Multiply...\n");
    {
      const HeapBlock work(context.heap, kcm_mul_invsqrt_work_bytes(p, context.multiply));
      int status = 0;
      {
        Console::Progress progress("Mutiplying: ", 1);
        km_MULv3::Context multiply = context.multiply;
        multiply.progress = &progress;
        status = kcm_mul_invsqrt(multiply, pi, quotient, pi, formula.r, p, work.data());
      }
      if (status != 0) fatal("Computation Failed");
    }
    pi.set_mul_word(pi, formula.C);
    end_phase();
  }
  finish(context, pi);
}

} // namespace kelvane
