// Sqrt(n) and the golden ratio: one inverse square root by Newton's method and a product by a word.
#pragma once

#include "control/named_constant.h"

namespace kelvane {

class kcr_Constant_Sqrt : public kcr_NamedConstant {
public:
  explicit kcr_Constant_Sqrt(u64 n);
  u64 get_kind_code() const override { return 80; }
  std::string get_name() const override;
  u64 get_memory_B(s32 algorithm, const MemoryQuery& query, MemoryFigure* result) const override;
  void run_B(s32 algorithm, ComputeContext& context) const override;

  // True when n is the square of an integer (0 and 1 too).
  static bool is_perfect_square(u64 n);
};

// (1 + sqrt(5)) / 2.
class kcr_Constant_GoldenRatio final : public kcr_Constant_Sqrt {
public:
  kcr_Constant_GoldenRatio() : kcr_Constant_Sqrt(5) {}
  std::string get_name() const override;
  void run_B(s32 algorithm, ComputeContext& context) const override;
};

} // namespace kelvane
