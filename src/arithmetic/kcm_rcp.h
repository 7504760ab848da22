// kcm_rcp: the reciprocal 1/A by Newton's method, on in-memory floating numbers.
//
//   x <- x + x (1 - A x), the precision in words doubling at each level (see newton.h).
//
// A level's products are A x modulo 2^(64 m) - 1 with m = p + 7 or a little more, and x (1 - A x); both share
// the transform of x. That is 5 transforms of p words, where a product of p by p words takes 6; all levels
// together 1.7 products of p by p words. Source: Brent and Zimmermann, Modern Computer Arithmetic,
// section 4.2.
#pragma once

#include "arithmetic/kob_cdi_GFP.h"
#include "arithmetic/newton.h"

namespace kelvane {

// T ~ 1/A to p words (p + 2 words kept, relative error about 2^(-64 (p + 1))). A is not zero; T has A's sign.
//   T.AL >= p + 3;  work: PL >= newton::temporary_words(p) words;
//   product_work: kcm_rcp_work_bytes(p, context) bytes, 64-byte aligned.
// Returns 0, or 2 when an estimate did not converge (the message is printed).
// E runs silently; B also reports each step's progress on the meter.
int kcm_rcp_E(const km_MULv3::Context& context, kob_cdi_GFP& T, const kob_cdi_GFP& A, u64 p, u64* work,
              u64 PL, void* product_work);
int kcm_rcp_B(const km_MULv3::Context& context, kob_cdi_GFP& T, const kob_cdi_GFP& A, u64 p, u64* work,
              u64 PL, void* product_work, const newton::Meter& meter);

u64 kcm_rcp_work_bytes(u64 p, const km_MULv3::Context& context);
double kcm_rcp_cost(u64 p); // for progress

} // namespace kelvane
