#include "control/constant_log.h"

#include "control/weighted_sum.h"
#include "series/series_arccoth.h"
#include "shell/console.h"
#include "shell/exception.h"

namespace kelvane {

namespace {

constexpr u64 SMALLEST = 2, LARGEST = 2147483647;

constexpr u64 magnitude(s64 c) {
  return c < 0 ? u64{0} - static_cast<u64>(c) : static_cast<u64>(c);
}

// c ArcCoth(x) = |c| x R/Q with c's sign.
WeightedSum weighted_sum(const LogFormula& formula) {
  WeightedSum sum;
  for (u64 i = 0; i < formula.count; i++) {
    const auto [x, c] = formula.terms[i];
    sum.add(std::make_unique<Series_ArcCoth>(x), false, magnitude(c), x, 1, c < 0);
  }
  return sum;
}

// "18 * ArcCoth(26) - 2 * ArcCoth(4801) + 8 * ArcCoth(8749)"
std::string text(const LogFormula& formula) {
  std::string sum;
  for (u64 i = 0; i < formula.count; i++) {
    const auto [x, c] = formula.terms[i];
    if (i != 0)
      sum += c < 0 ? " - " : " + ";
    else if (c < 0)
      sum += "- ";
    sum += std::to_string(magnitude(c)) + " * ArcCoth(" + std::to_string(x) + ")";
  }
  return sum;
}

bool known(s32 algorithm) {
  return algorithm == 0 || algorithm == 1;
}

} // namespace

kcr_Constant_Log::kcr_Constant_Log(u64 n) {
  algorithm_count = 2;
  parameter = n;
}
std::string kcr_Constant_Log::get_name() const {
  return "Log(" + std::to_string(parameter) + ")";
}
std::string kcr_Constant_Log::get_algorithm_short_name(s32 algorithm) const {
  return algorithm == 0 ? "Machin 1" : algorithm == 1 ? "Machin 2" : "";
}
// "Machin-like formula of 3 terms"
std::string kcr_Constant_Log::get_algorithm_name(s32 algorithm) const {
  if (!known(algorithm)) return "";
  const u64 terms = formulas_[algorithm].count;
  if (terms == 0) return get_algorithm_short_name(algorithm);
  return get_algorithm_short_name(algorithm) + " - Machin-like formula of " + std::to_string(terms) +
         (terms == 1 ? " term" : " terms");
}
std::string kcr_Constant_Log::get_algorithm_description(s32 algorithm) const {
  if (!known(algorithm)) return "";
  if (formulas_[algorithm].count == 0) return get_algorithm_name(algorithm);
  return get_algorithm_name(algorithm) + "\n\n" + get_name() + " = " + text(formulas_[algorithm]);
}

u64 kcr_Constant_Log::get_memory_B(s32 algorithm, const MemoryQuery& query, MemoryFigure* result) const {
  if (!known(algorithm)) return 0;
  return result == nullptr ? 1 : weighted_sum_memory(weighted_sum(formulas_[algorithm]), query, result);
}

void kcr_Constant_Log::run_B(s32 algorithm, ComputeContext& context) const {
  if (known(algorithm)) run_weighted_sum(weighted_sum(formulas_[algorithm]), context);
}

void kcr_Constant_Log::prepare(u64 precision_words) {
  if (parameter < SMALLEST || parameter > LARGEST) fatal("Parameter out of range");
  if (formulas_[0].count != 0) return;
  const double nats = static_cast<double>(precision_words) * NATS_PER_WORD;
  const char* error = generate_log_formulas(formulas_, parameter, nats);
  if (error == nullptr) return;
  Console::print("Error: ");
  Console::print(error);
  Console::print("\n");
  fatal("Please report this as a bug.");
}

} // namespace kelvane
