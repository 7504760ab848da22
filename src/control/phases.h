// The steps that several constants share: roots, the hand-over to the finishing sequence, and
// the words of their memory plans.
#pragma once

#include "arithmetic/kob_cdi_EFPh.h"
#include "arithmetic/kob_cdi_GFP.h"
#include "control/compute_context.h"
#include "control/constant.h"
#include "control/memory_plan.h"

namespace kelvane {

// What the products of a run will be told, for memory queries.
inline km_MULv3::Context query_context(const MemoryQuery& query, bool reduced_memory = false) {
  km_MULv3::Context context;
  context.threads = query.threads;
  context.reduced_memory = reduced_memory;
  return context;
}

// Words of precision of every step of a run whose result has `precision_words` words: one guard word.
constexpr u64 run_precision(u64 precision_words) {
  return precision_words + 1;
}
// Words of a buffer for a number of p words: two guard words, a carry, and one for a word product.
constexpr u64 number_words(u64 p) {
  return p + 4;
}

// T <- 1/sqrt(x) to p words: prints "InvSqrt...\n", shows "Iterating: " and the time. "Computation Failed" is
// fatal.
void inverse_square_root(ComputeContext& context, kob_cdi_GFP& T, u64 x, u64 p);
u64 inverse_square_root_bytes(u64 p, const km_MULv3::Context& context);

// A quotient to p words in the unit of the series' costs.
double quotient_cost(u64 p);

// A view of an integer with residue as a floating number; no words are copied.
kob_cdi_GFP as_GFP(const kob_cdi_EFPh& x);

// Records the event and restarts the clock of the phase; end_phase prints "Time:    " and the seconds.
void begin_phase(ComputeContext& context, const char* event);
void end_phase();

// Marks the end of the computation itself and hands the result to conversion, output and verification.
// The result may be trimmed to the precision of the settings in place.
void finish(ComputeContext& context, kob_cdi_GFP& result);
// The allocations of finish(), on top of those that are live when it is called.
void plan_finish(MemoryPlan& plan, const MemoryQuery& query, bool reduced_memory = false);

// The longest product of a run, in words: products of two numbers of the run's precision, guard words
// included.
constexpr u64 largest_product(const MemoryQuery& query) {
  return 2 * (query.precision_words + 16);
}

// The figure of a run from its plan: reservation, root tables for its largest product, and the rest.
MemoryFigure memory_figure(const MemoryPlan& plan, const MemoryQuery& query);

} // namespace kelvane
