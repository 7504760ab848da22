#include "arithmetic/kcm_invsqrt.h"

#include <algorithm>
#include <cmath>

namespace kelvane {

namespace {

constexpr const char* NAME = "kcm_invsqrt_udw_E()";

// Product lengths of a level: t^2 (q words squared) and t e (q by q + 1 words), both with guards.
u64 level_work_bytes(u64 p, const km_MULv3::Context& context) {
  const u64 q = newton::lower_level(p);
  return product_work_bytes(q, q + 1, context);
}

int inverse_root(const km_MULv3::Context& context, kob_cdi_GFP& T, u64 x, u64 p, u64* work, u64 PL,
                 void* product_work, const newton::Meter& meter, u64 top) {
  if (p == 0) {
    T.set_double(1.0 / std::sqrt(static_cast<double>(x)), 0);
    return 0;
  }
  newton::check_space(T, p, PL, NAME);
  const u64 q = newton::lower_level(p);
  if (inverse_root(context, T, x, q, work, PL, product_work, meter, top) != 0)
    return newton::CONVERGENCE_FAILURE;

  kob_cdi_GFP t, e;
  t.attach(work, newton::estimate_words(p));
  e.attach(work + newton::estimate_words(p), newton::residual_words(p));
  t.set_truncated(T, q);

  meter.begin(p, " - 0M - ");
  set_square(context, T, t, q, p, product_work);
  T.set_mul_word(T, x); // y = x t^2
  T.trim(p);
  meter.end(newton::product_cost(2 * q));
  const newton::Deviation d = newton::deviation_from_one(T, e, q, top, NAME);
  return newton::correct(context, T, t, e, d, p, true, product_work, meter);
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
  for (; p > 0; p = newton::lower_level(p)) bytes = std::max(bytes, level_work_bytes(p, context));
  return bytes;
}

double kcm_invsqrt_cost(u64 p) {
  double cost = 0;
  for (; p > 0; p = newton::lower_level(p)) cost += 2 * newton::product_cost(2 * newton::lower_level(p));
  return cost;
}

} // namespace kelvane
