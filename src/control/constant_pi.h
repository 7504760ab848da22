// Pi by the Chudnovsky or the Ramanujan series: one binary splitting, one quotient, one inverse
// square root and one product.
#pragma once

#include "control/named_constant.h"

namespace kelvane {

// Algorithms 0 and 1 are offered to the user; 2 and 3 are the same series with products that
// use less memory.
class kcr_Constant_Pi final : public kcr_NamedConstant {
public:
  kcr_Constant_Pi();
  std::string get_name() const override;
  u64 get_memory_B(s32 algorithm, const MemoryQuery& query, MemoryFigure* result) const override;
  void run_B(s32 algorithm, ComputeContext& context) const override;
};

} // namespace kelvane
