// The carries between runs of digits.
#pragma once

#include "shell/types.h"

namespace kelvane::km_FFTv2 {

// `words` (length `size`) hold the runs of digits one after another, run_bytes each; carry[i] goes from run i
// into run i + 1. What leaves the top returns at the bottom with the opposite sign: the sum is reduced modulo
// 2^(64 size) + 1 to the product, which lies in [0, 2^(64 size)).
//
// The points are those of the product of two polynomials in 2^b modulo y^N + 1. Balanced digits may reach one
// place above the operand's own, so a product near the full capacity can have points at y^N and above; they
// have come back negated at the bottom, the number of the points then is the product minus a small multiple
// of 2^(64 size) + 1, and this step undoes just that.
void finish_carries(u64* words, u64 size, const s64* carry, u64 runs, u64 run_bytes);

} // namespace kelvane::km_FFTv2
