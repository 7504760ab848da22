// The Lemniscate constant 2 Pi / AGM(1, sqrt 2) = 5.244..., the length of the lemniscate of Bernoulli with
// unit half-axis, as a sum of two values of the inverse lemniscate sine.
#pragma once

#include "control/named_constant.h"

namespace kelvane {

class kcr_Constant_Lemniscate final : public kcr_NamedConstant {
public:
  kcr_Constant_Lemniscate();
  std::string get_name() const override;
  u64 get_memory_B(s32 algorithm, const MemoryQuery& query, MemoryFigure* result) const override;
  void run_B(s32 algorithm, ComputeContext& context) const override;
};

} // namespace kelvane
