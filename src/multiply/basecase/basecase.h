// Schoolbook products of short operands, on 64-bit and 32-bit words.
//
// Cost: na * nb word products (about half of that for squares). No scratch; the result may not overlap the
// operands. The 64-bit kernels come in two builds: plain C++ on 128-bit products, and one on the mulx,
// adcx and adox instructions (basecase_adx.cpp), chosen once from the processor's features.
#pragma once

#include "shell/types.h"

namespace kelvane::km_MULB {

// out[0, na+nb) <- A * B, na and nb at least 1.
void multiply_basecase(u64* out, const u64* A, u64 na, const u64* B, u64 nb);
void multiply_basecase(u32* out, const u32* A, u64 na, const u32* B, u64 nb);

// out[0, 2n) <- A^2, n at least 1.
void square_basecase(u64* out, const u64* A, u64 n);
void square_basecase(u32* out, const u32* A, u64 n);

// The two builds of the 64-bit kernels. has_adx() tells whether the second one may be called; use_adx()
// whether it is chosen, asked once: when the instruction set in force at the program's start is not the
// baseline.
bool has_adx();
bool use_adx();
void multiply_basecase_portable(u64* out, const u64* A, u64 na, const u64* B, u64 nb);
void multiply_basecase_adx(u64* out, const u64* A, u64 na, const u64* B, u64 nb);
void square_basecase_portable(u64* out, const u64* A, u64 n);
void square_basecase_adx(u64* out, const u64* A, u64 n);

} // namespace kelvane::km_MULB
