// The screen "Log(n) Formula Generator": both formulas of every n up to a limit.
#pragma once

#include "shell/types.h"

namespace kelvane {

// Asks for the limit and lists.
void log_formula_screen();
// n = 2..limit. Ends the program when a formula does not verify.
void list_log_formulas(u64 limit);

} // namespace kelvane
