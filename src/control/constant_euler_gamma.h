// The Euler-Mascheroni constant by the Brent-McMillan formula with n = 2^k.
//
// Algorithm 0 is the plain formula A/B - k Log(2), algorithm 1 the refined one, A/B - C/B^2 - k Log(2), whose
// third series is skipped when it lies below the precision. Log(2) is summed by formulas without a common
// argument.
#pragma once

#include "control/constant.h"

namespace kelvane {

// k is given by the parameter, 1 to 48. A precision that k cannot reach is refused: "Parameter out of range".
class kcr_Constant_BrentMcMillan : public kcr_Constant {
public:
  explicit kcr_Constant_BrentMcMillan(u64 k);
  u64 get_kind_code() const override { return 66; }
  std::string get_name() const override;
  std::string get_full_name() const override;
  std::string get_algorithm_short_name(s32 algorithm) const override;
  std::string get_algorithm_name(s32 algorithm) const override;
  u64 get_memory_B(s32 algorithm, const MemoryQuery& query, MemoryFigure* result) const override;
  void run_B(s32 algorithm, ComputeContext& context) const override;
};

// prepare() chooses the smallest k >= 3 with 2^k >= 16 ln 2 w + 10, so that e^(-4n) is below the precision.
class kcr_Constant_EulerGamma final : public kcr_Constant_BrentMcMillan {
public:
  kcr_Constant_EulerGamma();
  std::string get_full_name() const override;
  void prepare(u64 precision_words) override;
};

} // namespace kelvane
