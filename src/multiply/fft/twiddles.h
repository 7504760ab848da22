// The roots of unity of the transforms.
//
// A transform of n = r 2^q complex points works modulo x^n - i. Node 1 of a binary tree is that modulus;
// node J stands for x^M - e(psi_J), e(t) = exp(2 pi i t), and splits into
//   x^(M/2) - s_J  (node 2J)  and  x^(M/2) + s_J  (node 2J+1),   s_J = e(psi_J / 2).
// So psi_1 = 1/4, psi_2J = psi_J / 2 and psi_(2J+1) = psi_J / 2 + 1/2: for J = 2^l + t
//   psi_J = 0.t reversed in l binary places + 2^-(l+2).
// The angles do not depend on n: one table serves every length.
//
// With L lanes, a base block of r L^2 points below node J needs e(psi_J / 2^i), i = 1 .. 2 log2 L, and for
// r = 3, 5 the powers w^1 .. w^(r-1) of w = e(psi_J / (r L^2)); what its lanes need beyond that are the same
// constants for every J (see LaneTable). Passes above the base blocks use the first entry, s_J.
//
// Every component is the rounding of a value computed to about 2^-60: within 0.51 * 2^-53.
#pragma once

#include "multiply/simd/isa.h"
#include "multiply/table/abstract_table_d.h"
#include "shell/types.h"

namespace kelvane::km_FFTv2 {

// The roots for kernels of L lanes. Complex numbers lie re, im; vectors of them L re, then L im.
struct LaneTable {
  u32 log_lanes = 0;
  const double* roots = nullptr;   // [J][i]: e(psi_J / 2^i), i = 1 .. 2 log2 L
  const double* cubic = nullptr;   // [J][c]: e(c psi_J / (3 L^2)), c = 1, 2
  const double* quintic = nullptr; // [J][c]: e(c psi_J / (5 L^2)), c = 1 .. 4
  // Constants of the lanes l = 0 .. L-1, with rev = the reversal of log2 L bits, as a fraction:
  const double* lane_roots =
      nullptr; // [i]: e(rev(l) / 2^i), i = 1 .. log2 L; for L = 8 a fourth, the third times e(1/8)
  const double* lane_cubic = nullptr;   // [g][c]: e(c (rev(g) + rev(l)/L) / 3)
  const double* lane_quintic = nullptr; // [g][c]: the same with 5
};

// The tables for 2, 4 and 8 lanes; short transforms use fewer lanes than the instruction set has.
struct table_t {
  simd::Isa isa = simd::Isa::sse3;
  LaneTable lanes[3];
};

class table_d : public km_MULv3::abstract_table_d<table_t> {
public:
  // Bytes of the tables that products of up to n words need with the instruction set in force.
  static u64 bytes(u64 n);
  // Builds them in `memory` (bytes(n), 64-byte aligned), which stays the caller's.
  // About 0.1 microseconds per entry and thread.
  void build(void* memory, u64 n, u64 threads);
};

} // namespace kelvane::km_FFTv2
