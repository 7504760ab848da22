// Schoolbook products of short operands, on 64-bit and 32-bit words.
//
// Cost: na * nb word products (about half of that for squares). No scratch; the result may not overlap the
// operands. The 64-bit kernels come in two builds: plain C++ on 128-bit products, and one on the mulx,
// adcx and adox instructions (*_adx.cpp), chosen once from the processor's features.
#pragma once

#include "shell/types.h"

namespace kelvane::km_MULB {

// out[0, na+nb) <- A * B, na and nb at least 1.
void multiply_basecase(u64* out, const u64* A, u64 na, const u64* B, u64 nb);
void multiply_basecase(u32* out, const u32* A, u64 na, const u32* B, u64 nb);

// out[0, 2n) <- A^2, n at least 1.
void square_basecase(u64* out, const u64* A, u64 n);
void square_basecase(u32* out, const u32* A, u64 n);

// One build of the 64-bit kernels: a function for every length of A up to MAX_FIXED, the one of length 0 for
// all others. One jump through a table costs a short product less than a call that then asks for the length.
constexpr u64 MAX_FIXED = 12; // the longest rows of the recursion, the longest square below it

struct Products {
  void (*of_length[MAX_FIXED + 1])(u64* out, const u64* A, u64 na, const u64* B, u64 nb);
  void operator()(u64* out, const u64* A, u64 na, const u64* B, u64 nb) const {
    of_length[na <= MAX_FIXED ? na : 0](out, A, na, B, nb);
  }
};
struct Squares {
  void (*of_length[MAX_FIXED + 1])(u64* out, const u64* A, u64 n);
  void operator()(u64* out, const u64* A, u64 n) const { of_length[n <= MAX_FIXED ? n : 0](out, A, n); }
};
extern const Products PORTABLE_PRODUCTS, ADX_PRODUCTS;
extern const Squares PORTABLE_SQUARES, ADX_SQUARES;

// Whether the processor can run the ADX kernels; whether they are chosen, asked once: when the instruction
// set in force at the program's start is not the baseline.
bool has_adx();
bool use_adx();

} // namespace kelvane::km_MULB
