#include "control/registry.h"

#include "control/constant_arccoth.h"
#include "control/constant_catalan.h"
#include "control/constant_e.h"
#include "control/constant_euler_gamma.h"
#include "control/constant_lemniscate.h"
#include "control/constant_log.h"
#include "control/constant_pi.h"
#include "control/constant_sqrt.h"
#include "control/constant_zeta3.h"
#include "shell/console.h"
#include "shell/exception.h"
#include "shell/settings.h"

namespace kelvane {

std::unique_ptr<kcr_Constant> make_constant(u32 number, u64 parameter) {
  switch (number) {
  case CONSTANT_SQRT:
    return std::make_unique<kcr_Constant_Sqrt>(parameter);
  case CONSTANT_GOLDEN_RATIO:
    return std::make_unique<kcr_Constant_GoldenRatio>();
  case CONSTANT_E:
    return std::make_unique<kcr_Constant_E>();
  case CONSTANT_PI:
    return std::make_unique<kcr_Constant_Pi>();
  case CONSTANT_ARCCOTH:
    return std::make_unique<kcr_Constant_ArcCoth>(parameter);
  case CONSTANT_LOG:
    return std::make_unique<kcr_Constant_Log>(parameter);
  case CONSTANT_ZETA3:
    return std::make_unique<kcr_Constant_Zeta3>();
  case CONSTANT_LEMNISCATE:
    return std::make_unique<kcr_Constant_Lemniscate>();
  case CONSTANT_CATALAN:
    return std::make_unique<kcr_Constant_Catalan>();
  case CONSTANT_EULER_GAMMA:
    return std::make_unique<kcr_Constant_EulerGamma>();
  case CONSTANT_BRENT_MCMILLAN:
    return std::make_unique<kcr_Constant_BrentMcMillan>(parameter);
  default:
    fatal("Unknown Constant ID");
  }
}

void select_constant(ComputeSettings& settings, u32 number, u64 parameter) {
  settings.constant = make_constant(number, parameter);
  settings.constant_index = number;
  kcr_Constant& constant = *settings.constant;
  constant.prepare(settings.precision_words);
  if (settings.algorithm < 0 || static_cast<u32>(settings.algorithm) >= constant.algorithm_count)
    settings.algorithm = 0;
  if (settings.decimal_digits > constant.get_max_digits())
    settings.set_decimal_digits(constant.get_max_digits());
  if (constant.get_memory_S(settings.algorithm, {}, nullptr) == 0) settings.mode = 0;
}

const char* validate_and_select(ComputeSettings& settings, u32 number, u64 parameter) {
  constexpr const char* NOT_AVAILABLE = "Invalid constant, or not yet implemented.";
  if (number > CONSTANT_EULER_GAMMA) return NOT_AVAILABLE;
  if (number == CONSTANT_SQRT && kcr_Constant_Sqrt::is_perfect_square(parameter))
    return "This is a perfect square.";
  if (number == CONSTANT_ARCCOTH && (parameter < 2 || parameter > 4294967295))
    return "Parameter out of range";
  if (number == CONSTANT_LOG && (parameter < 2 || parameter > 2147483647)) return "Parameter out of range";
  // A constant without any way to run is one whose series is not built yet.
  if (make_constant(number, parameter)->get_memory_B(0, {}, nullptr) == 0) return NOT_AVAILABLE;
  select_constant(settings, number, parameter);
  settings.update();
  return nullptr;
}

void print_constant_list() {
  const auto title = [](const char* text) { Console::print_colored(text, 'Y'); };
  const auto line = [](const char* text) { Console::print_colored(text, 'T'); };
  Console::print("Compute a Constant: (in ascending order of difficulty to compute)\n\n");
  Console::print("  #         Constant                      Value        Approximate Difficulty*\n\n");
  title("Fast Constants:\n");
  line("  0         Sqrt(n)                                         1.42\n");
  line("  1         Golden Ratio                = 1.618034...       1.42\n\n");
  title("Moderate Constants:\n");
  line("  2         e                           = 2.718281...       4.02 / 4.02\n");
  line("  3         Pi                          = 3.141592...       12.8 / 19.0\n");
  line("  4         ArcCoth(n)                                      6.25 - 72.8\n");
  line("  5         Log(n)                                        > 34.2\n");
  line("  6         Zeta(3) (Apery's Constant)  = 1.202056...       61.9 / 64.8\n");
  line("  7         Lemniscate                  = 5.244115...       121. / 150.\n\n");
  title("Slow Constants:\n");
  line("  8         Catalan's Constant          = 0.915965...       279. / 313.\n");
  line("  9         Euler-Mascheroni Constant   = 0.577215...       355. / 528.\n\n");
  Console::print("*Actual numbers will vary. Radix conversion = 1.00\n\n");
  Console::print("Enter your choice:\n");
}

} // namespace kelvane
