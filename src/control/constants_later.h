// The constants whose series are not built yet: their names, algorithms and parameters.
// The registry refuses to select them for a computation.
#pragma once

#include "control/constant.h"

namespace kelvane {

class kcr_Constant_Log final : public kcr_Constant {
public:
  explicit kcr_Constant_Log(u64 n);
  std::string get_name() const override;
  std::string get_algorithm_short_name(s32 algorithm) const override;
  void prepare(u64 precision_words) override;
};

} // namespace kelvane
