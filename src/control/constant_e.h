// e by the Taylor series of exp(1) or exp(-1), finished by one division.
#pragma once

#include "control/named_constant.h"

namespace kelvane {

class kcr_Constant_E final : public kcr_NamedConstant {
public:
  kcr_Constant_E();
  std::string get_name() const override;
  u64 get_memory_B(s32 algorithm, const MemoryQuery& query, MemoryFigure* result) const override;
  void run_B(s32 algorithm, ComputeContext& context) const override;
};

} // namespace kelvane
