// The registry: constant numbers to classes, parameter checks, and the list shown to the user.
#pragma once

#include <memory>

#include "control/constant.h"

namespace kelvane {

struct ComputeSettings;

enum ConstantNumber : u32 {
  CONSTANT_SQRT = 0,
  CONSTANT_GOLDEN_RATIO,
  CONSTANT_E,
  CONSTANT_PI,
  CONSTANT_ARCCOTH,
  CONSTANT_LOG,
  CONSTANT_ZETA3,
  CONSTANT_LEMNISCATE,
  CONSTANT_CATALAN,
  CONSTANT_EULER_GAMMA,
  CONSTANT_BRENT_MCMILLAN, // the exponent from the parameter; not in the user's list
};

// The object of a constant number. A number above 10 is fatal: "Unknown Constant ID".
std::unique_ptr<kcr_Constant> make_constant(u32 number, u64 parameter);

// Puts the constant into the settings: prepares it for their precision, resets an algorithm index that
// it does not have, lowers the digit count to its maximum, and leaves swap mode if it has no swap path.
void select_constant(ComputeSettings& settings, u32 number, u64 parameter);

// The entry of the menus: checks number and parameter, selects and updates the settings. Null or the error
// text.
const char* validate_and_select(ComputeSettings& settings, u32 number, u64 parameter);

// The list "Compute a Constant", up to "Enter your choice:".
void print_constant_list();

} // namespace kelvane
