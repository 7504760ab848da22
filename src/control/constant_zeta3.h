// Zeta(3) by one of two series of Amdeberhan and Zeilberger.
#pragma once

#include "control/named_constant.h"

namespace kelvane {

class kcr_Constant_Zeta3 final : public kcr_NamedConstant {
public:
  kcr_Constant_Zeta3();
  std::string get_name() const override;
  std::string get_full_name() const override;
  u64 get_memory_B(s32 algorithm, const MemoryQuery& query, MemoryFigure* result) const override;
  void run_B(s32 algorithm, ComputeContext& context) const override;
};

} // namespace kelvane
