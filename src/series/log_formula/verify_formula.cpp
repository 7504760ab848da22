// The exact proof of a formula. See log_formula.h.

#include "series/log_formula/log_form.h"
#include "series/log_formula/log_formula.h"

namespace kelvane {

namespace {

// limit + 1 when the product of p^(exponent / 2) is more than the limit.
u64 half_power(const log_search::PrimeVector& form, u64 limit) {
  u64 product = 1;
  for (const auto& entry : form) {
    for (s64 e = 0; e < entry.exponent / 2; e++) {
      if (entry.prime > limit / product) return limit + 1;
      product *= entry.prime;
    }
  }
  return product;
}

} // namespace

bool log_form(const LogFormula& formula, log_search::PrimeVector& form) {
  form = {};
  if (formula.count > LOG_FORMULA_TERMS) return false;
  for (u64 i = 0; i < formula.count; i++) {
    if (!form.multiply_arccoth(formula.terms[i].x, formula.terms[i].c)) return false;
  }
  return true;
}

int verify_formula(const LogFormula& formula, u64 n) {
  log_search::PrimeVector form;
  if (formula.count == 0) return n == 1 ? 0 : 1;
  if (n == 0 || !log_form(formula, form)) return 1;
  for (const auto& entry : form) {
    if (entry.exponent < 0 || entry.exponent % 2 != 0) return 1;
  }
  return half_power(form, n) == n ? 0 : 1;
}

} // namespace kelvane
