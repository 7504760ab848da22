// Catalan's constant by the series of Lupas or of Huvent.
#pragma once

#include "control/constant.h"

namespace kelvane {

class kcr_Constant_Catalan final : public kcr_Constant {
public:
  kcr_Constant_Catalan() { algorithm_count = 2; }
  u64 get_kind_code() const override { return 66; }
  std::string get_name() const override;
  std::string get_full_name() const override;
  std::string get_algorithm_short_name(s32 algorithm) const override;
  std::string get_algorithm_name(s32 algorithm) const override;
  std::string get_algorithm_description(s32 algorithm) const override;
  u64 get_memory_B(s32 algorithm, const MemoryQuery& query, MemoryFigure* result) const override;
  void run_B(s32 algorithm, ComputeContext& context) const override;
};

} // namespace kelvane
