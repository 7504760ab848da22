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
class CommonFactors;

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

  // What blocks of terms are divided by; null when they are not.
  virtual const CommonFactors* common_factors() const { return nullptr; }

  // ln of a bound on the integers of the range [a, b), whose ranges of the given level (see CommonFactors; 0:
  // none) are divided by their common factors.
  double range_nats(u64 a, u64 b, u64 level) const;
  // Words that hold every integer of such a range.
  u64 range_words(u64 a, u64 b, u64 level = 0) const {
    return static_cast<u64>(range_nats(a, b, level) * WORDS_PER_NAT) + 2;
  }
  // The level that is divided when [a, b) is summed as a segment, and the words of its integers then.
  u64 divided_level(u64 a, u64 b) const;
  u64 segment_words(u64 a, u64 b) const { return range_words(a, b, divided_level(a, b)); }

  // Words of the buffers of a range's integers. Two halves of up to range_words each have up to two words
  // more in sum than the range itself; a product may have a zero word on top before it is trimmed, and an
  // addition needs a guard word. Of the first integer in shapes where it is shorter: their own.
  static constexpr u64 CAPACITY_GUARD = 4;
  u64 capacity(u64 a, u64 b, u64 level = 0) const { return range_words(a, b, level) + CAPACITY_GUARD; }
  u64 first_capacity(u64 a, u64 b, u64 level = 0) const { return capacity(a, b, level); }
  u64 segment_capacity(u64 a, u64 b) const { return capacity(a, b, divided_level(a, b)); }
};

} // namespace kelvane
