// The carries between runs of digits.
#pragma once

#include "shell/types.h"

namespace kelvane::km_FFTv2 {

// A number of count * bytes bytes, little-endian, in runs one after another: the first `below` of them in the
// caller's result, the others, which may reach beyond it, elsewhere; run h at h * bytes of either.
struct Runs {
  u8* result;
  u64 below;
  u8* rest;
  u64 count;
  u64 bytes; // of a run, at least 8

  u8* at(u64 h) const { return (h < below ? result : rest) + h * bytes; }
};

// carry[i] goes from run i into run i + 1. What leaves the top returns at the bottom with the opposite sign:
// the sum is reduced modulo 2^(8 count bytes) + 1 to the product, which lies in [0, 2^(8 count bytes)).
//
// The points are those of the product of two polynomials in 2^b modulo y^N + 1. Balanced digits may reach one
// place above the operand's own, so a product near the full capacity can have points at y^N and above; they
// have come back negated at the bottom, the number of the points then is the product minus a small multiple
// of the modulus, and this step undoes just that.
void finish_carries(const Runs& runs, const s64* carry);

} // namespace kelvane::km_FFTv2
