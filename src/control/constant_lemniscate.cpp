#include "control/constant_lemniscate.h"

#include "control/weighted_sum.h"
#include "series/series_arcsinlemn.h"

namespace kelvane {

namespace {

constexpr AlgorithmNames NAMES[] = {
    {"Gauss", "Gauss formula",
     "Gauss Formula       (fastest)\n\nLemniscate = 8 * ArcSinlemn(1/2) + 4 * ArcSinLemn(7/23)"},
    {"Sebah", "Sebah's formula",
     "Sebah's Formula     (20% slower)\n\nLemniscate = 8 * ArcSinlemn(2/3) - 4 * ArcSinLemn(7/137)"}};

// c ArcSinlemn(n/d) = c n (Q + R)/(d Q).
WeightedSum formula(s32 algorithm) {
  WeightedSum sum;
  const auto add = [&sum](u64 c, u64 n, u64 d, bool subtract) {
    sum.add(std::make_unique<Series_ArcSinlemn>(n, d), true, c, n, d, subtract);
  };
  if (algorithm == 0) {
    add(8, 1, 2, false);
    add(4, 7, 23, false);
  } else {
    add(8, 2, 3, false);
    add(4, 7, 137, true);
  }
  return sum;
}

} // namespace

kcr_Constant_Lemniscate::kcr_Constant_Lemniscate() : kcr_NamedConstant(NAMES) {
  algorithm_count = 2;
}
std::string kcr_Constant_Lemniscate::get_name() const {
  return "Lemniscate";
}

u64 kcr_Constant_Lemniscate::get_memory_B(s32 algorithm, const MemoryQuery& query,
                                          MemoryFigure* result) const {
  if (algorithm != 0 && algorithm != 1) return 0;
  return result == nullptr ? 1 : weighted_sum_memory(formula(algorithm), query, result);
}

void kcr_Constant_Lemniscate::run_B(s32 algorithm, ComputeContext& context) const {
  if (algorithm == 0 || algorithm == 1) run_weighted_sum(formula(algorithm), context);
}

} // namespace kelvane
