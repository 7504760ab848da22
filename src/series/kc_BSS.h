// kc_BSS: a hypergeometric series to be summed by binary splitting.
//
// A range [a, b) of term indices is reduced to a few exact integers; two neighbouring
// ranges are merged by products. What the scheme must know of a series beforehand is how
// many terms a precision needs, how large the integers of a range grow, and how fast the
// terms fall; all three in natural logarithms ("nats"), 64 ln 2 nats to a word.
// Source: Haible and Papanikolaou, Fast multiprecision evaluation of series of rational
// numbers (ANTS 1998).
#pragma once

#include "multiply/table/km_MULv3.h"
#include "shell/types.h"

namespace kelvane {

inline constexpr double NATS_PER_WORD = 44.3614195558365;
inline constexpr double WORDS_PER_NAT = 0.022542110013890053;

// ln Gamma(x + 1) by Stirling's form; 0 for x <= 1.
double log_factorial(double x);

struct Schedule;

class kc_BSS {
public:
  virtual ~kc_BSS() = default;

  // Walks the schedule from the given segment to its end: the peak working memory of the recursion,
  // the size of the final integers and the temporary need of merging the segments, in words.
  virtual void BSR_memory(const Schedule& schedule, u64 first_segment, const km_MULv3::Context& context,
                          u64* out_peak, u64* out_result, u64* out_temp) const = 0;
  // Terms for a result of the given precision: the truncated series is off by less than 2^(-64 w).
  virtual u64 terms(u64 precision_words) const = 0;
  // ln of a bound on the integers of [0, x).
  virtual double log_size(u64 x) const = 0;
  // ln of the factor by which the terms shrink over [a, b).
  virtual double log_convergence(u64 a, u64 b) const = 0;
  // The precision needed at term k; a series without it throws.
  virtual u64 PrecisionAtIndex(u64 k) const;

  // Words that hold every integer of the range [a, b).
  u64 range_words(u64 a, u64 b) const {
    return static_cast<u64>((log_size(b) - log_size(a)) * WORDS_PER_NAT) + 2;
  }
};

} // namespace kelvane
