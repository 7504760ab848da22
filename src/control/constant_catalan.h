// Catalan's constant by the series of Lupas or of Huvent.
#pragma once

#include "control/named_constant.h"

namespace kelvane {

class kcr_Constant_Catalan final : public kcr_NamedConstant {
public:
  kcr_Constant_Catalan();
  u64 get_kind_code() const override { return 66; }
  std::string get_name() const override;
  std::string get_full_name() const override;
  u64 get_memory_B(s32 algorithm, const MemoryQuery& query, MemoryFigure* result) const override;
  void run_B(s32 algorithm, ComputeContext& context) const override;
};

} // namespace kelvane
