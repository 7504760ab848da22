#include "control/phases.h"

#include <algorithm>

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
  RootPlacement(Layout& layout, u64 p, u64 threads)
      : PL(newton::temporary_words(p)), work(layout.take<u64>(PL)),
        product_work(layout.take_bytes(kcm_invsqrt_work_bytes(p, threads))) {}
};

} // namespace

u64 inverse_square_root_bytes(u64 p, u64 threads) {
  Layout layout;
  RootPlacement(layout, p, threads);
  return layout.used();
}

void inverse_square_root(ComputeContext& context, kob_cdi_GFP& T, u64 x, u64 p) {
  begin_phase(context, "InvSqrt");
  Console::print("InvSqrt...\n");
  const u64 threads = context.multiply.threads, bytes = inverse_square_root_bytes(p, threads);
  const Block block(context.heap, bytes);
  Layout layout(block.data(), bytes);
  const RootPlacement place(layout, p, threads);
  int status = 0;
  {
    Console::Progress progress("Iterating: ", kcm_invsqrt_cost(p));
    km_MULv3::Context multiply = context.multiply;
    multiply.progress = &progress;
    status = kcm_invsqrt_udw_B(multiply, T, x, p, place.work, place.PL, place.product_work, newton::Meter(&progress));
  }
  if (status != 0) fatal("Computation Failed");
  end_phase();
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

void end_phase() { Console::status_line().print_time(); }

} // namespace kelvane
