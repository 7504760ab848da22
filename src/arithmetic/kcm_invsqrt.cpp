#include "arithmetic/kcm_invsqrt.h"

#include <algorithm>
#include <cmath>

namespace kelvane {

namespace {

constexpr const char* NAME = "kcm_invsqrt_udw_E()";

// x t^2: t has q + 2 words, so that 1 is at position z <= 2 q + 5 of the product. t e: q + 2 by q + 3. The
// transform of t for its square is half as long as the one for t e.
StepProducts::Needs level_needs(u64 p) {
  const u64 q = newton::lower_level(p);
  return {.whole = 2 * q + 5, .wrapped = q + 8, .full = 2 * q + 5, .keep = false, .pair = false};
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
  u64* const y = products.wrapped({t.T, t.L}, {t.T, t.L});
  newton::multiply_modulo(y, products.m(), x); // y = x t^2
  meter.end(newton::product_cost(q));
  const u64 unit = static_cast<u64>(-2 * t.exp);
  const newton::Deviation d = newton::deviation_from_one(y, products.m(), unit, e, q, top, NAME);
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

} // namespace kelvane
