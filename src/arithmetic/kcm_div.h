// kcm_div_t9: the quotient N/D, from a reciprocal of half the precision and one correction.
//
//   X ~ 1/D to h = ceil(p/2) + 1 words;   0M: q0 = N X;   1M: D q0, r = N - D q0;   2M: q0 + X r
//
// r is about 2^(-64 h) of N, so D q0 is wanted modulo 2^(64 m) - 1 only, m = p + 8 or a little more; the
// transform of X serves 0M and 2M. The quotient's relative error is the square of the reciprocal's plus that
// of the truncations, about 2^(-64 (p + 1)). Cost: 8 transforms of p words and the reciprocal's, together 2.2
// products of p by p words. With reduced memory no transform is kept: one transform more. Source: Karp and
// Markstein, High-precision division and square root, ACM TOMS 23 (1997).
#pragma once

#include "arithmetic/kob_cdi_GFP.h"
#include "arithmetic/newton.h"

namespace kelvane {

// T ~ N/D to p words (p + 2 kept). N and D are not zero.
//   T.AL >= p + 3;  work: PL >= kcm_div_words(p) words;
//   product_work: kcm_div_work_bytes(p, context) bytes, 64-byte aligned.
// Returns 0, or 2 when the estimate did not converge (the message is printed).
int kcm_div_t9_B(const km_MULv3::Context& context, kob_cdi_GFP& T, const kob_cdi_GFP& N, const kob_cdi_GFP& D,
                 u64 p, u64* work, u64 PL, void* product_work, const newton::Meter& meter);

u64 kcm_div_words(u64 p);
u64 kcm_div_work_bytes(u64 p, const km_MULv3::Context& context);
double kcm_div_cost(u64 p); // for progress

// The division of the series and of the finishing steps: prints "Division...\n", runs kcm_div_t9_B under the
// meter "Iterating: " and ends the program with "Computation Failed" when it does not converge.
// work: division_bytes(p, context) bytes, 64-byte aligned.
void divide(const km_MULv3::Context& context, kob_cdi_GFP& T, const kob_cdi_GFP& N, const kob_cdi_GFP& D,
            u64 p, void* work);
// The same without texts: for computations whose meter shows the whole.
void divide_quietly(const km_MULv3::Context& context, kob_cdi_GFP& T, const kob_cdi_GFP& N,
                    const kob_cdi_GFP& D, u64 p, void* work);
u64 division_bytes(u64 p, const km_MULv3::Context& context);

} // namespace kelvane
