#include "control/constant_catalan.h"

#include "arithmetic/kcm_div.h"
#include "arithmetic/redundancy.h"
#include "control/weighted_sum.h"
#include "series/series_catalan.h"
#include "series/sum_P2B3.h"
#include "shell/console.h"
#include "shell/settings.h"

namespace kelvane {

namespace {

constexpr AlgorithmNames NAMES[] = {{"Lupas", "Lupas Formula", "Lupas Formula       (fastest)"},
                                    {"Huvent", "Huvent's Formula", "Huvent's Formula    (20% slower)"}};

// Lupas: R/(2 Q).
WeightedSum lupas() {
  WeightedSum sum;
  sum.add(std::make_unique<Series_Catalan_Lupas>(), false, 1, 1, 2);
  return sum;
}

// Words of Huvent's Q and numerator, which their factors lengthen by a word.
u64 slot_words(u64 p) {
  return sum_capacity(p) + 2;
}

// The blocks of sum_huvent() in order: Q, R, the numerator.
void plan_huvent(MemoryPlan& plan, u64 p, const km_MULv3::Context& multiply) {
  const u64 slot = slot_words(p) * sizeof(u64);
  plan.allocate(slot);
  plan.allocate(slot);
  plan.step(sum_work_bytes(Series_Catalan_Huvent(), p, multiply));
  plan.allocate(slot);
  plan.step(division_bytes(p, multiply));
  plan.release(slot);
  plan.release(slot);
  plan.release(slot);
}

// result <- (469137217 Q 2^(6N) + 1334025 R) / (512265600 Q 2^(6N)).
void sum_huvent(ComputeContext& context, Console::Progress& progress, u64 p, kob_cdi_GFP& result) {
  const Series_Catalan_Huvent series;
  const u64 words = slot_words(p);
  km_MULv3::Context multiply = context.multiply;
  multiply.progress = &progress;
  const HeapBlock slot_Q(context.heap, words * sizeof(u64)), slot_R(context.heap, words * sizeof(u64));
  kob_cdi_EFPh Q, R, X;
  Q.attach(slot_Q.words(), words);
  R.attach(slot_R.words(), words);
  {
    const HeapBlock work(context.heap, sum_work_bytes(series, p, multiply));
    sum_series_quietly(series, p, {multiply, context.faults.series}, Q, R, work.data());
  }
  Q.shift_left_in_place(series.shift * series.terms(p));
  const HeapBlock slot_X(context.heap, words * sizeof(u64));
  X.attach(slot_X.words(), words);
  X.set_copy(Q);
  X.mul_word_in_place(469137217);
  R.mul_word_in_place(1334025);
  X.add_in_place(R); // words of R below X's last one cannot matter
  Q.mul_word_in_place(512265600);
  const kob_cdi_EFPh* operands[] = {&X, &Q};
  modular_redundancy_check(operands, 2, 0, series.terms(p));
  const HeapBlock work(context.heap, division_bytes(p, multiply));
  divide_quietly(multiply, result, as_GFP(X), as_GFP(Q), p, work.data());
  progress.add(quotient_cost(p));
}

void run_huvent(ComputeContext& context) {
  const u64 p = run_precision(context.settings.precision_words);
  const HeapBlock block(context.heap, number_words(p) * sizeof(u64));
  kob_cdi_GFP result;
  result.attach(block.words(), number_words(p));
  begin_phase(context, "Summing Series");
  Console::print("Summing Series...  ");
  print_terms(Series_Catalan_Huvent().terms(p));
  {
    Console::Progress progress("Summing: ", sum_cost(Series_Catalan_Huvent(), p) + quotient_cost(p), 87);
    sum_huvent(context, progress, p, result);
  }
  end_phase();
  finish(context, result);
}

u64 huvent_memory(const MemoryQuery& query, MemoryFigure* result) {
  const u64 p = run_precision(query.precision_words);
  MemoryPlan plan;
  plan.allocate(number_words(p) * sizeof(u64));
  plan_huvent(plan, p, query_context(query));
  plan_finish(plan, query);
  *result = memory_figure(plan, query);
  return result->total();
}

} // namespace

kcr_Constant_Catalan::kcr_Constant_Catalan() : kcr_NamedConstant(NAMES) {
  algorithm_count = 2;
}
std::string kcr_Constant_Catalan::get_name() const {
  return "Catalan";
}
std::string kcr_Constant_Catalan::get_full_name() const {
  return "Catalan's Constant";
}

u64 kcr_Constant_Catalan::get_memory_B(s32 algorithm, const MemoryQuery& query, MemoryFigure* result) const {
  if (algorithm != 0 && algorithm != 1) return 0;
  if (result == nullptr) return 1;
  return algorithm == 0 ? weighted_sum_memory(lupas(), query, result) : huvent_memory(query, result);
}

void kcr_Constant_Catalan::run_B(s32 algorithm, ComputeContext& context) const {
  if (algorithm == 0) run_weighted_sum(lupas(), context);
  if (algorithm == 1) run_huvent(context);
}

} // namespace kelvane
