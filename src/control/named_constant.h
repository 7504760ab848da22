// A constant whose algorithms have fixed names: short name, name and menu description.
#pragma once

#include <span>
#include <string>

#include "control/constant.h"

namespace kelvane {

struct AlgorithmNames {
  const char* short_name;
  const char* name;
  const char* description;
};

// An index outside the list yields the empty string. The list outlives the constant.
class kcr_NamedConstant : public kcr_Constant {
public:
  std::string get_algorithm_short_name(s32 algorithm) const final {
    return text(algorithm, &AlgorithmNames::short_name);
  }
  std::string get_algorithm_name(s32 algorithm) const final { return text(algorithm, &AlgorithmNames::name); }
  std::string get_algorithm_description(s32 algorithm) const final {
    return text(algorithm, &AlgorithmNames::description);
  }

protected:
  explicit kcr_NamedConstant(std::span<const AlgorithmNames> algorithms) : algorithms_(algorithms) {}

private:
  std::string text(s32 algorithm, const char* AlgorithmNames::*field) const {
    if (algorithm < 0 || static_cast<size_t>(algorithm) >= algorithms_.size()) return "";
    return algorithms_[static_cast<size_t>(algorithm)].*field;
  }
  std::span<const AlgorithmNames> algorithms_;
};

} // namespace kelvane
