// Machin-like formulas for logarithms of integers:
//
//   Log(n) = sum c_i * ArcCoth(x_i),   c * ArcCoth(x) = (c/2) * (Log(x + 1) - Log(x - 1))
//
// Every formula is derived for the n asked for and proven by exact prime factorisation before it is used. Two
// formulas without a common argument check each other.
#pragma once

#include "shell/types.h"

namespace kelvane {

inline constexpr u64 LOG_FORMULA_TERMS = 32;
inline constexpr double NO_FORMULA_COST = 1.2676506002282294e30; // 2^100 and above: none was found

struct LogFormula {
  struct Term {
    u64 x;
    s64 c;
  };
  u64 count = 0;
  Term terms[LOG_FORMULA_TERMS];
};

// formulas[0] and formulas[1] <- two formulas of Log(n), 2 <= n < 2^31, printing what is generated and how
// long it took. precision_nats: the precision the logarithm is wanted to, in nats. Returns null, or the text
// of the error.
const char* generate_log_formulas(LogFormula formulas[2], u64 n, double precision_nats);

// The cheapest formula found that shares no argument with `exclude` (null: no such condition). Returns its
// cost, or NO_FORMULA_COST.
double generate_formula(LogFormula& formula, u64 n, const LogFormula* exclude, double precision_nats);

// 0 when the formula is exactly Log(n).
int verify_formula(const LogFormula& formula, u64 n);

// "18*ArcCoth[26] - 2*ArcCoth[4801] + 8*ArcCoth[8749]" and a line break.
void print_formula(const LogFormula& formula);

} // namespace kelvane
