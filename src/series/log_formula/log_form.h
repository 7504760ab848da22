// The intermediate form of a formula, in logarithms of primes: sum e_p / 2 * Log(p).
#pragma once

#include "series/log_formula/log_formula.h"
#include "series/log_formula/prime_vector.h"

namespace kelvane {

// The exponents e_p of a formula's form. False when an argument is below 2 or cannot be factorised, or an
// exponent overflows.
bool log_form(const LogFormula& formula, log_search::PrimeVector& form);

// "2/2*Log[2] - 4/2*Log[3]" and a line break.
void print_log_form(const log_search::PrimeVector& form);

} // namespace kelvane
