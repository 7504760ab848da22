#include "arithmetic/kcm_div.h"

#include <algorithm>

#include "arithmetic/kcm_rcp.h"
#include "arithmetic/words/add.h"
#include "shell/console.h"
#include "shell/exception.h"
#include "shell/heap.h"

namespace kelvane {

namespace {

constexpr const char* NAME = "kcm_div_t9_B()";

constexpr u64 half_precision(u64 p) {
  return std::min(p, (p + 1) / 2 + 1);
}
// Words of N - D q0 that are formed: from N's lowest kept word up to where the cancellation begins,
// and one word for its sign.
constexpr u64 residual_words(u64 p) {
  return p + 4 - half_precision(p);
}

int convergence_failure(const kob_cdi_GFP& N, const kob_cdi_GFP& D) {
  Console::print("topA = ");
  Console::print_s64(N.mag());
  Console::print("\ntopB = ");
  Console::print_s64(D.mag());
  Console::print("\n");
  Console::print(NAME);
  Console::print(": Convergence Failure\n");
  return newton::CONVERGENCE_FAILURE;
}

} // namespace

int kcm_div_t9_B(const km_MULv3::Context& context, kob_cdi_GFP& T, const kob_cdi_GFP& N, const kob_cdi_GFP& D,
                 u64 p, u64* work, u64 PL, void* product_work, const newton::Meter& meter) {
  if (T.AL < p + 3) newton::insufficient_space(T.AL, p + 2, NAME, "AL");
  if (PL < kcm_div_words(p)) newton::insufficient_space(PL, kcm_div_words(p), NAME, "PL");
  const u64 h = half_precision(p);

  kob_cdi_GFP X, q0;
  X.attach(work, h + 3);
  if (kcm_rcp_B(context, X, D, h, work + (h + 3), PL - (h + 3), product_work, meter) != 0)
    return newton::CONVERGENCE_FAILURE;

  q0.attach(work + (h + 3), h + 2);
  meter.begin(p, " - 0M - ");
  set_product(context, q0, N, h, X, h, h, product_work);
  meter.end(newton::product_cost(2 * h));

  meter.begin(p, " - 1M - ");
  set_product(context, T, D, p, q0, h, p, product_work);
  meter.end(newton::product_cost(p + h));

  // r = |N| - |D q0| on the words below the cancellation, in two's complement.
  const u64 k = residual_words(p);
  const s64 low = N.mag() - static_cast<s64>(p + 2);
  u64* r_words = work + (2 * h + 5);
  N.read_slice(r_words, low, k);
  T.read_slice(T.buffer, low, k);
  words::sub_in_place(r_words, T.buffer, k);
  const bool negative = (r_words[k - 1] >> 63) != 0;
  if (negative) {
    words::complement(r_words, r_words, k);
    words::add_word(r_words, k, 1);
  }
  if (r_words[k - 1] != 0) return convergence_failure(N, D);
  kob_cdi_GFP r;
  r.attach(r_words, k);
  r.set_value(k, low, 1);

  meter.begin(p, " - 2M - ");
  set_product(context, r, X, k - 2, r, k - 2, k - 2, product_work);
  meter.end(newton::product_cost(2 * (p - h)));
  if (negative)
    T.set_sub_magnitude(q0, r, p);
  else
    T.set_add_magnitude(q0, r, p);
  T.sign = N.sign == D.sign;
  return 0;
}

u64 kcm_div_words(u64 p) {
  const u64 h = half_precision(p);
  return std::max((h + 3) + (h + 2) + residual_words(p), (h + 3) + newton::temporary_words(h));
}

u64 kcm_div_work_bytes(u64 p, const km_MULv3::Context& context) {
  const u64 h = half_precision(p), k = residual_words(p);
  return std::max({kcm_rcp_work_bytes(h, context), product_work_bytes(h, h, context),
                   product_work_bytes(p, h, context), product_work_bytes(k - 2, k - 2, context)});
}

double kcm_div_cost(u64 p) {
  const u64 h = half_precision(p);
  return kcm_rcp_cost(h) + newton::product_cost(2 * h) + newton::product_cost(p + h) +
         newton::product_cost(2 * (p - h));
}

namespace {

struct DivisionPlacement {
  u64 PL;
  u64* work;
  void* product_work;
  DivisionPlacement(Layout& layout, u64 p, const km_MULv3::Context& context)
      : PL(kcm_div_words(p)), work(layout.take<u64>(PL)),
        product_work(layout.take_bytes(kcm_div_work_bytes(p, context))) {}
};

int divide(const km_MULv3::Context& context, kob_cdi_GFP& T, const kob_cdi_GFP& N, const kob_cdi_GFP& D,
           u64 p, void* work, const newton::Meter& meter) {
  Layout layout(work, division_bytes(p, context));
  const DivisionPlacement place(layout, p, context);
  return kcm_div_t9_B(context, T, N, D, p, place.work, place.PL, place.product_work, meter);
}

} // namespace

u64 division_bytes(u64 p, const km_MULv3::Context& context) {
  Layout layout;
  DivisionPlacement(layout, p, context);
  return layout.used();
}

void divide(const km_MULv3::Context& context, kob_cdi_GFP& T, const kob_cdi_GFP& N, const kob_cdi_GFP& D,
            u64 p, void* work) {
  Console::print("Division...\n");
  int status = 0;
  {
    Console::Progress progress("Iterating: ", kcm_div_cost(p));
    km_MULv3::Context inner = context;
    inner.progress = &progress;
    status = divide(inner, T, N, D, p, work, newton::Meter(&progress));
  }
  if (status != 0) fatal("Computation Failed");
}

void divide_quietly(const km_MULv3::Context& context, kob_cdi_GFP& T, const kob_cdi_GFP& N,
                    const kob_cdi_GFP& D, u64 p, void* work) {
  if (divide(context, T, N, D, p, work, newton::Meter()) != 0) fatal("Computation Failed");
}

} // namespace kelvane
