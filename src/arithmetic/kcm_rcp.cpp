#include "arithmetic/kcm_rcp.h"

#include <algorithm>

namespace kelvane {

namespace {

constexpr const char* NAME = "kcm_rcp_E()";

// Product lengths of a level: A x (p by q words) and x e (q by q + 1 words, both with guards).
u64 level_work_bytes(u64 p, const km_MULv3::Context& context) {
  const u64 q = newton::lower_level(p);
  return std::max(product_work_bytes(p, q, context), product_work_bytes(q, q + 1, context));
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
  if (reciprocal(context, T, A, q, work, PL, product_work, meter, top) != 0)
    return newton::CONVERGENCE_FAILURE;

  kob_cdi_GFP x, e;
  x.attach(work, newton::estimate_words(p));
  e.attach(work + newton::estimate_words(p), newton::residual_words(p));
  x.set_truncated(T, q);

  meter.begin(p, " - 0M - ");
  set_product(context, T, A, p, x, q, p, product_work); // y = A x
  meter.end(newton::product_cost(p + q));
  const newton::Deviation d = newton::deviation_from_one(T, e, q, top, NAME);
  return newton::correct(context, T, x, e, d, p, false, product_work, meter);
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
  for (; p > 0; p = newton::lower_level(p)) bytes = std::max(bytes, level_work_bytes(p, context));
  return bytes;
}

double kcm_rcp_cost(u64 p) {
  double cost = 0;
  for (; p > 0; p = newton::lower_level(p)) {
    const u64 q = newton::lower_level(p);
    cost += newton::product_cost(p + q) + newton::product_cost(2 * q);
  }
  return cost;
}

} // namespace kelvane
