// What the Newton iterations share: level sizes, the deviation from 1, the correction, progress and cost.
//
// A routine for p words calls itself for q words (p = 1: 0, p = 2: 1, else ceil(p/2)),
// starting from a double (p = 0), and improves that result once. The level below writes its result into the
// top words of this one's, where the correction is applied to it: no word of an estimate is moved. Each
// level asks for two temporaries of q + 3 and q + 2 words from the caller's work area, which the levels
// share; the first holds the deviation, the second, once the estimate's, is left unused.
//
// Precision. A level that ends with p + 2 words kept has a relative error of about
// 2^(-64 (p + 1)) (the top word may hold a single bit). The next level, for P <= 2p words,
// squares that error, 2^(-128 (p + 1)) <= 2^(-64 (P + 2)), so that the error of every level
// is that of its own truncation: errors do not build up over the levels. Only p = 1 stays at the
// square of a double's error, about 2^(-100), which p = 2 squares once more.
//
// The deviation is found modulo M = 2^(64 m) - 1 only (see step_products.h). Let y, which is near 1, be the
// product of two integers times 2^(-64 z), so that 1 is 2^(64 z) there and the deviation an integer
// E = y 2^(64 z) - 2^(64 z). A level accepts |1 - y| < 2^(64 (2 - q)) (the theory gives 2^(-64 q) at most),
// that is |E| < 2^(64 (z + 2 - q)). For m >= z + 3 - q that is below M/2, and E is the number of least
// magnitude among those congruent to it modulo M. An estimate that is further off gives some number below M,
// which has about m words and is refused for that.
#pragma once

#include "arithmetic/step_products.h"
#include "multiply/table/km_MULv3.h"
#include "shell/status_line.h"
#include "shell/types.h"

namespace kelvane {

namespace newton {

// Status 0 is success.
inline constexpr int CONVERGENCE_FAILURE = 2;

constexpr u64 lower_level(u64 p) {
  return p <= 2 ? p - 1 : (p + 1) / 2;
}
// Words of the two temporaries of level p: the deviation's, the estimate's.
constexpr u64 residual_words(u64 p) {
  return lower_level(p) + 3;
}
constexpr u64 estimate_words(u64 p) {
  return lower_level(p) + 2;
}
constexpr u64 temporary_words(u64 p) {
  return residual_words(p) + estimate_words(p);
}

// Relative cost of a product of n words, or modulo 2^(64 n) - 1, for progress only.
double product_cost(u64 n);

// Reports the steps of an iteration on a progress meter; a null meter reports nothing.
class Meter {
public:
  explicit Meter(Console::Progress* progress = nullptr) : progress_(progress) {}
  // Names the step on the meter: "Iterating: ", the level's decimal digits and the step's label.
  void begin(u64 p, const char* label) const;
  void end(double cost) const {
    if (progress_ != nullptr) progress_->add(cost);
  }

private:
  Console::Progress* progress_;
};

// The fatal errors for too small buffers: prints the two figures, then "<name>: Insufficient Allocated Space
// - <what>".
[[noreturn]] void insufficient_space(u64 allocated, u64 needed, const char* name, const char* what);

} // namespace newton

class kob_cdi_GFP;

namespace newton {

// How y, the product that should be 1, deviates from it.
enum class Deviation { none, over, under, failed };

// E = |1 - y| from w, the m words of y 2^(64 unit) modulo 2^(64 m) - 1 (destroyed): its top q + 3 words are
// stored in e. Prints the failure messages under the caller's name. e.AL >= residual_words(p).
Deviation deviation_from_one(u64* w, u64 m, u64 unit, kob_cdi_GFP& e, u64 q, u64 top, const char* name);

// The end of level p: T <- x -/+ x e after an over- or under-estimate (x e / 2 when `halve`), x itself
// without a deviation. x, the factor that `products` keeps, has lower_level(p) words right. Returns 0, or 2
// for a failed deviation.
int correct(StepProducts& products, kob_cdi_GFP& T, const kob_cdi_GFP& x, const kob_cdi_GFP& e, Deviation d,
            u64 p, bool halve, const Meter& meter);

// Attaches x, the result of the level below p, to the top words of T.
void attach_estimate(kob_cdi_GFP& x, const kob_cdi_GFP& T, u64 p);

// Fatal unless T has p + 3 words and the work area those of level p's temporaries.
void check_space(const kob_cdi_GFP& T, u64 p, u64 PL, const char* name);

} // namespace newton

} // namespace kelvane
