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

kcr_Constant_BrentMcMillan::kcr_Constant_BrentMcMillan(u64 k) {
  algorithm_count = 2;
  parameter = k;
  extra = static_cast<u32>(k);
}
u64 kcr_Constant_BrentMcMillan::get_kind_code() const {
  return 66;
}
std::string kcr_Constant_BrentMcMillan::get_name() const {
  return "Euler's Constant";
}
std::string kcr_Constant_BrentMcMillan::get_full_name() const {
  return "Euler-Mascheroni Constant (parameter override)";
}
std::string kcr_Constant_BrentMcMillan::get_algorithm_short_name(s32 algorithm) const {
  return algorithm == 0 ? "Brent-McMillan" : algorithm == 1 ? "Brent-McMillan (Refined)" : "";
}
std::string kcr_Constant_BrentMcMillan::get_algorithm_name(s32 algorithm) const {
  if (algorithm != 0 && algorithm != 1) return "";
  return std::string(algorithm == 0 ? "Brent-McMillan" : "Brent-McMillan with Refinement") + " ( n = 2^" +
         std::to_string(extra) + " )";
}

kcr_Constant_EulerGamma::kcr_Constant_EulerGamma() : kcr_Constant_BrentMcMillan(0) {}
std::string kcr_Constant_EulerGamma::get_full_name() const {
  return "Euler-Mascheroni Constant";
}
void kcr_Constant_EulerGamma::prepare(u64 precision_words) {
  const double x = static_cast<double>(precision_words) * 11.090354888959125 + 10;
  extra = x <= 4 ? 2 : 3;
  while (static_cast<double>(u64{1} << extra) < x) extra++;
}

} // namespace kelvane
