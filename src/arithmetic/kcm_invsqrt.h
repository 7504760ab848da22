// kcm_invsqrt_udw: the inverse square root 1/sqrt(x) of a 64-bit integer by Newton's method.
//
//   t <- t + t (1 - x t^2) / 2, the precision in words doubling at each level (see newton.h).
//
// A level's products are t^2 modulo 2^(64 m) - 1 with m = p/2 + 8 or a little more, and t (1 - x t^2): 2
// transforms of p/2 words and 3 of p; all levels together 1.3 products of p by p words.
#pragma once

#include "arithmetic/kob_cdi_GFP.h"
#include "arithmetic/newton.h"

namespace kelvane {

// T ~ 1/sqrt(x) to p words (p + 2 words kept, relative error about 2^(-64 (p + 1))). x >= 1.
//   T.AL >= p + 3;  work: PL >= newton::temporary_words(p) words;
//   product_work: kcm_invsqrt_work_bytes(p, context) bytes, 64-byte aligned.
// Returns 0, or 2 when an estimate did not converge. B also reports progress on the meter.
int kcm_invsqrt_udw_E(const km_MULv3::Context& context, kob_cdi_GFP& T, u64 x, u64 p, u64* work, u64 PL,
                      void* product_work);
int kcm_invsqrt_udw_B(const km_MULv3::Context& context, kob_cdi_GFP& T, u64 x, u64 p, u64* work, u64 PL,
                      void* product_work, const newton::Meter& meter);

u64 kcm_invsqrt_work_bytes(u64 p, const km_MULv3::Context& context);
double kcm_invsqrt_cost(u64 p); // for progress

// T ~ S/sqrt(x) to p words (p + 2 kept) for S > 0, from t ~ 1/sqrt(x) to newton::lower_level(p) words: the
// root's last step and the product with S in one,
//
//   y = S t,   T = y + y (1 - x t^2) / 2,
//
// whose correction is a product of half the length. A full root and then the product cost 0.25 products of p
// by p words more. T may share t's words, not those of S. T.AL >= p + 3; work: kcm_mul_invsqrt_work_bytes(p,
// context) bytes, 64-byte aligned. Returns 0, or 2 when t is no such estimate.
int kcm_mul_invsqrt(const km_MULv3::Context& context, kob_cdi_GFP& T, const kob_cdi_GFP& S,
                    const kob_cdi_GFP& t, u64 x, u64 p, void* work);
u64 kcm_mul_invsqrt_work_bytes(u64 p, const km_MULv3::Context& context);

} // namespace kelvane
