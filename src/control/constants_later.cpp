#include "control/constants_later.h"

#include "control/algorithm_names.h"
#include "shell/exception.h"

namespace kelvane {

namespace {

constexpr AlgorithmNames LOG[] = {{"Machin 1", "Machin 1", "Machin 1"}, {"Machin 2", "Machin 2", "Machin 2"}};

} // namespace

kcr_Constant_Log::kcr_Constant_Log(u64 n) {
  algorithm_count = 2;
  parameter = n;
}
std::string kcr_Constant_Log::get_name() const {
  return "Log(" + std::to_string(parameter) + ")";
}
std::string kcr_Constant_Log::get_algorithm_short_name(s32 algorithm) const {
  return algorithm_text(LOG, algorithm, &AlgorithmNames::short_name);
}
void kcr_Constant_Log::prepare(u64) {
  if (parameter < 2 || parameter > 2147483647) fatal("Parameter out of range");
}

} // namespace kelvane
