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
// Words of r that matter: from N's lowest kept word up to where the cancellation begins, and one more.
constexpr u64 residual_words(u64 p) {
  return p + 4 - half_precision(p);
}

// N X: h + 2 by h + 2 words; X r: h + 2 by p + 3 - h. D q0: p + 2 by h + 2, so that N's top is at position
// z <= p + h + 5 of the product. A remainder below 2^(64 (z + 1 - h)) is accepted, and m >= z + 2 - h tells
// it from every other (as in newton.h).
StepProducts::Needs last_needs(u64 p, const km_MULv3::Context& context) {
  const u64 h = half_precision(p);
  return {.whole = std::max(2 * h + 4, p + 5),
          .wrapped = p + 8,
          .full = p + h + 5,
          .keep = !context.reduced_memory,
          .pair = true};
}

// w <- D q0 - N modulo 2^(64 m) - 1 in units of 2^(64 *base), for w = D q0 in the same units, which formed
// whole has dq_words words; returns its sign (true: negative). Words of N below `low` may be left out.
bool negative_remainder(u64* w, u64 m, u64 dq_words, s64* base, const kob_cdi_GFP& N, s64 low) {
  if (*base > low) { // D and q0 are short: zeros below, so that the words of N from `low` on find their place
    const u64 zeros = std::min(static_cast<u64>(*base - low), m), moved = std::min(dq_words, m - zeros);
    std::copy_backward(w, w + moved, w + zeros + moved);
    std::fill(w, w + zeros, u64{0});
    *base = low;
  }
  const u64 skip = N.exp < *base ? std::min(static_cast<u64>(*base - N.exp), N.L) : 0;
  const s64 from = N.exp + static_cast<s64>(skip);
  return newton::subtract_modulo(w, m, N.T + skip, N.L - skip, static_cast<u64>(from - *base));
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

  kob_cdi_GFP X, q0, n = N, d = D, product;
  X.attach(work, h + 3);
  if (kcm_rcp_B(context, X, D, h, work + (h + 3), PL - (h + 3), product_work, meter) != 0)
    return newton::CONVERGENCE_FAILURE;
  X.trim(h);
  n.trim(h);
  d.trim(p);
  StepProducts products(context, last_needs(p, context), product_work);
  products.keep({X.T, X.L});

  q0.attach(work + (h + 3), h + 2);
  meter.begin(p, " - 0M - ");
  product.attach(products.whole({n.T, n.L}), n.L + X.L);
  product.set_value(n.L + X.L, n.exp + X.exp, 1);
  q0.set_truncated(product, h);
  meter.end(newton::product_cost(2 * h));

  meter.begin(p, " - 1M - ");
  u64* const w = products.wrapped({d.T, d.L}, {q0.T, q0.L});
  meter.end(newton::product_cost(p));

  const s64 low = N.mag() - static_cast<s64>(p + 2);
  s64 base = d.exp + q0.exp;
  const bool low_estimate = negative_remainder(w, products.m(), d.L + q0.L, &base, N, low);
  const u64 L = newton::magnitude_length(w, products.m(), low_estimate);
  const u64 below = static_cast<u64>(low - base);
  if (base + static_cast<s64>(L) > N.mag() - static_cast<s64>(h) + 1) return convergence_failure(N, D);
  if (L <= below) { // nothing that matters
    T.set_truncated(q0, p);
  } else {
    u64* const r = work + (2 * h + 5);
    newton::copy_magnitude(r, w + below, L - below, low_estimate);
    meter.begin(p, " - 2M - ");
    product.attach(products.whole({r, L - below}), L - below + X.L);
    product.set_value(L - below + X.L, low + X.exp, 1);
    meter.end(newton::product_cost(p));
    if (low_estimate)
      T.set_add_magnitude(q0, product, p);
    else
      T.set_sub_magnitude(q0, product, p);
  }
  T.sign = N.sign == D.sign;
  return 0;
}

u64 kcm_div_words(u64 p) {
  const u64 h = half_precision(p);
  return std::max((h + 3) + (h + 2) + residual_words(p), (h + 3) + newton::temporary_words(h));
}

u64 kcm_div_work_bytes(u64 p, const km_MULv3::Context& context) {
  return std::max(kcm_rcp_work_bytes(half_precision(p), context),
                  StepProducts::work_bytes(last_needs(p, context), context));
}

double kcm_div_cost(u64 p) {
  const u64 h = half_precision(p);
  return kcm_rcp_cost(h) + newton::product_cost(2 * h) + 2 * newton::product_cost(p);
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
