// ArcCoth(n) by its Taylor series: one binary splitting and one quotient.
#pragma once

#include "control/named_constant.h"

namespace kelvane {

class kcr_Constant_ArcCoth final : public kcr_NamedConstant {
public:
  explicit kcr_Constant_ArcCoth(u64 n);
  std::string get_name() const override;
  u64 get_memory_B(s32 algorithm, const MemoryQuery& query, MemoryFigure* result) const override;
  void run_B(s32 algorithm, ComputeContext& context) const override;
};

} // namespace kelvane
