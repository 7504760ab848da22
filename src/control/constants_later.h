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

// The Euler-Mascheroni constant with the exponent k of n = 2^k given by the parameter.
class kcr_Constant_BrentMcMillan : public kcr_Constant {
public:
  explicit kcr_Constant_BrentMcMillan(u64 k);
  u64 get_kind_code() const override;
  std::string get_name() const override;
  std::string get_full_name() const override;
  std::string get_algorithm_short_name(s32 algorithm) const override;
  std::string get_algorithm_name(s32 algorithm) const override;
};

// The Euler-Mascheroni constant; prepare() chooses the smallest k >= 3 with 2^k >= 16 ln 2 w + 10.
class kcr_Constant_EulerGamma final : public kcr_Constant_BrentMcMillan {
public:
  kcr_Constant_EulerGamma();
  std::string get_full_name() const override;
  void prepare(u64 precision_words) override;
};

} // namespace kelvane
