#include "arithmetic/kcm_rcp.h"

#include <algorithm>

namespace kelvane {

namespace {

constexpr const char* NAME = "kcm_rcp_E()";

// A x: p + 2 by q + 2 words, so that 1 is at position z <= p + q + 4 of the product. x e: q + 2 by q + 3.
StepProducts::Needs level_needs(u64 p) {
  const u64 q = newton::lower_level(p);
  return {.whole = 2 * q + 5, .wrapped = p + 7, .full = p + q + 4, .keep = true, .pair = false};
}

int set_first_estimate(kob_cdi_GFP& T, const kob_cdi_GFP& A) {
  s64 e = 0;
  const double x = 1.0 / A.get_double(&e);
  if (x == 0) {
    T.set_zero();
  } else {
    T.set_double(x, -e);
    T.sign = A.sign;
  }
  return 0;
}

int reciprocal(const km_MULv3::Context& context, kob_cdi_GFP& T, const kob_cdi_GFP& A, u64 p, u64* work,
               u64 PL, void* product_work, const newton::Meter& meter, u64 top) {
  if (p == 0) return set_first_estimate(T, A);
  newton::check_space(T, p, PL, NAME);
  const u64 q = newton::lower_level(p);
  kob_cdi_GFP x, e, a = A;
  newton::attach_estimate(x, T, p);
  if (reciprocal(context, x, A, q, work, PL, product_work, meter, top) != 0)
    return newton::CONVERGENCE_FAILURE;
  e.attach(work, newton::residual_words(p));
  a.trim(p);

  StepProducts products(context, level_needs(p), product_work);
  meter.begin(p, " - 0M - ");
  products.keep({x.T, x.L});
  u64* const y = products.wrapped({a.T, a.L});
  meter.end(newton::product_cost(p));
  const u64 unit = static_cast<u64>(-(a.exp + x.exp));
  const newton::Deviation d = newton::deviation_from_one(y, products.m(), unit, e, q, top, NAME);
  return newton::correct(products, T, x, e, d, p, false, meter);
}

} // namespace

int kcm_rcp_E(const km_MULv3::Context& context, kob_cdi_GFP& T, const kob_cdi_GFP& A, u64 p, u64* work,
              u64 PL, void* product_work) {
  return reciprocal(context, T, A, p, work, PL, product_work, newton::Meter(), p);
}

int kcm_rcp_B(const km_MULv3::Context& context, kob_cdi_GFP& T, const kob_cdi_GFP& A, u64 p, u64* work,
              u64 PL, void* product_work, const newton::Meter& meter) {
  return reciprocal(context, T, A, p, work, PL, product_work, meter, p);
}

u64 kcm_rcp_work_bytes(u64 p, const km_MULv3::Context& context) {
  u64 bytes = 0;
  for (; p > 0; p = newton::lower_level(p))
    bytes = std::max(bytes, StepProducts::work_bytes(level_needs(p), context));
  return bytes;
}

double kcm_rcp_cost(u64 p) {
  double cost = 0;
  for (; p > 0; p = newton::lower_level(p)) cost += 2 * newton::product_cost(p);
  return cost;
}

} // namespace kelvane
