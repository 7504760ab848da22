#include "control/constant_arccoth.h"

#include "control/weighted_sum.h"
#include "series/series_arccoth.h"

namespace kelvane {

namespace {

constexpr AlgorithmNames NAMES[] = {{"Taylor", "Taylor Series", "Taylor Series of ArcCoth(x)"}};

// n R/Q.
WeightedSum formula(u64 n) {
  WeightedSum sum;
  sum.add(std::make_unique<Series_ArcCoth>(n), false, n);
  return sum;
}

} // namespace

kcr_Constant_ArcCoth::kcr_Constant_ArcCoth(u64 n) : kcr_NamedConstant(NAMES) {
  parameter = n;
}
std::string kcr_Constant_ArcCoth::get_name() const {
  return "ArcCoth(" + std::to_string(parameter) + ")";
}

u64 kcr_Constant_ArcCoth::get_memory_B(s32 algorithm, const MemoryQuery& query, MemoryFigure* result) const {
  if (algorithm != 0) return 0;
  return result == nullptr ? 1 : weighted_sum_memory(formula(parameter), query, result);
}

void kcr_Constant_ArcCoth::run_B(s32 algorithm, ComputeContext& context) const {
  if (algorithm == 0) run_weighted_sum(formula(parameter), context);
}

} // namespace kelvane
