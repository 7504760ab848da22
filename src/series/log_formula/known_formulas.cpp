// See known_formulas.h.

#include "series/log_formula/known_formulas.h"

#include <algorithm>

#include "series/log_formula/cost.h"

namespace kelvane::log_search {

namespace {

// e with t^e = n, or 0.
s64 exponent_of(u64 n, u64 t) {
  s64 e = 0;
  for (; n % t == 0; n /= t) e++;
  return n == 1 ? e : 0;
}

} // namespace

const std::vector<KnownFormula>& known_formulas() {
  static const std::vector<KnownFormula> table = {
#include "series/log_formula/known_formulas.inc"
  };
  return table;
}

Terms known_formula(u64 n, const std::vector<u64>& forbidden) {
  Terms best;
  for (const KnownFormula& known : known_formulas()) {
    const s64 e = exponent_of(n, known.n);
    if (e == 0 || (!best.empty() && cost_of(known.terms) >= cost_of(best))) continue;
    if (std::any_of(known.terms.begin(), known.terms.end(), [&](const Term& term) {
          return std::find(forbidden.begin(), forbidden.end(), term.x) != forbidden.end();
        })) {
      continue;
    }
    best = known.terms;
    for (Term& term : best) term.c *= e;
  }
  return best;
}

} // namespace kelvane::log_search
