// ArcCoth(n) by its Taylor series: one binary splitting and one quotient.
#pragma once

#include "control/constant.h"

namespace kelvane {

class kcr_Constant_ArcCoth final : public kcr_Constant {
public:
  explicit kcr_Constant_ArcCoth(u64 n);
  std::string get_name() const override;
  std::string get_algorithm_short_name(s32 algorithm) const override;
  std::string get_algorithm_name(s32 algorithm) const override;
  std::string get_algorithm_description(s32 algorithm) const override;
  u64 get_memory_B(s32 algorithm, const MemoryQuery& query, MemoryFigure* result) const override;
  void run_B(s32 algorithm, ComputeContext& context) const override;
};

} // namespace kelvane
