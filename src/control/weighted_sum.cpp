#include "control/weighted_sum.h"

#include "arithmetic/kcm_div.h"
#include "arithmetic/redundancy.h"
#include "arithmetic/words/add.h"
#include "series/sum_P2B3.h"
#include "shell/console.h"
#include "shell/settings.h"

namespace kelvane {

namespace {

// Words of Q and of the numerator, which the weights lengthen by up to two words.
u64 slot_words(u64 p) {
  return std::max(sum_capacity(p) + 3, number_words(p));
}

bool smaller(const kob_cdi_GFP& a, const kob_cdi_GFP& b) {
  if (a.is_zero() || b.is_zero()) return a.is_zero() && !b.is_zero();
  if (a.mag() != b.mag()) return a.mag() < b.mag();
  const u64 n = std::min(a.L, b.L);
  return words::compare(a.T + (a.L - n), b.T + (b.L - n), n) < 0;
}

} // namespace

void add_signed(kob_cdi_GFP& acc, kob_cdi_GFP& t, u64 p) {
  const bool swap = smaller(acc, t);
  kob_cdi_GFP &larger = swap ? t : acc, &other = swap ? acc : t;
  if (larger.sign == other.sign)
    larger.set_add_magnitude(larger, other, p);
  else
    larger.set_sub_magnitude(larger, other, p);
  if (swap) acc.set_truncated(t, p);
}

u64 WeightedSum::terms(u64 p) const {
  u64 n = 0;
  for (const Share& share : shares_) n += share.series->terms(p);
  return n;
}

double WeightedSum::cost(u64 p) const {
  double cost = 0;
  for (const Share& share : shares_) cost += sum_cost(*share.series, p) + quotient_cost(p);
  return cost;
}

void WeightedSum::plan(MemoryPlan& plan, u64 p, const km_MULv3::Context& multiply) const {
  const u64 slot = slot_words(p) * sizeof(u64), quotient = number_words(p) * sizeof(u64);
  plan.allocate(slot);
  plan.allocate(slot);
  for (const Share& share : shares_) {
    plan.step(sum_work_bytes(*share.series, p, multiply));
    plan.allocate(quotient);
    plan.step(division_bytes(p, multiply));
    plan.release(quotient);
  }
  plan.release(slot);
  plan.release(slot);
}

void WeightedSum::run(ComputeContext& context, Console::Progress* progress, u64 p,
                      kob_cdi_GFP& result) const {
  km_MULv3::Context multiply = context.multiply;
  multiply.progress = progress;
  const HeapBlock slot_Q(context.heap, slot_words(p) * sizeof(u64));
  const HeapBlock slot_R(context.heap, slot_words(p) * sizeof(u64));
  result.set_zero();
  for (const Share& share : shares_) {
    kob_cdi_EFPh Q, X;
    Q.attach(slot_Q.words(), slot_words(p));
    X.attach(slot_R.words(), slot_words(p));
    {
      const HeapBlock work(context.heap, sum_work_bytes(*share.series, p, multiply));
      sum_series_quietly(*share.series, p, {multiply, context.faults.series}, Q, X, work.data());
    }
    const HeapBlock quotient(context.heap, number_words(p) * sizeof(u64));
    if (share.outside_term) { // X <- Q + R; words of R below Q's last one cannot matter
      kob_cdi_EFPh sum;
      sum.attach(quotient.words(), number_words(p));
      sum.set_copy(Q);
      sum.add_in_place(X);
      X.set_copy(sum);
    }
    for (const u64 weight : share.weight)
      if (weight != 1) X.mul_word_in_place(weight);
    if (share.divisor != 1) Q.mul_word_in_place(share.divisor);
    const kob_cdi_EFPh* operands[] = {&X, &Q};
    modular_redundancy_check(operands, 2, 0, share.series->terms(p));

    kob_cdi_GFP T;
    T.attach(quotient.words(), number_words(p));
    {
      const HeapBlock work(context.heap, division_bytes(p, multiply));
      divide_quietly(multiply, T, as_GFP(X), as_GFP(Q), p, work.data());
    }
    if (progress != nullptr) progress->add(quotient_cost(p));
    T.sign = share.subtract ? 0 : 1;
    if (result.is_zero())
      result.set_truncated(T, p);
    else
      add_signed(result, T, p);
  }
}

u64 weighted_sum_memory(const WeightedSum& sum, const MemoryQuery& query, MemoryFigure* result) {
  const u64 p = run_precision(query.precision_words);
  MemoryPlan plan;
  plan.allocate(number_words(p) * sizeof(u64));
  sum.plan(plan, p, query_context(query));
  plan_finish(plan, query);
  *result = memory_figure(plan, query);
  return result->total();
}

void run_weighted_sum(const WeightedSum& sum, ComputeContext& context) {
  const u64 p = run_precision(context.settings.precision_words);
  const HeapBlock block(context.heap, number_words(p) * sizeof(u64));
  kob_cdi_GFP result;
  result.attach(block.words(), number_words(p));
  begin_phase(context, "Summing Series");
  Console::print("Summing Series...  ");
  print_terms(sum.terms(p));
  {
    Console::Progress progress("Summing: ", sum.cost(p), 87);
    sum.run(context, &progress, p, result);
  }
  end_phase();
  finish(context, result);
}

} // namespace kelvane
