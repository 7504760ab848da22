#include "control/constant_zeta3.h"

#include "control/weighted_sum.h"
#include "series/series_zeta3.h"

namespace kelvane {

namespace {

constexpr AlgorithmNames NAMES[] = {{"Amdeberhan-Zeiberger 1", "Amdeberhan-Zeiberger Formula 1",
                                     "Amdeberhan-Zeiberger Formula 1      (slightly slower)"},
                                    {"Amdeberhan-Zeiberger 2", "Amdeberhan-Zeiberger Formula 2",
                                     "Amdeberhan-Zeiberger Formula 2      (fastest)"}};

// R/(2 Q) or R/(8 Q).
WeightedSum formula(s32 algorithm) {
  WeightedSum sum;
  if (algorithm == 0)
    sum.add(std::make_unique<Series_Zeta3_AZ1>(), false, 1, 1, 2);
  else
    sum.add(std::make_unique<Series_Zeta3_AZ2>(), false, 1, 1, 8);
  return sum;
}

} // namespace

kcr_Constant_Zeta3::kcr_Constant_Zeta3() : kcr_NamedConstant(NAMES) {
  algorithm_count = 2;
}
std::string kcr_Constant_Zeta3::get_name() const {
  return "Zeta(3)";
}
std::string kcr_Constant_Zeta3::get_full_name() const {
  return "Zeta(3) - Apery's Constant";
}

u64 kcr_Constant_Zeta3::get_memory_B(s32 algorithm, const MemoryQuery& query, MemoryFigure* result) const {
  if (algorithm != 0 && algorithm != 1) return 0;
  return result == nullptr ? 1 : weighted_sum_memory(formula(algorithm), query, result);
}

void kcr_Constant_Zeta3::run_B(s32 algorithm, ComputeContext& context) const {
  if (algorithm == 0 || algorithm == 1) run_weighted_sum(formula(algorithm), context);
}

} // namespace kelvane
