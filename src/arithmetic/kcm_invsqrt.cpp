#include "arithmetic/kcm_invsqrt.h"

#include <algorithm>
#include <cmath>

#include "arithmetic/words/add.h"
#include "shell/heap.h"

namespace kelvane {

namespace {

constexpr const char* NAME = "kcm_invsqrt_udw_E()";

// x t^2: t has q + 2 words, so that 1 is at position z <= 2 q + 5 of the product. t e: q + 2 by q + 3. The
// transform of t for its square is half as long as the one for t e.
StepProducts::Needs level_needs(u64 p) {
  const u64 q = newton::lower_level(p);
  return {.whole = 2 * q + 5, .wrapped = q + 8, .full = 2 * q + 5, .keep = false, .pair = false};
}

// The square alone.
StepProducts::Needs square_needs(u64 p) {
  StepProducts::Needs needs = level_needs(p);
  needs.whole = 0;
  return needs;
}

// The deviation of x t^2 from 1 at level p, stored in e.
newton::Deviation deviation(StepProducts& products, const kob_cdi_GFP& t, u64 x, kob_cdi_GFP& e, u64 p,
                            u64 top) {
  u64* const y = products.wrapped({t.T, t.L}, {t.T, t.L});
  newton::multiply_modulo(y, products.m(), x);
  const u64 unit = static_cast<u64>(-2 * t.exp);
  return newton::deviation_from_one(y, products.m(), unit, e, newton::lower_level(p), top, NAME);
}

int inverse_root(const km_MULv3::Context& context, kob_cdi_GFP& T, u64 x, u64 p, u64* work, u64 PL,
                 void* product_work, const newton::Meter& meter, u64 top) {
  if (p == 0) {
    T.set_double(1.0 / std::sqrt(static_cast<double>(x)), 0);
    return 0;
  }
  newton::check_space(T, p, PL, NAME);
  const u64 q = newton::lower_level(p);
  kob_cdi_GFP t, e;
  newton::attach_estimate(t, T, p);
  if (inverse_root(context, t, x, q, work, PL, product_work, meter, top) != 0)
    return newton::CONVERGENCE_FAILURE;
  e.attach(work, newton::residual_words(p));

  StepProducts products(context, level_needs(p), product_work);
  meter.begin(p, " - 0M - ");
  products.keep({t.T, t.L});
  const newton::Deviation d = deviation(products, t, x, e, p, top);
  meter.end(newton::product_cost(q));
  return newton::correct(products, T, t, e, d, p, true, meter);
}

} // namespace

int kcm_invsqrt_udw_E(const km_MULv3::Context& context, kob_cdi_GFP& T, u64 x, u64 p, u64* work, u64 PL,
                      void* product_work) {
  return inverse_root(context, T, x, p, work, PL, product_work, newton::Meter(), p);
}

int kcm_invsqrt_udw_B(const km_MULv3::Context& context, kob_cdi_GFP& T, u64 x, u64 p, u64* work, u64 PL,
                      void* product_work, const newton::Meter& meter) {
  return inverse_root(context, T, x, p, work, PL, product_work, meter, p);
}

u64 kcm_invsqrt_work_bytes(u64 p, const km_MULv3::Context& context) {
  u64 bytes = 0;
  for (; p > 0; p = newton::lower_level(p))
    bytes = std::max(bytes, StepProducts::work_bytes(level_needs(p), context));
  return bytes;
}

double kcm_invsqrt_cost(u64 p) {
  double cost = 0;
  for (; p > 0; p = newton::lower_level(p))
    cost += newton::product_cost(newton::lower_level(p)) + newton::product_cost(p);
  return cost;
}

namespace {

struct MulPlacement {
  u64* e;
  void* product_work;
  MulPlacement(Layout& layout, u64 p, const km_MULv3::Context& context)
      : e(layout.take<u64>(newton::residual_words(p))) {
    const u64 q = newton::lower_level(p);
    product_work = layout.take_bytes(
        std::max({StepProducts::work_bytes(square_needs(p), context), product_work_bytes(p, q, context),
                  product_work_bytes(q, q + 1, context)}));
  }
};

} // namespace

u64 kcm_mul_invsqrt_work_bytes(u64 p, const km_MULv3::Context& context) {
  Layout layout;
  MulPlacement(layout, p, context);
  return layout.used();
}

int kcm_mul_invsqrt(const km_MULv3::Context& context, kob_cdi_GFP& T, const kob_cdi_GFP& S,
                    const kob_cdi_GFP& t, u64 x, u64 p, void* work) {
  Layout layout(work, kcm_mul_invsqrt_work_bytes(p, context));
  const MulPlacement place(layout, p, context);
  const u64 q = newton::lower_level(p);
  kob_cdi_GFP e;
  e.attach(place.e, newton::residual_words(p));
  newton::Deviation d;
  {
    StepProducts products(context, square_needs(p), place.product_work);
    d = deviation(products, t, x, e, p, p);
  }
  if (d == newton::Deviation::failed) return newton::CONVERGENCE_FAILURE;
  set_product(context, T, S, p, t, q, p, place.product_work);
  if (d == newton::Deviation::none) return 0;
  set_product(context, e, T, q, e, q + 1, q + 1, place.product_work);
  words::shift_right(e.T, e.T, e.L, 1);
  if (d == newton::Deviation::over)
    T.set_sub_magnitude(T, e, p);
  else
    T.set_add_magnitude(T, e, p);
  return 0;
}

} // namespace kelvane
