// The table of known formulas for small n: the cheapest of two to five terms that an exhaustive search finds
// among the base's candidates. known_formulas_main.cpp is the program that makes known_formulas.inc; see
// there.
#pragma once

#include <vector>

#include "series/log_formula/search.h"

namespace kelvane::log_search {

struct KnownFormula {
  u64 n;
  Terms terms;
};

const std::vector<KnownFormula>& known_formulas();

// The cheapest entry for n without a forbidden argument, or e times the one for t where n = t^e; empty when
// there is none.
Terms known_formula(u64 n, const std::vector<u64>& forbidden);

} // namespace kelvane::log_search
