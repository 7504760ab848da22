// Generation of formulas. See log_formula.h.

#include "series/log_formula/log_formula.h"

#include <string>

#include "series/log_formula/generator.h"
#include "shell/console.h"
#include "shell/exception.h"
#include "shell/status_line.h"

namespace kelvane {

namespace {

using log_search::Terms;

void store(LogFormula& formula, const Terms& terms) {
  formula.count = 0;
  for (const log_search::Term& term : terms) {
    if (term.c != 0) formula.terms[formula.count++] = {term.x, term.c};
  }
}

} // namespace

double LogFormulaGenerator::generate(LogFormula& formula, u64 n, const LogFormula* exclude) {
  std::vector<u64> forbidden; // taken before the formula is written: it may be the one excluded
  for (u64 i = 0; exclude != nullptr && i < exclude->count; i++) forbidden.push_back(exclude->terms[i].x);
  formula.count = 0;
  if (n == 0) fatal("Error: Log(0)");
  if (n == 1) return 0;
  search_.forget();

  Terms best = log_search::known_formula(n, forbidden);
  const bool known = !best.empty();
  double cost = known ? log_search::cost_of(best) : NO_FORMULA_COST;
  for (u32 h = log_search::LEAST_BASE; h <= log_search::MOST_BASE; h++) {
    const Terms found = search_.search(n, h, forbidden);
    if (found.empty() || log_search::cost_of(found) >= cost) continue;
    best = found;
    cost = log_search::cost_of(found);
    if (known) Console::print("\nThe heuristic has found a better formula than the table entry.\n");
  }
  store(formula, best);
  return cost;
}

double generate_formula(LogFormula& formula, u64 n, const LogFormula* exclude, double) {
  LogFormulaGenerator generator;
  return generator.generate(formula, n, exclude);
}

const char* generate_log_formulas(LogFormula formulas[2], u64 n, double) {
  LogFormulaGenerator generator;
  for (int i = 0; i < 2; i++) {
    Console::print(i == 0 ? "Generating Primary Formula...       " : "Generating Secondary Formula...     ");
    const double start = Console::wall_seconds();
    const double cost = generator.generate(formulas[i], n, i == 0 ? nullptr : &formulas[0]);
    Console::print_fixed3(Console::wall_seconds() - start);
    Console::print(" seconds\n");
    if (cost >= NO_FORMULA_COST) return "Unable to derive formula.";
    if (verify_formula(formulas[i], n) != 0) return "Unable to verify correctness of formula.";
  }
  return nullptr;
}

} // namespace kelvane
