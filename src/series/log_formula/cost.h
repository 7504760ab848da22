// What a formula costs to evaluate, in units of one radix conversion.
#pragma once

#include <cmath>

#include "series/log_formula/log_formula.h"

namespace kelvane::log_search {

// A term's one division. Listed among the build's options.
inline constexpr double DIVISION_COST = 0.7813;
// Summing ArcCoth(x) takes 1 / (2 ln x) terms a nat. Fitted to ArcCoth(2) : ArcCoth(2^32 - 1) = 72.8 : 6.25.
inline constexpr double SERIES_COST = 9.064;

inline double term_cost(u64 x) {
  return SERIES_COST / std::log(static_cast<double>(x)) + DIVISION_COST;
}

} // namespace kelvane::log_search
