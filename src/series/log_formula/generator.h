// Formulas for many n, one after another: what is found out for one is kept for the next.
#pragma once

#include "series/log_formula/known_formulas.h"
#include "series/log_formula/log_formula.h"

namespace kelvane {

class LogFormulaGenerator {
public:
  // As generate_formula.
  double generate(LogFormula& formula, u64 n, const LogFormula* exclude);

private:
  log_search::FormulaSearch search_;
};

} // namespace kelvane
