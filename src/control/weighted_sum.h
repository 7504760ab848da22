// Constants that are a weighted sum of series:
//
//   sum of +/- weight * X / (divisor * Q),    X = R, or Q + R where the term k = 0 lies outside the range
//
// The series are summed one after the other, each on all threads and in the same blocks, and each ends in one
// division, its weight folded into numerator and denominator. One meter shows the progress of the whole.
#pragma once

#include <memory>
#include <vector>

#include "control/phases.h"
#include "series/kc_BSS_P2B3_Type0.h"
#include "shell/status_line.h"

namespace kelvane {

class WeightedSum {
public:
  struct Share {
    std::unique_ptr<kc_BSS_P2B3_Type0> series;
    bool outside_term; // X = Q + R
    u64 weight[2];     // their product, both at least 1
    u64 divisor;       // at least 1
    bool subtract;
  };

  void add(std::unique_ptr<kc_BSS_P2B3_Type0> series, bool outside_term, u64 weight, u64 weight2 = 1,
           u64 divisor = 1, bool subtract = false) {
    shares_.push_back({std::move(series), outside_term, {weight, weight2}, divisor, subtract});
  }

  u64 terms(u64 p) const;   // of all series together
  double cost(u64 p) const; // by which run() advances the meter

  // The blocks that run() takes besides the caller's.
  void plan(MemoryPlan& plan, u64 p, const km_MULv3::Context& multiply) const;
  // result <- the sum; result.AL >= number_words(p). Absolute error: below 2^(-64 (p - 1)) times the largest
  // summand (every quotient is right to 2^(-64 (p + 1)) relative, and an addition keeps p + 2 words).
  // progress may be null.
  void run(ComputeContext& context, Console::Progress* progress, u64 p, kob_cdi_GFP& result) const;

private:
  std::vector<Share> shares_;
};

// acc <- acc +/- t by their signs; both are kept to p + 2 words, t may be destroyed. AL >= p + 3 of both.
void add_signed(kob_cdi_GFP& acc, kob_cdi_GFP& t, u64 p);

// A constant that is nothing but such a sum: its memory figure (returns the total) and its run with the texts
// and the finishing sequence.
u64 weighted_sum_memory(const WeightedSum& sum, const MemoryQuery& query, MemoryFigure* result);
void run_weighted_sum(const WeightedSum& sum, ComputeContext& context);

} // namespace kelvane
