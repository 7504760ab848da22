#include "control/phases.h"

#include <algorithm>

#include "arithmetic/kcm_div.h"
#include "arithmetic/kcm_invsqrt.h"
#include "shell/console.h"
#include "shell/exception.h"
#include "shell/settings.h"
#include "shell/status_line.h"

namespace kelvane {

namespace {

struct RootPlacement {
  u64 PL;
  u64* work;
  void* product_work;
  RootPlacement(Layout& layout, u64 p, const km_MULv3::Context& context)
      : PL(newton::temporary_words(p)), work(layout.take<u64>(PL)),
        product_work(layout.take_bytes(kcm_invsqrt_work_bytes(p, context))) {}
};

} // namespace

u64 inverse_square_root_bytes(u64 p, const km_MULv3::Context& context) {
  Layout layout;
  RootPlacement(layout, p, context);
  return layout.used();
}

void inverse_square_root(ComputeContext& context, kob_cdi_GFP& T, u64 x, u64 p) {
  begin_phase(context, "InvSqrt");
  Console::print("InvSqrt...\n");
  const u64 bytes = inverse_square_root_bytes(p, context.multiply);
  const HeapBlock block(context.heap, bytes);
  Layout layout(block.data(), bytes);
  const RootPlacement place(layout, p, context.multiply);
  int status = 0;
  {
    Console::Progress progress("Iterating: ", kcm_invsqrt_cost(p));
    km_MULv3::Context multiply = context.multiply;
    multiply.progress = &progress;
    status = kcm_invsqrt_udw_B(multiply, T, x, p, place.work, place.PL, place.product_work,
                               newton::Meter(&progress));
  }
  if (status != 0) fatal("Computation Failed");
  end_phase();
}

// A merge of the series counts as one product of its length and is about three.
double quotient_cost(u64 p) {
  return kcm_div_cost(p) / 3;
}

kob_cdi_GFP as_GFP(const kob_cdi_EFPh& x) {
  kob_cdi_GFP view;
  view.buffer = x.buffer;
  view.T = x.T;
  view.exp = x.exp;
  view.L = x.L;
  view.AL = x.AL;
  return view;
}

void begin_phase(ComputeContext& context, const char* event) {
  context.events.record(event);
  Console::status_line().restart_clock();
}

void end_phase() {
  Console::status_line().print_time();
}

namespace {

// The fraction words of the result that the finishing sequence reads: those of the settings' precision.
u64 fraction_words(const MemoryQuery& query) {
  return query.precision_words;
}

// What the program takes besides its reservations: code and libraries, and the stacks of its threads
// (measured: about 6 MiB and 30 KiB for each thread alive at the same time).
constexpr u64 PROGRAM_BYTES = u64{6} << 20, THREAD_BYTES = u64{32} << 10;

} // namespace

// The result is a positive number whose fraction lies below position 0. Its top fraction words stay where
// they are; missing ones (an exact result) cannot occur, since every constant here is irrational and kept to
// more words than the settings ask for.
void finish(ComputeContext& context, kob_cdi_GFP& x) {
  const ComputeSettings& settings = context.settings;
  const u64 fraction = static_cast<u64>(-x.exp), kept = settings.precision_words;
  if (x.exp >= 0 || fraction < kept || x.mag() < 0) fatal("Computation Failed");
  context.compute_end = Console::wall_seconds();

  FinishInput input;
  input.integer_words = x.mag() > 0 ? static_cast<u64>(x.mag()) : 1;
  input.integer = x.mag() > 0 ? x.T[fraction] : 0;
  input.fraction = x.T + (fraction - kept);
  input.fraction_words = kept;
  input.decimal_digits = settings.decimal_digits;
  input.hexadecimal_digits = settings.hexadecimal_digits;
  input.write_digits = settings.write_digits;
  input.output = {settings.output_path, settings.constant->get_name(),
                  settings.constant->get_algorithm_short_name(settings.algorithm), settings.digits_per_file};
  // Keeps the number of a compressed file apart from names like "Machin 1".
  if (settings.digits_per_file != 0) input.output.second_name += " - ";
  FinishHooks hooks;
  hooks.record = [&context](const char* event) { context.events.record(event); };
  hooks.faults = context.faults.conversion;
  finish_and_output(context.multiply, context.heap, input, context.result, hooks);
}

void plan_finish(MemoryPlan& plan, const MemoryQuery& query, bool reduced_memory) {
  plan.step(finish_memory_bytes(query.decimal_digits, query.hexadecimal_digits, fraction_words(query),
                                query.threads, reduced_memory));
}

MemoryFigure memory_figure(const MemoryPlan& plan, const MemoryQuery& query) {
  MemoryFigure figure;
  figure.working = plan.peak();
  figure.tables = km_MULv3::table_bytes(largest_product(query));
  figure.other = PROGRAM_BYTES + query.threads * THREAD_BYTES;
  return figure;
}

} // namespace kelvane
