// Log(n) as a sum of ArcCoth series, by one of two formulas that are generated and proven when the constant
// is prepared (see series/log_formula).
#pragma once

#include "control/constant.h"
#include "series/log_formula/log_formula.h"

namespace kelvane {

class kcr_Constant_Log final : public kcr_Constant {
public:
  explicit kcr_Constant_Log(u64 n);
  std::string get_name() const override;
  std::string get_algorithm_short_name(s32 algorithm) const override;
  std::string get_algorithm_name(s32 algorithm) const override;
  std::string get_algorithm_description(s32 algorithm) const override;
  u64 get_memory_B(s32 algorithm, const MemoryQuery& query, MemoryFigure* result) const override;
  void run_B(s32 algorithm, ComputeContext& context) const override;
  // Generates the formulas the first time; they do for every precision. Fatal: "Parameter out of range", and
  // "Please report this as a bug." after the generator's message.
  void prepare(u64 precision_words) override;

private:
  LogFormula formulas_[2]; // empty until prepare()
};

} // namespace kelvane
