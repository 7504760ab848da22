#include "control/constant_sqrt.h"

#include <cmath>

#include "arithmetic/words/add.h"
#include "control/phases.h"
#include "shell/settings.h"

namespace kelvane {

namespace {

constexpr AlgorithmNames NAMES[] = {{"Newton", "Newton", "1st order Newton's Method"}};

} // namespace

kcr_Constant_Sqrt::kcr_Constant_Sqrt(u64 n) : kcr_NamedConstant(NAMES) {
  parameter = n;
}

std::string kcr_Constant_Sqrt::get_name() const {
  return "Sqrt(" + std::to_string(parameter) + ")";
}
std::string kcr_Constant_GoldenRatio::get_name() const {
  return "Golden Ratio";
}

bool kcr_Constant_Sqrt::is_perfect_square(u64 n) {
  // The rounded root of a double is off by at most one near 2^64.
  const u64 r = static_cast<u64>(std::llround(std::sqrt(static_cast<double>(n))));
  for (u64 s = r == 0 ? 0 : r - 1; s <= r + 1; s++)
    if (static_cast<u128>(s) * s == n) return true;
  return false;
}

u64 kcr_Constant_Sqrt::get_memory_B(s32 algorithm, const MemoryQuery& query, MemoryFigure* result) const {
  if (algorithm != 0) return 0;
  if (result == nullptr) return 1;
  const u64 p = run_precision(query.precision_words);
  MemoryPlan plan;
  plan.allocate(number_words(p) * sizeof(u64));
  plan.step(inverse_square_root_bytes(p, query_context(query)));
  plan_finish(plan, query);
  *result = memory_figure(plan, query);
  return result->total();
}

void kcr_Constant_Sqrt::run_B(s32 algorithm, ComputeContext& context) const {
  if (algorithm != 0) return;
  const u64 p = run_precision(context.settings.precision_words);
  const HeapBlock block(context.heap, number_words(p) * sizeof(u64));
  kob_cdi_GFP T;
  T.attach(block.words(), number_words(p));
  inverse_square_root(context, T, parameter, p);
  T.set_mul_word(T, parameter); // sqrt(n) = n / sqrt(n)
  finish(context, T);
}

void kcr_Constant_GoldenRatio::run_B(s32 algorithm, ComputeContext& context) const {
  if (algorithm != 0) return;
  const u64 p = run_precision(context.settings.precision_words);
  const HeapBlock block(context.heap, number_words(p) * sizeof(u64));
  kob_cdi_GFP T;
  T.attach(block.words(), number_words(p));
  inverse_square_root(context, T, 5, p);
  T.set_mul_word(T, 5);
  // sqrt(5) = 2.23...: the unit word takes the added one, and halving moves one bit across all words.
  T.T[-T.exp] += 1;
  words::shift_right(T.T, T.T, T.L, 1);
  finish(context, T);
}

} // namespace kelvane
